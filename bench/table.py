#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Prints one table of ratios from the JSON files of many runs of the benchmark programs.

Within a file, the contenders of a row ran one after the other. Each run gives one ratio of a contender to
"raw"; the table shows the median over all runs.
"""

import json
import statistics
import sys

RAW = "raw"
OURS = "ours"
PEERS = ["libev", "libuv", "libevent", "sd-event"]


class Row:
    """One piece of work: what each run measured of each contender, in nanoseconds."""

    def __init__(self):
        self.target = 0
        self.runs = []

    def ratios(self, contender, reference):
        return [run[contender] / run[reference] for run in self.runs if contender in run and reference in run]

    def ratio(self, contender, reference=RAW):
        ratios = self.ratios(contender, reference)
        return statistics.median(ratios) if ratios else None

    def raw_time(self):
        return statistics.median(run[RAW] for run in self.runs)

    def fastest_peer(self):
        peers = [peer for peer in PEERS if self.ratio(peer) is not None]
        return min(peers, key=self.ratio, default=None)


def read(paths):
    """Rows by name, in the order in which they ran."""
    rows = {}
    for path in paths:
        with open(path, encoding="utf-8") as file:
            measured = json.load(file)["benchmarks"]
        run_of_row = {}
        for entry in measured:
            name, contender = entry["run_name"].split("|")
            if name not in run_of_row:
                run_of_row[name] = {}
                rows.setdefault(name, Row()).runs.append(run_of_row[name])
            run_of_row[name][contender.split("/")[0]] = 1e9 / entry["items_per_second"]
            rows[name].target = entry["target"]
    return rows


def verdict(row):
    """The target, and whether it is met."""
    peer = row.fastest_peer()
    reference, limit = (RAW, row.target) if row.target else (peer, 1.0)
    ratios = sorted(round(ratio, 2) for ratio in row.ratios(OURS, reference))
    target = f"{row.target:.2f}" if row.target else f"{peer} {row.ratio(peer):.2f}"
    if statistics.median(ratios) <= limit:
        return target, "yes"
    return target, f"no ({ratios[len(ratios) // 4]:.2f}-{ratios[-1 - len(ratios) // 4]:.2f})"


def time(nanoseconds):
    return f"{nanoseconds:.1f}" if nanoseconds < 100 else f"{nanoseconds:.0f}"


def cells(name, row):
    ratios = [row.ratio(contender) for contender in [OURS] + PEERS]
    shown = ["-" if ratio is None else f"{ratio:.2f}" if ratio < 100 else f"{ratio:.0f}" for ratio in ratios]
    return [name, time(row.raw_time())] + shown + list(verdict(row))


def print_table(lines):
    widths = [max(len(line[column]) for line in lines) for column in range(len(lines[0]))]
    for number, line in enumerate(lines):
        padded = [line[0].ljust(widths[0])]
        padded += [cell.rjust(width) for cell, width in zip(line[1:], widths[1:])]
        print("| " + " | ".join(padded) + " |")
        if number == 0:
            print("| " + " | ".join(["-" * widths[0]] + ["-" * (width - 1) + ":" for width in widths[1:]]) + " |")


def print_slower_rows(rows):
    """Names the rows in which some peer does the same work in less time."""
    for name, row in rows.items():
        peer = row.fastest_peer()
        if peer and round(row.ratio(OURS, peer), 2) > 1:
            print(f"slower than {peer} by {row.ratio(OURS, peer):.2f}: {name}")


def main(paths):
    rows = read(paths)
    header = ["work", "raw ns"] + [f"{contender}/raw" for contender in [OURS] + PEERS] + ["target", "met"]
    print_table([header] + [cells(name, row) for name, row in rows.items()])
    print()
    print_slower_rows(rows)


if __name__ == "__main__":
    main(sys.argv[1:])
