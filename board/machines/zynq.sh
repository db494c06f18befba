# SPDX-License-Identifier: MIT
# Sourced by board/common.sh: the machine zynq, a Zynq-7000 on the board ZC702, with programs for 32-bit ARM.
# shellcheck shell=bash
# shellcheck disable=SC2034,SC2154  # shared with the scripts that source this file

architecture=armhf
# shellcheck source=../soc/common.sh
source "$board_source/soc/common.sh"

# What the kernel is built with, where it is then, and the device tree of the board.
soc_kernel=(ARCH=arm CROSS_COMPILE=arm-linux-gnueabihf-)
soc_image=arch/arm/boot/zImage
soc_tree=zynq-zc702
soc_trees=arch/arm/boot/dts
soc_lost_properties=()
# The preset whose programs run on it, and what compiles for it. In ARM code the host is called in another way.
soc_preset=armhf
soc_triplet=arm-linux-gnueabihf
soc_flags=(-marm)
soc_packages=(gcc-arm-linux-gnueabihf)

# The console is the second of the two serial ports, and the first for the kernel.
soc_machine() {
    kernel_parameters="console=ttyPS0"
    machine=(qemu-system-arm -machine xilinx-zynq-a9 -m 1024)
    machine+=(-serial chardev:plug -serial chardev:console)
    soc_card "$1/card" 0
}
