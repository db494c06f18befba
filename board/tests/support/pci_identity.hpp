// SPDX-License-Identifier: MIT
// What the running kernel answers to an identity that a PCI driver has already.
#pragma once

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <string>

#include "norv_base.h"

namespace norv::board {

// The status of writing an identity to the driver's "new_id" once more: Linux 6.1 and later refuse one that
// was added so, Linux 5.10 takes it again.
inline uint32_t status_of_adding_again(const std::string& driver, const char* identity, size_t length) {
    const int new_id = open(("/sys/bus/pci/drivers/" + driver + "/new_id").c_str(), O_WRONLY | O_CLOEXEC);
    const bool taken = write(new_id, identity, length) == static_cast<ssize_t>(length);
    const uint32_t status = taken ? 0 : norv_get_status_by_errno(static_cast<uint32_t>(errno));
    close(new_id);
    return status;
}

}  // namespace norv::board
