# SPDX-License-Identifier: MIT
# QEMU's educational PCI device, and what the tests of its two drivers share.

pci_device=1234:11e8

# An identity that was added before: Linux 6.1 and later refuse it, Linux 5.10 accepts it again.
# binding_again_is_answered_as_by_the_kernel GROUP DRIVER
binding_again_is_answered_as_by_the_kernel() {
    norv "$1" bind "$pci_device"
    if echo "${pci_device/:/ }" 2>/dev/null >"/sys/bus/pci/drivers/$2/new_id"; then
        succeeds ""
    else
        fails "pci $pci_device: EEXIST: the driver knows the identity already"
    fi
}
