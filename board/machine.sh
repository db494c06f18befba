# SPDX-License-Identifier: MIT
# Sourced by board/run: what the virtual machine is made of. A device that a family needs is added
# to machine_devices, with a comment that names the family.
# shellcheck shell=bash

# `machine_command ACCELERATOR REQUEST BOARD LOG` fills the array `machine` with the emulator's command line. REQUEST is
# the directory of this run (see board/run), BOARD what is booted (see board/prepare), LOG takes the kernel's messages.
machine_command() {
    local accelerator=$1 request=$2 board=$3 log=$4 kernel_parameters
    "machine_of_$architecture" "$accelerator"
    machine+=(-name norv-board -no-user-config -nodefaults -display none -no-reboot -nic none)
    machine+=(-kernel "$board/vmlinux" -initrd "$board/initramfs.gz")
    [[ ! -e $request/tree.dtb ]] || machine+=(-dtb "$request/tree.dtb")
    # An oops ends the machine: nothing that a broken kernel says afterwards can be trusted.
    machine+=(-append "$kernel_parameters oops=panic panic=-1")
    machine+=(-chardev "file,id=console,append=on,path=$(qemu_path "$log")" -serial chardev:console)
    machine_streams "$request"
    machine_input "$request"
    machine_shares "$request"
    machine_devices "$request"
}

# On a busy host an emulated processor gets its first timer interrupts late, and the kernel's test of the timer then ends
# in a panic: no_timer_check leaves that test out. Half a second of every boot would go into tests of the kernel's
# ciphers. A "pc" machine takes longer than a q35 for every PCI device: the ACPI method that routes its interrupts is a loop.
machine_of_x86_64() {
    kernel_parameters="console=ttyS0 no_timer_check cryptomgr.notests"
    machine=(qemu-system-x86_64 -machine "q35,sata=off,smbus=off" -smp "$processors" -m 1024 -accel "$1")
    case $1 in
        kvm) machine+=(-cpu host) ;;
        *) machine+=(-cpu "qemu64,+rdrand") ;;
    esac
}

# The core of a ZynqMP. The console is not a 16550 there: one that is wired to nothing takes the name ttyS0, so that the
# others have the names that they have everywhere.
machine_of_arm64() {
    kernel_parameters="console=ttyAMA0"
    machine=(qemu-system-aarch64 -machine virt -smp "$processors" -m 1024 -accel "$1" -cpu cortex-a53)
    machine+=(-chardev null,id=unused -device pci-serial,chardev=unused)
}

# The device tree that the emulator makes for that board, and where its sources may include files from (see board/tree.sh).
machine_tree() {
    machine_of_arm64 tcg
    "${machine[@]}" -machine "dumpdtb=$(qemu_path "$2")" -nodefaults -display none >/dev/null 2>&1
}
tree_includes() {
    local version
    version=$(basename "$(dirname "$(dirname "$(readlink "$1/vmlinux")")")")
    printf '/usr/src/linux-headers-%s-common/include\n' "${version%-arm64}"
}

# A comma in a value is doubled.
qemu_path() { printf '%s' "${1//,/,,}"; }

machine_streams() {
    local port=0 stream
    machine+=(-device virtio-serial-pci)
    for stream in report stdout stderr; do
        port=$((port + 1))
        machine+=(-chardev "file,id=$stream,path=$(qemu_path "$1/$stream")"
            -device "virtserialport,chardev=$stream,nr=$port")
    done
}

# The emulator's own standard input: the command's, or, as its terminal, /dev/hvc0.
machine_input() {
    machine+=(-chardev stdio,id=input,signal=off)
    if [[ -e $1/terminal ]]; then
        machine+=(-device "virtconsole,chardev=input,nr=5")
    else
        machine+=(-device "virtserialport,chardev=input,nr=5")
    fi
}

machine_shares() {
    local request=$1 tag directory
    machine_share host / ,readonly=on
    machine_share request "$request" ,readonly=on
    while read -r tag directory; do
        machine_share "$tag" "$directory" ''
    done <"$request/writable"
}

machine_share() {
    machine+=(-virtfs "local,mount_tag=$1,path=$(qemu_path "$2"),security_model=none,multidevs=remap$3")
}

# The devices that the families talk to, beyond what the modules in board/modules/ stand in for.
machine_devices() {
    machine_serial_ports "$1/serial"
    machine_card "$1/card"
    machine_can_cards
    machine_usb "$1/control"
    # uio_pci: a PCI device with registers and an interrupt, 1234:11e8; no driver of the kernel serves it.
    machine+=(-device edu)
}

# The card of the eMMC flash family, empty, 16 MiB: /dev/mmcblk0 once sdhci-pci and mmc_block are loaded. The given file
# holds it while the board runs.
machine_card() {
    rm -f "$1"
    truncate --size=16M "$1"
    machine+=(-device sdhci-pci -drive "if=none,id=card,format=raw,cache=unsafe,file=$(qemu_path "$1")"
        -device "sd-card,drive=card")
}

# The hot-plug parser's USB: a host controller with nothing plugged in, and the emulator's own control (QMP) on
# /dev/vport0p4, so that a test in the machine plugs devices in and out. The wire between the two is a pair of
# FIFOs below the given directory.
machine_usb() {
    local wires=$1
    rm -rf "$wires"
    mkdir "$wires"
    mkfifo "$wires/commands" "$wires/answers"
    ln -s commands "$wires/emulator.in"
    ln -s answers "$wires/emulator.out"
    ln -s answers "$wires/machine.in"
    ln -s commands "$wires/machine.out"
    machine+=(-chardev "pipe,id=emulator,path=$(qemu_path "$wires/emulator")" -mon "chardev=emulator,mode=control"
        -chardev "pipe,id=machine,path=$(qemu_path "$wires/machine")"
        -device "virtserialport,chardev=machine,nr=4"
        -audiodev "none,id=silence" -device "qemu-xhci,id=usb")
}

# The ports of the UART family, 16550s beside the console's: /dev/ttyS1 and /dev/ttyS2 are wired to each other,
# and what /dev/ttyS3 sends comes back to it. Each wire is a FIFO below the given directory.
machine_serial_ports() {
    local wires=$1
    rm -rf "$wires"
    mkdir "$wires"
    mkfifo "$wires/1to2" "$wires/2to1" "$wires/plug"
    ln -s 2to1 "$wires/first.in"
    ln -s 1to2 "$wires/first.out"
    ln -s 1to2 "$wires/second.in"
    ln -s 2to1 "$wires/second.out"
    machine+=(-chardev "pipe,id=first,path=$(qemu_path "$wires/first")"
        -chardev "pipe,id=second,path=$(qemu_path "$wires/second")"
        -chardev "pipe,id=plug,path=$(qemu_path "$wires/plug")"
        -device "pci-serial-2x,chardev1=first,chardev2=second" -device "pci-serial,chardev=plug")
}

# The cards of the CAN family, can0 and can1 once kvaser_pci is loaded: both on one bus.
machine_can_cards() {
    machine+=(-object can-bus,id=can -device kvaser_pci,canbus=can -device kvaser_pci,canbus=can)
}
