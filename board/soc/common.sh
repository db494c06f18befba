# SPDX-License-Identifier: MIT
# Sourced by the description of an SoC machine, board/machines/NAME.sh: what these machines have in common, in place of what
# board/common.sh says of the others.
# shellcheck shell=bash
# shellcheck disable=SC2034,SC2154  # shared with the scripts that source this file

soc_source=$board_source/soc

# The sources of the kernel, which both machines are built of.
soc_kernel_source() { printf '%s' "$board_cache/linux"; }
soc_kernel_objects() { printf '%s' "$board_cache/linux-$machine_name"; }

# The source of the board's device tree. Later kernels have a directory for each maker.
soc_tree_source() { find "$(soc_kernel_source)/$soc_trees" -name "$soc_tree.dts"; }

# The kernel's configuration.
soc_fragments=("$soc_source/kernel.config" "$soc_source/kernel-$machine_name.config")

# One for each machine: a kernel takes minutes.
lock_file() { printf '%s' "$board_cache/lock-$machine_name"; }
boot_mark() { printf '%s' "$board_build/booted-$machine_name"; }
