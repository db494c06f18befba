// SPDX-License-Identifier: MIT
// A partition that is too large for the test's memory: stores no bytes, only where it was read, written and
// erased.
#pragma once

#include <mtd/mtd-user.h>
#include <sys/ioctl.h>

#include <cstdint>
#include <cstring>
#include <vector>

#include "support/device.hpp"

namespace norv::test {

// NOR in blocks of 64 KiB.
class huge_partition : public device {
  public:
    static constexpr uint32_t block = 0x10000;

    explicit huge_partition(uint32_t size) : size_(size) {}

    std::vector<off_t> reads;
    std::vector<off_t> writes;
    std::vector<uint32_t> erased;

    long read(void* buffer, size_t size, off_t offset) override {
        reads.push_back(offset);
        memset(buffer, 0xFF, size);
        return static_cast<long>(size);
    }
    long write(const void*, size_t size, off_t offset) override {
        writes.push_back(offset);
        return static_cast<long>(size);
    }
    long ioctl(unsigned long request, void* argument) override {
        if (request == MEMERASE) {
            erased.push_back(static_cast<const erase_info_user*>(argument)->start);
        } else {
            *static_cast<mtd_info_user*>(argument) = {MTD_NORFLASH, 0, size_, block, 1, 0, 0};
        }
        return 0;
    }

  private:
    uint32_t size_;
};

}  // namespace norv::test
