# SPDX-License-Identifier: MIT
"""The man page of the tool, section 1, from what `norv --describe` prints of its commands."""

import re

from manual import roff
from manual.roff import bold, entry, escaped, example, italic, line, paragraph, section

SYNOPSIS = [".B norv", ".I GROUP", ".RI [ COMMAND ]", ".RI [ ARGUMENT ...]"]

DESCRIPTION = [
    *paragraph(
        "Accesses GPIO lines, LEDs, buses, flash, FPGAs and the other hardware of a board, each with a group of"
        " commands. Numbers may be decimal, 0x hexadecimal or 0 octal. Commands print what they read as JSON with"
        f" {bold('--json')}, one document per line. Commands that run for some time end cleanly at"
        f" {escaped('Ctrl-C; a second Ctrl-C')} ends them at once."
    ),
    *paragraph(
        "Commands that destroy something say what they will do and ask first; if standard input is not a terminal,"
        f" they require {bold('--yes')}."
    ),
]

EXIT_STATUS = [
    *entry(bold("0"), "The operation succeeded."),
    *entry(bold("1"), "It failed. Standard error names the thing, the status and its usual cause:"),
    *example("norv: i2c bus 9: NOT_FOUND: no such bus; are the adapter's driver and i2c-dev loaded?"),
    *entry(bold("2"), "Wrong usage; nothing was done."),
]

EXAMPLES = """
norv gpio set 16=1
norv gpio watch --edge rising 17
norv i2c detect 1
norv i2c get 1 0x50 0x00 --count 16
norv pwm set 0 2 25kHz 40%
norv flash write firmware.bin --address 0x100000
norv can dump --json can0 | jq .data
"""


def commands_of(described, path=""):
    """Each command that has no commands itself, with the words that call it."""
    path += described["name"]
    if not described["commands"]:
        yield path, described
    for command in described["commands"]:
        yield from commands_of(command, path + " ")


def synopsis(options):
    words = [option["positional"] + ("..." if option["repeated"] else "") for option in options if option["positional"]]
    required = [option["required"] for option in options if option["positional"]]
    return " ".join(word if is_required else f"[{word}]" for word, is_required in zip(words, required))


def value(option):
    return f" {italic(option['value'])}" if option["value"] else ""


def title(option):
    """The names of an option, or that of an argument with its form, where it has one: LINE=0."""
    if not option["positional"]:
        return ", ".join(bold(name) for name in option["names"]) + value(option)
    has_form = re.search("[=:]", option["value"]) and not re.match(r"(TEXT|U?INT|FLOAT)\b", option["value"])
    return italic(option["positional"]) + (value(option) if has_form else "")


def explained(option):
    return line(escaped(option["help"] + (f" [{option['default']}]" if option["default"] else "")))


def command_rows(path, command):
    call = f"{path} {synopsis(command['options'])}".rstrip()
    rows = [f".SS {escaped(call)}", line(escaped(command["help"] + "."))]
    positionals = [option for option in command["options"] if option["positional"]]
    others = [option for option in command["options"] if not option["positional"] and "--help" not in option["names"]]
    for option in positionals + others:
        rows += entry(title(option), explained(option))
    return rows


def write_page(described, output):
    commands = [row for path, command in commands_of(described) for row in command_rows(path, command)]
    rows = ['.\\" Made by tools/norv/generate: change that.']
    rows += roff.heading("norv", 1, "libnorv_io_linux", "User Commands", "the hardware of an embedded Linux board from a shell")
    rows += section("SYNOPSIS", SYNOPSIS) + section("DESCRIPTION", DESCRIPTION) + section("COMMANDS", commands)
    rows += section("EXIT STATUS", EXIT_STATUS) + section("EXAMPLES", example(EXAMPLES))
    rows += roff.see_also([("gpiodetect", 1), ("i2cdetect", 8), ("candump", 1), ("mtdinfo", 8)])
    roff.write(output, "norv", 1, rows)
