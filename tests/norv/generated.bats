#!/usr/bin/env bats
# SPDX-License-Identifier: MIT
# The completions and the man page, which are made from what the tool says of its commands.

load support

project=$BATS_TEST_DIRNAME/../..
generated=$project/tools/norv/generated

@test "CompletionsAndManPageAreThoseOfTheCommands" {
    "$project/tools/norv/generate" "$NORV" "$BATS_TEST_TMPDIR"
    diff --recursive --unified --exclude '*.out' "$generated" "$BATS_TEST_TMPDIR" ||
        fail "make them again: cmake --build build/release --target norv-generate"
}

@test "TheManPageIsWithoutWarnings" {
    run groff -man -Tutf8 -ww -z "$generated/norv.1"
    [[ $status -eq 0 && -z $output ]] || fail "$output"
}

@test "TheSynopsisOfACommandHasOnlyItsArguments" {
    run grep '^\.SS .*\[\.\.\.\]' "$generated/norv.1"
    [[ $status -eq 1 ]] || fail "$output"
}

@test "BashCompletesGroupsCommandsAndOptions" {
    [[ $(bash_completes norv gp) == gpio ]]
    [[ $(bash_completes norv i2c de) == detect ]]
    [[ $(bash_completes norv gpio watch 17 --ed) == --edge ]]
    [[ $(bash_completes norv teleport) == "" ]]
}

@test "BashOffersEveryGroup" {
    [[ $(bash_completes norv "" | grep --count --invert-match '^-') -eq $("$NORV" --describe | jq '.commands | length') ]]
}

@test "ZshCompletesGroupsCommandsAndOptions" {
    zsh_completes norv '' | grep --quiet '^gpio:GPIO lines'
    zsh_completes norv i2c '' | grep --quiet '^detect:'
    zsh_completes norv gpio watch 17 '' | grep --quiet '^--edge:'
}

# The words, and the complaints, that bash offers in place of the last one. The file is the one that users install, and is
# loaded by bash-completion at the first completion, in a function.
bash_completes() {
    local directory=$BATS_TEST_TMPDIR/data/bash-completion/completions
    mkdir -p "$directory"
    cp "$generated/norv.bash" "$directory/norv"
    # shellcheck disable=SC2016 # expanded by the inner shell
    env --unset=BASH_COMPLETION_USER_DIR XDG_DATA_HOME="$BATS_TEST_TMPDIR/data" bash --norc -c '
        source /usr/share/bash-completion/bash_completion
        function_of() { sed "s/.* -F \([^ ]*\).*/\1/" <<<"$1"; }
        "$(function_of "$(complete -p -D)")" norv "" ""
        COMP_WORDS=("$@")
        COMP_CWORD=$(($# - 1))
        "$(function_of "$(complete -p norv)")" norv "${!#}" "${@: -2:1}"
        ((${#COMPREPLY[@]} == 0)) || printf "%s\n" "${COMPREPLY[@]}"' bash "$@" 2>&1
}

# The choices that zsh describes in place of the last word. The file is found and loaded by zsh itself.
zsh_completes() {
    # shellcheck disable=SC2016 # expanded by the inner shell
    zsh -f -c '
        fpath=($1 $fpath)
        shift
        autoload -Uz compinit
        compinit -D -u
        words=("$@")
        CURRENT=$#
        _describe() { print -rl -- "${(@P)2}" }
        $_comps[norv]' zsh "$generated" "$@"
}
