// SPDX-License-Identifier: MIT
// A block device of any size: stores what is written to it, and can be made to transfer less.
#pragma once

#include <linux/fs.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <optional>
#include <string>

#include "flash/sparse_memory.hpp"
#include "support/device.hpp"

namespace norv::test {

class block_device : public device {
  public:
    explicit block_device(uint64_t device_size, int device_block_size = 512)
        : block_size(device_block_size), size(device_size) {}

    int block_size;
    uint64_t size;
    size_t most_per_read = SIZE_MAX;
    size_t most_per_write = SIZE_MAX;
    std::optional<off_t> flipped;  // a byte that reads back with its lowest bit flipped

    // The medium itself.
    std::string content(uint64_t address, size_t count) const {
        std::string bytes(count, '\0');
        medium.read(address, bytes.data(), count);
        return bytes;
    }
    std::string content() const { return content(0, static_cast<size_t>(size)); }
    void fill(uint64_t address, const std::string& bytes) {
        medium.write(address, bytes.data(), bytes.size());
    }

    long read(void* buffer, size_t count, off_t offset) override {
        const size_t done = within(std::min(count, most_per_read), offset);
        medium.read(static_cast<uint64_t>(offset), buffer, done);
        if (flipped && *flipped >= offset && *flipped < offset + static_cast<off_t>(done)) {
            static_cast<uint8_t*>(buffer)[*flipped - offset] ^= 1U;
        }
        return static_cast<long>(done);
    }

    long write(const void* buffer, size_t count, off_t offset) override {
        if (static_cast<uint64_t>(offset) >= size) {
            return -ENOSPC;
        }
        const size_t done = within(std::min(count, most_per_write), offset);
        medium.write(static_cast<uint64_t>(offset), buffer, done);
        return static_cast<long>(done);
    }

    long ioctl(unsigned long request, void* argument) override {
        switch (request) {
            case BLKBSZGET:
                memcpy(argument, &block_size, sizeof block_size);
                return 0;
            case BLKGETSIZE64:
                memcpy(argument, &size, sizeof size);
                return 0;
            default:
                return -ENOTTY;
        }
    }

  private:
    // How many of these bytes are on the device.
    size_t within(size_t count, off_t offset) const {
        const auto start = static_cast<uint64_t>(offset);
        return start < size ? static_cast<size_t>(std::min<uint64_t>(count, size - start)) : 0;
    }

    sparse_memory medium;
};

}  // namespace norv::test
