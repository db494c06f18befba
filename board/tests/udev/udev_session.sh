#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# What holds beside a udev daemon, tried on the virtual board: the rights that docs/porting.md gives a user, and hot-plug.
#
#   board/run MODULES... -- udev_session.sh BUILD [PART...]
#
# BUILD is the build directory; without parts (rights, hotplug) both are tried.
set -euo pipefail

build=$(cd "$1" && pwd)
shift
cd "$(dirname "$0")"

# The host's /etc is read-only; what is written over it is the board's own.
modprobe overlay
mkdir -p /run/etc/changes /run/etc/work
mount -t overlay overlay -o lowerdir=/etc,upperdir=/run/etc/changes,workdir=/run/etc/work /etc

# Where a user may go who may not enter the build directory.
export NORV_PROGRAMS=/run/programs
install -D --target-directory="$NORV_PROGRAMS" "$build"/base/libnorv_base.so.0 "$build"/src/libnorv_io_linux.so.0 \
    "$build"/tools/norv/norv "$build"/board/tests/{can_links,uevent_parse_board_test}
find "$build/examples" -maxdepth 1 -type f -executable -exec install --target-directory="$NORV_PROGRAMS" {} +
export LD_LIBRARY_PATH=$NORV_PROGRAMS

# Of udev's own rules only those that give nodes to groups: the others load modules and probe devices, for minutes where
# the processor is emulated.
mkdir /run/rules
cp /lib/udev/rules.d/50-udev-default.rules /run/rules
mount --bind /run/rules /lib/udev/rules.d

# Commands on the board run in a chroot, in which udevadm does nothing without this.
export SYSTEMD_IGNORE_CHROOT=1
/lib/systemd/systemd-udevd --daemon
udevadm trigger --action=add --subsystem-match=tty --subsystem-match=block --settle

files=("${@/%/.bats}")
[[ $# -gt 0 ]] || files=(*.bats)
exec bats --tap --timing "${files[@]}"
