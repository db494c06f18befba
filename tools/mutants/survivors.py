# SPDX-License-Identifier: MIT
"""The list of mutants that no test can distinguish from the original, each with its reason: tests/mutation/survivors.txt.

An entry is a paragraph of `name: value` lines. It names its place by the function and the line of code, with runs of
spaces as one, so that it outlives changes elsewhere in its file.
"""

from pathlib import Path

FIELDS = ("file", "function", "operator", "line", "becomes")


class Entry:
    """One paragraph of the list."""

    def __init__(self, fields, number):
        missing = [name for name in (*FIELDS, "reason") if name not in fields]
        if missing:
            raise SystemExit(f"mutation: the entry at line {number} of the survivors has no {', '.join(missing)}")
        self.key = tuple(fields[name] for name in FIELDS)
        self.occurrence = int(fields.get("occurrence", "1"))
        self.reason = fields["reason"]
        self.number = number

    @property
    def file(self):
        return self.key[0]

    def __str__(self):
        return f"line {self.number}: {self.file}, {self.key[1]}: {self.key[3]} -> {self.key[4]}"


def paragraphs(text):
    """The fields of each paragraph, with the number of its first line. Lines with a # in front are comments."""
    fields, first = {}, 0
    for number, line in enumerate([*text.splitlines(), ""], 1):
        name, colon, value = line.partition(":")
        if line.startswith("#"):
            continue
        if colon:
            first = first if fields else number
            fields[name] = value.strip()
        elif not line.strip() and fields:
            yield fields, first
            fields = {}


def read(path):
    """The entries of the list by key and occurrence."""
    text = Path(path).read_text(encoding="utf-8") if Path(path).exists() else ""
    entries = [Entry(fields, number) for fields, number in paragraphs(text)]
    return {(entry.key, entry.occurrence): entry for entry in entries}


def paragraph(mutant, reason):
    """A mutant as an entry of the list."""
    lines = [f"{name}: {value}" for name, value in zip(FIELDS, mutant.key)]
    if mutant.occurrence > 1:
        lines.append(f"occurrence: {mutant.occurrence}")
    return "\n".join([*lines, f"reason: {reason}"])
