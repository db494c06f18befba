# SPDX-License-Identifier: MIT
"""The unit test programs: which of them call into a file of a library, and whether they pass with a mutant of it."""

import os
import re
import signal
import subprocess
import time
from collections import defaultdict
from dataclasses import dataclass
from pathlib import Path

from .project import run_quietly

# Neither a runaway allocation nor endless output may harm the machine.
LIMITS = [f"--as={2 << 30}", f"--fsize={1 << 30}", "--core=0"]
ARGUMENTS = ["--gtest_brief=1", "--gtest_fail_fast"]
SHORTEST_LIMIT = 10.0
LONGEST_BASELINE = 600.0

running = set()  # the process groups of the programs that run


@dataclass
class Outcome:
    """How a test program ended: "passed", "failed" or "timeout"."""

    kind: str
    detail: str = ""
    seconds: float = 0.0
    output: str = ""


class TestProgram:
    """An executable of the build directory."""

    def __init__(self, path, group):
        self.path = path
        self.name = path.name
        self.family = path.name.removesuffix("_test")
        self.group = group
        self.reached = set()  # the names of the units that its calls may reach
        self.seconds = 0.0

    def run(self, worker, limit=None):
        """Runs the program with the libraries of a worker."""
        worker.empty_scratch()
        log = worker.directory / "output"
        begin = time.monotonic()
        with open(log, "wb") as output:
            process = subprocess.Popen(
                ["prlimit", *LIMITS, "--", str(self.path), *ARGUMENTS],
                cwd=worker.scratch,
                env=environment(worker),
                stdin=subprocess.DEVNULL,
                stdout=output,
                stderr=subprocess.STDOUT,
                start_new_session=True,
            )
            status = wait_and_end(process, limit or self.limit())
        text = log.read_bytes()[-20000:].decode(errors="replace")
        return Outcome(*judged(status, text), time.monotonic() - begin, text)

    def limit(self):
        return max(SHORTEST_LIMIT, 10 * self.seconds)

    def libraries_loaded(self, worker):
        """The libraries that the dynamic linker loads: paths by soname."""
        tracing = {**environment(worker), "LD_TRACE_LOADED_OBJECTS": "1"}
        lines = run_quietly([str(self.path)], env=tracing).splitlines()
        found = (re.match(r"\s*(\S+) => (\S+)", line) for line in lines)
        return {match[1]: match[2] for match in found if match}


def environment(worker):
    return {**os.environ, "LD_LIBRARY_PATH": str(worker.libraries), "TMPDIR": str(worker.scratch)}


def end_group(group):
    try:
        os.killpg(group, signal.SIGKILL)
    except ProcessLookupError:
        pass


def end_all():
    """Ends every program, so that an interrupted run does not wait for them."""
    for group in list(running):
        end_group(group)


def wait_and_end(process, limit):
    """The exit status, or None after the limit; whatever the program started ends with it."""
    running.add(process.pid)
    try:
        return process.wait(limit)
    except subprocess.TimeoutExpired:
        return None
    finally:
        end_group(process.pid)
        process.wait()
        running.discard(process.pid)


def judged(status, output):
    if status is None:
        return "timeout", ""
    if status == 0:
        return "passed", ""
    if status < 0:
        return "failed", signal.Signals(-status).name
    failed = re.search(r"\[  FAILED  \] (\w+\S*)", output)
    return "failed", failed[1].rstrip(",") if failed else f"exit status {status}"


# ---- Which programs reach which units ----


def symbols(nm_options, files):
    """Pairs of a file and a name that nm lists in it."""
    output = run_quietly(["nm", "--print-file-name", "--format=posix", *nm_options, *map(str, files)])
    for line in output.splitlines():
        file, _, rest = line.partition(": ")
        yield file, rest.split(" ")[0].split("@")[0]


def references(project):
    """For each unit, the units that define its undefined symbols; and the unit that defines each symbol."""
    units = {str(project.build / unit.object): unit.name for unit in project.units.values()}
    definer = {name: units[file] for file, name in symbols(["--defined-only", "--extern-only"], units)}
    used = defaultdict(set)
    for file, name in symbols(["--undefined-only"], units):
        if name in definer:
            used[units[file]].add(definer[name])
    return used, definer


def closure(start, edges):
    reached, pending = set(), list(start)
    while pending:
        name = pending.pop()
        if name not in reached:
            reached.add(name)
            pending.extend(edges[name])
    return reached


def find(project):
    """All test programs of the build directory."""
    paths = sorted(path for path in (project.build / "tests").glob("*_test") if os.access(path, os.X_OK))
    used, definer = references(project)
    programs = []
    for path in paths:
        source = next((project.root / "tests").glob(f"*/{path.name}.cpp"), Path())
        program = TestProgram(path, source.parent.name)
        called = {name for _, name in symbols(["--dynamic", "--undefined-only"], [path])}
        program.reached = closure({definer[name] for name in called if name in definer}, used)
        programs.append(program)
    return programs


def nearness(program, units):
    """0 for a family's own programs, 1 for those of its group, 2 for others."""
    stems = {Path(unit).stem for unit in units}
    if any(stem.startswith(program.family) or program.family.startswith(stem) for stem in stems):
        return 0
    return 1 if program.group in {Path(unit).parent.name for unit in units} else 2


def in_order(programs, units):
    """The programs that reach one of the units: the families' own first, then the quickest."""
    names = {unit.name for unit in units}
    concerned = [program for program in programs if program.reached & names]
    return sorted(concerned, key=lambda program: (nearness(program, names), program.seconds, program.name))
