# SPDX-License-Identifier: MIT
# Sourced by board/run: the device tree of a run that is given one of its own (--dtb), or additions to the machine's
# (--overlay). Both are taken as blobs and as sources, which may include the kernel's files as they do in its tree.
# shellcheck shell=bash
# shellcheck disable=SC2154  # board/run and the machines set the variables

given_tree=
overlays=()

# The machine has a tree at all.
has_tree() { [[ $architecture != x86_64 ]]; }

check_tree() {
    [[ -z $given_tree && ${#overlays[@]} -eq 0 ]] || has_tree && return
    say "--dtb and --overlay are for boards that have a device tree: --arch arm64, --machine $(known_machines | sed 's/ / or /g')"
    exit 2
}

bad_tree() {
    say "$*"
    exit 2
}

is_blob() { [[ $(od -An -t x1 -N 4 "$1") == ' d0 0d fe ed' ]]; }

# `make_blob FILE BLOB BOARD` compiles a source as the kernel's makefiles do, and checks a blob.
make_blob() {
    local file=$1 blob=$2 board=$3
    { if is_blob "$file"; then check_blob "$file" "$blob"; else compile_source "$file" "$blob" "$board"; fi; } ||
        bad_tree "'$file' is not a device tree: it is neither a blob nor a source that compiles"
}

check_blob() { dtc --quiet --in-format dtb --out-format dtb --out "$2" "$1"; }

compile_source() {
    local file=$1 blob=$2 board=$3 directory include
    directory=$(dirname "$file")
    include=(-I "$directory")
    while read -r directory; do
        include+=(-I "$directory")
    done < <(tree_includes "$board")
    "${soc_triplet:-aarch64-linux-gnu}-gcc" -E -nostdinc -undef -D__DTS__ -x assembler-with-cpp \
        "${include[@]}" "$file" >"$blob.dts" &&
        dtc --quiet --symbols --in-format dts --out-format dtb --include "${include[1]}" --out "$blob" "$blob.dts"
}

is_overlay() { [[ $(dtc --quiet --in-format dtb --out-format dts "$1") == *'__overlay__ {'* ]]; }

# What an overlay refers to and the tree does not have.
missing_labels() {
    comm -13 <(fdtget --properties "$1" /__symbols__ 2>/dev/null | sort) \
        <(fdtget --properties "$2" /__fixups__ 2>/dev/null | sort) | paste --serial --delimiters=' '
}

# `merge_overlay FILE TREE BLOB` merges BLOB, which was made of FILE, into TREE.
merge_overlay() {
    local file=$1 tree=$2 blob=$3 missing
    is_overlay "$blob" || bad_tree "'$file' is not an overlay: it has no fragments"
    missing=$(missing_labels "$tree" "$blob")
    [[ -z $missing ]] || bad_tree "'$file' does not fit the device tree, which lacks the labels: $missing"
    fdtoverlay --input "$tree" --output "$tree" "$blob" || bad_tree "'$file' does not fit the device tree"
}

# Puts the tree of this run into REQUEST/tree.dtb, where it is not the machine's own: prepare_tree REQUEST BOARD.
prepare_tree() {
    local tree=$1/tree.dtb board=$2 overlay
    if [[ -n $given_tree ]]; then
        make_blob "$given_tree" "$tree" "$board"
        ! is_overlay "$tree" || bad_tree "'$given_tree' is an overlay; --overlay merges it into a device tree"
    elif [[ ${#overlays[@]} -gt 0 ]]; then
        machine_tree "$board" "$tree"
    fi
    for overlay in "${overlays[@]}"; do
        make_blob "$overlay" "$1/overlay.dtbo" "$board"
        merge_overlay "$overlay" "$tree" "$1/overlay.dtbo"
        rm "$1/overlay.dtbo"
    done
}
