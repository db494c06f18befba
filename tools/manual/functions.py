# SPDX-License-Identifier: MIT
"""Man pages of the libraries, section 3, from doxygen's XML.

Each header gets a page with its family's description, types and list of functions, named after the header without
its suffix; each function gets a page of its own.
"""

import re
import textwrap
import xml.etree.ElementTree

from manual import roff
from manual.roff import bold, entry, escaped, italic, line, literal, paragraph, section

# ---- doxygen's XML ----


def plain(element):
    """The words of an element, without markup."""
    return "" if element is None else " ".join("".join(element.itertext()).split())


class Describer:
    """Writes descriptions as roff, the names of one function's parameters in italics."""

    def __init__(self, parameters=()):
        self.parameters = frozenset(parameters)

    def inline(self, element):
        """One piece of text with its markup, without the blocks inside."""
        text = escaped(element.text or "")
        for child in element:
            if child.tag not in BLOCKS:
                text += self.piece(child)
            text += escaped(child.tail or "")
        return re.sub(r"\s+", " ", text)

    def piece(self, element):
        if element.tag == "computeroutput":
            word = plain(element)
            return italic(word) if word in self.parameters else bold(word)
        if element.tag in ("ref", "emphasis", "ulink"):
            return escaped(plain(element))
        if element.tag == "bold":
            return bold(plain(element))
        if element.tag in SYMBOLS:
            return SYMBOLS[element.tag]
        raise SystemExit(f"man-pages: no way to write <{element.tag}>")

    def paragraph(self, element):
        """A paragraph, split at each block; parameters and results have their own sections."""
        rows = []
        text = escaped(element.text or "")
        for child in element:
            if child.tag in BLOCKS:
                rows += paragraph(text) + self.block(child)
                text = ""
            else:
                text += self.piece(child)
            text += escaped(child.tail or "")
        return rows + paragraph(text)

    def block(self, element):
        if element.tag == "verbatim":
            return literal(element.text)
        if element.tag in ("itemizedlist", "orderedlist"):
            return self.list(element)
        return []

    def list(self, element):
        rows = []
        for number, item in enumerate(element.findall("listitem"), 1):
            rows.append(f".IP {number}. 4" if element.tag == "orderedlist" else ".IP \\(bu 2")
            rows += [line(self.inline(para)) for para in item.findall("para")]
        return rows

    def description(self, member):
        rows = []
        for kind in ("briefdescription", "detaileddescription"):
            for para in member.find(kind).findall("para"):
                rows += self.paragraph(para)
        return rows

    def joined(self, paras):
        """Paragraphs in one row: for an entry of a list."""
        return line(" ".join(self.inline(para).strip() for para in paras))


BLOCKS = frozenset(("parameterlist", "simplesect", "verbatim", "itemizedlist", "orderedlist"))
SYMBOLS = {"ndash": "\\(en", "mdash": "\\(em", "lsquo": "\\(oq", "rsquo": "\\(cq"}


def laid_out(declaration):
    """A declaration of doxygen's as the headers write it: `(*name)(`, `type* name`."""
    declaration = re.sub(r" ?\(\* (\w+)\) \(", r" (*\1)(", declaration)
    return re.sub(r" (\*+)(?=[\w,)])", r"\1 ", declaration).replace(" *", "*").replace("* )", "*)")


def declaration(member):
    """A function as its header declares it, in rows of a page's width."""
    whole = laid_out(f"{plain(member.find('type'))} {member.findtext('name')}{member.findtext('argsstring')};")
    return [escaped(row) for row in wrapped(whole).split("\n")]


def wrapped(declaration):
    return "\n".join(textwrap.wrap(declaration, 76, subsequent_indent=8 * " "))


def whatis(element):
    """The first clause of a brief description, for the line by which apropos finds a page."""
    clause = re.split(r"[:;(]|\. ", plain(element.find("briefdescription")))[0]
    return escaped(clause.strip().rstrip(".").replace("`", ""))


# ---- pages ----

class Header:
    """One public header."""

    def __init__(self, directory, compound):
        self.compound = compound
        self.file = compound.findtext("compoundname")
        self.family = self.file.removesuffix(".h")
        self.library = "norv_base" if self.family in ("norv_base", "norv_status") else "norv_io_linux"
        self.members = compound.findall("sectiondef/memberdef")
        self.functions = [member for member in self.members if member.get("kind") == "function"]
        self.texts = status_texts(self.members)
        self.structs = [parse(directory / f"{inner.get('refid')}.xml") for inner in compound.findall("innerclass")]

    def beginning(self, name, element, functions, version):
        """What a page begins with: its name, its library, and how these functions are declared."""
        source = f"libnorv_io_linux {version}"
        rows = roff.heading(name, 3, source, "libnorv_io_linux", whatis(element))
        rows += section("LIBRARY", [f"lib{self.library} ({italic('-l' + self.library)})"])
        declarations = [row for function in functions for row in (".PP", *declaration(function))]
        return rows + section("SYNOPSIS", [".nf", bold(f"#include <{self.file}>"), *declarations, ".fi"])

    def page(self, version):
        rows = self.beginning(self.family, self.compound, self.functions, version)
        rows += section("DESCRIPTION", Describer().description(self.compound))
        rows += section("FUNCTIONS", self.function_rows()) + section("TYPES", self.type_rows())
        return rows + self.see_also([function.findtext("name") for function in self.functions])

    def function_rows(self):
        rows = []
        for function in self.functions:
            text = Describer().inline(function.find("briefdescription/para"))
            rows += entry(f"{bold(function.findtext('name'))}(3)", line(text))
        return rows

    def type_rows(self):
        rows = []
        for struct in self.structs:
            fields = struct.findall("sectiondef/memberdef")
            rows += [".SS " + escaped(struct_name(struct, fields)), *Describer().description(struct)]
            rows += entries(fields, field_name)
        for member in self.members:
            if member.get("kind") == "enum":
                rows += [".SS Constants", *Describer().description(member)]
                rows += entries(member.findall("enumvalue"), constant_name, self.texts)
            elif member.get("kind") == "typedef":
                rows += [".SS " + escaped(member.findtext("name")), *literal(definition(member))]
                rows += Describer().description(member) + parameters(Describer(), member)
                rows += [".PP", f"Returns: {result}"] if (result := returned(Describer(), member)) else []
        data = [member for member in self.members if member.get("kind") == "variable"]
        if data:
            rows += [".SS Data", *entries(data, data_name)]
        macros = [member for member in self.members if member.get("kind") == "define"]
        if macros:
            rows += [".SS Macros", *entries(macros, macro_name)]
        return rows

    def function_page(self, function, version):
        name = function.findtext("name")
        describe = Describer(parameter.text for parameter in function.findall("param/declname"))
        rows = self.beginning(name, function, [function], version)
        rows += section("DESCRIPTION", describe.description(function))
        rows += section("PARAMETERS", parameters(describe, function))
        rows += section("RETURN VALUE", return_rows(describe, function))
        return rows + self.see_also([self.family])

    def see_also(self, names):
        others = [*names, *(name for name in ("norv_status", "norv_base") if name not in (*names, self.family))]
        return roff.see_also([(name, 3) for name in others])


def described(describe, member, kind, name):
    """An entry for each parameter (kind "param") or status (kind "retval") of a description."""
    rows = []
    for item in member.findall(f"detaileddescription/para/parameterlist[@kind='{kind}']/parameteritem"):
        title = name(plain(item.find("parameternamelist")))
        rows += entry(title, describe.joined(item.findall("parameterdescription/para")))
    return rows


def parameters(describe, member):
    return described(describe, member, "param", italic)


def returned(describe, member):
    return describe.joined(member.findall("detaileddescription/para/simplesect[@kind='return']/para"))


def return_rows(describe, function):
    result = returned(describe, function)
    statuses = described(describe, function, "retval", bold)
    if statuses and not result:
        result = "0 on success, otherwise (see \\fBnorv_status\\fP(3)):"
    return [result, *statuses] if result else []


def status_texts(members):
    """What the list of statuses says of each, as its macro's rows X(NAME, number, "text")."""
    lists = "\n".join(member.findtext("initializer", "") for member in members)
    return {f"NORV_STATUS_{name}": text for name, text in re.findall(r'X\((\w+), \d+, "(.*)"\)', lists)}


def entries(members, name, texts=None):
    """An entry for each member; one without a description of its own may have it in `texts`."""
    rows = []
    for member in members:
        text = (texts or {}).get(member.findtext("name"), "\\&")
        rows += entry(name(member), Describer().joined(member.findall("*/para")) or text)
    return rows


def definition(member):
    return wrapped(laid_out(plain(member.find("definition"))) + ";")


def struct_name(struct, fields):
    """The name of the type, which fields carry, rather than the tag."""
    owner = re.search(r"(\w+)::", plain(fields[0].find("definition"))) if fields else None
    return owner.group(1) if owner else plain(struct.find("compoundname"))


def field_name(member):
    return bold(laid_out(re.sub(r"\w+::", "", plain(member.find("definition")))))


def data_name(member):
    return bold(laid_out(plain(member.find("definition"))))


def constant_name(member):
    return f"{bold(member.findtext('name'))} {escaped(plain(member.find('initializer')))}".rstrip()


def macro_name(member):
    arguments = ", ".join(member.findtext("defname") for member in member.findall("param"))
    return bold(member.findtext("name") + (f"({arguments})" if arguments else ""))


def parse(path):
    return xml.etree.ElementTree.parse(path).getroot().find("compounddef")


def write_pages(source, output, version):
    for path in sorted(source.glob("*_8h.xml")):
        header = Header(source, parse(path))
        roff.write(output, header.family, 3, header.page(version))
        for function in header.functions:
            roff.write(output, function.findtext("name"), 3, header.function_page(function, version))
