// SPDX-License-Identifier: MIT
// Shell commands: what they leave in the buffer.
#include "norv_shell.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <memory>
#include <string>
#include <string_view>

#include "norv_base.h"
#include "support/failure_sweep.hpp"

namespace {

using norv::test::failure_sweep;
using norv::test::kernel_double;
using norv::test::program_start;
using norv::test::strike;
using testing::IsEmpty;
using testing::SizeIs;

// 16 bytes that hold the given text and zeros; a command may write the first `size`.
struct sixteen_bytes {
    std::array<char, 16> bytes = {};

    explicit sixteen_bytes(std::string_view before = "") { before.copy(bytes.data(), bytes.size()); }
    uint32_t run(const char* command, uint32_t size = 15) {
        return norv_shell_result(bytes.data(), size, command);
    }
    const char* text() const { return bytes.data(); }
    std::string first(size_t count) const { return {bytes.data(), count}; }
};

// ---- what is captured

TEST(Shell, ALineArrivesWithoutItsNewline) {
    sixteen_bytes output;
    EXPECT_EQ(output.run("echo ok", 16), NORV_STATUS_OK);
    EXPECT_STREQ(output.text(), "ok");
}

// quirk 123
TEST(Shell, ASingleNewlineStays) {
    sixteen_bytes output;
    EXPECT_EQ(output.run("echo"), NORV_STATUS_OK);
    EXPECT_STREQ(output.text(), "\n");
}

TEST(Shell, OneCharacterAndANewlineAreLongEnoughToBeTrimmed) {
    sixteen_bytes output;
    EXPECT_EQ(output.run("echo x"), NORV_STATUS_OK);
    EXPECT_STREQ(output.text(), "x");
}

TEST(Shell, OnlyTheLastOfSeveralNewlinesIsRemoved) {
    sixteen_bytes output;
    EXPECT_EQ(output.run("printf 'a\\nb\\n\\n'"), NORV_STATUS_OK);
    EXPECT_STREQ(output.text(), "a\nb\n");
}

TEST(Shell, AnOutputWithoutANewlineArrivesUnchanged) {
    sixteen_bytes output;
    EXPECT_EQ(output.run("printf abc"), NORV_STATUS_OK);
    EXPECT_STREQ(output.text(), "abc");
}

TEST(Shell, ACommandWithoutOutputLeavesTheBufferUnchanged) {
    sixteen_bytes output("before\n");
    EXPECT_EQ(output.run("true"), NORV_STATUS_OK);
    EXPECT_STREQ(output.text(), "before\n");
}

// quirk 123
TEST(Shell, NoTerminatingNulIsWritten) {
    sixteen_bytes output("################");
    EXPECT_EQ(output.run("printf abc"), NORV_STATUS_OK);
    EXPECT_EQ(output.first(16), "abc#############");
}

TEST(Shell, AShortOutputOfSeveralWritesArrivesWhole) {
    sixteen_bytes output;
    EXPECT_EQ(output.run("printf ab; sleep 0.05; echo cd"), NORV_STATUS_OK);
    EXPECT_STREQ(output.text(), "abcd");
}

// quirk 121
TEST(Shell, ALongerOutputLeavesItsLastPieceOverThePreviousOne) {
    sixteen_bytes output;
    EXPECT_EQ(output.run("printf 0123456789abcdefXYZ", 8), NORV_STATUS_OK);
    EXPECT_STREQ(output.text(), "XYZbcdef");
}

TEST(Shell, TheNewlineOfAShortLastPieceStays) {
    sixteen_bytes output;
    EXPECT_EQ(output.run("printf '01234567X\\n'", 8), NORV_STATUS_OK);
    EXPECT_STREQ(output.text(), "X\n234567");
}

TEST(Shell, AnOutputOfExactlyTheSizeIsCapturedWhole) {
    sixteen_bytes output;
    EXPECT_EQ(output.run("printf 01234567", 8), NORV_STATUS_OK);
    EXPECT_STREQ(output.text(), "01234567");
}

TEST(Shell, ANewlineAtTheEndOfAFullBufferIsRemoved) {
    sixteen_bytes output;
    EXPECT_EQ(output.run("echo 0123456", 8), NORV_STATUS_OK);
    EXPECT_STREQ(output.text(), "0123456");
}

TEST(Shell, NothingPastTheSizeIsTouchedIfTheTextHasNoNul) {
    sixteen_bytes output("################");
    output.bytes[14] = '\n';
    output.bytes[15] = '\0';
    EXPECT_EQ(output.run("printf 01234567", 8), NORV_STATUS_OK);
    EXPECT_EQ(output.first(16), std::string("01234567######\n\0", 16));
}

TEST(Shell, AFullBufferWithoutANulIsNotReadPastItsEnd) {
    // On the heap, where the address sanitizer reports every access past the end.
    const auto output = std::make_unique<char[]>(8);
    EXPECT_EQ(norv_shell_result(output.get(), 8, "printf 01234567"), NORV_STATUS_OK);
    EXPECT_EQ(std::string(output.get(), 8), "01234567");
}

TEST(Shell, ASizeOfZeroRunsTheCommandAndCapturesNothing) {
    sixteen_bytes output("before");
    EXPECT_EQ(output.run("true", 0), NORV_STATUS_OK);
    EXPECT_STREQ(output.text(), "before");
}

// ---- signals during the capture

// A handler of SIGUSR1 that does nothing, installed with these flags.
class signal_handler {
  public:
    explicit signal_handler(int flags) {
        struct sigaction action = {};
        action.sa_handler = [](int) {};
        action.sa_flags = flags;
        EXPECT_EQ(sigaction(SIGUSR1, &action, &before_), 0);
    }
    ~signal_handler() { sigaction(SIGUSR1, &before_, nullptr); }
    signal_handler(const signal_handler&) = delete;
    signal_handler& operator=(const signal_handler&) = delete;

  private:
    struct sigaction before_ = {};
};

// A command that prints, interrupts its caller when that waits for more, and prints again when it waits anew.
std::string interrupting(const std::string& first, const std::string& second) {
    const std::string until_the_caller_waits = "until grep -q 'State:.S' /proc/$PPID/status; do :; done; ";
    return "printf '" + first + "'; " + until_the_caller_waits + "kill -USR1 $PPID; " +
           until_the_caller_waits + "printf '" + second + "'";
}

// quirk 122
TEST(ShellInterrupted, OutputAfterASignalIsStoredFromTheStart) {
    const signal_handler handler(0);
    sixteen_bytes output;
    EXPECT_EQ(output.run(interrupting("abcd", "xy").c_str()), NORV_STATUS_OK);
    EXPECT_STREQ(output.text(), "xycd");
}

// quirk 122
TEST(ShellInterrupted, ASignalBeforeAnyOutputEndsTheCapture) {
    const signal_handler handler(0);
    sixteen_bytes output("before");
    EXPECT_EQ(output.run(interrupting("", "late").c_str()), NORV_STATUS_OK);
    EXPECT_STREQ(output.text(), "before");
}

TEST(ShellInterrupted, AHandlerThatRestartsLosesNothing) {
    const signal_handler handler(SA_RESTART);
    sixteen_bytes output;
    EXPECT_EQ(output.run(interrupting("abcd", "xy").c_str()), NORV_STATUS_OK);
    EXPECT_STREQ(output.text(), "abcdxy");
}

// ---- how the command ends

// quirk 123
TEST(Shell, TheCommandsExitStatusIsNotReported) {
    sixteen_bytes output;
    EXPECT_EQ(output.run("echo out; exit 3"), NORV_STATUS_OK);
    EXPECT_STREQ(output.text(), "out");
}

TEST(Shell, AnUnknownCommandIsInvisible) {
    sixteen_bytes output;
    EXPECT_EQ(output.run("no-such-command 2>/dev/null"), NORV_STATUS_OK);
    EXPECT_STREQ(output.text(), "");
}

TEST(Shell, TheCommandIsRunForReadingAndItsStreamClosed) {
    const kernel_double kernel;
    sixteen_bytes output;
    EXPECT_EQ(output.run("echo ok"), NORV_STATUS_OK);
    ASSERT_THAT(kernel.calls("popen"), SizeIs(1));
    EXPECT_EQ(kernel.calls("popen")[0].as<program_start>().command, "echo ok");
    EXPECT_EQ(kernel.calls("popen")[0].as<program_start>().mode, "r");
    EXPECT_THAT(kernel.calls("pclose"), SizeIs(1));
}

TEST(Shell, AFailedPopenIsReportedAndLeavesTheBufferUnchanged) {
    kernel_double kernel;
    kernel.fail("popen", EMFILE);
    sixteen_bytes output("before\n");
    EXPECT_EQ(output.run("echo ok"), norv_get_status_by_errno(EMFILE));
    EXPECT_STREQ(output.text(), "before\n");
}

TEST(Shell, AFailedPopenWhoseErrnoMapsToZeroCapturesNothing) {
    kernel_double kernel;
    kernel.map_errno(EMFILE, 0);
    kernel.fail("popen", EMFILE);
    sixteen_bytes output("before\n");
    EXPECT_EQ(output.run("echo ok"), NORV_STATUS_OK);
    EXPECT_STREQ(output.text(), "before\n");
}

TEST(Shell, ANullPointerIsAnInvalidArgumentAndNothingRuns) {
    const kernel_double kernel;
    char output[4] = {};
    EXPECT_EQ(norv_shell_result(nullptr, 4, "true"), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(norv_shell_result(output, 4, nullptr), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(norv_shell_format_result(nullptr, 4, "true"), NORV_STATUS_INVALID_ARG);
    const char* no_format = nullptr;
    EXPECT_EQ(norv_shell_format_result(output, 4, no_format, 0), NORV_STATUS_INVALID_ARG);
    EXPECT_THAT(kernel.calls("popen"), IsEmpty());
}

// ---- formatted commands

TEST(ShellFormat, TheValuesAreFormattedIntoTheCommand) {
    sixteen_bytes output;
    EXPECT_EQ(norv_shell_format_result(output.bytes.data(), 15, "echo %d%%, %s", 42, "percent"),
              NORV_STATUS_OK);
    EXPECT_STREQ(output.text(), "42%, percent");
}

TEST(ShellFormat, AnEmptyCommandRunsAndPrintsNothing) {
    const kernel_double kernel;
    sixteen_bytes output("before");
    EXPECT_EQ(norv_shell_format_result(output.bytes.data(), 15, "%s", ""), NORV_STATUS_OK);
    EXPECT_THAT(kernel.calls("popen"), SizeIs(1));
    EXPECT_STREQ(output.text(), "before");
}

TEST(ShellFormat, ACommandOf4095CharactersRunsWhole) {
    const kernel_double kernel;
    sixteen_bytes output;
    const std::string rest(4095 - 9, 'x');
    EXPECT_EQ(norv_shell_format_result(output.bytes.data(), 15, "echo ok #%s", rest.c_str()), NORV_STATUS_OK);
    EXPECT_EQ(kernel.calls("popen").at(0).as<program_start>().command, "echo ok #" + rest);
    EXPECT_STREQ(output.text(), "ok");
}

// quirk 6
TEST(ShellFormat, ALongerCommandIsTruncated) {
    const kernel_double kernel;
    sixteen_bytes output;
    const std::string rest(5000, 'x');
    EXPECT_EQ(norv_shell_format_result(output.bytes.data(), 15, "echo ok #%s", rest.c_str()), NORV_STATUS_OK);
    EXPECT_EQ(kernel.calls("popen").at(0).as<program_start>().command, ("echo ok #" + rest).substr(0, 4095));
    EXPECT_STREQ(output.text(), "ok");
}

TEST(ShellFormat, ACommandThatCannotBeFormattedIsNotRun) {
    const kernel_double kernel;
    sixteen_bytes output;
    const wchar_t no_character[] = {static_cast<wchar_t>(0xd800), 0};
    EXPECT_EQ(norv_shell_format_result(output.bytes.data(), 15, "echo %ls", no_character),
              NORV_STATUS_INVALID_ARG);
    EXPECT_THAT(kernel.calls("popen"), IsEmpty());
}

// ---- every call may fail

TEST(ShellSweep, OnlyAFailedPopenIsReportedAndNothingLeaks) {
    norv::test::sweep_options options;
    options.short_counts = false;
    options.expect = [](const strike& struck) {
        return struck.name == "popen" ? norv::test::status_of_fault(struck) : NORV_STATUS_OK;
    };
    failure_sweep([](kernel_double&) {},
                  [] {
                      sixteen_bytes output;
                      return norv_shell_format_result(output.bytes.data(), 15, "echo %s", "ok");
                  },
                  options);
}

}  // namespace
