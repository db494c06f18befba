# SPDX-License-Identifier: MIT
"""Runs mutants: compiles them all, drops those that change nothing, and runs the tests over the others."""

import json
import queue
import shutil
import threading
from concurrent.futures import ThreadPoolExecutor, as_completed

from . import programs as test_programs
from .build import Store, Worker
from .project import digest_of

KILLED, TIMEOUT, SURVIVED = "killed", "timed out", "survived"
ACCEPTED, EQUIVALENT, DUPLICATE, UNCOMPILED = "accepted", "equivalent", "duplicate", "not compiled"


class Journal:
    """A file of records, one for each mutant, written as the results arrive."""

    def __init__(self, path, keeps):
        self.path = path
        self.records = {}
        self.lock = threading.Lock()
        if keeps and path.exists():
            for line in path.read_text(encoding="utf-8").splitlines():
                record = json.loads(line)
                self.records[record["id"]] = record
        self.file = open(path, "w", encoding="utf-8")
        for record in self.records.values():
            self._write(record)

    def _write(self, record):
        self.file.write(json.dumps(record) + "\n")
        self.file.flush()

    def add(self, mutant, **fields):
        with self.lock:
            self.records[mutant.id] = {"id": mutant.id, **fields}
            self._write(self.records[mutant.id])

    def get(self, mutant, **same):
        """The record of a mutant if it has these fields."""
        record = self.records.get(mutant.id)
        return record if record and all(record.get(name) == value for name, value in same.items()) else None


class Campaign:
    """One run over a list of mutants."""

    def __init__(self, project, jobs, log, resumes):
        """`resumes`: keep those results of the last run that are still valid."""
        self.project = project
        self.log = log
        self.jobs = jobs
        if not resumes:
            shutil.rmtree(project.output / "objects", ignore_errors=True)
        self.store = Store(project.output / "objects")
        self.workers = queue.Queue()
        for number in range(jobs):
            self.workers.put(Worker(project, self.store, number))
        self.compiled = Journal(project.output / "compiled.jsonl", resumes)
        self.tested = Journal(project.output / "tested.jsonl", resumes)
        self.programs = test_programs.find(project)
        self.baseline = {}  # the digests of the unchanged units' objects

    # ---- Work shared among the workers ----

    def _in_parallel(self, title, function, items):
        """Calls function(worker, item) for all items; yields each item with its result, in the order of completion."""
        pool = ThreadPoolExecutor(self.jobs)
        futures = {pool.submit(self._in_worker, function, item): item for item in items}
        try:
            for number, future in enumerate(as_completed(futures), 1):
                self.log.progress(title, number, len(futures))
                yield futures[future], future.result()
        except BaseException:
            pool.shutdown(wait=False, cancel_futures=True)
            test_programs.end_all()
            raise
        finally:
            pool.shutdown()

    def _in_worker(self, function, item):
        worker = self.workers.get()
        try:
            return function(worker, item)
        finally:
            self.workers.put(worker)

    # ---- Compiling ----

    def _compile(self, mutants):
        """For each mutant the digests of its objects, or None."""
        found, missing = {}, []
        for mutant in mutants:
            known = self.compiled.get(mutant, inputs=self.project.inputs_digest(mutant.file))
            if known and all(self.store.has(digest) for digest in (known["objects"] or {}).values()):
                found[mutant.id] = known["objects"]
            else:
                missing.append(mutant)
        for mutant, objects in self._in_parallel("compiled", Worker.compile_mutant, missing):
            found[mutant.id] = objects
            self.compiled.add(mutant, inputs=self.project.inputs_digest(mutant.file), objects=objects)
        return found

    def _compile_baseline(self, mutants):
        units = {unit.name: unit for mutant in mutants for unit in self.project.units_of(mutant.file)}
        for unit, digest in self._in_parallel("units", Worker.compile, units.values()):
            self.baseline[unit.name] = digest

    def changed_objects(self, mutants):
        """For each mutant its objects that differ from the unchanged ones, by unit; None if it does not compile."""
        self._compile_baseline(mutants)
        changed = {}
        for name, objects in self._compile(mutants).items():
            changed[name] = objects and {unit: it for unit, it in objects.items() if it != self.baseline[unit]}
        return changed

    # ---- Testing ----

    def _state(self):
        """A digest of what a survivor depends on: the test programs and the libraries."""
        files = [program.path for program in self.programs] + [library.file for library in self.project.libraries]
        return digest_of([file.read_bytes() for file in files])

    def concerned(self, mutant):
        return test_programs.in_order(self.programs, self.project.units_of(mutant.file))

    def _try_programs(self, mutants):
        """Checks that the programs pass without a mutant, with the libraries loaded from where mutants are linked."""
        one_of_each_file = {mutant.file: mutant for mutant in mutants}.values()
        needed = {program.name: program for mutant in one_of_each_file for program in self.concerned(mutant)}
        for program, outcome in self._in_parallel("programs", self._try_program, needed.values()):
            if outcome.kind != "passed":
                raise SystemExit(f"mutation: {program.name} fails without a mutant: {outcome.detail}\n{outcome.output}")
            program.seconds = outcome.seconds

    def _try_program(self, worker, program):
        worker.link({name: digest for name, digest in self.baseline.items()})
        loaded = program.libraries_loaded(worker)
        for library in self.project.libraries:
            expected = str(worker.libraries / library.soname)
            if loaded.get(library.soname, expected) != expected:
                raise SystemExit(f"mutation: {program.name} loads {loaded[library.soname]}, not {expected}")
        return program.run(worker, test_programs.LONGEST_BASELINE)

    def _test(self, worker, job):
        mutant, objects = job
        if not worker.link(objects):
            return {"verdict": UNCOMPILED}
        for program in self.concerned(mutant):
            outcome = program.run(worker)
            if outcome.kind != "passed":
                verdict = TIMEOUT if outcome.kind == "timeout" else KILLED
                return {"verdict": verdict, "program": program.name, "detail": outcome.detail, "output": outcome.output}
        return {"verdict": SURVIVED}

    def _known_result(self, mutant, objects, state):
        """The result of an earlier run. A survivor is tested again when the tests have changed."""
        known = self.tested.get(mutant, objects=objects)
        return known if known and (known["verdict"] != SURVIVED or known["state"] == state) else None

    def test(self, mutants, changed, anew=False):
        """The results of mutants by their names."""
        results, jobs, state = {}, [], self._state()
        for mutant in mutants:
            objects = changed[mutant.id]
            known = None if anew else self._known_result(mutant, objects, state)
            if known:
                results[mutant.id] = known
            else:
                jobs.append((mutant, objects))
        self._try_programs([mutant for mutant, _ in jobs])
        for (mutant, objects), result in self._in_parallel("tested", self._test, jobs):
            results[mutant.id] = result
            kept = {name: value for name, value in result.items() if name != "output"}
            self.tested.add(mutant, objects=objects, state=state, **kept)
        return results


def is_listed(mutant, entries):
    return (mutant.key, mutant.occurrence) in entries


def sorted_out(mutants, changed, entries):
    """The verdicts of the mutants that need no test. A listed mutant accepts all others with the same objects."""
    verdicts, first_of = {}, {}
    listed = [mutant for mutant in mutants if is_listed(mutant, entries)]
    accepted = {tuple(changed[mutant.id].items()) for mutant in listed if changed[mutant.id]}
    for mutant in mutants:
        if changed[mutant.id] is None:
            verdicts[mutant.id] = UNCOMPILED
        elif not changed[mutant.id]:
            verdicts[mutant.id] = EQUIVALENT
        else:
            objects = tuple(changed[mutant.id].items())
            if first_of.setdefault(objects, mutant) is not mutant:
                verdicts[mutant.id] = DUPLICATE
            elif objects in accepted:
                verdicts[mutant.id] = ACCEPTED
    return verdicts


def judge(campaign, mutants, entries, rechecks=False, anew=False):
    """Verdicts by mutant, and the results of those that were tested."""
    changed = campaign.changed_objects(mutants)
    verdicts = sorted_out(mutants, changed, entries)
    open_verdicts = {ACCEPTED, None} if rechecks else {None}
    results = campaign.test([m for m in mutants if verdicts.get(m.id) in open_verdicts], changed, anew)
    for name, result in results.items():
        is_accepted = verdicts.get(name) == ACCEPTED and result["verdict"] == SURVIVED
        verdicts[name] = ACCEPTED if is_accepted else result["verdict"]
    return verdicts, results
