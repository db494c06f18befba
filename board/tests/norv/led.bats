#!/usr/bin/env bats
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

@test "led: AShotChoosesItsTrigger" {
    norv led shot "$status_led"
    succeeds
    [[ $(<"$leds/$status_led/trigger") == *"[oneshot]"* ]]
}

@test "led: AnUnknownTriggerIsNamedWithItsUsualCause" {
    norv led trigger "$status_led" moonlight
    fails "led $status_led: INVALID_ARG: no such trigger; is its module (ledtrig-...) loaded?"
}
