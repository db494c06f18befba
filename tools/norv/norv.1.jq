# The man page.
def roff: gsub("\\\\"; "\\e") | gsub("-"; "\\-") | sub("^(?<c>[.'])"; "\\&\(.c)");
def commands($path): ($path + .name) as $here | {path: $here, command: .}, (.commands[] | commands($here + " "));
def argument: if .repeated then .positional + "..." else .positional end | if . == "" then empty else . end;
def synopsis: [.options[] | if .required then argument else argument | "[" + . + "]" end] | join(" ");
def value: if .value == "" then "" else " \\fI" + (.value | roff) + "\\fR" end;
def form: if .value | test("^(TEXT|U?INT|FLOAT)\\b") or (test("[=:]") | not) then "" else value end;
def title: if .positional != "" then "\\fI" + (.positional | roff) + "\\fR" + form else ([.names[] | "\\fB" + roff + "\\fR"] | join(", ")) + value end;
def explained: .help + (if .default != "" then " [" + .default + "]" else "" end) | roff;
def ordered: [.[] | select(.positional != "")] + [.[] | select(.positional == "" and (.names | index("--help") | not))];

".\\\" Made by tools/norv/generate: change that.
.TH NORV 1 \"\" \"libnorv_io_linux\" \"User Commands\"
.SH NAME
norv \\- the hardware of an embedded Linux board from a shell
.SH SYNOPSIS
.B norv
.I GROUP
.RI [ COMMAND ]
.RI [ ARGUMENT ...]
.SH DESCRIPTION
Accesses GPIO lines, LEDs, buses, flash, FPGAs and the other hardware of a board, each with a group of commands. Numbers may be
decimal, 0x hexadecimal or 0 octal. Commands print what they read as JSON with
.BR \\-\\-json ,
one document per line. Commands that run for some time end cleanly at Ctrl\\-C; a second Ctrl\\-C ends them at once.
.PP
Commands that destroy something say what they will do and ask first; if standard input is not a terminal, they require
.BR \\-\\-yes .
.SH COMMANDS",
(commands("") | select(.path != "norv" and (.command.commands | length == 0))
    | ".SS \(.path | roff) \(.command | synopsis | roff)", (.command.help | roff) + ".",
      (.command.options | ordered[] | ".TP", title, explained)),
".SH EXIT STATUS
.TP
.B 0
The operation succeeded.
.TP
.B 1
It failed. Standard error names the thing, the status and its usual cause:
.EX
norv: i2c bus 9: NOT_FOUND: no such bus; are the adapter's driver and i2c\\-dev loaded?
.EE
.TP
.B 2
Wrong usage; nothing was done.
.SH EXAMPLES
.EX
norv gpio set 16=1
norv gpio watch \\-\\-edge rising 17
norv i2c detect 1
norv i2c get 1 0x50 0x00 \\-\\-count 16
norv pwm set 0 2 25kHz 40%
norv flash write firmware.bin \\-\\-address 0x100000
norv can dump \\-\\-json can0 | jq .data
.EE
.SH SEE ALSO
.BR gpiodetect (1),
.BR i2cdetect (8),
.BR candump (1),
.BR mtdinfo (8)"
