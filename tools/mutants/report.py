# SPDX-License-Identifier: MIT
"""What a run prints: its progress, the table of files, the survivors."""

import sys
import time

from .campaign import ACCEPTED, DUPLICATE, EQUIVALENT, KILLED, SURVIVED, TIMEOUT, UNCOMPILED

COLUMNS = [KILLED, TIMEOUT, SURVIVED, ACCEPTED, EQUIVALENT, DUPLICATE, UNCOMPILED]


class Log:
    """Reports progress: on one line of a terminal, else once a minute."""

    def __init__(self, stream=sys.stderr):
        self.stream = stream
        self.last = 0.0

    def progress(self, title, number, total):
        if self.stream.isatty():
            self.stream.write(f"\r{title}: {number} of {total}" + ("\n" if number == total else ""))
        elif number == total or time.monotonic() - self.last > 60:
            self.stream.write(f"{title}: {number} of {total}\n")
            self.last = time.monotonic()
        self.stream.flush()


class Summary:
    """The verdicts counted by file."""

    def __init__(self, mutants, verdicts):
        self.counts = {}
        for mutant in mutants:
            row = self.counts.setdefault(mutant.file, dict.fromkeys(COLUMNS, 0))
            row[verdicts[mutant.id]] += 1

    def total(self):
        return {column: sum(row[column] for row in self.counts.values()) for column in COLUMNS}

    @staticmethod
    def share(row):
        """Killed mutants in percent of those that count, or None where there are none."""
        killed = row[KILLED] + row[TIMEOUT]
        return 100 * killed / (killed + row[SURVIVED]) if killed + row[SURVIVED] else None

    def lines(self):
        rows = [(name, row) for name, row in sorted(self.counts.items())] + [("total", self.total())]
        table = [["file", "mutants", *COLUMNS, "killed %"]]
        for name, row in rows:
            share = self.share(row)
            cells = [sum(row.values()), *row.values(), "-" if share is None else f"{share:.1f}"]
            table.append([name, *map(str, cells)])
        widths = [max(len(line[column]) for line in table) for column in range(len(table[0]))]
        for line in table:
            yield "  ".join([line[0].ljust(widths[0]), *map(str.rjust, line[1:], widths[1:])])


def survivor_lines(mutants, verdicts):
    """The survivors with what each changes."""
    for mutant in mutants:
        if verdicts[mutant.id] == SURVIVED:
            yield f"{mutant.id}   (in {mutant.function})"
            yield mutant.difference()
            yield ""
