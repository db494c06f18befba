#!/usr/bin/env bats
# norv led, where there is no such LED

load support

@test "AnLedThatIsNotThereIsNamedWithItsStatusAndCause" {
    norv led set no:such:led 1
    fails "led no:such:led: NOT_FOUND: no such LED; norv led list shows those that there are"
}

@test "ABrightnessIsOfEightBits" {
    norv led set no:such:led 256
    is_wrong_usage BRIGHTNESS
}

@test "TheTriggersOfAnLedThatIsNotThere" {
    norv led trigger no:such:led
    fails "led no:such:led: NOT_FOUND: no such LED; norv led list shows those that there are"
}

@test "AListAsJsonIsAnArray" {
    norv led list --json
    prints_json 'type == "array"'
}
