# SPDX-License-Identifier: MIT
# Sourced by board/run for an SoC machine, after board/machine.sh: what these machines are made of. They have no bus for
# the host's directories and virtual ports. Files go in with the initial file system; what comes out, and the control of the
# emulator, goes through semihosting (board/soc/hostcall.c).
# shellcheck shell=bash
# shellcheck disable=SC2034,SC2154  # shared with the scripts that source this file

machine_command() {
    local request=$2 board=$3 log=$4 kernel_parameters tree=$3/tree.dtb
    [[ ! -e $request/tree.dtb ]] || tree=$request/tree.dtb
    soc_initrd "$request" "$board"
    soc_machine "$request"
    machine+=(-name norv-board -no-user-config -nodefaults -display none -no-reboot -nic none)
    machine+=(-kernel "$board/vmlinux" -dtb "$tree")
    machine+=(-initrd "$request/initrd")
    machine+=(-append "$kernel_parameters oops=panic panic=-1")
    machine+=(-chardev "file,id=console,append=on,path=$(qemu_path "$log")")
    machine+=(-semihosting-config "enable=on,target=native,userspace=on")
    soc_plug "$request/plug"
    soc_control "$request"
}

# The machine's own device tree, and where sources may include files from (see board/tree.sh): the kernel's bindings, and
# the trees of its boards.
machine_tree() { cp "$1/tree.dtb" "$2"; }
tree_includes() { printf '%s\n' "$(soc_kernel_source)/include" "$(dirname "$(soc_tree_source)")"; }

# What the second serial port sends comes back to it.
soc_plug() {
    rm -f "$1"
    mkfifo "$1"
    machine+=(-chardev "pipe,id=plug,path=$(qemu_path "$1")")
}

# The SD card at the given controller, empty, 16 MiB: /dev/mmcblk0.
soc_card() {
    rm -f "$1"
    truncate --size=16M "$1"
    machine+=(-drive "if=sd,bus=0,unit=$2,format=raw,cache=unsafe,file=$(qemu_path "$1")")
}

# The emulator's control (QMP). It takes commands from a FIFO, and its answers go into a file, which the machine reads as
# it grows: a read that waits would keep the emulator from answering.
soc_control() {
    rm -f "$1/control.in" "$1/control.out"
    mkfifo "$1/control.in"
    : >"$1/control.out"
    machine+=(-chardev "pipe,id=control,path=$(qemu_path "$1/control")" -mon "chardev=control,mode=control")
    machine+=(-audiodev "none,id=silence")
}

# ---- what the machine finds in its initial file system

# The parts that board/prepare has made, and those of this run: the request, the project and the current directory.
soc_initrd() {
    local request=$1 board=$2 root=$1/root
    printf '%s\n' "$request" >"$request/directory"
    printf '%s\n' "${files[@]}" | grep . >"$request/files" || true
    rm -rf "$root"
    mkdir -p "$root/request" "$root/host$project" "$root/host$PWD"
    find "$request" -mindepth 1 -maxdepth 1 -type f -exec cp {} "$root/request/" \;
    soc_copy_given_files "$root"
    {
        cat "$board/initramfs.cpio" "$board/modules.cpio" "$(soc_project_archive)"
        soc_pack "$root"
    } >"$request/initrd"
    rm -rf "$root"
}

# An archive of a directory.
soc_pack() { (cd "$1" && find . | cpio --quiet --create --format=newc --owner=0:0); }

# What --file has named.
soc_copy_given_files() {
    local path
    for path in "${files[@]}"; do
        mkdir -p "$1/host$(dirname "$path")"
        cp -r "$path" "$1/host$(dirname "$path")/"
    done
}

# ---- the project's files

# The project's scripts, and what was built for the machine: programs, libraries, overlays and lists of tests. Paths are
# relative to the project.
soc_project_files() {
    local part
    cd "$project" || return
    find board tools examples -type f
    for part in base src examples board/tests tools/norv; do
        part=build/$soc_preset/$part
        [[ ! -d $part ]] || find "$part" -name CMakeFiles -prune -o \
            \( -type l -o -type f \( -perm /111 -o -name '*.dtbo' -o -name '*.families' \) \) -print
    done
}

is_program() { [[ $(head --bytes=4 "$1" | tr -d '\0') == $'\x7fELF' ]]; }

# Debugging information would be most of what is copied.
soc_copy_file() {
    mkdir -p "$(dirname "$2")"
    if [[ ! -L $1 ]] && is_program "$1"; then
        "$soc_triplet-strip" --strip-debug -o "$2" "$1"
        touch "$2"
    else
        cp --no-dereference "$1" "$2"
    fi
}

# Prints the name of the archive of these files. Copies of them are kept, so that each run brings only what has changed.
soc_project_archive() {
    local stage=$board_build/files-$machine_name file copy changed='' lock
    mkdir -p "$stage$project"
    exec {lock}>"$stage.lock"
    flock "$lock"
    soc_project_files | sort >"$stage.new"
    while read -r file; do
        copy=$stage/host$project/$file
        [[ (-e $copy || -L $copy) && ! $project/$file -nt $copy ]] && continue
        rm -f "$copy"
        soc_copy_file "$project/$file" "$copy"
        changed=yes
    done <"$stage.new"
    if [[ -n $changed || ! -f $stage.cpio ]] || ! cmp --quiet "$stage.new" "$stage.list"; then
        comm -13 "$stage.new" "$stage.list" 2>/dev/null | while read -r file; do
            rm -f "$stage/host$project/$file"
        done
        soc_pack "$stage" >"$stage.cpio.new"
        mv "$stage.cpio.new" "$stage.cpio"
        mv "$stage.new" "$stage.list"
    fi
    exec {lock}>&-
    printf '%s' "$stage.cpio"
}
