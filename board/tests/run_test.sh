#!/usr/bin/env bash
# Tests board/run and the modules that come with the board. Each test is a function whose name says what
# holds; name some on the command line to run only those.
set -uo pipefail

# shellcheck source=run_support.sh
source "$(dirname "${BASH_SOURCE[0]}")/run_support.sh"

# Runs a script, from standard input, on a board that has the GPIO chip.
gpio_board() {
    cat >"$scratch/script"
    board --module norv_board_gpio bash -c "cd /sys/class/gpio; source '$scratch/script'"
}

# ---- the runner ----

TheCommandsExitStatusIsPassedOn() {
    board sh -c 'exit 42'
    expect status 42 "$status"
}

DeathBySignalReadsAsInAShell() {
    board sh -c 'kill -SEGV $$'
    expect status 139 "$status"
}

OutputAndErrorsArriveApart() {
    board sh -c 'echo to output; echo to errors >&2'
    expect 'standard output' 'to output' "$out"
    expect 'standard error' 'to errors' "$err"
}

OutputAndErrorsKeepTheirOrderWhereTheyGoToOnePlace() {
    expect 'both streams' $'1\n2\n3\n4' "$("$run" sh -c 'echo 1; echo 2 >&2; echo 3; echo 4 >&2' 2>&1)"
}

ALongOutputArrivesWhole() {
    board seq 200000
    expect 'sum of the output' "$(seq 200000 | sha256sum)" "$(sha256sum <"$scratch/out")"
}

OutputArrivesWhileTheCommandStillRuns() {
    local first board_pid
    exec {lines}< <("$run" sh -c 'echo first; exec sleep 1000')
    board_pid=$!
    read -r -u "$lines" first
    expect 'first line' first "$first"
    expect 'kill -0' 0 "$(kill -0 "$board_pid"; echo $?)"
    kill -TERM "$board_pid"
    wait "$board_pid"
    expect status 143 $?
}

InputArrivesWholeAndEnds() {
    seq 200000 >"$scratch/numbers"
    input=$scratch/numbers board sh -c 'sha256sum </dev/stdin; cat </dev/stdin'
    expect 'sum of the input' "$(sha256sum <"$scratch/numbers")" "$out"
}

WithoutInputACommandReadsNothing() {
    board cat
    expect 'status of an empty input' 0 "$status"
    status=0
    out=$("$run" sh -c 'cat; echo read' <&-) || status=$?
    expect 'status of a closed input' 0 "$status"
    expect 'output where the input is closed' read "$out"
}

InputThatIsNotReadDoesNotHoldTheBoard() {
    local out
    out=$(timeout 120 "$run" echo whole < <(exec sleep 1000))
    expect status 0 $?
    expect 'standard output' whole "$out"
}

ArgumentsArriveUnchanged() {
    board printf '<%s>' 'a b' '' "it's" "\$HOME \\ *" $'two\nlines'
    expect 'standard output' "<a b><><it's><\$HOME \\ *><two"$'\n'"lines>" "$out"
}

TheEnvironmentGoesAlong() {
    # shellcheck disable=SC2016  # the shell on the board expands it
    NORV_TEST_WORD=$'it\'s\ntwo lines' board sh -c 'printf %s "$NORV_TEST_WORD"'
    expect 'standard output' $'it\'s\ntwo lines' "$out"
}

TheCommandRunsAsRootInTheCurrentDirectory() {
    cd "$project/board/modules" || return
    board sh -c 'id -u; pwd; ls gpio.c'
    cd "$project" || return
    expect 'standard output' "0"$'\n'"$project/board/modules"$'\n'"gpio.c" "$out"
}

ACurrentDirectoryBelowTmpShowsThrough() {
    local directory
    directory=$(mktemp --directory --tmpdir=/tmp)
    echo here >"$directory/file"
    cd "$directory" || return
    board cat file
    cd "$project" || return
    rm -r "$directory"
    expect 'standard output' here "$out"
}

ACommandInTmpShowsThrough() {
    local script
    script=$(mktemp --tmpdir=/tmp)
    # shellcheck disable=SC2016  # expanded on the board
    printf '#!/bin/sh\necho here; touch "$0.new"\n' >"$script"
    chmod +x "$script"
    board "$script"
    expect status 0 "$status"
    expect 'standard output' here "$out"
    [[ ! -e $script.new ]]
    expect 'no new file on the host' 0 $?
    rm "$script"
}

AMissingCommandIsReportedAsAShellDoes() {
    board no-such-command
    expect status 127 "$status"
}

TheTimeLimitEndsTheBoardAndKeepsWhatWasPrinted() {
    board --time-limit 10 sh -c 'echo before; sleep 1000; echo after'
    expect status 124 "$status"
    expect 'standard output' before "$out"
}

TwoBoardsRunAtTheSameTime() {
    local first
    "$run" sh -c 'echo one >/tmp/file; sleep 1; cat /tmp/file; exit 11' >"$scratch/first" 2>&1 &
    first=$!
    board sh -c 'echo two >/tmp/file; sleep 1; cat /tmp/file; exit 22'
    expect 'second status' 22 "$status"
    expect 'second output' two "$out"
    wait "$first"
    expect 'first status' 11 $?
    expect 'first output' one "$(<"$scratch/first")"
}

WhatIsWrittenToTheBuildDirectoryStaysAndNothingElse() {
    board sh -c "echo result >'$scratch/result'; echo stray >'$project/board/stray'; cat '$project/board/stray'"
    expect 'the file on the host' result "$(<"$scratch/result")"
    expect 'a file in the source tree, on the board' stray "$out"
    [[ ! -e $project/board/stray ]]
    expect 'no such file on the host' 0 $?
}

WhatIsWrittenToANamedDirectoryStaysInstead() {
    mkdir "$scratch/out put"
    board --writable "$scratch/out put" sh -c "echo result >'$scratch/out put/result'; echo stray >build/stray"
    expect status 0 "$status"
    expect 'the file on the host' result "$(<"$scratch/out put/result")"
    [[ ! -e $project/build/stray ]]
    expect 'no file in the build directory' 0 $?
}

AProgramMayChangeTheBoardsSystem() {
    board sh -c 'echo board >/etc/hostname; mkdir /var/lib/daemon; rm /etc/passwd; cat /etc/hostname; ls /etc/passwd'
    expect 'standard output' board "$out"
    [[ -s /etc/passwd && ! -e /var/lib/daemon ]]
    expect 'the host is as it was' 0 $?
}

WhatTheCommandLeavesRunningDoesNotHoldTheBoard() {
    board sh -c 'sleep 1000 & echo done'
    expect status 0 "$status"
    expect 'standard output' 'done' "$out"
}

TheStandardStreamsCanBeOpenedByName() {
    board sh -c 'echo named >/dev/stdout; echo errors >/dev/stderr'
    expect 'standard output' named "$out"
    expect 'standard error' errors "$err"
}

AReaderThatGoesAwayEndsTheBoard() {
    expect 'first line' y "$("$run" yes 2>/dev/null | head -n 1)"
}

AKernelPanicFailsTheRunAndShowsTheLog() {
    board sh -c 'echo c >/proc/sysrq-trigger; sleep 1000'
    expect status 125 "$status"
    [[ $err == *'Kernel panic'* ]]
    expect 'log with the panic' 0 $?
}

AnUnknownModuleIsRefused() {
    board --module no-such-module true
    expect status 125 "$status"
    [[ $err == *"refused the module no-such-module"* ]]
    expect 'message names the module' 0 $?
}

AStockModuleIsLoadedWithItsParameters() {
    board --module 'i2c-stub chip_addr=0x50' cat /sys/bus/i2c/devices/i2c-0/name
    expect 'standard output' 'SMBus stub driver' "$out"
}

# The file of a module of the board's, for the kernel that the board boots.
module_file() { find "$("$project/board/prepare")" -name "norv_board_$1.ko"; }

AModulesFileIsLoadedWithItsParametersAndWhatItNeeds() {
    cp "$(module_file i2c)" "$scratch/mine.ko"
    cd "$scratch" || return
    board --module './mine.ko bus=7' cat /sys/bus/i2c/devices/i2c-7/name
    cd "$project" || return
    expect status 0 "$status"
    expect 'standard output' norv-board-i2c "$out"
}

UdevSetsUpTheDevicesBeforeTheCommand() {
    board --udev udevadm info --query=property --property=ID_BUS /dev/ttyS1
    expect status 0 "$status"
    expect 'a property that udev has set' ID_BUS=pci "$out"
}

# Runs the board at a terminal that is 99 columns wide; `out` is all that the terminal showed.
terminal_board() {
    status=0
    out=$(script --quiet --return --command "stty cols 99 rows 33; $run --interactive $1" /dev/null <"$scratch/keys") ||
        status=$?
}

ACommandRunsAtATerminal() {
    { sleep 20; echo; } >"$scratch/keys"
    terminal_board "bash -c 'tty; stty size; exit 5'"
    expect status 5 "$status"
    [[ $out == *'/dev/hvc0'*'33 99'* ]]
    expect 'terminal and its size' 0 $?
}

TheKernelLoadsProtocolModulesByItself() {
    # shellcheck disable=SC2016  # these are perl's variables
    board perl -e 'use Socket; socket(my $s, 29, SOCK_RAW, 1) or die "$!"; print "CAN"'
    expect 'standard output' CAN "$out"
}

# What board/run remembers of a boot.
forget_boots() { rm -f "$project"/build/board/booted-*; }

# Puts an emulator that ends at once into $scratch/broken.
broken_emulator() {
    mkdir -p "$scratch/broken"
    printf '#!/bin/sh\nexit 1\n' >"$scratch/broken/qemu-system-x86_64"
    chmod +x "$scratch/broken/qemu-system-x86_64"
}

# The status of a board that cannot be started, with CI set to this value.
unstartable_status() {
    CI=$1 NORV_BOARD_ACCEL=tcg board --qemu-arg -no-such-option true
    echo "$status"
}

ABoardThatCannotBeStartedIsASkipWhereNoneHasBooted() {
    local value
    forget_boots
    for value in '' 0 false; do
        expect "status where CI='$value'" 77 "$(unstartable_status "$value")"
    done
}

ABoardThatCannotBeStartedIsAFailureInContinuousIntegration() {
    local value
    forget_boots
    for value in true 1 yes woodpecker; do
        expect "status where CI='$value'" 1 "$(unstartable_status "$value")"
    done
}

TheTestRunFailsWithoutABoardInContinuousIntegration() {
    forget_boots
    broken_emulator
    status=0
    CI=1 NORV_BOARD_ACCEL=tcg PATH="$scratch/broken:$PATH" tools/run-tests build/release >"$scratch/out" 2>&1 || status=$?
    expect status 1 "$status"
    expect 'words about tests that run all the same' '' "$(grep 'NO VIRTUAL BOARD' "$scratch/out")"
}

ABoardThatCannotBeStartedIsAFailureWhereOneHasBooted() {
    forget_boots
    CI='' board true
    expect 'status' 1 "$(unstartable_status '')"
    [[ $(<"$scratch/err") == *'a board has booted on this machine before'* ]]
    expect 'message' 0 $?
}

AMissingKernelIsAFailureWhereABoardHasBooted() {
    mkdir -p "$scratch/nowhere/build/board"
    cp -r "$project/board" "$project/tools" "$scratch/nowhere/"
    # shellcheck disable=SC2016  # expanded by the script
    sed -i 's/^main "\$@"$/exit 77/' "$scratch/nowhere/board/prepare"
    CI='' run=$scratch/nowhere/board/run board true
    expect 'status' 77 "$status"
    cp "$project"/build/board/booted-* "$scratch/nowhere/build/board/"
    CI='' run=$scratch/nowhere/board/run board true
    expect 'status where one has booted' 1 "$status"
}

# Its output ends with it: what reads the output must not wait forever.
AnEmulatorThatEndsAtOnceLeavesNothingBehind() {
    broken_emulator
    forget_boots
    status=0
    # shellcheck disable=SC2016  # expanded by the inner shell
    env --unset=CI NORV_BOARD_ACCEL=tcg PATH="$scratch/broken:$PATH" \
        timeout 60 bash -c '"$1" true 2>/dev/null | cat; exit "${PIPESTATUS[0]}"' bash "$run" || status=$?
    expect status 77 "$status"
}

# first_boot NAME COMMAND: puts an emulator in the way that runs COMMAND, in the words of a shell, in place of its first boot.
# `emulator` is then its directory, and $emulator/boots has a line for each.
first_boot() {
    emulator=$scratch/$1
    mkdir "$emulator"
    cat >"$emulator/qemu-system-x86_64" <<END
#!/bin/sh
echo boot >>'$emulator/boots'
real='$(command -v qemu-system-x86_64)'
[ "\$(wc -l <'$emulator/boots')" -gt 1 ] || { $2; }
exec "\$real" "\$@"
END
    chmod +x "$emulator/qemu-system-x86_64"
}

ABoardThatHangsDuringBootIsStartedOnceMore() {
    first_boot hang 'exec sleep 1000'
    NORV_BOARD_ACCEL=tcg PATH="$emulator:$PATH" board sh -c 'echo moved'
    expect status 0 "$status"
    expect 'standard output' moved "$out"
    [[ $err == *'hung during boot, retrying'* ]]
    expect 'message' 0 $?
}

# As on a host that has other things to do: more than a minute passes, and the console says something now and then.
ABoardThatIsSlowToBootIsLeftAlone() {
    # shellcheck disable=SC2016  # expanded by the emulator
    first_boot slow 'log=$(printf "%s\n" "$@" | sed -n "s/^file,id=console,.*path=//p")
        for part in 1 2; do sleep 35; echo "part $part" >>"$log"; done'
    NORV_BOARD_ACCEL=tcg PATH="$emulator:$PATH" board sh -c 'echo moved'
    expect status 0 "$status"
    expect 'standard output' moved "$out"
    expect 'starts' boot "$(<"$emulator/boots")"
}

# A kernel with these parameters does not find its first process.
panicking='console=ttyS0 panic=-1 rdinit=/nowhere'

ABoardThatPanicsDuringBootIsStartedOnceMore() {
    first_boot panic "exec \"\$real\" \"\$@\" -append '$panicking'"
    NORV_BOARD_ACCEL=tcg PATH="$emulator:$PATH" board sh -c 'echo moved'
    expect status 0 "$status"
    expect 'standard output' moved "$out"
    [[ $err == *'crashed during boot, retrying'* ]]
    expect 'message' 0 $?
}

ABoardThatPanicsDuringEachBootIsAFailureWhereOneHasBooted() {
    CI='' NORV_BOARD_ACCEL=tcg board --qemu-arg -append --qemu-arg "$panicking" true
    expect status 1 "$status"
    [[ $err == *'crashed during boot, retrying'*'Kernel panic'*'does not boot'* ]]
    expect 'messages' 0 $?
}

# Its own message is all there is to learn: a second try would end the same way.
AnEmulatorThatDoesNotStartTheKernelIsNotStartedOnceMore() {
    first_boot mute 'echo "no such machine"; exit 1'
    NORV_BOARD_ACCEL=tcg PATH="$emulator:$PATH" board true
    expect status 1 "$status"
    expect 'starts' boot "$(<"$emulator/boots")"
}

# As on a host that has other things to do: early on, the emulator runs for two milliseconds in a hundred. A kernel that tests
# its timer meanwhile says "MP-BIOS bug" on its way to a panic.
AKernelThatIsStarvedEarlyOnDoesNotTestItsTimer() {
    mkdir "$scratch/starved"
    cat >"$scratch/starved/qemu-system-x86_64" <<END
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
    chmod +x "$scratch/starved/qemu-system-x86_64"
    NORV_BOARD_ACCEL=tcg PATH="$scratch/starved:$PATH" board dmesg
    expect status 0 "$status"
    [[ $err != *retrying* && $out == *'TIMER: vector'* && $out != *'MP-BIOS bug'* ]]
    expect 'a boot without a test of the timer' 0 $?
}

AModuleThatDoesNotBuildIsAFailureEverywhere() {
    mkdir "$scratch/copy"
    cp -r "$project/board" "$project/tools" "$scratch/copy/"
    echo 'not C' >"$scratch/copy/board/modules/broken.c"
    CI='' run=$scratch/copy/board/run board true
    expect status 125 "$status"
    [[ $err == *'do not build'* ]]
    expect 'message' 0 $?
}

WrongUsageIsStatus2() {
    board
    expect 'status without a command' 2 "$status"
    board --no-such-option x true
    expect 'status with an unknown option' 2 "$status"
    board --time-limit soon true
    expect 'status with a limit that is no number' 2 "$status"
    board --arch vax true
    expect 'status with an unknown processor' 2 "$status"
    board --kernel ../6.1 true
    expect 'status with a kernel that has no version' 2 "$status"
    board --kernel 6.1 --arch arm64 true
    expect 'status with a kernel of another processor' 2 "$status"
    board --interactive
    expect 'status without a terminal' 2 "$status"
    board --module ./nowhere.ko true
    expect 'status with a module that is not there' 2 "$status"
}

AnUnknownKernelIsWrongUsageAndTheKnownOnesAreNamed() {
    board --kernel 4.9 true
    expect status 2 "$status"
    [[ $err == *"no kernel '4.9': the archive offers "*6.1*' and newest' ]]
    expect 'message' 0 $?
}

AnotherKernelNeedsTheArchiveOnce() {
    # A kernel whose fetching is not to be waited for, in a cache of its own that the archive cannot fill.
    XDG_CACHE_HOME=$scratch/empty http_proxy=http://127.0.0.1:9 board --kernel 6.12 true
    expect status "$([[ -e build/board/booted-x86_64 ]] && echo 1 || echo 77)" "$status"
    [[ $err == *'linux-image-6.12-amd64 has not been fetched before'* ]]
    expect 'message' 0 $?
    # 5.10 is not a kind of 5.1.
    mkdir -p "$scratch/empty/norv-board/kernels/5.10.0-1-amd64"
    XDG_CACHE_HOME=$scratch/empty http_proxy=http://127.0.0.1:9 board --kernel 5.1 true
    [[ $err == *'linux-image-5.1-amd64 has not been fetched before'* ]]
    expect 'message about a series that begins like a kept one' 0 $?
}

# As on a system of another kind: the few programs that these scripts call, and none of Debian's.
AMachineWithoutDebianPackagesIsToldWhatItLacks() {
    local program
    mkdir "$scratch/few"
    for program in bash cut dirname env grep mkdir mktemp mv rm sha256sum; do
        ln -s "$(command -v "$program")" "$scratch/few/"
    done
    status=0
    err=$(PATH=$scratch/few tools/need-packages cmake qemu-system-x86 2>&1) || status=$?
    expect 'status of need-packages' 0 "$status"
    [[ $err == *'what these have: cmake qemu-system-x86' ]]
    expect 'names of the packages' 0 $?
    err=$(PATH=$scratch/few board/prepare 2>&1) || status=$?
    expect 'status of a board without apt' 77 "$status"
    [[ $err == *'apt-get and dpkg-deb'* ]]
    expect 'message' 0 $?
}

AKilledRunnerLeavesNoEmulatorBehind() {
    local board_pid name=norv-run-test-$$ state
    exec {lines}< <(exec "$run" --qemu-arg -name --qemu-arg "$name" sh -c 'echo up; exec sleep 1000')
    board_pid=$!
    read -r -u "$lines" state
    expect 'the board' up "$state"
    kill -KILL "$board_pid"
    cat <&"$lines" # until the emulator's end
    expect 'emulators left' '' "$(grep -ls "[n]${name#n}" /proc/[0-9]*/cmdline)"
}

# ---- families ----

# An executable script, from standard input.
program() {
    { echo '#!/bin/sh'; cat; } >"$scratch/$1"
    chmod +x "$scratch/$1"
}

FamiliesRunOneAfterTheOtherWhateverBecomesOfThem() {
    local results
    program passes <<<'ls -d /sys/module/norv_board_*'
    program fails <<<'ls -d /sys/module/norv_board_*; exit 3'
    program hangs <<<'trap "" TERM; while :; do sleep 1000; done'
    cat >"$scratch/families" <<END
limit=5
family first '$scratch/passes' norv_board_led 'mtdram total_size=256' nandsim
family second '$scratch/fails' norv_board_gpio
family third '$scratch/hangs'
family fourth '$scratch/passes' no-such-module
family fifth '$scratch/passes' norv_board_led 'mtdram total_size=128'
END
    board board/tests/run-families "$scratch/families"
    expect status 1 "$status"
    results=$(grep -E '^(passed|FAILED|/sys)' <<<"$out" | sed 's/, [0-9]* s//')
    expect results "/sys/module/norv_board_led
/sys/module/norv_board_gpio
/sys/module/norv_board_led
passed  first
FAILED  second: status 3
FAILED  third: killed; the limit is 5 s
FAILED  fourth: the kernel refused the module no-such-module
passed  fifth" "$results"
}

AFamilyThatHoldsItsModuleFails() {
    program holds <<<'setsid sleep 1000 </dev/mtdblock0 & sleep 1'
    echo "family holder '$scratch/holds' mtdblock 'mtdram total_size=256'" >"$scratch/families"
    board board/tests/run-families "$scratch/families"
    expect status 1 "$status"
    [[ $out == *'FAILED  holder'*'the module mtdram does not unload'* ]]
    expect 'reason' 0 $?
}

OneFamilyRunsAlone() {
    program says <<<'echo this one'
    program fails <<<'exit 3'
    printf "family %s '$scratch/%s'\n" first fails second says third fails >"$scratch/families"
    board board/tests/run-families "$scratch/families" second
    expect status 0 "$status"
    [[ $out == *'this one'*'passed  second'* && $out != *first* ]]
    expect 'results' 0 $?
    board board/tests/run-families "$scratch/families" fourth
    expect 'status of one that is not there' 1 "$status"
}

# ---- the board with another processor ----

AnArm64BoardRunsProgramsOfItsProcessor() {
    board --arch arm64 uname -m
    expect 'standard output' aarch64 "$out"
}

AnArm64BoardShowsTheProjectAndTheCurrentDirectory() {
    cd "$project/board/modules" || return
    board --arch arm64 sh -c "pwd; ls gpio.c '$project/README.md'"
    cd "$project" || return
    expect 'standard output' "$project/board/modules"$'\n'"$project/README.md"$'\n'"gpio.c" "$out"
}

AnArm64BoardHasTheBoardsModules() {
    board --arch arm64 --module norv_board_gpio cat /sys/class/gpio/gpiochip0/ngpio
    expect 'standard output' 32 "$out"
}

OnAnArm64BoardTheSerialPortsHaveTheirNames() {
    board --arch arm64 sh -c 'exec 3<>/dev/ttyS3 && stty -F /dev/ttyS3 raw -echo && echo word >&3 && head -n 1 <&3'
    expect 'what arrives' word "$out"
}

# ---- the serial ports ----

# Sends a word to one port and prints what comes out of another.
wire() {
    board sh -c "stty -F $1 raw -echo && stty -F $2 raw -echo && exec 3<>$1 4<>$2 && echo word >&3 && head -n 1 <&4"
}

TheFirstSerialPortIsWiredToTheSecond() {
    wire /dev/ttyS1 /dev/ttyS2
    expect 'what arrives' word "$out"
}

TheSecondSerialPortIsWiredToTheFirst() {
    wire /dev/ttyS2 /dev/ttyS1
    expect 'what arrives' word "$out"
}

TheThirdSerialPortIsWiredToItself() {
    wire /dev/ttyS3 /dev/ttyS3
    expect 'what arrives' word "$out"
}

# ---- the GPIO chip ----

DrivingALineDrivesItsNeighbour() {
    gpio_board <<'END'
echo 16 >export; echo 17 >export
echo out >gpio16/direction; echo in >gpio17/direction
for level in 1 0 1; do echo $level >gpio16/value; cat gpio17/value; done
END
    expect levels $'1\n0\n1' "$out"
}

TheOddLineDrivesTheEvenOneToo() {
    gpio_board <<'END'
echo 16 >export; echo 17 >export
echo high >gpio17/direction
cat gpio16/value
END
    expect level 1 "$out"
}

PairsAreSeparate() {
    gpio_board <<'END'
echo 15 >export; echo 16 >export; echo 18 >export
echo high >gpio16/direction
cat gpio15/value gpio18/value
END
    expect levels $'0\n0' "$out"
}

# Prints, for each level written to line 16, whether line 17 signalled.
watch_edges() {
    printf 'echo 16 >export; echo 17 >export; echo out >gpio16/direction; echo %s >gpio17/edge\n' "$1"
    cat <<'END'
perl -e '
    open my $wire, "<", "gpio17/value" or die;
    sysread $wire, my $level, 2;
    for my $next (0, 1, 1, 0, 1) {
        open my $driver, ">", "gpio16/value" or die; syswrite $driver, $next; close $driver;
        vec(my $signalled = "", fileno $wire, 1) = 1;
        printf "%d:%d ", $next, scalar select undef, undef, $signalled, 0.2;
        sysseek $wire, 0, 0; sysread $wire, $level, 2;
    }'
END
}

RisingEdgesSignal() {
    gpio_board < <(watch_edges rising)
    expect 'level:signals' '0:0 1:1 1:0 0:0 1:1' "${out% }"
}

FallingEdgesSignal() {
    gpio_board < <(watch_edges falling)
    expect 'level:signals' '0:0 1:0 1:0 0:1 1:0' "${out% }"
}

BothEdgesSignal() {
    gpio_board < <(watch_edges both)
    expect 'level:signals' '0:0 1:1 1:0 0:1 1:1' "${out% }"
}

NothingSignalsWithoutAnEdgeSetting() {
    gpio_board < <(watch_edges none)
    expect 'level:signals' '0:0 1:0 1:0 0:0 1:0' "${out% }"
}

Line29IsAnInputOnly() {
    gpio_board <<'END'
echo 28 >export; echo 29 >export
echo high >gpio28/direction
cat gpio29/value
echo out >gpio29/direction || cat gpio29/direction
END
    expect 'standard output' $'1\nin' "$out"
    [[ $err == *'Operation not permitted'* ]]
    expect 'the refusal' 0 $?
}

Line31CanNotBeRequested() {
    gpio_board <<'END'
echo 31 >export
END
    expect status 1 "$status"
    [[ $err == *'Device or resource busy'* ]]
    expect 'the refusal' 0 $?
}

TheChipGoesAwayAndComesBack() {
    gpio_board <<'END'
modprobe --remove norv_board_gpio && ls
modprobe norv_board_gpio base=64 && cat gpiochip64/ngpio
END
    expect 'standard output' $'export\nunexport\n32' "$out"
}

# ---- running them ----

# The first run may have much to say: packages, the kernel, an accelerator that does not work.
"$run" true </dev/null || exit
run_tests "${BASH_SOURCE[0]}" "$@"
