# SPDX-License-Identifier: MIT
# Sourced by board/common.sh: the machine zynqmp, a ZynqMP on the board ZCU102, with programs for 64-bit ARM.
# shellcheck shell=bash
# shellcheck disable=SC2034,SC2154  # shared with the scripts that source this file

architecture=arm64
# shellcheck source=../soc/common.sh
source "$board_source/soc/common.sh"

# What the kernel is built with, where it is then, and the device tree of the board. In the tree, what refers to the clocks,
# resets and power domains of the firmware is left out, and so is what only a driver of those would be asked for.
soc_kernel=(ARCH=arm64 CROSS_COMPILE=aarch64-linux-gnu-)
soc_image=arch/arm64/boot/Image
soc_tree=zynqmp-zcu102-rev1.0
soc_trees=arch/arm64/boot/dts
soc_lost_properties=(power-domains resets reset-names phys phy-names iommus pinctrl-names 'pinctrl-[0-9]+')
# The preset whose programs run on it, and what compiles for it.
soc_preset=aarch64
soc_triplet=aarch64-linux-gnu
soc_flags=()
soc_packages=(gcc-aarch64-linux-gnu)

# Two of the four processors are there. The console is the first of the two serial ports. The SD card is at the second
# controller, and both CAN controllers are on one bus.
soc_machine() {
    kernel_parameters="console=ttyPS0 nr_cpus=2"
    machine=(qemu-system-aarch64 -machine "xlnx-zcu102,canbus0=can,canbus1=can" -object "can-bus,id=can" -smp 2 -m 1024)
    machine+=(-serial chardev:console -serial chardev:plug)
    soc_card "$1/card" 1
}
