#!/usr/bin/env bats
# SPDX-License-Identifier: MIT
# norv led on the virtual board: one LED that can be dimmed, one that is lit or dark

load ../../../tests/norv/support

status_led=norv:green:status
leds=/sys/class/leds

@test "led: ABrightnessReachesTheLed" {
    norv led set "$status_led" 128
    succeeds
    [[ $(<"$leds/$status_led/brightness") == 128 ]]
}

@test "led: BothLedsAreListed" {
    norv led set "$status_led" 7
    norv led list --json
    prints_json 'map(select(.led == "norv:green:status")) ==
        [{"led": "norv:green:status", "brightness": 7, "max_brightness": 255, "trigger": "none"}]'
    norv led list
    [[ $output == *"norv:red:alarm"* ]]
}

@test "led: WhatCannotBeReadIsListedAsUnknown" {
    chmod 200 "$leds/$status_led/brightness" "$leds/$status_led/trigger"
    norv_with_permissions led list --json
    prints_json 'any(. == {"led": "norv:green:status", "brightness": null, "max_brightness": 255, "trigger": ""})'
    norv_with_permissions led list
    chmod 644 "$leds/$status_led/brightness" "$leds/$status_led/trigger"
    [[ $output =~ norv:green:status\ +\?\ of\ 255 ]] || fail "printed: $output"
}

@test "led: ATriggerIsChosenAndShown" {
    norv led trigger "$status_led" timer
    succeeds
    norv led trigger --json "$status_led"
    prints_json '.trigger == "timer" and (.triggers | index("oneshot"))'
    norv led trigger "$status_led"
    [[ $output == *$'\n'"timer *"* ]]
}

@test "led: ABlinkingLedHasItsRhythm" {
    norv led blink --on 30 --off 70 "$status_led"
    succeeds
    [[ $(<"$leds/$status_led/delay_on") == 30 && $(<"$leds/$status_led/delay_off") == 70 ]]
}

@test "led: ABlinkingLedIsSetWithoutWritingItsTrigger" {
    norv led blink "$status_led"
    chmod 444 "$leds/$status_led/trigger" "$leds/$status_led/delay_on"
    norv_with_permissions led blink --on 40 "$status_led"
    fails "led $status_led: EACCES: no permission; are you root? The kernel creates delay_on, delay_off and shot for \
root when the trigger is set"
    chmod 644 "$leds/$status_led/delay_on"
    norv_with_permissions led blink --on 40 --off 60 "$status_led"
    succeeds
    [[ $(<"$leds/$status_led/delay_on") == 40 && $(<"$leds/$status_led/delay_off") == 60 ]]
    chmod 644 "$leds/$status_led/trigger"
}

@test "led: AShotChoosesItsTrigger" {
    norv led shot "$status_led"
    succeeds
    [[ $(<"$leds/$status_led/trigger") == *"[oneshot]"* ]]
}

@test "led: AnUnknownTriggerIsNamedWithItsUsualCause" {
    norv led trigger "$status_led" moonlight
    fails "led $status_led: INVALID_ARG: no such trigger; is its module (ledtrig-...) loaded?"
}

# As root, for whom the permissions of files hold. What was built may be out of reach then: a copy is run.
norv_with_permissions() {
    local copy=$BATS_FILE_TMPDIR/norv
    if [[ ! -d $copy ]]; then
        mkdir "$copy"
        ldd "$NORV" | sed -n 's/.* => \(.*libnorv.*\) (.*/\1/p' | xargs cp --target-directory="$copy" "$NORV"
    fi
    LD_LIBRARY_PATH=$copy run --separate-stderr \
        setpriv --bounding-set=-dac_override,-dac_read_search "$copy/norv" "$@"
}
