// SPDX-License-Identifier: MIT
// The examples that update firmware, on a real kernel: killed repeatedly at random moments, and given the
// journals of other updates. In the end the image is complete, and the flash around it has not changed.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <iterator>
#include <random>
#include <span>
#include <string>
#include <vector>

#include "../support/attribute.hpp"
#include "media.hpp"
#include "norv/flash.hpp"

namespace {

using norv::board::KiB;
using norv::board::medium;
using norv::board::MiB;
using norv::board::pattern;
using std::chrono::steady_clock;
using testing::HasSubstr;

// The partitions: 8 MiB of NOR in blocks of 128 KiB, then NAND in blocks of 16 KiB, the first 4 MiB of it
// in a partition of its own. There are bad blocks within both areas of the SPI flash below, and on both sides
// of the border in the second.
constexpr uint32_t nand_1 = 8 * MiB;
constexpr uint32_t nand_2 = 12 * MiB;

constexpr uint32_t image_size = 300001;

// A flash, and the example that updates it.
struct target {
    const char* name;
    const char* emmc_path;  // null: the SPI flash
    const char* program;
    uint32_t start;
    uint32_t end;
    uint32_t kills;
};

void PrintTo(const target& on, std::ostream* out) {
    *out << on.name;
}

const std::vector<target> memory_and_nand = {
    {"SdCard", "/dev/mmcblk0", NORV_FLASH_UPDATE, 6 * MiB, 6 * MiB + 384 * KiB, 100},
    {"NorAndNand", nullptr, NORV_SPI_FLASH_UPDATE, nand_1 - 128 * KiB, nand_1 + 384 * KiB, 100},
    {"TwoPartitionsOfNand", nullptr, NORV_FLASH_UPDATE, nand_2 - 256 * KiB, nand_2 + 384 * KiB, 20},
};

// Where NOR chips at an SPI controller are the partitions, the area is on both sides of the border between
// two.
target nor_chips(uint32_t border) {
    return {"TwoNorChips", nullptr, NORV_SPI_FLASH_UPDATE, border - 256 * KiB, border + 384 * KiB, 20};
}

std::vector<target> targets_here() {
    const std::string first = "/sys/class/mtd/mtd0/";
    if (norv::board::attribute(first + "type") != "nor") {
        return memory_and_nand;
    }
    return {nor_chips(static_cast<uint32_t>(std::stoul(norv::board::attribute(first + "size"))))};
}

std::string number(uint32_t value) {
    return std::to_string(value);
}

std::string text_of(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

void store(const std::string& path, const std::string& bytes) {
    std::ofstream(path, std::ios::binary) << bytes;
}

class UpdateOnBoard : public testing::TestWithParam<target> {
  protected:
    static constexpr uint32_t margin = 128 * KiB;

    UpdateOnBoard() {
        char name[] = "/tmp/update-XXXXXX";
        directory = mkdtemp(name);
        fill(GetParam().start - margin, pattern(margin, 1));
        fill(GetParam().end, pattern(margin, 2));
        around = read_around();
    }
    ~UpdateOnBoard() override { EXPECT_EQ(std::system(("rm -r " + directory).c_str()), 0); }

    static norv::flash open_flash() {
        const char* const path = GetParam().emmc_path;
        if (path == nullptr) {
            return norv::flash::open_spi().value();
        }
        EXPECT_TRUE(medium(path).is_there());
        return norv::flash::open_emmc(path).value();
    }

    std::string image_path() const { return directory + "/image"; }
    std::string journal_path() const { return directory + "/journal"; }
    std::string output_path() const { return directory + "/output"; }

    void fill(uint32_t address, const std::string& bytes) {
        const auto length = static_cast<uint32_t>(bytes.size());
        const norv::flash_erased erased = flash.continue_erase(address, length, address + length);
        ASSERT_EQ(erased.status, norv::ok);
        // With bad blocks, not all bytes fit.
        flash.continue_write_verify(address, 0, std::as_bytes(std::span(bytes)), erased.end).status.ignore();
    }

    // The bytes before and after the area, including those of bad blocks.
    std::string read_around() {
        std::string bytes;
        for (const uint32_t address : {GetParam().start - margin, GetParam().end}) {
            for (uint32_t done = 0; done < margin;) {
                std::string part(margin - done, '-');
                const norv::transferred read =
                    flash.read(address + done, std::as_writable_bytes(std::span(part)));
                read.status.value();
                bytes += part.substr(0, read.count);
                done += static_cast<uint32_t>(read.count);
            }
        }
        return bytes;
    }

    std::vector<std::string> command() const {
        const target& on = GetParam();
        if (std::string(on.program) == NORV_SPI_FLASH_UPDATE) {
            return {on.program, number(on.start), number(on.end), image_path(), journal_path()};
        }
        const char* device = on.emmc_path != nullptr ? on.emmc_path : "spi";
        return {on.program, device, number(on.start), image_path(), journal_path(), number(on.end)};
    }

    // Starts an update. Its output goes to a file.
    pid_t start() const {
        std::vector<std::string> words = command();
        std::vector<char*> arguments;
        for (std::string& word : words) {
            arguments.push_back(word.data());
        }
        arguments.push_back(nullptr);
        const pid_t process = fork();
        if (process == 0) {
            const int output = open(output_path().c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
            dup2(output, STDOUT_FILENO);
            dup2(output, STDERR_FILENO);
            execv(arguments[0], arguments.data());
            _exit(127);
        }
        return process;
    }

    // Waits for the end of an update. Returns its exit status, -1 if it was killed.
    static int wait_for(pid_t process) {
        int status = 0;
        waitpid(process, &status, 0);
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }

    // Runs the update of an image to its end.
    void finish(const std::string& image) {
        store(image_path(), image);
        EXPECT_EQ(wait_for(start()), 0) << text_of(output_path());
    }

    // Runs the update of an image, and kills it after it has first written the journal.
    void begin(const std::string& image) {
        store(image_path(), image);
        for (int attempts = 0; !has_journal(); ++attempts) {
            ASSERT_LT(attempts, 100) << "the update ends before it can be killed";
            const pid_t process = start();
            siginfo_t ended = {};
            while (!has_journal() && ended.si_pid == 0) {
                waitid(P_PID, static_cast<id_t>(process), &ended, WEXITED | WNOHANG | WNOWAIT);
            }
            kill(process, SIGKILL);
            wait_for(process);
        }
    }

    bool has_journal() const { return access(journal_path().c_str(), F_OK) == 0; }

    // The contents of the good blocks of the area.
    std::string content(uint32_t length) {
        std::string found(length, '-');
        const auto bytes = std::as_writable_bytes(std::span(found));
        EXPECT_EQ(flash.continue_read(GetParam().start, bytes).status, norv::ok);
        return found;
    }

    void expect_on_flash(const std::string& image) {
        EXPECT_TRUE(content(static_cast<uint32_t>(image.size())) == image);
        EXPECT_TRUE(read_around() == around);
        EXPECT_FALSE(has_journal());
    }

    norv::flash flash = open_flash();
    std::string directory;
    std::string around;
};

TEST_P(UpdateOnBoard, AnUpdateKilledAtRandomMomentsIsCompleted) {
    const unsigned seed = std::random_device()();
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::minstd_rand random{seed};
    const auto begun = steady_clock::now();
    finish(pattern(image_size, 3));
    const auto whole = static_cast<uint64_t>(
        std::chrono::duration_cast<std::chrono::microseconds>(steady_clock::now() - begun).count());
    uint32_t killed = 0;
    for (unsigned round = 4; killed < GetParam().kills && !HasFailure(); ++round) {
        const std::string image = pattern(image_size, round);
        store(image_path(), image);
        int ended = -1;
        // After each kill the next run gets a little more time, so that every update is completed.
        for (auto patience = whole / 2; ended == -1; patience += patience / 8) {
            const pid_t process = start();
            usleep(static_cast<useconds_t>(random() % patience));
            kill(process, SIGKILL);
            ended = wait_for(process);
            killed += ended == -1 ? 1 : 0;
        }
        EXPECT_EQ(ended, 0) << text_of(output_path());
        expect_on_flash(image);
    }
    std::cout << "killed " << killed << " times; a whole update takes " << whole / 1000 << " ms\n";
}

TEST_P(UpdateOnBoard, AJournalOfALargerImageIsNotContinued) {
    begin(pattern(image_size, 30));
    const std::string before = content(image_size);
    finish(pattern(100, 31));
    EXPECT_THAT(text_of(output_path()),
                HasSubstr("journal belongs to another update; starting from the beginning\n"));
    expect_on_flash(pattern(100, 31));
    // No more than a chunk, or an erase block, was written.
    EXPECT_TRUE(content(image_size).substr(128 * KiB) == before.substr(128 * KiB));
}

TEST_P(UpdateOnBoard, AJournalOfAnotherImageOfTheSameSizeIsNotContinued) {
    begin(pattern(image_size, 32));
    finish(pattern(image_size, 33));
    EXPECT_THAT(text_of(output_path()),
                HasSubstr("journal belongs to another update; starting from the beginning\n"));
    expect_on_flash(pattern(image_size, 33));
}

TEST_P(UpdateOnBoard, AJournalWhoseNumbersAreOutOfRangeIsNotContinued) {
    begin(pattern(image_size, 34));
    const std::string journal = text_of(journal_path());
    for (const char* numbers : {"done 300002 cursor 0x0\n", "done 16384 cursor 0xfff00000\n", ""}) {
        store(journal_path(), journal.substr(0, journal.find('\n') + 1) + numbers);
        finish(pattern(image_size, 34));
        EXPECT_THAT(text_of(output_path()), HasSubstr("journal is damaged; starting from the beginning\n"));
        expect_on_flash(pattern(image_size, 34));
    }
}

TEST_P(UpdateOnBoard, AFileThatIsNotAJournalIsRefusedAndKept) {
    store(image_path(), pattern(image_size, 35));
    for (const char* text : {"131072\n", "a diary\n"}) {
        store(journal_path(), text);
        EXPECT_EQ(wait_for(start()), 1);
        EXPECT_THAT(text_of(output_path()), HasSubstr("not an update journal; nothing was written\n"));
        EXPECT_EQ(text_of(journal_path()), text);
    }
    EXPECT_TRUE(read_around() == around);
}

INSTANTIATE_TEST_SUITE_P(, UpdateOnBoard, testing::ValuesIn(targets_here()),
                         [](const auto& one) { return one.param.name; });

}  // namespace
