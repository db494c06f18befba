// SPDX-License-Identifier: MIT
// The FPGA manager of a Zynq-7000: the kernel's own driver for the device configuration interface, with the
// attribute that board/soc/modules/fpga_firmware.c adds. The emulator has no programmable logic that answers
// to its reset: the driver waits for PCFG_INIT in vain.
#include <gtest/gtest.h>
#include <unistd.h>

#include <fstream>
#include <string>

#include "../support/attribute.hpp"
#include "norv_base.h"
#include "norv_fpga.h"

namespace {

using norv::board::attribute;

// Bytes are swapped in what the driver takes.
const std::string sync_word = "\x66\x55\x99\xaa";

std::string fpga_attribute(const std::string& name) {
    return attribute("/sys/class/fpga_manager/fpga0/" + name);
}

class DevcfgOnBoard : public testing::Test {
  protected:
    // The kernel of the board looks for firmware in /run/firmware.
    static void store(const std::string& name, const std::string& content) {
        std::ofstream("/run/firmware/" + name, std::ios::binary) << content;
    }
    static void expect_not_done(const std::string& state) {
        bool done = true;
        EXPECT_EQ(norv_fpga_is_program_done(0, &done), 0U);
        EXPECT_FALSE(done);
        EXPECT_EQ(fpga_attribute("state"), state);
    }

    const std::string design = std::string(64, '\xFF') + sync_word + std::string(100000, 'd');
};

TEST_F(DevcfgOnBoard, TheManagerIsTheKernelsOwn) {
    EXPECT_EQ(fpga_attribute("name"), "Xilinx Zynq FPGA Manager");
}

TEST_F(DevcfgOnBoard, FirmwareThatDoesNotExistIsNotFound) {
    EXPECT_EQ(norv_fpga_program(0, "missing.bin"), NORV_STATUS_NOT_FOUND);
    expect_not_done("firmware request error");
}

TEST_F(DevcfgOnBoard, AFileWithoutTheSyncWordIsRefused) {
    store("text.bin", std::string(1000, 't'));
    EXPECT_EQ(norv_fpga_program(0, "text.bin"), NORV_STATUS_INVALID_ARG);
    expect_not_done("write init error");
}

TEST_F(DevcfgOnBoard, AResetThatTheLogicDoesNotAcknowledgeTimesOut) {
    store("design.bin", design);
    EXPECT_EQ(norv_fpga_program(0, "design.bin"), NORV_STATUS_TIMEOUT);
    expect_not_done("write init error");
}

TEST_F(DevcfgOnBoard, AManagerThatDoesNotExistIsNotFound) {
    bool done = true;
    EXPECT_EQ(norv_fpga_program(1, "design.bin"), NORV_STATUS_NOT_FOUND);
    EXPECT_EQ(norv_fpga_is_program_done(1, &done), NORV_STATUS_NOT_FOUND);
}

}  // namespace
