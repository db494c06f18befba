// SPDX-License-Identifier: MIT
// The card of the eMMC tests, and how they observe it.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <memory>
#include <ostream>
#include <random>
#include <string>
#include <vector>

#include "flash/block_device.hpp"
#include "flash/observer.hpp"
#include "norv_linux_emmc_flash.h"
#include "support/kernel_double.hpp"

namespace norv::test {

inline constexpr uint32_t KiB = 1024;
inline constexpr uint32_t MiB = 1024 * KiB;
inline constexpr uint64_t GiB = 1024 * MiB;

// Random bytes, different for each seed.
inline std::string pattern(size_t length, unsigned seed = 1) {
    static const std::string pool = [] {
        std::string bytes(4 * MiB, '\0');
        std::minstd_rand random(1);
        std::generate(bytes.begin(), bytes.end(), [&] { return static_cast<char>(random() >> 8U); });
        return bytes;
    }();
    return pool.substr(seed * 4099 % (2 * MiB), length);
}

inline std::string zeros(size_t length) {
    return std::string(length, '\0');
}

inline std::string ones(size_t length) {
    return std::string(length, '\xFF');
}

// The address and length of a call.
struct transfer {
    off_t address;
    size_t length;
    bool operator==(const transfer&) const = default;
    friend std::ostream& operator<<(std::ostream& out, const transfer& made) {
        return out << made.length << "@" << made.address;
    }
};

// A card that a test inserts and opens.
class EmmcFlash : public testing::Test {
  protected:
    void insert(uint64_t size, int block_size = 512) {
        card = std::make_shared<block_device>(size, block_size);
        kernel.add_device("/dev/mmcblk0", card);
    }
    // A card of that size, filled with a pattern and opened.
    void open(uint64_t size, int block_size = 512) {
        insert(size, block_size);
        if (size <= 1 * MiB) {
            before = pattern(static_cast<size_t>(size));
            card->fill(0, before);
        }
        ASSERT_EQ(norv_linux_emmc_flash_open(&flash, "/dev/mmcblk0"), 0U);
        kernel.forget_calls();
    }
    ~EmmcFlash() override { norv_linux_emmc_flash_close(&flash); }

    std::vector<transfer> transfers(const char* call) const {
        std::vector<transfer> made;
        for (const auto& one : kernel.calls<norv::test::byte_transfer_at>(call)) {
            made.push_back({one.offset, one.bytes.size()});
        }
        return made;
    }
    // The former contents of the card, except for these bytes.
    std::string before_with(size_t address, const std::string& bytes) const {
        return std::string(before).replace(address, bytes.size(), bytes);
    }

    uint32_t erase(uint32_t address, uint32_t length) {
        return norv_linux_emmc_flash_continue_erase(&flash, address, length, observer::cancel,
                                                    observer::progress, &watching);
    }
    uint32_t read(uint32_t address, std::string& bytes, uint32_t& length) {
        return norv_linux_emmc_flash_continue_read(&flash, address, bytes.data(), &length, observer::cancel,
                                                   observer::progress, &watching);
    }
    uint32_t write(uint32_t address, uint32_t skip, const std::string& bytes, uint32_t& length) {
        return norv_linux_emmc_flash_continue_write_verify(&flash, address, skip, bytes.data(), &length,
                                                           observer::cancel, observer::progress, &watching);
    }

    kernel_double kernel;
    std::shared_ptr<block_device> card;
    norv_emmc_flash_t* flash = nullptr;
    std::string before;
    observer watching;
};

// A card of 1 MiB with blocks of 512 bytes.
class SmallCard : public EmmcFlash {
  protected:
    SmallCard() { open(1 * MiB); }
};

}  // namespace norv::test
