# SPDX-License-Identifier: MIT
# Sourced by the checks of the documents: which family a source belongs to.
# shellcheck shell=bash

# Sources that share the tests and the page of the family after the colon.
parts=(epoll_loop:epoll epoll_timer:epoll spi_flash_erase:spi_flash spi_flash_transfer:spi_flash
    mapped_device:uio uevent_parse_devices:uevent_parse uevent_parse_enumeration:uevent_parse)

family_of() {
    local part
    for part in "${parts[@]}"; do
        [[ $1 != "${part%%:*}" ]] || { echo "${part##*:}" && return; }
    done
    echo "$1"
}
