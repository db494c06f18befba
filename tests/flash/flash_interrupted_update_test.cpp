// SPDX-License-Identifier: MIT
// An update whose process is killed repeatedly, at random calls, is continued from the two numbers in its
// journal (norv_flash_types.h) on both kinds of flash: in the end the image is complete, and nothing around
// it has changed.
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <memory>
#include <optional>

#include "flash/lasting_flash.hpp"
#include "norv_linux_flash.h"
#include "support/kernel_double.hpp"

namespace {

using norv::test::kernel_double;
using norv::test::lasting_card;
using norv::test::lasting_partition;
using norv::test::nand;
using norv::test::nor;
using norv::test::power_supply;
using norv::test::shared_array;
using bytes = std::vector<uint8_t>;

constexpr uint32_t KiB = 1024;
constexpr uint32_t kills_wanted = 120;

// The journal of an update, on another medium.
struct journal {
    uint32_t cursor;
    uint32_t done;
};

struct update {
    norv_flash_config_t config;
    uint32_t area_end;
    bytes image;
    journal& noted;
};

void note(void* user, uint32_t, uint32_t address, uint32_t remaining, uint32_t) {
    auto* job = static_cast<update*>(user);
    const uint32_t done = static_cast<uint32_t>(job->image.size()) - remaining;
    job->noted.cursor = address + (done - job->noted.done);
    job->noted.done = done;
}

// Erases and writes the rest, starting at the cursor.
uint32_t write_rest(norv_flash_t* flash, update& job) {
    uint32_t end = job.area_end;
    uint32_t length = static_cast<uint32_t>(job.image.size()) - job.noted.done;
    if (length == 0) {
        return NORV_STATUS_OK;
    }
    const uint32_t status =
        norv_linux_flash_continue_erase(flash, job.noted.cursor, length, &end, nullptr, nullptr, nullptr);
    if (status != NORV_STATUS_OK) {
        return status;
    }
    return norv_linux_flash_continue_write_verify(
        flash, job.noted.cursor, 0, job.image.data() + job.noted.done, &length, &end, nullptr, note, &job);
}

// One run of the updater.
uint32_t run(update& job) {
    norv_flash_t flash;
    uint32_t status = norv_linux_flash_open(&job.config, &flash);
    if (status == NORV_STATUS_OK) {
        status = write_rest(&flash, job);
    }
    norv_linux_flash_close(&flash);
    return status;
}

class InterruptedUpdate : public testing::Test {
  protected:
    uint32_t below(uint32_t limit) { return static_cast<uint32_t>(random() % limit); }

    bytes random_image(uint32_t size) {
        bytes image(size);
        std::generate(image.begin(), image.end(), [this] { return static_cast<uint8_t>(random()); });
        return image;
    }

    // Runs an update in a process of its own, whose power fails during one of the next calls. Returns its
    // exit status, or nothing if the power failed first.
    std::optional<int> run_until_the_power_fails(update& job, uint32_t most_calls) {
        const uint32_t calls = 1 + below(most_calls);
        const auto seed_of_power = static_cast<uint32_t>(random());
        const pid_t updater = fork();
        if (updater == 0) {
            power.calls = calls;
            power.random.seed(seed_of_power);
            _exit(run(job) == NORV_STATUS_OK ? 0 : 1);
        }
        int ended = 0;
        waitpid(updater, &ended, 0);
        return WIFEXITED(ended) ? std::optional(WEXITSTATUS(ended)) : std::nullopt;
    }

    // Runs an update until it is complete.
    void finish(update& job, uint32_t most_calls) {
        std::optional<int> ended;
        for (uint32_t runs = 0; !ended && runs < 1000; ++runs) {
            ended = run_until_the_power_fails(job, most_calls);
            killed += ended ? 0 : 1;
        }
        ASSERT_EQ(ended, 0) << "after " << killed << " kills";
    }

    const unsigned seed = std::random_device()();
    std::mt19937 random{seed};
    power_supply power;
    kernel_double kernel;
    shared_array<journal> noted{1};
    uint32_t killed = 0;
};

// ---- the SPI flash

// NOR in blocks of 4 KiB, and two partitions of NAND in blocks of 8 KiB: some are bad, and two become bad.
class InterruptedUpdateOfSpiFlash : public InterruptedUpdate {
  protected:
    static constexpr uint32_t start = 16 * KiB;
    static constexpr uint32_t end = 192 * KiB;

    InterruptedUpdateOfSpiFlash() {
        kernel.add_device("/dev/mtd0", partitions[0]);
        kernel.add_device("/dev/mtd1", partitions[1]);
        kernel.add_device("/dev/mtd2", partitions[2]);
        for (const uint32_t block : {0U, 3U, 7U}) {
            partitions[1]->bad[block] = true;
        }
        partitions[2]->bad[0] = true;
        partitions[1]->does_not_erase = {4};
        partitions[2]->does_not_erase = {2};
    }

    bytes whole() {
        bytes all;
        for (const auto& part : partitions) {
            all.insert(all.end(), part->bytes.begin(), part->bytes.end());
        }
        return all;
    }

    // The contents of the good blocks from the start of the area.
    bytes content(size_t size) {
        bytes found(partitions[0]->bytes.begin() + start, partitions[0]->bytes.end());
        for (const auto& part : {partitions[1], partitions[2]}) {
            for (uint32_t block = 0; block < 8; ++block) {
                uint8_t* first = part->bytes.begin() + block * 8 * KiB;
                found.insert(found.end(), first, part->bad[block] ? first : first + 8 * KiB);
            }
        }
        found.resize(size);
        return found;
    }

    std::vector<std::shared_ptr<lasting_partition>> partitions = {
        std::make_shared<lasting_partition>(nor(64 * KiB, 4 * KiB), power),
        std::make_shared<lasting_partition>(nand(64 * KiB, 8 * KiB, 512), power),
        std::make_shared<lasting_partition>(nand(64 * KiB, 8 * KiB, 512), power)};
};

TEST_F(InterruptedUpdateOfSpiFlash, IsCompletedFromItsJournal) {
    SCOPED_TRACE("seed " + std::to_string(seed));
    while (killed < kills_wanted && !HasFailure()) {
        const bytes before = whole();
        update job = {
            {NORV_FLASH_KIND_SPI, nullptr}, end, random_image(70 * KiB + below(20 * KiB)), noted[0]};
        noted[0] = {start, 0};
        ASSERT_NO_FATAL_FAILURE(finish(job, 60));
        EXPECT_TRUE(content(job.image.size()) == job.image);
        const bytes after = whole();
        EXPECT_TRUE(std::equal(before.begin(), before.begin() + start, after.begin()));
        EXPECT_TRUE(std::equal(before.begin() + end, before.end(), after.begin() + end));
    }
}

// ---- an eMMC

TEST_F(InterruptedUpdate, OfAnEmmcIsCompletedFromItsJournal) {
    SCOPED_TRACE("seed " + std::to_string(seed));
    constexpr uint32_t chunk = 128 * KiB;
    constexpr uint32_t start = chunk;
    const auto card = std::make_shared<lasting_card>(8 * chunk, power);
    kernel.add_device("/dev/mmcblk0", card);
    while (killed < kills_wanted && !HasFailure()) {
        bytes expected(card->bytes.begin(), card->bytes.end());
        update job = {{NORV_FLASH_KIND_EMMC, "/dev/mmcblk0"}, 0, random_image(5 * chunk), noted[0]};
        noted[0] = {start, 0};
        ASSERT_NO_FATAL_FAILURE(finish(job, 14));
        std::copy(job.image.begin(), job.image.end(), expected.begin() + start);
        EXPECT_TRUE(std::equal(expected.begin(), expected.end(), card->bytes.begin()));
    }
}

}  // namespace
