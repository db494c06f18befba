# SPDX-License-Identifier: MIT
"""Compiles mutants in scratch copies of the sources, and links the libraries with them."""

import hashlib
import os
import shutil
import subprocess

ENVIRONMENT = {**os.environ, "CCACHE_DISABLE": "1", "LC_ALL": "C"}


class Store:
    """Object files, named by the digest of their content."""

    def __init__(self, directory):
        self.directory = directory
        directory.mkdir(parents=True, exist_ok=True)

    def path(self, digest):
        return self.directory / f"{digest}.o"

    def has(self, digest):
        return self.path(digest).exists()

    def keep(self, file):
        digest = hashlib.sha256(file.read_bytes()).hexdigest()[:32]
        os.replace(file, self.path(digest))
        return digest


class Worker:
    """A worker's directories: a copy of the sources, the linked libraries, and the scratch files of the tests."""

    def __init__(self, project, store, number):
        self.project = project
        self.store = store
        self.directory = project.output / f"worker-{number}"
        self.tree = self.directory / "tree"
        self.libraries = self.directory / "lib"
        self.scratch = self.directory / "scratch"
        shutil.rmtree(self.directory, ignore_errors=True)
        for name in project.source_directories:
            if project.path(name).exists():
                shutil.copytree(project.path(name), self.tree / name)
        self.libraries.mkdir()
        self.empty_scratch()

    def empty_scratch(self):
        shutil.rmtree(self.scratch, ignore_errors=True)
        self.scratch.mkdir(exist_ok=True)

    def _moved(self, option):
        """An option that names a directory of sources names the copy instead."""
        path = option.removeprefix("-I")
        name = self.project.name_of(path)
        return f"-I{self.tree / name}" if option != path and name in self.project.source_directories else option

    def compile(self, unit):
        """The digest of the unit's object, or None when it does not compile."""
        target = self.directory / "unit.o"
        options = [self._moved(option) for option in unit.options]
        command = [unit.compiler, *options, "-c", str(self.tree / unit.name), "-o", str(target)]
        done = subprocess.run(command, cwd=self.scratch, env=ENVIRONMENT, capture_output=True, check=False)
        return self.store.keep(target) if done.returncode == 0 else None

    def compile_mutant(self, mutant):
        """The digests of the objects of all units that include the mutated file; None when one does not compile."""
        place = self.tree / mutant.file
        text = self.project.path(mutant.file).read_bytes()
        place.write_bytes(mutant.applied_to(text))
        try:
            objects = {}
            for unit in self.project.units_of(mutant.file):
                objects[unit.name] = self.compile(unit)
                if objects[unit.name] is None:
                    return None
            return objects
        finally:
            place.write_bytes(text)

    def link(self, objects):
        """Links the libraries that have replaced objects, and symlinks the others; False when linking fails."""
        return all([self._link(library, objects) for library in self.project.libraries])

    def _link(self, library, objects):
        units = self.project.units
        replaced = {
            units[name].object: self.store.path(digest)
            for name, digest in objects.items()
            if units[name].library is library
        }
        output = self.libraries / library.soname
        output.unlink(missing_ok=True)
        if not replaced:
            output.symlink_to(library.file)
            return True
        command = library.link_command(output, replaced)
        done = subprocess.run(command, cwd=library.directory, env=ENVIRONMENT, capture_output=True, check=False)
        return done.returncode == 0
