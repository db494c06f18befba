#!/usr/bin/env bats
# SPDX-License-Identifier: MIT
# norv sensors, where there is no such sensor

load support

@test "ASensorThatIsNotThereIsNamedWithItsStatusAndCause" {
    norv sensors voltage99999
    fails_in /sys/bus/iio "sensor voltage99999" "no such channel; is the system monitor's driver loaded?"
    norv sensors --soc zynqmp voltage99999
    fails_in /sys/bus/iio "sensor voltage99999" "no such channel; is the system monitor's driver loaded?"
    norv sensors humidity0
    fails_in /sys/bus/iio "sensor humidity0" "no such channel; is the system monitor's driver loaded?"
}

@test "ANameLeadsToNoFileElsewhere" {
    norv sensors voltage0 voltage/../../../../../etc/passwd
    is_wrong_usage 'passwd" is not the name of a channel'
}

@test "AMissingSystemMonitorIsNamedAsTheCause" {
    [[ ! -e /sys/bus/iio/devices/iio:device0 ]] || skip "this machine has sensors"
    norv sensors
    fails_in /sys/bus/iio sensors "no system monitor; is its driver loaded?"
}

@test "AFamilyIsOneOfTwo" {
    norv sensors --soc versal
    is_wrong_usage '"versal" is not one of zynq, zynqmp'
}
