// SPDX-License-Identifier: MIT
// The concatenated flash against a simple model of its medium, for thousands of random boards: partitions,
// bad blocks, failures, lengths, skips and cancellations. A failure prints the seed of its board.
#include <algorithm>
#include <random>

#include "flash/concatenated_flash.hpp"

namespace {

using norv::test::flash_geometry;
using norv::test::mtd_device;
using norv::test::nand;
using norv::test::nor;
using norv::test::observer;

constexpr uint32_t boards = 3000;

// One erase block of the model.
struct block {
    uint32_t start;
    uint32_t size;
    uint32_t write_size;
    bool is_nand;
    bool bad = false;
    bool does_not_erase = false;
    bool cannot_be_asked = false;
    bool cannot_be_marked = false;

    uint32_t end() const { return start + size; }
};

// The results of an operation, besides the medium.
struct outcome {
    uint32_t status;  // 0, one of the library's own, or `device_failure` for any errno
    uint32_t cursor;

    bool operator==(const outcome&) const = default;
};

constexpr uint32_t device_failure = 0xDEAD;

uint32_t kind_of(uint32_t status) {
    const bool own = status == 0 || status == NORV_STATUS_TIMEOUT || status == NORV_STATUS_EXHAUSTED;
    return own ? status : device_failure;
}

// The medium as an array of bytes and one of blocks.
class model {
  public:
    std::vector<uint8_t> bytes;
    std::vector<block> blocks;

    outcome erase(uint32_t address, uint32_t length, uint32_t end, uint32_t stop_at) {
        bool marking_failed = false;
        uint32_t cursor = address;
        uint32_t cancel_calls = 0;
        for (block& each : blocks) {
            if (each.start < address || each.start >= end || length == 0) {
                continue;
            }
            if (cancel_calls++ == stop_at) {
                return {NORV_STATUS_TIMEOUT, end};
            }
            cursor = each.end();
            if (each.is_nand && !marking_failed && !each.cannot_be_asked && each.bad) {
                continue;
            }
            const bool failed =
                marking_failed || each.does_not_erase || (each.is_nand && each.cannot_be_asked);
            if (failed && !each.is_nand) {
                return {device_failure, end};
            }
            if (failed) {
                marking_failed = each.cannot_be_marked;
                each.bad = each.bad || !marking_failed;
            } else {
                std::fill_n(bytes.begin() + each.start, each.size, uint8_t{0xFF});
                length -= std::min(length, each.size);
            }
        }
        return marking_failed ? outcome{device_failure, end} : outcome{0, cursor};
    }

    // Also returns where the first byte of the data was written.
    outcome write(uint32_t address, uint32_t skip, const std::vector<uint8_t>& data, uint32_t end,
                  uint32_t stop_at, uint32_t& first) {
        size_t done = 0;
        uint32_t cursor = address;
        uint32_t cancel_calls = 0;
        const auto is_stopped = [&] { return cancel_calls++ == stop_at; };
        for (const block& each : blocks) {
            if (each.end() <= address || each.start >= end || done == data.size()) {
                continue;
            }
            uint32_t position = std::max(address, each.start);
            if (each.bad) {
                if (is_stopped()) {
                    return {NORV_STATUS_TIMEOUT, end};
                }
                continue;
            }
            for (; position < each.end() && skip > 0; position += each.write_size) {
                if (is_stopped()) {
                    return {NORV_STATUS_TIMEOUT, end};
                }
                skip -= each.write_size;
            }
            if (position == each.end()) {
                continue;
            }
            if (is_stopped()) {
                return {NORV_STATUS_TIMEOUT, end};
            }
            first = done == 0 ? position : first;
            const size_t count = std::min<size_t>(data.size() - done, each.end() - position);
            std::copy_n(data.begin() + static_cast<long>(done), count, bytes.begin() + position);
            done += count;
            cursor = each.end();
        }
        if (done < data.size()) {
            return {is_stopped() ? NORV_STATUS_TIMEOUT : NORV_STATUS_EXHAUSTED, end};
        }
        return {0, cursor};
    }
};

class SpiFlashProperty : public norv::test::concatenated_flash {
  protected:
    uint32_t below(uint32_t limit) { return std::uniform_int_distribution<uint32_t>(0, limit - 1)(random); }
    bool one_in(uint32_t count) { return below(count) == 0; }

    // A new board, and its model.
    void build(uint32_t seed) {
        random.seed(seed);
        norv_linux_spi_flash_close(&flash);
        for (size_t number = 0; number < partitions.size(); ++number) {
            kernel.remove("/dev/mtd" + std::to_string(number));
        }
        partitions.clear();
        expected = {};
        const uint32_t count = 1 + below(4);
        for (uint32_t number = 0; number < count; ++number) {
            add_random_partition();
        }
        ASSERT_EQ(norv_linux_spi_flash_open(&flash), 0U);
        kernel.forget_calls();
    }

    void add_random_partition() {
        // Multiples of the largest block, so that every region starts at a multiple of its own block.
        const uint32_t size = 0x1000 * (1 + below(3));
        const uint32_t erase_size = 0x400U << below(3);
        const bool is_nand = !one_in(3);
        const uint32_t write_size = is_nand ? 0x100U << below(2) : 1U << below(3);
        const auto part =
            add(is_nand ? nand(size, erase_size, write_size) : nor(size, erase_size, write_size));
        std::generate(part->bytes.begin(), part->bytes.end(),
                      [this] { return static_cast<uint8_t>(random()); });
        const auto base = static_cast<uint32_t>(expected.bytes.size());
        for (uint32_t number = 0; number < size / erase_size; ++number) {
            block added = {base + number * erase_size, erase_size, write_size, is_nand};
            add_random_failures(*part, number, added);
            expected.blocks.push_back(added);
        }
        expected.bytes.insert(expected.bytes.end(), part->bytes.begin(), part->bytes.end());
    }

    void add_random_failures(mtd_device& part, uint32_t number, block& added) {
        if (added.is_nand && one_in(4)) {
            part.bad_blocks.insert(number);
            added.bad = true;
        }
        if (one_in(added.is_nand ? 8 : 40)) {
            part.erase_errors[number] = EIO;
            added.does_not_erase = true;
        }
        if (added.is_nand && one_in(20)) {
            part.query_errors[number] = EIO;
            added.cannot_be_asked = true;
        }
        if (added.is_nand && one_in(6)) {
            part.marking_errors[number] = EROFS;
            added.cannot_be_marked = true;
        }
    }

    // From now on every block can be queried.
    void heal_queries() {
        for (const auto& part : partitions) {
            part->query_errors.clear();
        }
        for (block& each : expected.blocks) {
            each.cannot_be_asked = false;
        }
    }

    outcome erase(uint32_t address, uint32_t length, uint32_t end, uint32_t stop_at) {
        watcher = {stop_at};
        const uint32_t status = norv_linux_spi_flash_continue_erase(
            &flash, address, length, &end, observer::cancel, observer::progress, &watcher);
        return {kind_of(status), end};
    }

    outcome write(uint32_t address, uint32_t skip, const std::vector<uint8_t>& data, uint32_t end,
                  uint32_t stop_at) {
        watcher = {stop_at};
        auto length = static_cast<uint32_t>(data.size());
        const uint32_t status =
            norv_linux_spi_flash_continue_write_verify(&flash, address, skip, data.data(), &length, &end,
                                                       observer::cancel, observer::progress, &watcher);
        EXPECT_EQ(length, data.size());
        return {kind_of(status), end};
    }

    void expect_medium() {
        std::vector<uint8_t> found;
        std::vector<uint32_t> bad;
        uint32_t base = 0;
        for (const auto& part : partitions) {
            found.insert(found.end(), part->bytes.begin(), part->bytes.end());
            for (const uint32_t number : part->bad_blocks) {
                bad.push_back(base + number * part->geometry().erase_size);
            }
            base += part->geometry().size;
        }
        std::vector<uint32_t> expected_bad;
        for (const block& each : expected.blocks) {
            if (each.bad) {
                expected_bad.push_back(each.start);
            }
        }
        EXPECT_TRUE(found == expected.bytes)
            << "first difference at "
            << std::mismatch(found.begin(), found.end(), expected.bytes.begin()).first - found.begin();
        EXPECT_EQ(bad, expected_bad);
    }

    // Not if a block could neither be erased nor marked, and a later marking succeeded.
    bool is_erased(uint32_t address, uint32_t end) const {
        return std::all_of(expected.blocks.begin(), expected.blocks.end(), [&](const block& each) {
            return each.bad || each.start < address || each.start >= end ||
                   std::all_of(expected.bytes.begin() + each.start, expected.bytes.begin() + each.end(),
                               [](uint8_t byte) { return byte == 0xFF; });
        });
    }

    // Erases an area: stopped somewhere first, then to its end. Returns the cursor.
    uint32_t erase_area(uint32_t address, uint32_t end) {
        const uint32_t length = 1 + below(end - address + 0x800);
        const uint32_t stop_at = below(12);
        EXPECT_EQ(erase(address, length, end, stop_at), expected.erase(address, length, end, stop_at));
        expect_medium();
        const outcome wanted = expected.erase(address, length, end, UINT32_MAX);
        EXPECT_EQ(erase(address, length, end, UINT32_MAX), wanted);
        expect_medium();
        return wanted.status == 0 ? wanted.cursor : address;
    }

    // Writes data to an erased area, stopped somewhere first, and reads it back.
    void write_area(uint32_t address, uint32_t end) {
        const uint32_t skip = one_in(2) ? 0 : 0x200 * below(6);
        std::vector<uint8_t> data(1 + below(end - address));
        std::generate(data.begin(), data.end(), [this] { return static_cast<uint8_t>(random()); });
        const uint32_t stop_at = below(20);
        uint32_t first = address;
        EXPECT_EQ(write(address, skip, data, end, stop_at),
                  expected.write(address, skip, data, end, stop_at, first));
        expect_medium();
        // The same data is written again, which clears no bit.
        const outcome wanted = expected.write(address, skip, data, end, UINT32_MAX, first);
        EXPECT_EQ(write(address, skip, data, end, UINT32_MAX), wanted);
        expect_medium();
        if (wanted.status == 0) {
            expect_data(first, data);
        }
    }

    void expect_data(uint32_t address, const std::vector<uint8_t>& data) {
        std::vector<uint8_t> found(data.size());
        auto length = static_cast<uint32_t>(data.size());
        EXPECT_EQ(norv_linux_spi_flash_continue_read(&flash, address, found.data(), &length, nullptr, nullptr,
                                                     nullptr),
                  0U);
        EXPECT_TRUE(found == data);
    }

    std::mt19937 random;
    model expected;
};

TEST_F(SpiFlashProperty, AnyAreaIsErasedWrittenAndReadAsInTheModel) {
    uint32_t written = 0;
    for (uint32_t seed = 1; seed <= boards && !HasFailure(); ++seed) {
        SCOPED_TRACE("seed " + std::to_string(seed));
        build(seed);
        const auto& blocks = expected.blocks;
        const auto count = static_cast<uint32_t>(blocks.size());
        const uint32_t first = below(count);
        const uint32_t last = first + below(count - first);
        const uint32_t address = blocks[first].start;
        const uint32_t cursor = erase_area(address, blocks[last].end());
        heal_queries();
        if (cursor > address && is_erased(address, cursor)) {
            write_area(address, cursor);
            ++written;
        }
    }
    EXPECT_GT(written, boards / 2);
}

}  // namespace
