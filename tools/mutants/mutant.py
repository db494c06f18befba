# SPDX-License-Identifier: MIT
"""Mutants: one change each of one of the project's files, and where they are found."""

import re
from concurrent.futures import ProcessPoolExecutor
from dataclasses import dataclass

from . import operators, syntax


def collapsed(text):
    return re.sub(r"\s+", " ", text).strip()


def shortened(text, limit=60):
    text = collapsed(text)
    return text if len(text) <= limit else text[: limit - 3] + "..."


@dataclass
class Mutant:
    """A change of the bytes from `begin` to before `end`."""

    file: str
    begin: int
    end: int
    new: bytes
    operator: str
    function: str
    id: str = ""
    line: int = 0
    last_line: int = 0
    before: str = ""  # the lines concerned, as they are
    after: str = ""  # and as the mutant has them
    occurrence: int = 1  # among those of the same key, in the order of the file

    def describe(self, text):
        """Fills in what people read, from the text of the file."""
        start = text.rfind(b"\n", 0, self.begin) + 1
        stop = text.find(b"\n", self.end)
        stop = len(text) if stop < 0 else stop
        self.line = text.count(b"\n", 0, self.begin) + 1
        self.last_line = text.count(b"\n", 0, self.end) + 1
        self.before = text[start:stop].decode()
        self.after = (text[start : self.begin] + self.new + text[self.end : stop]).decode()
        old, new = shortened(text[self.begin : self.end].decode()), shortened(self.new.decode())
        self.id = f"{self.file}:{self.line}:{self.begin - start + 1} {self.operator} {old} -> {new or 'nothing'}"

    @property
    def key(self):
        """What stays the same when lines above change: the first line concerned, and what becomes of all of them."""
        return self.file, self.function, self.operator, collapsed(self.before.split("\n")[0]), collapsed(self.after)

    def applied_to(self, text):
        return text[: self.begin] + self.new + text[self.end :]

    def difference(self):
        def marked(mark, text):
            return [f"{mark}{line}" for line in text.split("\n")]

        return "\n".join(marked("-", self.before) + marked("+", self.after))


class Finder:
    """Finds the mutants of the files that a translation unit is made of."""

    def __init__(self, project, files):
        self.project = project
        self.files = set(files)
        self.sources = {}

    def _open(self, path):
        if path not in self.sources:
            name = self.project.name_of(path)
            text = self.project.path(name).read_bytes() if name in self.files else None
            self.sources[path] = None if text is None else syntax.Source(name, text)
        return self.sources[path]

    def mutants_of(self, unit_name):
        found = []
        for tree in syntax.Reader(self._open).read(syntax.dump(self.project.units[unit_name])):
            for node in syntax.walk(tree):
                for operator, begin, end, text in operators.changes(node):
                    found.append(Mutant(node.source.name, begin, end, text, operator, node.function))
        return found


def numbered(mutants):
    """Counts mutants that nothing else distinguishes, and makes their names unique."""
    keys, names = {}, {}
    for mutant in mutants:
        keys[mutant.key] = mutant.occurrence = keys.get(mutant.key, 0) + 1
        names[mutant.id] = count = names.get(mutant.id, 0) + 1
        if count > 1:
            mutant.id += f" #{count}"
    return mutants


def find(project, files, jobs):
    """The mutants of the files in their order, each change once, whichever units show it."""
    units = sorted({unit.name for name in files for unit in project.units_of(name)})
    changes = {}
    with ProcessPoolExecutor(jobs) as pool:
        for found in pool.map(Finder(project, files).mutants_of, units):
            for mutant in found:
                changes.setdefault((mutant.file, mutant.begin, mutant.end, mutant.new), mutant)
    mutants = [changes[place] for place in sorted(changes)]
    texts = {name: project.path(name).read_bytes() for name in files}
    for mutant in mutants:
        mutant.describe(texts[mutant.file])
    return numbered(mutants)
