#!/usr/bin/env bats
# SPDX-License-Identifier: MIT
# What board/run refuses, and what it says where something is missing.

load support

# is_wrong_usage ARGUMENT...: the runner refuses these.
is_wrong_usage() {
    board "$@"
    expect "status of $*" 2 "$status"
}

@test "wrong usage has status 2" {
    is_wrong_usage
    is_wrong_usage --no-such-option x true
    is_wrong_usage --time-limit soon true
    is_wrong_usage --processors 9 true
    is_wrong_usage --machine zynq --processors 1 true
    is_wrong_usage --arch vax true
    is_wrong_usage --kernel ../6.1 true
    is_wrong_usage --kernel 6.1 --arch arm64 true
    is_wrong_usage --interactive
    is_wrong_usage --module ./nowhere.ko true
}

@test "a board without a device tree names in one line those that have one" {
    local option
    echo '/dts-v1/; / { };' >"$scratch/own.dts"
    for option in --dtb --overlay; do
        board "$option" "$scratch/own.dts" true
        expect "status of $option" 2 "$status"
        expect "standard error of $option" \
            'board: --dtb and --overlay are for boards that have a device tree: --arch arm64, --machine zynq or zynqmp' "$stderr"
    done
}

@test "an unknown kernel is wrong usage, and the known ones are named" {
    board --kernel 4.9 true
    expect_status 2
    expect_message "*no kernel '4.9': the archive offers *6.1* and newest"
}

# A kernel that would take long to fetch, in a cache of its own that the archive cannot fill.
@test "another kernel needs the archive once" {
    export XDG_CACHE_HOME=$scratch/empty http_proxy=http://127.0.0.1:9
    board --kernel 6.12 true
    expect_status 1
    expect_message '*linux-image-6.12-amd64 has not been fetched before*'
    # 5.10 is not a version of 5.1.
    mkdir --parents "$scratch/empty/norv-board/kernels/5.10.0-1-amd64"
    board --kernel 5.1 true
    expect_message '*linux-image-5.1-amd64 has not been fetched before*'
}

# As on a system of another kind: the few programs that these scripts call, and none of Debian's.
@test "a machine without Debian's packages is shown what it lacks" {
    local program
    mkdir "$scratch/few"
    for program in bash cut dirname env grep mkdir mktemp mv rm sha256sum; do
        ln -s "$(command -v "$program")" "$scratch/few/"
    done
    run --separate-stderr env PATH="$scratch/few" tools/need-packages cmake qemu-system-x86
    expect_status 0
    expect_message '*what these have: cmake qemu-system-x86'
    run --separate-stderr env PATH="$scratch/few" board/prepare
    expect_status 77
    expect_message '*apt-get and dpkg-deb*'
}
