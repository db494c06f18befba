// The joined flash on a real kernel: 8 MiB of memory behind the MTD layer in blocks of 128 KiB, and 16 MiB of
// simulated NAND in blocks of 16 KiB, divided into three partitions. Bad blocks stand at the borders and in
// runs; one block never erases.
#include "norv_linux_spi_flash.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <csignal>
#include <random>
#include <vector>

namespace {

using testing::Each;
using bytes = std::vector<uint8_t>;

constexpr uint32_t KiB = 1024;
constexpr uint32_t MiB = 1024 * KiB;
constexpr uint32_t nand_block = 16 * KiB;
constexpr uint32_t ram_block = 128 * KiB;

// Where the partitions start.
constexpr uint32_t nand_1 = 8 * MiB;
constexpr uint32_t nand_2 = 12 * MiB;
constexpr uint32_t nand_3 = 20 * MiB;
constexpr uint32_t flash_end = 24 * MiB;

// Blocks of the NAND chip, as the module was told.
constexpr uint32_t worn_out = 7;
constexpr uint32_t first_bad = 3;
constexpr uint32_t last_of_nand_1 = 255;  // bad, and so is the next one

bytes pattern(size_t size, uint32_t seed) {
    bytes made(size);
    std::mt19937 random(seed);
    std::generate(made.begin(), made.end(), [&] { return static_cast<uint8_t>(random()); });
    return made;
}

class SpiFlashOnBoard : public testing::Test {
  protected:
    SpiFlashOnBoard() { EXPECT_EQ(norv_linux_spi_flash_open(&flash), 0U); }
    ~SpiFlashOnBoard() override { norv_linux_spi_flash_close(&flash); }

    bytes read_good(uint32_t address, uint32_t length) {
        bytes found(length);
        EXPECT_EQ(norv_linux_spi_flash_continue_read(&flash, address, found.data(), &length, nullptr, nullptr,
                                                     nullptr),
                  0U);
        return found;
    }
    bool is_bad(uint32_t block) {
        uint8_t bad = 9;
        const norv_mtd_t& device = flash->regions[1].device;
        EXPECT_EQ(norv_linux_mtd_block_isbad(&device, block * nand_block, &bad), 0U);
        return bad == 1;
    }

    norv_spi_flash_t* flash = nullptr;
};

// ---- geometry, plain calls

TEST_F(SpiFlashOnBoard, ThePartitionsAreJoined) {
    ASSERT_EQ(flash->region_count, 4);
    EXPECT_EQ(flash->size, flash_end);
    EXPECT_EQ(flash->regions[1].base, nand_1);
    EXPECT_EQ(flash->regions[2].base, nand_2);
    EXPECT_EQ(flash->regions[3].base, nand_3);
    norv_flash_info_t info = {};
    EXPECT_EQ(norv_linux_spi_flash_get_info(&flash, &info), 0U);
    EXPECT_EQ(info.size, flash_end);
    EXPECT_EQ(info.erase_block_size, ram_block);
    EXPECT_EQ(info.write_unit_size, 1U);
}

TEST_F(SpiFlashOnBoard, OneBlockIsErasedWrittenAndRead) {
    for (const uint32_t address : {ram_block, nand_2 + 8 * nand_block}) {
        const bytes data = pattern(1024, address);
        bytes found(1024);
        uint32_t length = 1024;
        EXPECT_EQ(norv_linux_spi_flash_erase_one_block(&flash, address), 0U);
        EXPECT_EQ(norv_linux_spi_flash_write(&flash, address, data.data(), &length), 0U);
        EXPECT_EQ(norv_linux_spi_flash_read(&flash, address, found.data(), &length), 0U);
        EXPECT_EQ(length, 1024U);
        EXPECT_EQ(found, data);
    }
}

TEST_F(SpiFlashOnBoard, APlainReadEndsAtTheBorder) {
    bytes found(64);
    uint32_t length = 64;
    EXPECT_EQ(norv_linux_spi_flash_read(&flash, nand_1 - 4, found.data(), &length), 0U);
    EXPECT_EQ(length, 4U);
    EXPECT_EQ(norv_linux_spi_flash_read(&flash, flash_end, found.data(), &length), NORV_STATUS_RANGE);
}

TEST_F(SpiFlashOnBoard, ABadBlockIsNotErasedAndTheFirstGoodOneBehindItIs) {
    uint32_t end = nand_2;
    EXPECT_EQ(norv_linux_spi_flash_erase_one_block(&flash, nand_1 + first_bad * nand_block),
              NORV_STATUS_EXHAUSTED);
    EXPECT_EQ(norv_linux_spi_flash_erase_first_valid_block(&flash, nand_1 + first_bad * nand_block, &end),
              0U);
    EXPECT_EQ(end, nand_1 + (first_bad + 3) * nand_block);
    end = nand_2 + 4 * nand_block;
    EXPECT_EQ(
        norv_linux_spi_flash_erase_first_valid_block(&flash, nand_1 + last_of_nand_1 * nand_block, &end), 0U);
    EXPECT_EQ(end, nand_2 + 2 * nand_block);
}

// ---- many blocks

TEST_F(SpiFlashOnBoard, AnAreaOverBorderAndBadBlocksIsErasedWrittenAndRead) {
    const bytes data = pattern(700 * KiB, 1);
    const uint32_t start = nand_1 - 2 * ram_block;
    uint32_t end = nand_1 + MiB;
    uint32_t length = 700 * KiB;
    EXPECT_EQ(norv_linux_spi_flash_continue_erase(&flash, start, MiB, &end, nullptr, nullptr, nullptr), 0U);
    EXPECT_GT(end, start + MiB);
    EXPECT_EQ(norv_linux_spi_flash_continue_write_verify(&flash, start, 0, data.data(), &length, &end,
                                                         nullptr, nullptr, nullptr),
              0U);
    EXPECT_EQ(length, 700 * KiB);
    EXPECT_EQ(read_good(start, 700 * KiB), data);
}

TEST_F(SpiFlashOnBoard, AWornOutBlockIsMarkedBadAndLeftOut) {
    uint32_t end = nand_1 + (worn_out + 2) * nand_block;
    EXPECT_EQ(norv_linux_spi_flash_continue_erase(&flash, nand_1 + worn_out * nand_block, nand_block, &end,
                                                  nullptr, nullptr, nullptr),
              0U);
    EXPECT_EQ(end, nand_1 + (worn_out + 2) * nand_block);
    EXPECT_TRUE(is_bad(worn_out));
}

TEST_F(SpiFlashOnBoard, AWriteToAFlashThatWasNotErasedFailsTheVerification) {
    const uint32_t address = nand_3 + 8 * nand_block;
    const bytes zeros(nand_block, 0);
    const bytes ones(nand_block, 0x5A);
    uint32_t end = address + nand_block;
    uint32_t length = nand_block;
    EXPECT_EQ(norv_linux_spi_flash_continue_write_verify(&flash, address, 0, zeros.data(), &length, &end,
                                                         nullptr, nullptr, nullptr),
              0U);
    EXPECT_EQ(norv_linux_spi_flash_continue_write_verify(&flash, address, 0, ones.data(), &length, &end,
                                                         nullptr, nullptr, nullptr),
              NORV_STATUS_VERIFY_FAILED);
    EXPECT_EQ(length, 0U);
}

// ---- an update that is killed, again and again

constexpr uint32_t image_size = 3 * MiB;

// What the updating process tells; it survives the process.
struct progress_board {
    std::atomic<bool> erased;
    std::atomic<uint32_t> address;  // of the block that was erased last
    std::atomic<uint32_t> done;     // bytes that are written and verified
    std::atomic<uint32_t> reports;
};

class shared_board {
  public:
    shared_board()
        : place_(mmap(nullptr, sizeof(progress_board), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1,
                      0)) {}
    ~shared_board() { munmap(place_, sizeof(progress_board)); }
    shared_board(const shared_board&) = delete;
    shared_board& operator=(const shared_board&) = delete;

    progress_board* operator->() const { return static_cast<progress_board*>(place_); }
    void reset(uint32_t address) const { new (place_) progress_board{false, address, 0, 0}; }

  private:
    void* place_;
};

// The image goes into an area that ends where it may have to: there is room for the bad blocks.
class update {
  public:
    update(uint32_t start, bytes image, const shared_board& board)
        : start_(start), end_(start + image_size + MiB), image_(std::move(image)), board_(board) {}

    // Goes on where the board says that another process came to.
    uint32_t run() {
        norv_spi_flash_t* flash = nullptr;
        uint32_t status = norv_linux_spi_flash_open(&flash);
        if (status == NORV_STATUS_OK && !board_->erased) {
            status = erase(&flash);
        }
        if (status == NORV_STATUS_OK) {
            board_->erased = true;
            status = write(&flash);
        }
        norv_linux_spi_flash_close(&flash);
        return status;
    }

    uint32_t start() const { return start_; }
    uint32_t end() const { return end_; }
    const bytes& image() const { return image_; }

  private:
    uint32_t erase(norv_spi_flash_t** flash) {
        const uint32_t address = board_->address;
        uint32_t end = end_;
        return norv_linux_spi_flash_continue_erase(flash, address, end_ - address, &end, nullptr, note_erased,
                                                   this);
    }

    uint32_t write(norv_spi_flash_t** flash) {
        already_ = board_->done;
        uint32_t end = end_;
        uint32_t length = image_size - already_;
        return norv_linux_spi_flash_continue_write_verify(flash, start_, already_, image_.data() + already_,
                                                          &length, &end, nullptr, note_written, this);
    }

    static void note_erased(void* user, uint32_t, uint32_t address, uint32_t, uint32_t) {
        const auto* self = static_cast<update*>(user);
        self->board_->address = address;
        ++self->board_->reports;
    }
    static void note_written(void* user, uint32_t, uint32_t, uint32_t remaining, uint32_t) {
        const auto* self = static_cast<update*>(user);
        self->board_->done = image_size - remaining;
        ++self->board_->reports;
    }

    uint32_t start_;
    uint32_t end_;
    bytes image_;
    const shared_board& board_;
    uint32_t already_ = 0;
};

// Runs the update in a process of its own, which is killed a moment after its so many-th report. True when
// that struck it in the middle.
bool kill_update(update& interrupted, const shared_board& board, uint32_t reports, useconds_t moment) {
    const pid_t process = fork();
    if (process == 0) {
        _exit(interrupted.run() == NORV_STATUS_OK ? 0 : 1);
    }
    int ended = 0;
    while (board->reports < reports && waitpid(process, &ended, WNOHANG) == 0) {
        usleep(200);
    }
    usleep(moment);
    kill(process, SIGKILL);
    waitpid(process, &ended, 0);
    return WIFSIGNALED(ended);
}

class FirmwareUpdateOnBoard : public SpiFlashOnBoard {
  protected:
    // Four blocks of the neighbours on each side.
    bytes around(const update& area) {
        bytes found(8 * ram_block);
        read_plain(area.start() - 4 * ram_block, found.data(), 4 * ram_block);
        read_plain(area.end(), found.data() + 4 * ram_block, 4 * ram_block);
        return found;
    }

    // Bad blocks too.
    void read_plain(uint32_t address, uint8_t* buffer, uint32_t length) {
        while (length > 0) {
            uint32_t count = length;
            ASSERT_EQ(norv_linux_spi_flash_read(&flash, address, buffer, &count), 0U);
            address += count;
            buffer += count;
            length -= count;
        }
    }

    void fill_around(const update& area) {
        const bytes neighbour = pattern(4 * ram_block, 77);
        for (const uint32_t address : {area.start() - 4 * ram_block, area.end()}) {
            uint32_t end = address + 4 * ram_block;
            uint32_t length = 4 * ram_block;
            ASSERT_EQ(
                norv_linux_spi_flash_continue_erase(&flash, address, length, &end, nullptr, nullptr, nullptr),
                0U);
            end = address + 4 * ram_block;
            ASSERT_EQ(norv_linux_spi_flash_continue_write_verify(&flash, address, 0, neighbour.data(),
                                                                 &length, &end, nullptr, nullptr, nullptr),
                      0U);
        }
    }

    shared_board board;
};

TEST_F(FirmwareUpdateOnBoard, KilledTwentyTimesGoesOnFromTheLastReportAndWritesNothingElse) {
    const uint32_t seed = std::random_device()();
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937 generator(seed);
    const auto random = [&] { return static_cast<uint32_t>(generator()); };
    int killed = 0;
    for (int round = 0; round < 40 && killed < 20; ++round) {
        // Over the border between two kinds of flash, and between two partitions of NAND.
        const uint32_t start = round % 2 == 0 ? nand_1 - MiB : nand_2 - MiB;
        update job(start, pattern(image_size, random()), board);
        if (round < 2) {
            fill_around(job);
        }
        const bytes before = around(job);
        board.reset(start);
        killed += kill_update(job, board, random() % 300, random() % 10000) ? 1 : 0;
        ASSERT_EQ(job.run(), 0U) << "round " << round;
        EXPECT_TRUE(read_good(start, image_size) == job.image()) << "round " << round;
        EXPECT_TRUE(around(job) == before) << "round " << round;
        ASSERT_FALSE(HasFailure());
    }
    EXPECT_EQ(killed, 20);
}

}  // namespace
