# SPDX-License-Identifier: MIT
"""A man page as rows of roff: what pages of all kinds are made of."""

import re

# ---- words ----


def escaped(text):
    """Text as roff reads it; a backslash and a hyphen mean themselves."""
    return text.replace("\\", "\\e").replace("-", "\\-")


def line(text):
    """A line of text that roff does not take for a request."""
    text = text.strip()
    return "\\&" + text if text.startswith((".", "'")) else text


def bold(text):
    return f"\\fB{escaped(text)}\\fP"


def italic(text):
    return f"\\fI{escaped(text)}\\fP"


# ---- rows ----


def paragraph(text):
    """A paragraph of escaped text, in one row."""
    text = re.sub(r"\s+", " ", text).strip()
    return [".PP", line(text)] if text else []


def example(text):
    """Lines as they stand. (The requests .EX and .EE would let words be hyphenated again.)"""
    rows = [("\\&" if row.startswith((".", "'")) else "") + escaped(row) for row in text.strip("\n").split("\n")]
    return [".nf", *rows, ".fi"]


def literal(text):
    """Lines as they stand, in a paragraph of their own."""
    return [".PP", ".in +4n", *example(text), ".in"]


def entry(title, text):
    """A title, and what it means."""
    return [".TP", title, text]


def section(title, rows):
    """A section, unless it is empty."""
    return [f".SH {title}", *rows] if rows else []


# ---- pages ----


def heading(name, number, source, manual, what):
    """The beginning of a page. Left-adjusted: groff 1.23 takes the string AD, older versions the request."""
    rows = [".ds AD l", f'.TH {name.upper()} {number} "" "{source}" "{manual}"', ".ad l", ".nh"]
    return rows + section("NAME", [f"{name} \\- {what}"])


def see_also(pages):
    """References to pages, each a name and the number of its section of the manual."""
    rows = [f".BR {name} ({number})," for name, number in pages]
    return section("SEE ALSO", [*rows[:-1], rows[-1].removesuffix(",")])


def write(directory, name, number, rows):
    (directory / f"{name}.{number}").write_text("\n".join(rows) + "\n", encoding="utf-8")
