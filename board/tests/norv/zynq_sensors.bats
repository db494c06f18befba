#!/usr/bin/env bats
# SPDX-License-Identifier: MIT
# norv sensors on the virtual board, whose system monitor has the channels of a Zynq and of a ZynqMP

load ../../../tests/norv/support

@test "zynq_sensors: AZynqHasATemperatureAndVoltages" {
    norv sensors --soc zynq
    succeeds
    [[ ${lines[0]} =~ ^temp0\ +34.45\ C$ && $output =~ voltage0_vccint\ +0.999\ V|voltage0_vccint\ +1.000\ V ]]
}

@test "zynq_sensors: AnExternalVoltageHasTheLowerRange" {
    norv sensors --soc zynq voltage8
    succeeds "voltage8                     0.333 V"
}

@test "zynq_sensors: AZynqMpIsRecognised" {
    norv sensors temp0_ps_temp temp2_pl_temp voltage1_vcc_psintlp
    succeeds
    [[ ${lines[0]} =~ \ 38.41\ C$ && ${lines[1]} =~ \ 37.25\ C$ && ${lines[2]} =~ \ 0.850\ V$ ]]
}

@test "zynq_sensors: AmongAllOneThatFailsIsShownWithItsStatus" {
    norv sensors --soc zynq
    succeeds
    [[ $output =~ voltage11\ +DEVICE_ERROR ]]
}

@test "zynq_sensors: OneThatWasAskedForMustNotFail" {
    norv sensors --soc zynq voltage11
    fails "sensor voltage11: DEVICE_ERROR: the conversion failed"
}

@test "zynq_sensors: SensorsAsJson" {
    norv sensors --json --soc zynqmp
    prints_json 'any(. == {"channel": "temp0_ps_temp", "value": 38.41, "unit": "C", "status": "OK"})'
    prints_json 'any(.channel == "voltage9" and .value == null and .status == "NOT_FOUND")'
}

@test "zynq_sensors: AChannelOfTheOtherFamilyIsNotThere" {
    norv sensors --soc zynqmp temp0
    fails "sensor temp0: NOT_FOUND: no such channel; is the system monitor's driver loaded?"
}
