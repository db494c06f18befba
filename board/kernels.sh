# SPDX-License-Identifier: MIT
# Sourced by board/prepare: which kernel boots, and how its package becomes the directory that the board is made from:
#
#   boot/vmlinux                the kernel, unpacked
#   lib/modules/VERSION/        its modules
#   usr/src/linux-headers-...   what modules are built with, unless that is installed on the machine
# shellcheck shell=bash disable=SC2154  # board/prepare and board/common.sh set the variables

kernel_directory() { printf '%s' "$board_cache/kernels/$1"; }

# ---- the kernel of the machine's own release ----

# The one whose headers are installed, the newest of them, or its build for the board's processor.
installed_kernel() {
    local headers version
    headers=$(printf '%s\n' /usr/src/linux-headers-[0-9]*-amd64 |
        grep -v -e '-rt-amd64$' -e '-cloud-amd64$' | sort --version-sort | tail -n 1)
    [[ -d $headers ]] || return 1
    version=${headers#/usr/src/linux-headers-}
    [[ $architecture == x86_64 ]] || version=${version%amd64}$architecture
    printf '%s' "$version"
}

unavailable_kernel() {
    say "the package archive does not offer linux-image-$1, the kernel of the installed linux-headers-amd64"
    say "(or the archive cannot be reached). To take the current kernel instead:"
    say "    sudo apt-get update && sudo apt-get install linux-headers-amd64"
    exit 77
}

# The headers for another processor share this machine's tools and what is common to all processors.
unpack_own_headers() {
    local version=$1 target=$2
    unpack_package "linux-headers-$version" "$target" || unavailable_kernel "$version"
    ln -s /usr/lib/linux-kbuild-* "$target/usr/lib/"
}

unpack_own_kernel() {
    local version=$1 target=$2
    unpack_package "linux-image-$version" "$target" || unavailable_kernel "$version"
    [[ $architecture == x86_64 ]] || unpack_own_headers "$version" "$target"
}

# ---- a kernel chosen by its name ----

# `chosen_kernel NAME` prints the version that a series (6.1), "newest" or a whole version stands for. The archive is asked
# only for what is not known: a kernel that has been fetched, or whose headers are installed, or was asked for this week.
chosen_kernel() {
    local name=$1 known
    if [[ -d $(kernel_directory "$name") ]]; then
        printf '%s' "$name"
    elif known=$(installed_kernel) && [[ $known == "$name" || $known == "$name".* ]]; then
        printf '%s' "$known"
    elif [[ -n $(find "$every_list/$name.version" -mtime -7 2>/dev/null) ]]; then
        cat "$every_list/$name.version"
    elif have_every_list; then
        offered_kernel "$name" >"$scratch/version" || exit
        tee "$every_list/$name.version" <"$scratch/version"
    elif ! newest_kept_kernel "$name"; then
        say "the package archive cannot be reached, and linux-image-$name-amd64 has not been fetched before"
        exit 77
    fi
}

offered_kernel() {
    local name=$1 package
    package=$(offered_image "$name")
    if [[ -z $package ]]; then
        say "no kernel '$name': the archive offers $(offered_series | paste --serial --delimiters=' ') and newest"
        return 2
    fi
    printf '%s' "${package#linux-image-}"
}

newest_kept_kernel() {
    local names="$1.*-amd64" kept
    [[ $1 != newest ]] || names='*-amd64'
    kept=$(find "$board_cache/kernels" -mindepth 1 -maxdepth 1 -name "$names" -printf '%f\n' 2>/dev/null |
        sort --version-sort | tail -n 1)
    [[ -n $kept ]] && printf '%s' "$kept"
}

# The versions of the package that every release has under this name, newest first.
offered_versions() { every_cache madison linux-image-amd64 | awk '{ print $3 }' | sort --version-sort --reverse --unique; }
offered_series() { offered_versions | sed 's/^\([0-9]*\.[0-9]*\)\..*/\1/' | uniq | tac; }

offered_image() {
    local name=$1 version
    case $name in
        newest) version=$(offered_versions | head -n 1) ;;
        *-amd64)
            every_cache show "linux-image-$name" | sed -n 's/^Package: //p' | head -n 1
            return
            ;;
        *) version=$(offered_versions | grep --max-count=1 "^${name//./\\.}\.") || return 0 ;;
    esac
    every_cache show "linux-image-amd64=$version" |
        sed -n 's/^Depends:.*\(linux-image-[0-9][^ ]*\) .*/\1/p' | head -n 1
}

# Kernels, their headers and build programs, and the compiler that they are built with. The compiler's own libraries and
# the C library come along: a newer release's programs do not run with this machine's.
needed_packages='^(linux-(image|base|binary|modules|headers|kbuild)-[0-9]|linux-compiler-|(gcc|cpp)-[0-9]+(-x86-64-linux-gnu)?$|'
needed_packages+='libgcc-[0-9]+-dev$|libc6$|libelf1(t64)?$|libgmp10$|libisl23$|libmpc3$|libmpfr6$|libzstd1$|zlib1g$)'

# Prints the needed ones of all packages that a kernel and its headers depend on.
packages_of_kernel() {
    every_get install --print-uris --yes --no-install-recommends "linux-headers-$1" "linux-image-$1" |
        sed -n "s/^'[^']*' \([^_]*\)_.*/\1/p" | grep --extended-regexp "$needed_packages"
}

unpack_chosen_kernel() {
    local version=$1 target=$2 packages package
    have_every_list || true
    readarray -t packages < <(packages_of_kernel "$version")
    say "fetching linux-image-$version and ${#packages[@]} packages that its modules are built with"
    mkdir "$scratch/packages"
    if [[ ${#packages[@]} -eq 0 ]] || ! (cd "$scratch/packages" && every_get download "${packages[@]}" >&2); then
        say "the package archive cannot be reached, or no longer offers linux-image-$version"
        exit 77
    fi
    for package in "$scratch/packages"/*.deb; do
        dpkg-deb --extract "$package" "$target"
    done
    rm -rf "$scratch/packages"
    prepare_build_programs "$version" "$target"
}

# The Makefiles name each other by where the packages are installed. Without its vmlinux, Kbuild adds no type
# information to a module, which would need one more program.
prepare_build_programs() {
    local version=$1 target=$2 final program
    final=$(kernel_directory "$version")
    sed -i "s|/usr/src/|$final/usr/src/|g" "$target/usr/src/linux-headers-$version/Makefile"
    rm -f "$target/usr/src/linux-headers-$version/vmlinux"
    find "$target"/usr/lib/linux-kbuild-* "$target"/usr/bin/*-gcc-[0-9]* "$target"/usr/lib*/gcc/*/*/cc1 -type f -perm /u+x \
        2>/dev/null | while read -r program; do
        with_its_own_libraries "$program" "$final"
    done
}

# Puts a script in a program's place that runs it with the C library it was unpacked with.
with_its_own_libraries() {
    local program=$1 final=$2 libraries
    [[ $(od -An -t x1 -N 4 "$program") == ' 7f 45 4c 46' ]] || return 0
    libraries=$final/usr/lib/x86_64-linux-gnu
    mv "$program" "$program.unpacked"
    cat >"$program" <<EOF
#!/bin/sh
exec $libraries/ld-linux-x86-64.so.2 --library-path $libraries:$final/lib/x86_64-linux-gnu --argv0 "\$0" "\$0.unpacked" "\$@"
EOF
    chmod 755 "$program"
}

# ---- both ----

can_make_modules() {
    [[ -d $(kernel_directory "$1") ]] &&
        [[ -d /usr/src/linux-headers-$1 || -d $(kernel_directory "$1")/usr/src/linux-headers-$1 ]]
}

prepare_kernel() {
    local version=$1 target unpacked
    target=$(kernel_directory "$version")
    ! can_make_modules "$version" || return 0
    rm -rf "$target"
    unpacked=$scratch/kernel
    mkdir -p "$unpacked" "$board_cache/kernels"
    if [[ $version == "$(installed_kernel || true)" ]]; then
        unpack_own_kernel "$version" "$unpacked"
    else
        unpack_chosen_kernel "$version" "$unpacked"
    fi
    # Since Debian 13 the modules are below /usr/lib, as they are found on a machine that is installed.
    [[ -d $unpacked/lib/modules ]] || link_usr_modules "$unpacked"
    # Since Linux 7.3 the kernel lies beside its modules.
    [[ ! -e $unpacked/lib/modules/$version/vmlinuz ]] ||
        install -D "$unpacked/lib/modules/$version/vmlinuz" "$unpacked/boot/vmlinuz-$version"
    "extract_kernel_image_$architecture" "$unpacked/boot/vmlinuz-$version" "$unpacked/boot/vmlinux"
    depmod --basedir "$unpacked" "$version"
    mv --no-target-directory "$unpacked" "$target"
}

link_usr_modules() {
    mkdir -p "$1/lib"
    ln -s ../usr/lib/modules "$1/lib/modules"
}

# A PC's kernel is packed as a compressed payload after a loader. Unpacking it once, here, saves the
# board three seconds of emulated decompression at every boot.
extract_kernel_image_x86_64() {
    local packed=$1 image=$2 setup_sectors payload_offset payload_length
    setup_sectors=$(od -An -t u1 -j $((0x1f1)) -N 1 "$packed")
    payload_offset=$(od -An -t u4 -j $((0x248)) -N 4 "$packed")
    payload_length=$(od -An -t u4 -j $((0x24c)) -N 4 "$packed")
    # The payload ends with its unpacked length, four bytes that are not the compressor's.
    dd if="$packed" of="$scratch/payload" bs=64K iflag=skip_bytes,count_bytes status=none \
        skip=$(((setup_sectors + 1) * 512 + payload_offset)) count=$((payload_length - 4))
    unpack "$scratch/payload" >"$image"
}

# The first four bytes of a compressed file show how it is compressed.
unpack() {
    local magic
    magic=$(od -An -t x1 -N 4 "$1")
    case $magic in
        ' fd 37 7a 58') xz --decompress --stdout <"$1" ;;
        ' 28 b5 2f fd') zstd --decompress --stdout --quiet <"$1" ;;
        *)
            say "the kernel is compressed in a way that is not known here: its payload begins with$magic"
            return 1
            ;;
    esac
}

# Not packed there.
extract_kernel_image_arm64() { ln -s "$(basename "$1")" "$2"; }

# ---- modules of our own ----

# `make_modules VERSION DIRECTORY TARGET...` has the kernel's own build system work on a directory of module sources.
make_modules() {
    local version=$1 directory=$2 tree compiler=()
    shift 2
    tree=$(kernel_directory "$version")/usr/src/linux-headers-$version
    if [[ ! -d $tree ]]; then
        tree=/usr/src/linux-headers-$version
    elif [[ $architecture == arm64 ]]; then
        compiler=(CROSS_COMPILE=aarch64-linux-gnu-)
    else
        compiler=(CC="$(unpacked_compiler "$version")")
    fi
    make --directory "$tree" M="$directory" "${compiler[@]}" "$@"
}

unpacked_compiler() {
    local programs
    programs=("$(kernel_directory "$1")"/usr/bin/x86_64-linux-gnu-gcc-[0-9]*)
    printf '%s' "${programs[0]}"
}
