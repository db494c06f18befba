// SPDX-License-Identifier: MIT
// FPGA managers of the board's kernel: fpga0 works, fpga1 fails while it is written.
#include "norv_fpga.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cerrno>
#include <fstream>
#include <numeric>
#include <string>
#include <thread>

#include "../support/attribute.hpp"
#include "norv_base.h"

namespace {

using namespace std::string_literals;
using norv::board::attribute;
using norv::board::comes_true;

const std::string sync_word = "\xaa\x99\x55\x66";

std::string fpga_attribute(int index, const std::string& name) {
    return attribute("/sys/class/fpga_manager/fpga" + std::to_string(index) + "/" + name);
}

bool is_done(uint32_t index) {
    bool done = false;
    EXPECT_EQ(norv_fpga_is_program_done(index, &done), 0U);
    return done;
}

// The kernel of the board looks for firmware in /run/firmware.
void store_firmware(const std::string& name, const std::string& content) {
    mkdir("/run/firmware/designs", 0755);
    std::ofstream("/run/firmware/" + name, std::ios::binary) << content;
}

unsigned sum_of(const std::string& content) {
    return std::accumulate(content.begin(), content.end(), 0U,
                           [](unsigned sum, char byte) { return sum + static_cast<unsigned char>(byte); });
}

class FpgaOnBoard : public testing::Test {
  protected:
    // An FPGA that works, whatever the previous test has left.
    FpgaOnBoard() {
        store_firmware("good.bin", good);
        EXPECT_EQ(norv_fpga_program(0, "good.bin"), 0U);
    }
    ~FpgaOnBoard() override {
        set_write_time(20);
        claim(false);
    }

    // Whether a kernel driver uses the manager.
    static void claim(bool claimed) {
        std::ofstream("/sys/kernel/debug/norv_board_fpga/fpga0") << (claimed ? "Y" : "N");
    }

    static void set_write_time(int milliseconds) {
        std::ofstream("/sys/module/norv_board_fpga/parameters/write_ms") << milliseconds << std::flush;
    }

    const std::string good = "header" + sync_word + std::string(100000, 'd');
};

TEST_F(FpgaOnBoard, AProgrammedFpgaIsOperatingAndHoldsTheWholeImage) {
    EXPECT_TRUE(is_done(0));
    EXPECT_EQ(fpga_attribute(0, "state"), "operating");
    EXPECT_EQ(fpga_attribute(0, "image"), "good.bin");
    EXPECT_EQ(fpga_attribute(0, "image_size"), std::to_string(good.size()));
    EXPECT_EQ(fpga_attribute(0, "image_sum"), std::to_string(sum_of(good)));
}

TEST_F(FpgaOnBoard, FirmwareMayBeInADirectoryOfTheSearchPath) {
    store_firmware("designs/other.bin", sync_word + std::string(70, 'o'));
    EXPECT_EQ(norv_fpga_program(0, "designs/other.bin"), 0U);
    EXPECT_TRUE(is_done(0));
    EXPECT_EQ(fpga_attribute(0, "image"), "designs/other.bin");
}

TEST_F(FpgaOnBoard, AnFpgaIsNotDoneWhileItIsProgrammed) {
    set_write_time(500);
    std::thread programming([] { EXPECT_EQ(norv_fpga_program(0, "good.bin"), 0U); });
    EXPECT_TRUE(comes_true([] { return !is_done(0); }));
    programming.join();
    EXPECT_TRUE(is_done(0));
}

TEST_F(FpgaOnBoard, AnFpgaThatIsBeingProgrammedIsBusyAndGetsItsWholeImage) {
    store_firmware("other.bin", sync_word + std::string(70, 'o'));
    set_write_time(600000);
    std::thread programming([] { EXPECT_EQ(norv_fpga_program(0, "good.bin"), 0U); });
    EXPECT_TRUE(comes_true([] { return !is_done(0); }));
    EXPECT_EQ(norv_fpga_program(0, "other.bin"), norv_get_status_by_errno(EBUSY));
    set_write_time(0);
    programming.join();
    EXPECT_EQ(fpga_attribute(0, "image"), "good.bin");
}

TEST_F(FpgaOnBoard, AnFpgaThatAKernelDriverUsesIsBusy) {
    store_firmware("other.bin", sync_word + std::string(70, 'o'));
    claim(true);
    EXPECT_EQ(norv_fpga_program(0, "other.bin"), norv_get_status_by_errno(EBUSY));
    EXPECT_TRUE(is_done(0));
    EXPECT_EQ(fpga_attribute(0, "image"), "good.bin");
    claim(false);
    EXPECT_EQ(norv_fpga_program(0, "other.bin"), 0U);
}

TEST_F(FpgaOnBoard, MissingFirmwareIsNotFoundAndTheFpgaIsNotDone) {
    EXPECT_EQ(norv_fpga_program(0, "missing.bin"), NORV_STATUS_NOT_FOUND);
    EXPECT_FALSE(is_done(0));
    EXPECT_EQ(fpga_attribute(0, "state"), "firmware request error");
    EXPECT_EQ(fpga_attribute(0, "image"), "");
}

TEST_F(FpgaOnBoard, AFileThatIsNotABitstreamIsRefused) {
    store_firmware("text.bin", std::string(1000, 't'));
    EXPECT_EQ(norv_fpga_program(0, "text.bin"), NORV_STATUS_INVALID_ARG);
    EXPECT_FALSE(is_done(0));
    EXPECT_EQ(fpga_attribute(0, "state"), "write init error");
}

TEST_F(FpgaOnBoard, ABitstreamThatEndsEarlyTimesOut) {
    store_firmware("short.bin", sync_word + std::string(10, 's'));
    EXPECT_EQ(norv_fpga_program(0, "short.bin"), NORV_STATUS_TIMEOUT);
    EXPECT_FALSE(is_done(0));
    EXPECT_EQ(fpga_attribute(0, "state"), "write complete error");
}

TEST_F(FpgaOnBoard, AnFpgaThatFailsReturnsTheStatusOfTheDriver) {
    EXPECT_EQ(norv_fpga_program(1, "good.bin"), norv_get_status_by_errno(EIO));
    EXPECT_FALSE(is_done(1));
    EXPECT_EQ(fpga_attribute(1, "state"), "write error");
    EXPECT_TRUE(is_done(0));
}

TEST_F(FpgaOnBoard, AnFpgaThatDoesNotExistIsNotFound) {
    bool done = true;
    EXPECT_EQ(norv_fpga_program(7, "good.bin"), NORV_STATUS_NOT_FOUND);
    EXPECT_EQ(norv_fpga_is_program_done(7, &done), NORV_STATUS_NOT_FOUND);
    EXPECT_TRUE(done);
}

}  // namespace
