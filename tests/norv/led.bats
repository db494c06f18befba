#!/usr/bin/env bats
# SPDX-License-Identifier: MIT
# norv led, where there is no such LED

load support

@test "AnLedThatIsNotThereIsNamedWithItsStatusAndCause" {
    norv led set no:such:led 1
    fails_in /sys/class/leds "led no:such:led" "no such LED; see norv led list"
}

@test "ABrightnessIsOfEightBits" {
    norv led set no:such:led 256
    is_wrong_usage BRIGHTNESS
}

@test "ATimeToBlinkIsAtLeastAMillisecond" {
    norv led blink --on 0 no:such:led
    is_wrong_usage "--on: Value 0 not in range"
    [[ $stderr == *2147483647* ]] || fail "standard error: $stderr"
}

@test "TheTriggersOfAnLedThatIsNotThere" {
    norv led trigger no:such:led
    fails_in /sys/class/leds "led no:such:led" "no such LED; see norv led list"
}

@test "ANameLeadsToNoFileElsewhere" {
    local name
    echo "not a trigger" >"$BATS_TEST_TMPDIR/victim"
    name=$(padded 239 ../../.. "$BATS_TEST_TMPDIR/victim")
    norv led trigger "$name" none
    is_wrong_usage 'victim" is not the name of an LED'
    norv led set "$name" 1
    is_wrong_usage 'victim" is not the name of an LED'
    norv led blink "$name"
    is_wrong_usage 'victim" is not the name of an LED'
    norv led shot ..
    is_wrong_usage '".." is not the name of an LED'
    [[ $(<"$BATS_TEST_TMPDIR/victim") == "not a trigger" ]]
}

@test "AListAsJsonIsAnArray" {
    norv led list --json
    prints_json 'type == "array"'
}
