# Completion for bash: each command with the words that may follow it.
def commands($path): ($path + .name) as $here | {path: $here, command: .}, (.commands[] | commands($here + " "));
def words: [.commands[].name] + [.options[].names[]] | join(" ");

"# SPDX-License-Identifier: MIT
# Completion of norv for bash. Made by tools/norv/generate: change that.

# Sourced by a function of bash-completion: without -g it would be gone when that returns.
declare -gA _norv_words=(",
(commands("") | "    [\"\(.path)\"]=\"\(.command | words)\""),
")

_norv() {
    local path=norv word index
    for ((index = 1; index < COMP_CWORD; ++index)); do
        word=${COMP_WORDS[index]}
        [[ -z ${_norv_words[\"$path $word\"]+known} ]] || path+=\" $word\"
    done
    mapfile -t COMPREPLY < <(compgen -W \"${_norv_words[$path]}\" -- \"${COMP_WORDS[COMP_CWORD]}\")
}

# Where nothing of the tool fits, files do.
complete -o default -F _norv norv"
