# SPDX-License-Identifier: MIT
"""What a build directory knows of the libraries: their translation units, how each is compiled and linked."""

import hashlib
import json
import shlex
import subprocess
from functools import cached_property
from pathlib import Path


def run_quietly(command, **options):
    """The command's output; its errors end the program."""
    done = subprocess.run(command, capture_output=True, text=True, **options)
    if done.returncode != 0:
        raise SystemExit(f"mutation: {shlex.join(map(str, command))} failed:\n{done.stdout}{done.stderr}")
    return done.stdout


def digest_of(parts):
    """One digest of several byte strings."""
    total = hashlib.sha256()
    for part in parts:
        total.update(hashlib.sha256(part).digest())
    return total.hexdigest()[:32]


class Unit:
    """A translation unit of a library. Its name is the path of its source file below the project."""

    def __init__(self, name, entry, owners):
        self.name = name
        self.source = entry["file"]
        self.directory = entry["directory"]
        self.compiler, *arguments = shlex.split(entry["command"])
        self.object = arguments[arguments.index("-o") + 1]
        self.library = owners[self.object]
        # Without warnings, which a mutant may well earn, and without debugging information, so that objects
        # differ only where their code or data does.
        dropped = {"-c", "-o", self.object, self.source}
        kept = [word for word in arguments if word not in dropped and not word.startswith("-W")]
        self.options = [*kept, "-w", "-g0"]
        self.includes = set()  # of the project's files, itself among them


class Library:
    """A shared library: how ninja links it, and the objects it is made of."""

    def __init__(self, build, target):
        self.directory = build
        self.file = build / target
        command = run_quietly(["ninja", "-C", build, "-t", "commands", "-s", target])
        # CMake's link line is `: && compiler ... && :`.
        words = shlex.split(command.splitlines()[-1])
        self.command = words[words.index("&&") + 1 : words.index("&&", 2)]
        self.objects = [word for word in self.command if word.endswith(".o")]
        self.soname = next(word.split("-soname,")[1] for word in self.command if "-soname," in word)
        self.command[self.command.index("-o") + 1] = "@output"

    def link_command(self, output, replaced):
        """`replaced` maps an object's path to the one that takes its place."""
        places = {"@output": str(output), **{name: str(path) for name, path in replaced.items()}}
        return [places.get(word, word) for word in self.command]


class Project:
    """A source tree, and a build directory of it that CMake configured for ninja."""

    source_directories = ("src", "base/src")

    def __init__(self, root, build):
        self.root = Path(root).resolve()
        self.build = Path(build).resolve()
        self.output = self.build.parent / "mutation"

    def path(self, name):
        return self.root / name

    def name_of(self, path):
        """A path below the project, or None when it is outside."""
        path = Path(path)
        return path.relative_to(self.root).as_posix() if path.is_relative_to(self.root) else None

    def is_mutated(self, name):
        return name is not None and any(name.startswith(f"{place}/") for place in self.source_directories)

    @cached_property
    def libraries(self):
        lines = run_quietly(["ninja", "-C", self.build, "-t", "targets", "all"]).splitlines()
        targets = [line.split(": ")[0] for line in lines if ": " in line and "_SHARED_LIBRARY_LINKER__" in line]
        return [Library(self.build, target) for target in targets]

    @cached_property
    def units(self):
        """The libraries' translation units, by the names of their source files."""
        owners = {name: library for library in self.libraries for name in library.objects}
        entries = json.loads((self.build / "compile_commands.json").read_text(encoding="utf-8"))
        units = {}
        for entry in entries:
            name = self.name_of(entry["file"])
            if self.is_mutated(name):
                units[name] = Unit(name, entry, owners)
        self._read_includes(units.values())
        return units

    def _read_includes(self, units):
        by_object = {unit.object: unit for unit in units}
        unit = None
        for line in run_quietly(["ninja", "-C", self.build, "-t", "deps"]).splitlines():
            if not line.startswith(" "):
                unit = by_object.get(line.split(": #deps")[0])
            elif unit is not None:
                name = self.name_of((self.build / line.strip()).resolve())
                if name is not None:
                    unit.includes.add(name)

    def units_of(self, name):
        """The units that a change of a file concerns."""
        return [unit for unit in self.units.values() if name in unit.includes]

    def mutated_files(self):
        return sorted({name for unit in self.units.values() for name in unit.includes if self.is_mutated(name)})

    @cached_property
    def _texts(self):
        names = {name for unit in self.units.values() for name in unit.includes}
        return {name: self.path(name).read_bytes() for name in names}

    def inputs_digest(self, name):
        """Of everything that the units which a file concerns are compiled from."""
        units = self.units_of(name)
        commands = [shlex.join(unit.options).encode() for unit in units]
        return digest_of(commands + [self._texts[path] for unit in units for path in sorted(unit.includes)])
