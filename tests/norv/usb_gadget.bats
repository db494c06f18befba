#!/usr/bin/env bats
# SPDX-License-Identifier: MIT
# norv gadget, where there is no such controller

load support

cause="no such USB device controller; is its driver loaded?"

@test "AControllerThatIsNotThereIsNamedWithItsStatusAndCause" {
    norv gadget watch no-such-controller
    fails_in /sys/class/udc "gadget no-such-controller" "$cause"
    norv gadget connect no-such-controller
    fails_in /sys/class/udc "gadget no-such-controller" "$cause"
    norv gadget disconnect no-such-controller
    fails_in /sys/class/udc "gadget no-such-controller" "$cause"
}

@test "ANameLeadsToNoFileElsewhere" {
    norv gadget connect ../udc/dummy_udc.0
    is_wrong_usage '"../udc/dummy_udc.0" is not the name of a controller'
    norv gadget watch "$(padded 240 ../../.. /etc/passwd)"
    is_wrong_usage '/etc/passwd" is not the name of a controller'
}

@test "ABoardWithoutControllersIsToldSo" {
    [[ ! -d /sys/class/udc || -z $(ls /sys/class/udc) ]] || skip "this machine has a controller"
    norv gadget connect
    fails_in /sys/class/udc gadget "no USB device controller; is its driver loaded?"
}

@test "AListHasAHeadingAlsoWhereThereAreNoControllers" {
    norv gadget list
    succeeds
    [[ ${lines[0]} == "STATE "*"CONTROLLER" ]]
}

@test "AListAsJsonIsAnArray" {
    norv gadget list --json
    prints_json 'type == "array"'
}
