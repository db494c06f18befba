#!/usr/bin/env bats
# SPDX-License-Identifier: MIT
# Boots that fail: which are tried again, which skip the tests and which fail them.

load support

setup_file() { export NORV_BOARD_ACCEL=tcg; }

# unstartable CI_VALUE: runs a board that cannot be started, with CI set to this value.
unstartable() { CI=$1 board --qemu-arg -no-such-option true; }

# first_boot COMMAND: an emulator that runs COMMAND, in the words of a shell, in place of its first boot. $scratch/boots then
# has a line for each boot.
first_boot() {
    stand_in qemu-system-x86_64 <<END
#!/bin/sh
echo boot >>'$scratch/boots'
real='$(command -v qemu-system-x86_64)'
[ "\$(wc -l <'$scratch/boots')" -gt 1 ] || { $1; }
exec "\$real" "\$@"
END
}

# The arguments of a kernel that does not find its first process.
panicking='console=ttyS0 panic=-1 rdinit=/nowhere'

@test "a board that cannot be started is a skip where none has booted" {
    local value
    copy_project
    for value in '' 0 false; do
        unstartable "$value"
        expect "status where CI='$value'" 77 "$status"
    done
}

@test "a board that cannot be started is a failure in continuous integration" {
    local value
    copy_project
    for value in true 1 yes woodpecker; do
        unstartable "$value"
        expect "status where CI='$value'" 1 "$status"
    done
}

@test "the test run fails without a board in continuous integration" {
    copy_project
    stand_in qemu-system-x86_64 <<<$'#!/bin/sh\nexit 1'
    CI=1 run tools/run-tests build/release
    expect_status 1
    [[ $output != *'NO VIRTUAL BOARD'* ]]
}

@test "a board that cannot be started is a failure where one has booted" {
    copy_project
    CI='' board true
    expect_status 0
    unstartable ''
    expect_status 1
    expect_message '*a board has booted on this machine before*'
}

@test "a missing kernel is a failure where a board has booted" {
    copy_project
    # shellcheck disable=SC2016 # expanded by the script
    sed -i 's/^main "\$@"$/exit 77/' board/prepare
    CI='' board true
    expect_status 77
    mkdir --parents build/board
    touch build/board/booted-x86_64
    CI='' board true
    expect_status 1
}

# The pipe ends with it: what reads the output must not wait forever.
@test "an emulator that ends at once leaves nothing behind" {
    copy_project
    stand_in qemu-system-x86_64 <<<$'#!/bin/sh\nexit 1'
    # shellcheck disable=SC2016 # expanded by the inner shell
    run env --unset=CI timeout 60 bash -c '"$1" true 2>/dev/null </dev/null | cat; exit "${PIPESTATUS[0]}"' bash "$runner"
    expect_status 77
}

@test "a board that hangs during boot is started once more" {
    first_boot 'exec sleep 1000 3>&-'
    board sh -c 'echo moved'
    expect_status 0
    expect_output moved
    expect_message '*hung during boot, retrying*'
}

# As on a busy host: more than a minute passes, and the console shows a line now and then.
@test "a board that boots slowly is left alone" {
    # shellcheck disable=SC2016 # expanded by the emulator
    first_boot 'log=$(printf "%s\n" "$@" | sed -n "s/^file,id=console,.*path=//p")
        for part in 1 2; do sleep 35; echo "part $part" >>"$log"; done'
    board sh -c 'echo moved'
    expect_status 0
    expect_output moved
    expect boots boot "$(<"$scratch/boots")"
}

@test "a board that panics during boot is started once more" {
    first_boot "exec \"\$real\" \"\$@\" -append '$panicking'"
    board sh -c 'echo moved'
    expect_status 0
    expect_output moved
    expect_message '*crashed during boot, retrying*'
}

@test "a board that panics during each boot is a failure where one has booted" {
    CI='' board --qemu-arg -append --qemu-arg "$panicking" true
    expect_status 1
    expect_message '*crashed during boot, retrying*Kernel panic*does not boot*'
}

# Its own message says why: a second try would end in the same way.
@test "an emulator that does not start the kernel is not started once more" {
    first_boot 'echo "no such machine"; exit 1'
    board true
    expect_status 1
    expect boots boot "$(<"$scratch/boots")"
}

# As on a busy host: early in the boot, the emulator runs for two milliseconds in a hundred. A kernel that tests its timer
# meanwhile prints "MP-BIOS bug" before it panics.
@test "a kernel that is starved early in the boot does not test its timer" {
    stand_in qemu-system-x86_64 <<END
#!/usr/bin/perl
my (\$log) = map { /^file,id=console,.*path=(.*)/ } @ARGV;
my \$emulator = fork // die;
\$emulator or exec 'setpriv', '--pdeathsig', 'KILL', '--', '$(command -v qemu-system-x86_64)', @ARGV or die;
sub starve {
    my (\$stopped, \$running) = @_;
    kill STOP => \$emulator;
    select undef, undef, undef, \$stopped;
    kill CONT => \$emulator;
    select undef, undef, undef, \$running;
    waitpid(\$emulator, 1) == 0 or exit;
}
sub shown { open my \$file, '<', \$log or die; join '', <\$file> }
starve(0.02, 0.02) until -s \$log;
starve(0.1, 0.002) until shown =~ /tsc: Detected|Kernel panic/;
waitpid \$emulator, 0;
END
    board dmesg
    expect_status 0
    [[ $stderr != *retrying* && $output == *'TIMER: vector'* && $output != *'MP-BIOS bug'* ]]
}

@test "a module that does not build is a failure everywhere" {
    copy_project
    echo 'not C' >board/modules/broken.c
    CI='' board true
    expect_status 125
    expect_message '*do not build*'
}
