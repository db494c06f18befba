#!/usr/bin/env bats
# SPDX-License-Identifier: MIT
# What the tool says where the kernel has no such interface: a file system without files is in the place of its directories.

load ../../../tests/norv/support

setup() { hidden=(); }
teardown() { [[ ${#hidden[@]} -eq 0 ]] || umount "${hidden[@]}"; }

# hide DIRECTORY: as on a kernel that was built without what is in it.
hide() {
    mount -t tmpfs nothing "$1"
    hidden+=("$1")
}

@test "interfaces: AKernelWithoutGpioLinesInSysfsIsNamed" {
    hide /sys/class
    norv gpio get 16
    fails "gpio 16: NOT_FOUND: no /sys/class/gpio/export; was the kernel built without CONFIG_GPIO_SYSFS or CONFIG_GPIO_SYSFS_LEGACY?"
}

@test "interfaces: AKernelThatNumbersGpioLinesPerChipAloneIsNamed" {
    hide /sys/class/gpio
    mkdir /sys/class/gpio/chip0
    norv gpio set 16=1
    fails "gpio 16: NOT_FOUND: no /sys/class/gpio/export; was the kernel built without CONFIG_GPIO_SYSFS or CONFIG_GPIO_SYSFS_LEGACY?"
}

@test "interfaces: AKernelWithoutPwmIsNamed" {
    hide /sys/class
    norv pwm start 0 0
    fails "pwm 0:0: NOT_FOUND: no /sys/class/pwm; was the kernel built without CONFIG_PWM?"
}

@test "interfaces: AKernelWithoutLedsIsNamed" {
    hide /sys/class
    norv led set norv:red:alarm 1
    fails "led norv:red:alarm: NOT_FOUND: no /sys/class/leds; was the kernel built without CONFIG_LEDS_CLASS?"
    norv led trigger norv:red:alarm timer
    fails "led norv:red:alarm: NOT_FOUND: no /sys/class/leds; was the kernel built without CONFIG_LEDS_CLASS?"
}

@test "interfaces: AKernelWithoutI2cNodesIsNamed" {
    hide /sys/class
    norv i2c get 99 0x50 0
    fails "i2c bus 99: NOT_FOUND: no /sys/class/i2c-dev; is the module i2c-dev loaded, and was the kernel built with CONFIG_I2C_CHARDEV?"
}

@test "interfaces: AKernelWithoutSpidevIsNamed" {
    hide /sys/class
    norv spi transfer /dev/spidev99.0 1
    fails "spi /dev/spidev99.0: NOT_FOUND: no /sys/class/spidev; is the module spidev loaded, and was the kernel built with CONFIG_SPI_SPIDEV?"
}

@test "interfaces: AKernelWithoutRawFlashIsNamed" {
    hide /sys/class
    norv mtd info mtd99
    fails "mtd99: NOT_FOUND: no /sys/class/mtd; is the flash driver loaded, and was the kernel built with CONFIG_MTD?"
}

@test "interfaces: AKernelWithoutUioOrUmcbIsNamed" {
    hide /sys/class
    norv uio read norv-board-regs 0
    fails "uio norv-board-regs: NOT_FOUND: no /sys/class/uio; is the UIO driver loaded, and was the kernel built with CONFIG_UIO?"
    norv umcb read norv-board-control 0
    fails "umcb norv-board-control: NOT_FOUND: no /sys/class/umcb; is the driver of UMCB devices loaded?"
}

@test "interfaces: AKernelWithoutFpgaManagersIsNamed" {
    hide /sys/class
    norv fpga program --yes design.bin
    fails "fpga 0: NOT_FOUND: no /sys/class/fpga_manager; is the FPGA manager's driver loaded, and was the kernel built with CONFIG_FPGA?"
}

@test "interfaces: AnFpgaManagerThatTakesNoFirmwareIsNamed" {
    hide /sys/class
    mkdir --parents /sys/class/fpga_manager/fpga0
    echo operating >/sys/class/fpga_manager/fpga0/state
    norv fpga program --yes design.bin
    fails 'fpga 0: NOT_FOUND: the FPGA manager has no attribute "firmware"; mainline kernels program through overlays alone'
}

@test "interfaces: AKernelWithoutOverlaysIsNamed" {
    local cause="no /sys/kernel/config/device-tree/overlays; is configfs mounted, and was the kernel built with CONFIG_OF_OVERLAY and CONFIG_OF_CONFIGFS?"
    hide /sys/kernel/config
    norv overlay load --yes --name uart "$NORV_TESTS/axi_uart.dtbo"
    fails "overlay uart: NOT_FOUND: $cause"
    norv overlay unload --yes uart
    fails "overlay uart: NOT_FOUND: $cause"
}

@test "interfaces: AKernelWithoutSensorsIsNamed" {
    local cause="no /sys/bus/iio; is the system monitor's driver loaded, and was the kernel built with CONFIG_IIO?"
    hide /sys/bus
    norv sensors
    fails "sensors: NOT_FOUND: $cause"
    norv sensors temp0
    fails "sensor temp0: NOT_FOUND: $cause"
}

@test "interfaces: AKernelWithoutUsbGadgetsIsNamed" {
    hide /sys/class
    norv gadget connect
    fails "gadget: NOT_FOUND: no /sys/class/udc; is the controller's driver loaded, and was the kernel built with CONFIG_USB_GADGET?"
}

# Nothing loads the modules of the protocol, which others may have loaded before.
@test "interfaces: AKernelWithoutCanIsNamed" {
    local loader
    loader=$(</proc/sys/kernel/modprobe)
    modprobe --remove --quiet can_raw can || true
    echo /nowhere >/proc/sys/kernel/modprobe
    norv can send can99 '100#01'
    echo "$loader" >/proc/sys/kernel/modprobe
    fails "can99: EBADF: no CAN socket; was the kernel built without CONFIG_CAN or CONFIG_CAN_RAW?"
}
