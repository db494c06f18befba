# SPDX-License-Identifier: MIT
"""clang's syntax tree of a translation unit, reduced to the project's own files."""

import json
import re
import subprocess

# Nodes that the source text does not show: they share the place of the expression in them.
INVISIBLE = {
    "ImplicitCastExpr",
    "ExprWithCleanups",
    "ConstantExpr",
    "MaterializeTemporaryExpr",
    "CXXBindTemporaryExpr",
    "SubstNonTypeTemplateParmExpr",
    "CXXStdInitializerListExpr",
}

FUNCTIONS = {"FunctionDecl", "CXXMethodDecl", "CXXConstructorDecl", "CXXDestructorDecl", "CXXConversionDecl"}

# A static assertion is checked by the compiler; default arguments are shown once, where they are declared.
SKIPPED = {"StaticAssertDecl", "CXXDefaultArgExpr", "CXXDefaultInitExpr", "UsingDecl", "FriendDecl"}


def balanced_end(text, position):
    """The end of the parenthesis that opens at the position."""
    depth = 0
    for index in range(position, len(text)):
        depth += {ord("("): 1, ord(")"): -1}.get(text[index], 0)
        if depth == 0:
            return index + 1
    return position


class Source:
    """A file of the project, as bytes: clang counts in them."""

    def __init__(self, name, text):
        self.name = name
        self.text = text

    def after_token(self, offset, length):
        """The end of a token that is the name of a macro, and of the arguments that follow."""
        end = offset + length
        following = re.compile(rb"\s*\(").match(self.text, end)
        return balanced_end(self.text, following.end() - 1) if following else end


class Node:
    """A node of the tree with its place in the source: from `begin` to before `end`."""

    def __init__(self, raw, parent, source, begin, end, is_macro):
        self.raw = raw
        self.kind = raw["kind"]
        self.parent = parent
        self.source = source
        self.begin = begin
        self.end = end
        self.is_macro = is_macro  # wholly the expansion of one macro
        self.slots = []  # clang's children in clang's positions; None for what is not shown in the source
        self.function = ""

    @property
    def children(self):
        return [node for node in self.slots if node is not None]

    @property
    def text(self):
        return self.source.text[self.begin : self.end]

    @property
    def type(self):
        described = self.raw.get("type", {})
        return described.get("desugaredQualType", described.get("qualType", ""))

    @property
    def opcode(self):
        return self.raw.get("opcode", "")

    def visible(self):
        """The node that the source shows at this place."""
        node = self
        while node.kind in INVISIBLE and len(node.children) == 1:
            (node,) = node.children
        return node

    def bare(self):
        """The same without parentheses around it."""
        node = self.visible()
        while node.kind == "ParenExpr" and node.children:
            node = node.children[0].visible()
        return node

    def is_placed_after(self, other):
        return self.source is other.source and self.begin >= other.end


class Place:
    """One location that clang names."""

    def __init__(self, location):
        self.is_macro = "expansionLoc" in location
        location = location.get("expansionLoc", location)
        self.offset = location.get("offset")
        self.file = location.get("file")
        self.length = location.get("tokLen", 0)


class Reader:
    """Makes nodes of clang's JSON, for files that `open_source` knows by their paths (else it returns None)."""

    def __init__(self, open_source):
        self.open_source = open_source
        self.file = None

    def read(self, text):
        nodes = []
        for raw in json.loads(text).get("inner", []):
            self._name_files(raw)
            node = self._node(raw, None, "")
            if node is not None:
                nodes.append(node)
        return nodes

    def _name_files(self, value):
        """clang names the file of a location only where it is not that of the location before."""
        if isinstance(value, list):
            for child in value:
                self._name_files(child)
        elif isinstance(value, dict):
            if "offset" in value:
                self.file = value["file"] = value.get("file", self.file)
                return
            for child in value.values():
                if isinstance(child, (dict, list)):
                    self._name_files(child)

    def _node(self, raw, parent, function):
        if raw.get("kind") is None or raw["kind"] in SKIPPED or raw.get("isImplicit"):
            return None
        node = self._placed(raw, parent)
        if node is None:
            return None
        node.function = function = self._function_of(raw, function)
        node.slots = [self._node(child, node, function) for child in self._shown_children(raw)]
        return node

    def _placed(self, raw, parent):
        if raw["kind"] == "CXXCtorInitializer":
            return Node(raw, parent, parent.source, parent.begin, parent.end, False)
        area = raw.get("range", {})
        begin, end = Place(area.get("begin", {})), Place(area.get("end", {}))
        source = None if begin.file is None or begin.file != end.file else self.open_source(begin.file)
        if source is None:
            return None
        stop = source.after_token(end.offset, end.length) if end.is_macro else end.offset + end.length
        is_macro = begin.is_macro and end.is_macro and begin.offset == end.offset
        return Node(raw, parent, source, begin.offset, stop, is_macro)

    @staticmethod
    def _function_of(raw, function):
        """The function or, outside of all functions, the variable or type that a node belongs to."""
        kind, name = raw["kind"], raw.get("name", "")
        if kind in FUNCTIONS and name and name != "operator()":
            return name
        if not function and kind in ("VarDecl", "FieldDecl", "EnumDecl", "EnumConstantDecl"):
            return name
        return function

    @staticmethod
    def _shown_children(raw):
        children = raw.get("inner", [])
        if raw["kind"] == "LambdaExpr":
            return [child for child in children if child.get("kind") != "CXXRecordDecl"]
        if raw["kind"] == "CXXForRangeStmt":
            # The range and the body; the variables, the condition and the step between them are the compiler's.
            (range_variable,) = children[1]["inner"]
            return [range_variable["inner"][-1], children[-1]]
        return children


def walk(node):
    """The node and those below it; what comes out of a macro is shown, but nothing below it."""
    yield node
    if not node.is_macro:
        for child in node.children:
            yield from walk(child)


def dump(unit):
    """The syntax tree of a translation unit, as JSON. NORV_TRY(step) is a cast there, so that the step has its place."""
    command = ["clang++", *unit.options, "-DNORV_TRY=(void)", "-fsyntax-only", "-Xclang", "-ast-dump=json", unit.source]
    done = subprocess.run(command, cwd=unit.directory, capture_output=True, check=False)
    if done.returncode != 0:
        raise SystemExit(f"mutation: clang does not accept {unit.name}:\n{done.stderr.decode()}")
    return done.stdout
