#!/usr/bin/env bats
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

# The words that bash offers in place of the last one.
bash_completes() {
    # shellcheck source=/dev/null
    source "$generated/norv.bash"
    COMP_WORDS=("$@")
    COMP_CWORD=$(($# - 1))
    _norv
    ((${#COMPREPLY[@]} == 0)) || printf '%s\n' "${COMPREPLY[@]}"
}

# The choices that zsh describes in place of the last word.
zsh_completes() {
    zsh -f -c '
        generated=$1
        shift
        words=("$@")
        CURRENT=$#
        _describe() { print -rl -- "${(@P)2}" }
        source $generated/_norv' zsh "$generated" "$@"
}
