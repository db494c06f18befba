# SPDX-License-Identifier: MIT
# Sourced by board/prepare for an SoC machine: its kernel, built from Debian's sources of it, its device tree, and its
# initial file system.
#
#   CACHE/linux/                  the sources, as far as these machines need them
#   CACHE/linux-MACHINE/          what the kernel's makefiles leave there, for the next build and for our modules
#   CACHE/kernels/VERSION-ID/     boot/ with the kernel, lib/modules/
#   CACHE/boards/ID/              the kernel, its device tree, the initial file system without what a run adds, and the modules
# shellcheck shell=bash
# shellcheck disable=SC2034,SC2154  # shared with the scripts that source this file

mapfile -t packages <"$project/packaging/packages.soc"
packages+=("${soc_packages[@]}")
initramfs_modules=()
module_sources+=("$soc_source"/modules/*.c)
board_sources+=("$soc_source"/{init,hostcall.c,prepare.sh,"$machine_name.dtso"} "${soc_fragments[@]}" "${soc_lost_properties[@]}")

# ---- the sources

# One line is all that is said of a package that cannot be had.
unavailable_source() {
    say "the package archive cannot be reached: the machine $machine_name needs ${1:-linux-source}"
    exit 77
}

# The name of the package that has the sources of Debian's current kernel.
source_package() { apt-cache "${own_releases[@]}" depends linux-source 2>/dev/null | sed -n 's/^ *Depends: //p' || true; }

# Of the documents and of the largest driver only what the configuration reads is unpacked.
unpack_source() {
    local archive=$1 target=$2
    mkdir -p "$target"
    tar --extract --xz --file="$archive" --directory="$target" --strip-components=1 --anchored --wildcards \
        --no-wildcards-match-slash --exclude='*/drivers/gpu/drm/amd/include/*' --exclude='*/Documentation/[!K]*' \
        --exclude='*/tools/perf' --exclude='*/tools/testing'
}

kernel_release() { make --silent --directory="$1" "${soc_kernel[@]}" kernelversion; }

# Both machines build from the same sources.
prepare_source() {
    local source lock
    source=$(soc_kernel_source)
    mkdir -p "$board_cache"
    exec {lock}>"$source.lock"
    flock "$lock"
    [[ -f $source/norv-version ]] || fetch_source "$source"
    exec {lock}>&-
}

fetch_source() {
    local source=$1 package
    package=$(source_package)
    if [[ -z $package ]]; then
        update_own_lists 2>/dev/null || true
        package=$(source_package)
        [[ -n $package ]] || unavailable_source
    fi
    unpack_package "$package" "$scratch/package" 2>/dev/null || unavailable_source "$package"
    say "unpacking $package"
    unpack_source "$scratch/package/usr/src/$package.tar.xz" "$scratch/linux"
    kernel_release "$scratch/linux" >"$scratch/linux/norv-version"
    rm -rf "$source"
    mv "$scratch/linux" "$source"
}

# ---- the kernel

make_kernel() {
    nice make --directory="$(soc_kernel_source)" O="$(soc_kernel_objects)" "${soc_kernel[@]}" "$@"
}

# Prints the options that the configuration has not taken over as they are asked for.
lost_options() { grep -h '^CONFIG_' "$@" | grep --invert-match --line-regexp --fixed-strings --file="$(soc_kernel_objects)/.config"; }

configure_kernel() {
    cat "${soc_fragments[@]}" >"$scratch/all.config"
    make_kernel KCONFIG_ALLCONFIG="$scratch/all.config" allnoconfig || return 1
    ! lost_options "${soc_fragments[@]}" || { echo "these options were not taken" && return 1; }
}

build_kernel() {
    configure_kernel &&
        make_kernel --jobs="${JOBS:-$(nproc)}" "$(basename "$soc_image")" modules &&
        make_kernel INSTALL_MOD_PATH="$1" modules_install &&
        mkdir -p "$1/boot" &&
        cp "$(soc_kernel_objects)/$soc_image" "$1/boot/kernel"
}

prepare_kernel() {
    local version=$1 target log
    target=$(kernel_directory "$version")
    log=$board_build/kernel-$machine_name.log
    [[ ! -d $target ]] || return 0
    say "building Linux $version; this takes some minutes"
    mkdir -p "$(soc_kernel_objects)" "$board_cache/kernels"
    if ! build_kernel "$scratch/kernel" >"$log" 2>&1; then
        tail -n 20 "$log" >&2
        say "the kernel of the machine $machine_name does not build; the whole log is $log"
        exit 1
    fi
    mv --no-target-directory "$scratch/kernel" "$target"
}

installed_kernel() {
    [[ -f $(soc_kernel_source)/norv-version ]] || return 1
    printf '%s-%s' "$(<"$(soc_kernel_source)/norv-version")" "$machine_name"
}

kernel_directory() { printf '%s/kernels/%s-%s' "$board_cache" "$1" "$(fingerprint "${soc_fragments[@]}")"; }

link_kernel() {
    ln -s "$(kernel_directory "$1")/boot/kernel" "$2/vmlinux"
    make_tree "$2/tree.dtb"
}

# The device tree of the machine's board without the properties in soc_lost_properties, and with what is in MACHINE.dtso.
make_tree() {
    local tree words
    tree=$(soc_tree_source)
    tree=${tree#"$(soc_kernel_source)/$soc_trees/"}
    tree=${tree%.dts}.dtb
    words=$(IFS='|' && printf '%s' "${soc_lost_properties[*]:-none}")
    make_kernel --silent DTC_FLAGS=-@ "$tree" >&2
    dtc --quiet --out-format dts "$(soc_kernel_objects)/$soc_trees/$tree" | sed -E "/^\s*($words)( = .*)?;\$/d" |
        dtc --quiet --out-format dtb --out "$scratch/board.dtb"
    dtc --symbols --out-format dtb --out "$scratch/overlay.dtbo" "$soc_source/$machine_name.dtso"
    fdtoverlay --input "$scratch/board.dtb" --output "$1" "$scratch/overlay.dtbo"
}

make_modules() { make_kernel M="$2" "${@:3}"; }

# ---- the initial file system

boot_module_files() { :; }

pack_directory() { (cd "$1" && find . "${@:2}" | cpio --quiet --create --format=newc --owner=0:0); }

# Where board/init looks for what other boards find on the host.
make_initramfs() {
    local version=$1 board=$2
    make_system_archive "$version" "$board" >"$board/initramfs.cpio"
    make_module_archive "$version" "$board" >"$board/modules.cpio"
}

make_system_archive() {
    local root=$scratch/initramfs system
    system=$(system_directory)
    mkdir "$root"
    fill_initramfs "$root" "$2" "$1"
    install -m 644 "$soc_source/init" "$root/machine"
    "$soc_triplet-gcc" "${soc_flags[@]}" -O2 -Wall -Wextra -Werror -static -o "$root/bin/hostcall" "$soc_source/hostcall.c"
    mkdir -p "$root/host$(dirname "$system")"
    cp -r "$system" "$root/host$system"
    rm -rf "$root/host$system"/usr/share/{doc,locale,man,info}
    pack_directory "$root"
}

make_module_archive() {
    local version=$1 board=$2 root=$scratch/modules place
    place=$root/host$(board_directory "$version")/lib/modules
    mkdir -p "$place"
    cp -r "$board/lib/modules/$version" "$place/"
    rm -f "$place/$version"/{build,source}
    pack_directory "$root"
}
