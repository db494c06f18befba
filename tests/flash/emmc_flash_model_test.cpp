// SPDX-License-Identifier: MIT
// Block devices as flash: random operations leave the medium as in a simple model.
#include "norv_linux_emmc_flash.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <random>
#include <string>
#include <utility>

#include "flash/emmc_card.hpp"
#include "support/status.hpp"

namespace {

using norv::test::EmmcFlash;
using norv::test::errno_status;
using norv::test::KiB;
using norv::test::MiB;
using norv::test::ones;
using norv::test::pattern;
using norv::test::zeros;

// What a continue operation does, chunk by chunk, computed in the simplest way.
struct expectation {
    uint32_t status = 0;
    uint32_t length = 0;
    std::string medium;
};

// The chunk of the length: its whole blocks, but 16 KiB to 128 KiB.
uint32_t chunk_of(uint32_t blocks) {
    return std::max<uint32_t>(16 * KiB, std::min<uint32_t>(128 * KiB, blocks));
}

struct plan {
    uint32_t address;
    uint32_t skip;
    uint32_t length;
    uint32_t stop_at;  // the chunk before which the caller cancels
    uint32_t fail_at;  // the chunk whose pwrite fails
};

void put(std::string& medium, uint64_t address, const std::string& bytes) {
    if (address < medium.size()) {
        const auto start = static_cast<size_t>(address);
        medium.replace(start, bytes.size(), bytes.substr(0, medium.size() - start));
    }
}

// How a chunk begins: cancelled, failing, at the end of the device, or none of these.
uint32_t begin_chunk(const plan& given, uint32_t chunk_number, uint64_t address, size_t size) {
    if (chunk_number == given.stop_at) {
        return NORV_STATUS_TIMEOUT;
    }
    if (chunk_number == given.fail_at) {
        return NORV_STATUS_DEVICE_ERROR;
    }
    return address >= size ? errno_status(ENOSPC) : NORV_STATUS_OK;
}

expectation expect_erase(const plan& given, uint32_t block, std::string medium) {
    const uint32_t chunk = chunk_of((given.length + block - 1) / block * block);
    uint64_t address = given.address;
    for (uint32_t number = 0; address < uint64_t{given.address} + given.length; ++number) {
        const uint32_t status = begin_chunk(given, number, address, medium.size());
        if (status != 0) {
            return {status, 0, std::move(medium)};
        }
        put(medium, address, zeros(chunk));
        address += chunk;
    }
    return {0, 0, std::move(medium)};
}

expectation expect_write(const plan& given, uint32_t block, const std::string& data, std::string medium) {
    const uint32_t chunk = chunk_of(given.length / block * block);
    uint64_t address = uint64_t{given.address} + given.skip;
    uint32_t done = 0;
    for (uint32_t number = 0; done < given.length; ++number) {
        const uint32_t status = begin_chunk(given, number, address, medium.size());
        if (status != 0) {
            return {status, status == NORV_STATUS_TIMEOUT ? given.length : done, std::move(medium)};
        }
        const auto room = chunk - static_cast<uint32_t>((chunk - 1) & address);
        const uint32_t left = given.length - done;
        std::string bytes = data.substr(done, std::min(room, left));
        if (left < room) {
            bytes += ones(((left + chunk - 1) & ~(chunk - 1)) - left);
        }
        put(medium, address, bytes);
        const auto count =
            static_cast<uint32_t>(std::min<uint64_t>(std::min(room, left), medium.size() - address));
        address += count;
        done += count;
    }
    return {0, given.length, std::move(medium)};
}

class RandomOperations : public EmmcFlash {
  protected:
    static constexpr unsigned cases = 3000;

    plan invent(uint32_t block, uint32_t size) {
        const auto below = [&](uint32_t limit) { return static_cast<uint32_t>(random() % limit); };
        plan given = {};
        given.address = below(size / block) * block;
        given.skip = below(4) == 0 ? below(64) * block : 0;
        given.length = below(2) == 0 ? below(size) : below(40) * 4096;
        given.stop_at = below(4) == 0 ? below(4) : UINT32_MAX;
        given.fail_at = below(4) == 0 ? below(4) : UINT32_MAX;
        return given;
    }

    // Performs an operation on a card with the pattern, and compares the result.
    template <typename performing>
    void compare(const plan& given, const expectation& expected, performing perform) {
        SCOPED_TRACE("seed " + std::to_string(seed) + ": " + std::to_string(given.length) + " bytes at " +
                     std::to_string(given.address) + " + " + std::to_string(given.skip) + ", stopped at " +
                     std::to_string(given.stop_at) + ", failing at " + std::to_string(given.fail_at));
        watching = {.stop_at = given.stop_at};
        if (given.fail_at != UINT32_MAX) {
            kernel.fail({.call = "pwrite", .nth = static_cast<int>(given.fail_at) + 1, .error = EIO});
        }
        uint32_t length = given.length;
        EXPECT_EQ(perform(length), expected.status);
        EXPECT_EQ(length, expected.length);
        EXPECT_TRUE(card->content() == expected.medium) << "the medium differs";
        kernel.fail_nothing();
        kernel.forget_calls();
    }

    // Performs random operations, each on a card of its own.
    template <typename expecting, typename performing>
    void try_cases(expecting expect, performing perform) {
        for (unsigned number = 0; number < cases && !HasFailure(); ++number) {
            const uint32_t block = 512U << random() % 4;
            insert((256 + random() % 512) * KiB, static_cast<int>(block));
            before = pattern(static_cast<size_t>(card->size), number);
            card->fill(0, before);
            ASSERT_EQ(norv_linux_emmc_flash_open(&flash, "/dev/mmcblk0"), 0U);
            const plan given = invent(block, static_cast<uint32_t>(card->size));
            compare(given, expect(given, block), [&](uint32_t& length) { return perform(given, length); });
            norv_linux_emmc_flash_close(&flash);
        }
    }

    const unsigned seed = std::random_device()();
    std::mt19937 random{seed};
};

TEST_F(RandomOperations, ErasingLeavesTheMediumAsInTheModel) {
    try_cases(
        [&](const plan& given, uint32_t block) { return expect_erase(given, block, before); },
        [&](const plan& given, uint32_t& length) { return erase(given.address, std::exchange(length, 0)); });
}

TEST_F(RandomOperations, WritingLeavesTheMediumAsInTheModel) {
    const std::string data = pattern(1 * MiB, 999);
    try_cases(
        [&](const plan& given, uint32_t block) { return expect_write(given, block, data, before); },
        [&](const plan& given, uint32_t& length) { return write(given.address, given.skip, data, length); });
}

}  // namespace
