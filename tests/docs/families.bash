# SPDX-License-Identifier: MIT
# Sourced by the checks of the documents: which family a file belongs to. There is a page for each family.
# shellcheck shell=bash

# Pieces with a name of their own belong to the family after the colon.
parts=(mapped_device:uio chunk_plan:emmc_flash erase_plan:spi_flash write_plan:spi_flash steps:flash)

# The family with the longest name that the name of a file, without its suffix, is or begins with; nothing for a file of no
# family.
family_of() {
    local part name=$1
    for part in "${parts[@]}"; do
        [[ $1 != "${part%%:*}" ]] || name=${part##*:}
    done
    while [[ ! -f docs/families/$name.md ]]; do
        [[ $name == *_* ]] || return 0
        name=${name%_*}
    done
    echo "$name"
}
