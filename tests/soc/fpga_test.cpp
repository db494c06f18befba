// SPDX-License-Identifier: MIT
// Programming an FPGA.
#include "norv_fpga.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <string>

#include "support/failure_sweep.hpp"
#include "support/status.hpp"

namespace {

using namespace std::string_literals;
using norv::test::byte_transfer;
using norv::test::errno_status;
using norv::test::failure_sweep;
using norv::test::fault;
using norv::test::kernel_double;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr const char* firmware = "/sys/class/fpga_manager/fpga0/firmware";
constexpr const char* state = "/sys/class/fpga_manager/fpga0/state";

void add_fpga(kernel_double& kernel) {
    kernel.add_file(firmware);
    kernel.add_file(state, "operating\n");
}

class Fpga : public testing::Test {
  protected:
    Fpga() { add_fpga(kernel); }

    // What is reported for an FPGA in this state.
    bool done_in(const std::string& text) {
        kernel.add_file(state, text);
        bool done = !text.starts_with("operating");
        EXPECT_EQ(norv_fpga_is_program_done(0, &done), 0U);
        return done;
    }

    kernel_double kernel;
};

// ---- programming

TEST_F(Fpga, ProgrammingWritesTheNameOfTheFirmwareWithItsNul) {
    EXPECT_EQ(norv_fpga_program(0, "design.bit.bin"), 0U);
    EXPECT_THAT(kernel.writes(firmware), ElementsAre("design.bit.bin\0"s));
    EXPECT_THAT(kernel.open_flags(firmware), ElementsAre(O_WRONLY | O_CLOEXEC));
}

TEST_F(Fpga, TheNumberSelectsTheFpga) {
    kernel.add_file("/sys/class/fpga_manager/fpga12/firmware");
    EXPECT_EQ(norv_fpga_program(12, "a"), 0U);
    EXPECT_THAT(kernel.writes("/sys/class/fpga_manager/fpga12/firmware"), ElementsAre("a\0"s));
    EXPECT_THAT(kernel.writes(firmware), IsEmpty());
}

// quirk 2
TEST_F(Fpga, TheNumberIsPrintedSigned) {
    kernel.add_file("/sys/class/fpga_manager/fpga-1/firmware");
    kernel.add_file("/sys/class/fpga_manager/fpga-1/state", "operating\n");
    bool done = false;
    EXPECT_EQ(norv_fpga_program(0xFFFFFFFFU, "a"), 0U);
    EXPECT_EQ(norv_fpga_is_program_done(0xFFFFFFFFU, &done), 0U);
    EXPECT_TRUE(done);
}

TEST_F(Fpga, TheNameOfTheFirmwareIsNotAFormat) {
    EXPECT_EQ(norv_fpga_program(0, "100%d.bin"), 0U);
    EXPECT_THAT(kernel.writes(firmware), ElementsAre("100%d.bin\0"s));
}

TEST_F(Fpga, AnFpgaThatDoesNotExistCannotBeProgrammed) {
    EXPECT_EQ(norv_fpga_program(7, "design.bin"), NORV_STATUS_NOT_FOUND);
}

TEST_F(Fpga, FirmwareThatTheKernelDoesNotFindReturnsTheStatusOfTheWrite) {
    kernel.on_write(firmware, [](std::string_view) { return ENOENT; });
    EXPECT_EQ(norv_fpga_program(0, "missing.bin"), NORV_STATUS_NOT_FOUND);
}

TEST_F(Fpga, AnFpgaThatDoesNotFinishReturnsTheStatusOfTheWrite) {
    kernel.on_write(firmware, [](std::string_view) { return ETIMEDOUT; });
    EXPECT_EQ(norv_fpga_program(0, "design.bin"), NORV_STATUS_TIMEOUT);
}

TEST_F(Fpga, AShortWriteOfTheNameIsASuccess) {
    kernel.fail({.call = "write", .how = fault::kind::short_count});
    EXPECT_EQ(norv_fpga_program(0, "design.bin"), 0U);
}

// ---- its state

TEST_F(Fpga, AnOperatingFpgaIsDone) {
    EXPECT_TRUE(done_in("operating\n"));
    EXPECT_THAT(kernel.open_flags(state), ElementsAre(O_RDONLY | O_CLOEXEC));
}

TEST_F(Fpga, AnyOtherStateIsNotDone) {
    for (const char* text :
         {"operating2\n", "unknown\n", "write error\n", "Operating\n", "operatin\n", " operating\n", "\n"}) {
        EXPECT_FALSE(done_in(text)) << text;
    }
}

TEST_F(Fpga, AStateOfMoreThan15BytesIsNotDone) {
    EXPECT_FALSE(done_in("firmware request error\n"));
    EXPECT_FALSE(done_in("operating and more\n"));
}

TEST_F(Fpga, AStateIsReadUpTo15Bytes) {
    // The 15th byte is taken for the newline.
    EXPECT_FALSE(done_in("operating      \n"));
    bool done = false;
    kernel.forget_calls();
    EXPECT_EQ(norv_fpga_is_program_done(0, &done), 0U);
    EXPECT_EQ(kernel.calls("read").front().as<byte_transfer>().bytes, "operating      ");
}

// quirk 5
TEST_F(Fpga, TheLastByteOfAStateIsDroppedWhateverItIs) {
    EXPECT_FALSE(done_in("operating"));
    EXPECT_TRUE(done_in("operating!"));
}

TEST_F(Fpga, AnEmptyStateIsNotDone) {
    EXPECT_FALSE(done_in(""));
}

TEST_F(Fpga, AStateThatCannotBeReadLeavesTheResultUnchanged) {
    bool done = true;
    EXPECT_EQ(norv_fpga_is_program_done(7, &done), NORV_STATUS_NOT_FOUND);
    EXPECT_TRUE(done);
    kernel.fail("read", EIO);
    EXPECT_EQ(norv_fpga_is_program_done(0, &done), errno_status(EIO));
    EXPECT_TRUE(done);
}

TEST_F(Fpga, AFailedReadWithStatusZeroIsNotDone) {
    kernel.map_errno(EIO, 0);
    kernel.fail("read", EIO);
    bool done = true;
    EXPECT_EQ(norv_fpga_is_program_done(0, &done), 0U);
    EXPECT_FALSE(done);
}

TEST_F(Fpga, AFailedReadWithStatusZeroDoesNotRepeatTheStateReadBefore) {
    kernel.add_file(state, "operating\n");
    kernel.map_errno(EIO, 0);
    kernel.fail({.call = "read", .nth = 2, .error = EIO});
    bool first = false;
    bool second = true;
    // One directly after the other: the first state is then still in the memory that the second call uses.
    norv_fpga_is_program_done(0, &first);
    norv_fpga_is_program_done(0, &second);
    EXPECT_TRUE(first);
    EXPECT_FALSE(second);
}

TEST_F(Fpga, ANullPointerIsAnInvalidArgument) {
    EXPECT_EQ(norv_fpga_program(0, nullptr), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(norv_fpga_is_program_done(0, nullptr), NORV_STATUS_INVALID_ARG);
    EXPECT_THAT(kernel.calls(), IsEmpty());
}

TEST(FpgaSweep, EveryFailureOfProgrammingIsReportedAndLeavesNothingOpen) {
    failure_sweep(add_fpga, [] { return norv_fpga_program(0, "design.bin"); });
}

TEST(FpgaSweep, EveryFailureOfReadingTheStateIsReportedAndLeavesNothingOpen) {
    failure_sweep(add_fpga, [] {
        bool done = false;
        return norv_fpga_is_program_done(0, &done);
    });
}

}  // namespace
