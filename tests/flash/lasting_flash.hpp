// SPDX-License-Identifier: MIT
// Flash that outlives the process that uses it, like a chip: its cells are in shared memory.
// The process can be killed during any call, which is then done in part.
#pragma once

#include <linux/fs.h>
#include <mtd/mtd-user.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstring>
#include <new>
#include <random>
#include <vector>

#include "flash/mtd_device.hpp"
#include "support/device.hpp"

namespace norv::test {

// An array that a process and its children share.
template <typename element>
class shared_array {
  public:
    explicit shared_array(size_t size)
        : size_(size),
          elements_(static_cast<element*>(mmap(nullptr, size * sizeof(element), PROT_READ | PROT_WRITE,
                                               MAP_SHARED | MAP_ANONYMOUS, -1, 0))) {}
    ~shared_array() { munmap(elements_, size_ * sizeof(element)); }
    shared_array(const shared_array&) = delete;
    shared_array& operator=(const shared_array&) = delete;

    element& operator[](size_t index) { return elements_[index]; }
    element* begin() { return elements_; }
    element* end() { return elements_ + size_; }

  private:
    size_t size_;
    element* elements_;
};

// The power supply of the flash: it fails during the call that uses up the last of `calls`.
class power_supply {
  public:
    uint32_t calls = UINT32_MAX;
    std::minstd_rand random;

    // Called at the start of a call. True if the power fails during it: the device does a part of the call,
    // then calls cut().
    bool fails() { return --calls == 0; }
    size_t part(size_t whole) { return random() % (whole + 1); }
    static void cut() { kill(getpid(), SIGKILL); }
    // A call that changes nothing.
    void pass() {
        if (fails()) {
            cut();
        }
    }
};

// Persistent cells, in a device that can lose its power.
class lasting_device : public device {
  public:
    lasting_device(size_t size, power_supply& power) : bytes(size), power_(power) {
        fill(bytes.begin(), size);
    }

    shared_array<uint8_t> bytes;

    void close() override { power_.pass(); }

    long read(void* buffer, size_t size, off_t offset) override {
        power_.pass();
        memcpy(buffer, bytes.begin() + offset, size);
        return static_cast<long>(size);
    }

  protected:
    void fill(uint8_t* start, size_t size) {
        std::generate_n(start, size, [this] { return static_cast<uint8_t>(power_.random() >> 8U); });
    }

    power_supply& power_;
};

// A partition. NAND allows one program of a page per erase: a second one leaves a wrong bit in the page.
class lasting_partition : public lasting_device {
  public:
    lasting_partition(const flash_geometry& geometry, power_supply& power)
        : lasting_device(geometry.size, power),
          bad(geometry.size / geometry.erase_size),
          geometry_(geometry),
          programmed_(geometry.size / geometry.write_size) {
        std::fill(programmed_.begin(), programmed_.end(), true);
    }

    shared_array<bool> bad;                // by block number
    std::vector<uint32_t> does_not_erase;  // block numbers

    long write(const void* buffer, size_t size, off_t offset) override {
        const bool cut = power_.fails();
        const auto* data = static_cast<const uint8_t*>(buffer);
        const size_t start = static_cast<size_t>(offset);
        const size_t done = cut ? power_.part(size) : size;
        for (size_t index = 0; index < done; ++index) {
            bytes[start + index] &= data[index];
        }
        for (size_t page = start / geometry_.write_size; page * geometry_.write_size < start + done; ++page) {
            program(page);
        }
        if (cut) {
            power_supply::cut();
        }
        return static_cast<long>(size);
    }

    long ioctl(unsigned long request, void* argument) override {
        switch (request) {
            case MEMGETINFO:
                *static_cast<mtd_info_user*>(argument) = info_of(geometry_);
                return 0;
            case MEMERASE:
                return erase(static_cast<const erase_info_user*>(argument)->start);
            case MEMGETBADBLOCK:
                return bad[block_of(argument)] ? 1 : 0;
            case MEMSETBADBLOCK:
                bad[block_of(argument)] = true;
                return 0;
            default:
                return -ENOTTY;
        }
    }

  private:
    size_t block_of(const void* position) const {
        return static_cast<size_t>(*static_cast<const loff_t*>(position)) / geometry_.erase_size;
    }

    void program(size_t page) {
        if (geometry_.type == MTD_NANDFLASH && programmed_[page]) {
            bytes[page * geometry_.write_size] ^= 1U;
        }
        programmed_[page] = true;
    }

    // An interrupted erase leaves random contents in the block.
    long erase(uint32_t start) {
        const bool cut = power_.fails();
        const uint32_t block = start / geometry_.erase_size;
        if (cut) {
            fill(bytes.begin() + start, geometry_.erase_size);
            power_supply::cut();
        }
        if (std::count(does_not_erase.begin(), does_not_erase.end(), block) > 0) {
            return -EIO;
        }
        std::fill_n(bytes.begin() + start, geometry_.erase_size, uint8_t{0xFF});
        std::fill_n(programmed_.begin() + start / geometry_.write_size,
                    geometry_.erase_size / geometry_.write_size, false);
        return 0;
    }

    flash_geometry geometry_;
    shared_array<bool> programmed_;
};

// A card with blocks of 512 bytes, each of which is written completely or not at all.
class lasting_card : public lasting_device {
  public:
    lasting_card(size_t size, power_supply& power) : lasting_device(size, power), size_(size) {}

    long write(const void* buffer, size_t size, off_t offset) override {
        const bool cut = power_.fails();
        const size_t done = cut ? power_.part(size) / 512 * 512 : size;
        memcpy(bytes.begin() + offset, buffer, done);
        if (cut) {
            power_supply::cut();
        }
        return static_cast<long>(size);
    }

    long ioctl(unsigned long request, void* argument) override {
        if (request == BLKBSZGET) {
            const int block_size = 512;
            memcpy(argument, &block_size, sizeof block_size);
        } else {
            memcpy(argument, &size_, sizeof size_);
        }
        return 0;
    }

  private:
    uint64_t size_;
};

}  // namespace norv::test
