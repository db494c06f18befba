#!/usr/bin/env bats
# SPDX-License-Identifier: MIT
# The rights that docs/porting.md gives a user. The page is the code: its commands are run and its rules are loaded.

page=$BATS_TEST_DIRNAME/../../../docs/porting.md
gpio=/sys/class/gpio
pwm=/sys/class/pwm/pwmchip0
led=/sys/class/leds/norv:green:status

# block WORD: the block of code on the page, below "Rights", that has a line beginning with this word.
block() {
    sed '1,/^## Rights/d; /^## /,$d' "$page" | awk -v word="$1" '
        /^    / { text = text substr($0, 5) "\n"; found = found || index($0, "    " word) == 1; next }
        { if (found) exit; text = "" }
        END { if (!found) exit 1; printf "%s", text }'
}

setup_file() {
    useradd gateway
    bash -e <<<"$(block groupadd)"
    block SUBSYSTEM >/etc/udev/rules.d/60-hardware.rules
    bash -e <<<"$(block 'udevadm control')"
    export PATH=$NORV_PROGRAMS:$PATH
}

# The user may not be allowed to enter the directory of the tests.
setup() { cd /; }

# The user of the page, and the same without the groups.
user() { setpriv --reuid gateway --regid gateway --init-groups -- "$@"; }
stranger() { setpriv --reuid gateway --regid gateway --clear-groups -- "$@"; }
stranger_with() {
    setpriv --reuid gateway --regid gateway --clear-groups --inh-caps "+$1" --ambient-caps "+$1" -- "${@:2}"
}

# only_the_user_may COMMAND...: it succeeds for the user, and for the stranger it fails for want of a permission.
only_the_user_may() {
    run stranger "$@"
    [[ $status -ne 0 && $output =~ EACCES|'Permission denied' ]] || fail "a stranger: status $status, $output"
    run user "$@"
    [[ $status -eq 0 ]] || fail "the user: status $status, $output"
}

fail() {
    echo "$1" >&2
    return 1
}

# waits_for FILE: until the user may write it.
waits_for() {
    user timeout 60 sh -c "until [ -w '$1' ]; do sleep 0.1; done"
}

# ---- nodes

@test "rights: TheGroupMayUseI2c" {
    only_the_user_may i2c_eeprom 1 0x50
}

@test "rights: TheGroupMayUseSpi" {
    only_the_user_may spi_loopback /dev/spidev0.0 16
}

@test "rights: TheGroupMayUseUio" {
    only_the_user_may uio_peek_poke norv-board-regs 0x10 0xcafe
}

@test "rights: TheGroupMayUseUmcb" {
    echo 1 >/sys/kernel/debug/norv_board_umcb/source1/raise
    only_the_user_may umcb_interrupts 0 1 1 10000
}

@test "rights: TheGroupMayEraseAndWriteFlash" {
    only_the_user_may mtd_info /dev/mtd0
    only_the_user_may norv flash write --yes "$NORV_PROGRAMS/libnorv_base.so.0"
}

@test "rights: TheGroupMayUseDmaBuffers" {
    only_the_user_may dma_buffer default
}

@test "rights: DialoutMayUseSerialPorts" {
    only_the_user_may uart_echo /dev/ttyS3 9600
}

@test "rights: DiskMayUseCards" {
    only_the_user_may norv flash read /tmp/card --length 16 --emmc /dev/mmcblk0
}

# ---- attributes

@test "rights: TheGroupMaySetClocks" {
    only_the_user_may norv clock set 0 1000000
    only_the_user_may norv clock reset 0 on
}

@test "rights: TheGroupMayDimLeds" {
    only_the_user_may norv led set norv:green:status 7
    only_the_user_may norv led trigger norv:green:status none
}

@test "rights: TheGroupMayBlinkAnLedOnceItsAttributesAreGivenAway" {
    user sh -c "echo timer >$led/trigger"
    waits_for "$led/delay_on"
    user sh -c "echo 30 >$led/delay_on && echo 70 >$led/delay_off"
    [[ $(<"$led/delay_on") == 30 && $(<"$led/delay_off") == 70 ]]
}

@test "rights: TheGroupMayFlashAnLedOnceItsAttributesAreGivenAway" {
    user sh -c "echo oneshot >$led/trigger"
    waits_for "$led/delay_on"
    only_the_user_may norv led shot norv:green:status
}

@test "rights: TheGroupMayUseLinesThatAScriptHasExported" {
    user timeout 60 sh -e <<<"$(block for)"
    only_the_user_may gpio_edge 17 16 3
    [[ ! -e $gpio/gpio16 ]] # the example has closed them: the next start needs the script again
    user timeout 60 sh -e <<<"$(block for)"
    only_the_user_may gpio_edge 17 16 3
}

@test "rights: ALineThatUdevHasNotSeenYetIsRefusedAndStaysExported" {
    udevadm control --stop-exec-queue
    run user norv gpio get 20
    udevadm control --start-exec-queue
    [[ $status -eq 1 && $output == *EACCES* ]]
    waits_for "$gpio/gpio20/value"
    user norv gpio get --input 20
    user norv gpio set 20=1
}

@test "rights: TheGroupMayUsePwmChannelsOnceTheyAreGivenAway" {
    for channel in 0 1; do
        user sh -c "echo $channel >$pwm/export"
        waits_for "$pwm/pwm$channel/period"
    done
    only_the_user_may pwm_sweep 0 0 1
}

# Each list is of attributes in the order in which the rule gives them away.
@test "rights: TheAttributeThatIsOpenedFirstIsGivenAwayLast" {
    [[ $(block SUBSYSTEM) == *'chmod -f g+w edge direction active_low value'* ]]
    [[ $(block SUBSYSTEM) == *'chmod -f g+w pwm*/enable pwm*/polarity pwm*/duty_cycle pwm*/period'* ]]
    [[ $(block SUBSYSTEM) == *'chmod -f g+w shot invert delay_off delay_on'* ]]
}

# ---- what needs no rights, or others

@test "rights: SensorsNeedNone" {
    stranger zynq_sensors zynqmp
}

@test "rights: CanNeedsNoneButSettingItUpNeedsNetAdmin" {
    run stranger can_links
    [[ $status -ne 0 ]]
    stranger_with net_admin can_links
    stranger can_dump can0 100 200 6 can1
}

@test "rights: UeventsNeedNone" {
    { while sleep 0.2; do echo change >/sys/class/net/lo/uevent; done; } &
    announcer=$!
    run stranger uevent_watch 4
    kill "$announcer"
    [[ $output == *change@* ]]
}

@test "rights: RealTimePriorityNeedsSysNiceOrItsLimit" {
    run stranger linux_thread_setup
    [[ $output != *'got real time'* ]]
    run stranger_with sys_nice linux_thread_setup
    [[ $output == *'got real time'* ]]
    (prlimit --pid "$BASHPID" --rtprio=99 && stranger linux_thread_setup) | grep 'got real time'
}

@test "rights: PciIdentitiesNeedRoot" {
    modprobe norv_board_uio_pci_mmap
    run user uio_pci_registers 0x1234 0x11e8
    [[ $status -ne 0 && $output == *EACCES* ]]
    run stranger_with sys_admin uio_pci_registers 0x1234 0x11e8
    [[ $status -ne 0 && $output == *EACCES* ]]
    uio_pci_registers 0x1234 0x11e8
    run user uio_pci_registers 0x1234 0x11e8
    [[ $status -ne 0 && $output == *EACCES* ]]
}
