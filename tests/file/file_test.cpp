// SPDX-License-Identifier: MIT
// Device and attribute file helpers.
#include "norv_file.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <pthread.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <csignal>
#include <cstring>
#include <deque>
#include <functional>
#include <string>
#include <thread>

#include "norv_base.h"
#include "support/failure_sweep.hpp"
#include "support/kernel_double.hpp"
#include "support/real_calls.hpp"
#include "support/status.hpp"

namespace {

// What the next readings of the clock return; after that, the real time.
std::deque<uint64_t> clock_readings;

}  // namespace

// The library finds this one first.
extern "C" uint64_t norv_time_get_ms() {
    if (clock_readings.empty()) {
        return REAL(norv_time_get_ms)();
    }
    const uint64_t reading = clock_readings.front();
    clock_readings.pop_front();
    return reading;
}

namespace {

using namespace std::string_literals;
using norv::test::device;
using norv::test::errno_status;
using norv::test::failure_sweep;
using norv::test::kernel_double;
using norv::test::strike;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

// A wide character that the C locale cannot represent: formatting it fails.
const wchar_t unprintable[] = {0x20AC, 0};

// A device that transfers at most three bytes at a time.
class slow_device : public device {
  public:
    std::string received;
    std::string content = "abcdefgh";
    std::vector<std::pair<short, int>> polls;
    std::deque<long> poll_answers;  // consumed first; after that, always ready
    std::deque<long> answers;       // for reads and writes
    std::function<void()> on_poll = [] {};

    long read(void* buffer, size_t size, off_t offset) override {
        if (const long answer = next(answers, 1); answer <= 0) {
            return answer;
        }
        const std::string part = content.substr(static_cast<size_t>(offset), std::min<size_t>(size, 3));
        std::memcpy(buffer, part.data(), part.size());
        return static_cast<long>(part.size());
    }
    long write(const void* buffer, size_t size, off_t) override {
        if (const long answer = next(answers, 1); answer <= 0) {
            return answer;
        }
        received.append(static_cast<const char*>(buffer), std::min<size_t>(size, 3));
        return static_cast<long>(std::min<size_t>(size, 3));
    }
    long poll(short events, int timeout) override {
        polls.emplace_back(events, timeout);
        on_poll();
        return next(poll_answers, events);
    }

  private:
    static long next(std::deque<long>& answers, long otherwise) {
        if (answers.empty()) {
            return otherwise;
        }
        const long answer = answers.front();
        answers.pop_front();
        return answer;
    }
};

class File : public testing::Test {
  protected:
    kernel_double kernel;
};

// An open slow device.
class Transfer : public File {
  protected:
    Transfer() {
        kernel.add_device("/dev/slow", device_);
        EXPECT_EQ(norv_open_device(O_RDWR | O_CLOEXEC, &descriptor, "/dev/slow"), NORV_STATUS_OK);
    }
    ~Transfer() override { close(descriptor); }

    std::shared_ptr<slow_device> device_ = std::make_shared<slow_device>();
    int32_t descriptor = -1;
    char buffer[16] = {};
};

// ---- open

TEST_F(File, OpensTheFormattedPathWithTheGivenFlags) {
    kernel.add_file("/dev/port7");
    int32_t descriptor = -1;
    EXPECT_EQ(norv_open_device(O_RDWR | O_CLOEXEC, &descriptor, "/dev/%s%d", "port", 7), NORV_STATUS_OK);
    EXPECT_GT(descriptor, 0);
    EXPECT_THAT(kernel.open_flags("/dev/port7"), ElementsAre(O_RDWR | O_CLOEXEC));
    close(descriptor);
}

TEST_F(File, CreatesFilesForTheOwnerOnly) {
    int32_t descriptor = -1;
    ASSERT_EQ(norv_open_device(O_RDWR | O_CREAT, &descriptor, "/dev/new"), NORV_STATUS_OK);
    struct stat found {};
    fstat(descriptor, &found);
    EXPECT_EQ(found.st_mode & 0777, 0600U);
    close(descriptor);
}

TEST_F(File, AFailedOpenStoresTheNegativeResultAndGivesTheErrnoStatus) {
    int32_t descriptor = 5;
    EXPECT_EQ(norv_open_device(O_RDONLY, &descriptor, "/dev/missing"), NORV_STATUS_NOT_FOUND);
    EXPECT_EQ(descriptor, -1);
}

TEST_F(File, AnEmptyPathIsNotFound) {
    int32_t descriptor = 5;
    EXPECT_EQ(norv_open_device(O_RDONLY, &descriptor, "%s", ""), NORV_STATUS_NOT_FOUND);
    EXPECT_EQ(descriptor, -1);
}

TEST_F(File, APathThatCannotBeFormattedIsAnInvalidArgument) {
    int32_t descriptor = 5;
    EXPECT_EQ(norv_open_device(O_RDONLY, &descriptor, "/dev/%ls", unprintable), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(descriptor, -1);
    EXPECT_THAT(kernel.calls("open"), IsEmpty());
}

TEST_F(File, ANullFormatOrDescriptorIsAnInvalidArgument) {
    int32_t descriptor = 5;
    EXPECT_EQ(norv_open_device(O_RDONLY, &descriptor, nullptr), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(descriptor, -1);
    EXPECT_EQ(norv_open_device(O_RDONLY, nullptr, "/dev/null"), NORV_STATUS_INVALID_ARG);
}

// quirk 6
TEST_F(File, APathLongerThan255CharactersIsTruncatedSilently) {
    const std::string cut = "/dev/" + std::string(250, 'x');
    kernel.add_file(cut);
    int32_t descriptor = -1;
    EXPECT_EQ(norv_open_device(O_RDONLY, &descriptor, "%sYYY", cut.c_str()), NORV_STATUS_OK);
    EXPECT_THAT(kernel.open_flags(cut), SizeIs(1));
    close(descriptor);
}

// quirk 1
TEST_F(File, AnErrnoThatMapsToZeroMakesAFailedOpenCountAsSuccess) {
    kernel.map_errno(ENOENT, 0);
    int32_t descriptor = 5;
    EXPECT_EQ(norv_open_device(O_RDONLY, &descriptor, "/dev/missing"), NORV_STATUS_OK);
    EXPECT_EQ(descriptor, -1);
}

// ---- single reads and writes

TEST_F(File, ReadsOnceAndReturnsTheCount) {
    kernel.add_file("/sys/class/net/eth0/mtu", "1500\n");
    char text[16] = {};
    uint32_t length = sizeof text;
    EXPECT_EQ(norv_read_device(text, &length, "/sys/class/net/%s/mtu", "eth0"), NORV_STATUS_OK);
    EXPECT_EQ(length, 5U);
    EXPECT_STREQ(text, "1500\n");
    EXPECT_THAT(kernel.open_flags("/sys/class/net/eth0/mtu"), ElementsAre(O_RDONLY | O_CLOEXEC));
    EXPECT_THAT(kernel.calls("read"), SizeIs(1));
}

TEST_F(File, CountsHave32Bits) {
    kernel.add_file("/dev/long", std::string(65537, 'x'));
    std::string text(70000, '-');
    auto length = static_cast<uint32_t>(text.size());
    EXPECT_EQ(norv_read_device(text.data(), &length, "/dev/long"), NORV_STATUS_OK);
    EXPECT_EQ(length, 65537U);
}

TEST_F(File, AShortReadIsASuccess) {
    kernel.add_device("/dev/slow", std::make_shared<slow_device>());
    char text[16] = {};
    uint32_t length = 8;
    EXPECT_EQ(norv_read_device(text, &length, "/dev/slow"), NORV_STATUS_OK);
    EXPECT_EQ(length, 3U);
}

TEST_F(File, AFailedReadLeavesTheLength) {
    kernel.add_file("/sys/value", "1");
    kernel.fail("read", EIO);
    char text[4] = {};
    uint32_t length = 4;
    EXPECT_EQ(norv_read_device(text, &length, "/sys/value"), errno_status(EIO));
    EXPECT_EQ(length, 4U);
}

TEST_F(File, ReadingAMissingFileGivesTheStatusOfTheOpen) {
    char text[4] = {};
    uint32_t length = 4;
    EXPECT_EQ(norv_read_device(text, &length, "/sys/missing"), NORV_STATUS_NOT_FOUND);
    EXPECT_EQ(length, 4U);
}

TEST_F(File, WritesOnceAndReturnsTheCount) {
    kernel.add_file("/sys/class/leds/red/brightness");
    uint32_t length = 4;
    EXPECT_EQ(norv_write_device("255", &length, "/sys/class/leds/%s/brightness", "red"), NORV_STATUS_OK);
    EXPECT_EQ(length, 4U);
    EXPECT_THAT(kernel.writes("/sys/class/leds/red/brightness"), ElementsAre("255\0"s));
    EXPECT_THAT(kernel.open_flags("/sys/class/leds/red/brightness"), ElementsAre(O_WRONLY | O_CLOEXEC));
}

TEST_F(File, AShortWriteIsASuccess) {
    kernel.add_device("/dev/slow", std::make_shared<slow_device>());
    uint32_t length = 8;
    EXPECT_EQ(norv_write_device("12345678", &length, "/dev/slow"), NORV_STATUS_OK);
    EXPECT_EQ(length, 3U);
}

TEST_F(File, AFailedWriteLeavesTheLength) {
    kernel.add_file("/sys/value");
    kernel.fail("write", EPERM);
    uint32_t length = 2;
    EXPECT_EQ(norv_write_device("1", &length, "/sys/value"), errno_status(EPERM));
    EXPECT_EQ(length, 2U);
}

TEST_F(File, ReadingAndWritingWithoutALengthIsAnInvalidArgument) {
    char text[4] = {};
    EXPECT_EQ(norv_read_device(text, nullptr, "/sys/value"), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(norv_write_device(text, nullptr, "/sys/value"), NORV_STATUS_INVALID_ARG);
    EXPECT_THAT(kernel.calls(), IsEmpty());
}

TEST_F(File, ADevicePathThatCannotBeFormattedIsAnInvalidArgument) {
    char text[4] = {};
    uint32_t length = 4;
    EXPECT_EQ(norv_read_device(text, &length, "/sys/%ls", unprintable), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(norv_write_device(text, &length, "/sys/%ls", unprintable), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(length, 4U);
}

// ---- formatted text

// quirk 7
TEST_F(Transfer, AOneIsWrittenAsTwoBytes) {
    EXPECT_EQ(norv_write_string(descriptor, 2, "1"), NORV_STATUS_OK);
    EXPECT_EQ(device_->received, "1\0"s);
}

TEST_F(Transfer, FormattedTextIsWrittenWithItsNulInOneWrite) {
    EXPECT_EQ(norv_write_string(descriptor, 12, "%s%d", "a", 7), NORV_STATUS_OK);
    EXPECT_THAT(kernel.writes("/dev/slow"), ElementsAre("a7\0"s));
}

TEST_F(Transfer, AnEmptyTextIsItsNul) {
    EXPECT_EQ(norv_write_string(descriptor, 1, "%s", ""), NORV_STATUS_OK);
    EXPECT_THAT(kernel.writes("/dev/slow"), ElementsAre("\0"s));
}

// quirk 7
TEST_F(Transfer, AShortWriteOfATextIsASuccess) {
    EXPECT_EQ(norv_write_string(descriptor, 12, "%s", "longer"), NORV_STATUS_OK);
    EXPECT_EQ(device_->received, "lon");
}

TEST_F(Transfer, ATextThatDoesNotFitIsRefusedAndNothingIsWritten) {
    EXPECT_EQ(norv_write_string(descriptor, 3, "%s", "abc"), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(norv_write_string(descriptor, 0, "%s", ""), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(norv_write_string(descriptor, 5000, "%5000d", 1), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(norv_write_string(descriptor, 5000, "%65537d", 1), NORV_STATUS_INVALID_ARG);
    EXPECT_THAT(kernel.writes("/dev/slow"), IsEmpty());
}

TEST_F(Transfer, ATextLongerThanAPageIsWrittenInOneWrite) {
    for (const int length : {4095, 4096, 5000, 100000}) {
        kernel.forget_calls();
        EXPECT_EQ(norv_write_string(descriptor, static_cast<uint32_t>(length) + 1, "%*s", length, "end"),
                  NORV_STATUS_OK);
        const std::string text = std::string(static_cast<size_t>(length) - 3, ' ') + "end\0"s;
        EXPECT_THAT(kernel.writes("/dev/slow"), ElementsAre(text));
    }
}

TEST_F(Transfer, ATextLongerThanAPageNeedsMemory) {
    kernel.fail("norv_zalloc", ENOMEM);
    EXPECT_EQ(norv_write_string(descriptor, 5000, "%4095d", 1), NORV_STATUS_OK);
    kernel.forget_calls();
    EXPECT_EQ(norv_write_string(descriptor, 5000, "%4096d", 1), NORV_STATUS_NO_MEMORY);
    EXPECT_THAT(kernel.writes("/dev/slow"), IsEmpty());
}

// Runs on a thread with a stack of 256 KiB.
void* write_with_huge_maximum(void* descriptor) {
    const auto slow = *static_cast<const int32_t*>(descriptor);
    EXPECT_EQ(norv_write_string(slow, UINT32_MAX, "1"), NORV_STATUS_OK);
    EXPECT_EQ(norv_write_string(slow, UINT32_MAX, "%1000000d", 1), NORV_STATUS_OK);
    return nullptr;
}

TEST_F(Transfer, AHugeMaximumNeedsNoStack) {
    pthread_attr_t small_stack;
    pthread_t thread = {};
    ASSERT_EQ(pthread_attr_init(&small_stack), 0);
    ASSERT_EQ(pthread_attr_setstacksize(&small_stack, size_t{256} * 1024), 0);
    ASSERT_EQ(pthread_create(&thread, &small_stack, write_with_huge_maximum, &descriptor), 0);
    pthread_join(thread, nullptr);
    pthread_attr_destroy(&small_stack);
    EXPECT_THAT(kernel.writes("/dev/slow"), SizeIs(2));
}

TEST_F(Transfer, ATextThatCannotBeFormattedIsAnInvalidArgument) {
    EXPECT_EQ(norv_write_string(descriptor, 12, "%ls", unprintable), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(norv_write_string(descriptor, 12, nullptr), NORV_STATUS_INVALID_ARG);
    EXPECT_THAT(kernel.writes("/dev/slow"), IsEmpty());
}

TEST_F(Transfer, AFailedTextWriteGivesTheErrnoStatus) {
    kernel.fail("write", EBUSY);
    EXPECT_EQ(norv_write_string(descriptor, 2, "1"), errno_status(EBUSY));
}

// ---- one transfer without waiting

TEST_F(Transfer, NonBlockingTransfersOnceInTheRequestedDirection) {
    uint32_t length = 8;
    EXPECT_EQ(norv_iorw_nonblock(descriptor, buffer, &length, false), NORV_STATUS_OK);
    EXPECT_EQ(length, 3U);
    EXPECT_STREQ(buffer, "abc");

    char text[] = "xyz!";
    length = 4;
    EXPECT_EQ(norv_iorw_nonblock(descriptor, text, &length, true), NORV_STATUS_OK);
    EXPECT_EQ(length, 3U);
    EXPECT_EQ(device_->received, "xyz");
    EXPECT_THAT(device_->polls, IsEmpty());
}

TEST_F(Transfer, ANonBlockingFailureLeavesTheLength) {
    device_->answers = {-EAGAIN};
    uint32_t length = 8;
    EXPECT_EQ(norv_iorw_nonblock(descriptor, buffer, &length, false), NORV_STATUS_AGAIN);
    EXPECT_EQ(length, 8U);
}

TEST_F(Transfer, ANonBlockingFailureWhoseErrnoMapsToZeroLeavesTheLengthToo) {
    kernel.map_errno(EIO, 0);
    device_->answers = {-EIO};
    uint32_t length = 8;
    EXPECT_EQ(norv_iorw_nonblock(descriptor, buffer, &length, false), NORV_STATUS_OK);
    EXPECT_EQ(length, 8U);
}

// ---- blocking transfer

TEST_F(Transfer, BlockingReadsEverythingPieceByPiece) {
    uint32_t length = 8;
    EXPECT_EQ(norv_iorw_block(descriptor, buffer, &length, false), NORV_STATUS_OK);
    EXPECT_EQ(length, 8U);
    EXPECT_STREQ(buffer, "abcdefgh");
    EXPECT_THAT(device_->polls, testing::Each(std::pair<short, int>(POLLIN, -1)));
}

TEST_F(Transfer, BlockingWritesEverythingPieceByPiece) {
    char text[] = "12345678";
    uint32_t length = 8;
    EXPECT_EQ(norv_iorw_block(descriptor, text, &length, true), NORV_STATUS_OK);
    EXPECT_EQ(length, 8U);
    EXPECT_EQ(device_->received, "12345678");
    EXPECT_THAT(device_->polls, testing::Each(std::pair<short, int>(POLLOUT, -1)));
}

TEST_F(Transfer, BlockingNothingReturnsAtOnce) {
    uint32_t length = 0;
    EXPECT_EQ(norv_iorw_block(descriptor, buffer, &length, false), NORV_STATUS_OK);
    EXPECT_EQ(length, 0U);
    EXPECT_THAT(device_->polls, IsEmpty());
}

TEST_F(Transfer, BlockingRetriesTransientFailures) {
    device_->answers = {-EAGAIN, -EINTR};
    device_->poll_answers = {-EINTR};
    uint32_t length = 3;
    EXPECT_EQ(norv_iorw_block(descriptor, buffer, &length, false), NORV_STATUS_OK);
    EXPECT_STREQ(buffer, "abc");
    EXPECT_THAT(device_->polls, SizeIs(4));
}

// quirk 9
TEST_F(Transfer, ABlockingFailureLeavesTheLengthUnchanged) {
    device_->answers = {1, -EIO};
    uint32_t length = 8;
    EXPECT_EQ(norv_iorw_block(descriptor, buffer, &length, false), errno_status(EIO));
    EXPECT_EQ(length, 8U);
}

TEST_F(Transfer, AFailingPollEndsABlockingTransfer) {
    device_->poll_answers = {-EBADF};
    uint32_t length = 8;
    EXPECT_EQ(norv_iorw_block(descriptor, buffer, &length, false), errno_status(EBADF));
    EXPECT_EQ(length, 8U);
}

TEST_F(Transfer, AFailureWhoseErrnoMapsToZeroTransfersNothing) {
    kernel.map_errno(EIO, 0);
    device_->answers = {1, -EIO};
    device_->poll_answers = {POLLIN, POLLIN, -EIO};
    uint32_t length = 8;
    EXPECT_EQ(norv_iorw_block(descriptor, buffer, &length, false), NORV_STATUS_OK);
    EXPECT_EQ(length, 8U);
    EXPECT_STREQ(buffer, "abcdefgh");
}

// quirk 8
TEST_F(Transfer, TheEndOfAFileKeepsABlockingReadPolling) {
    device_->answers = {0, 0, 0, -EPIPE};
    uint32_t length = 8;
    EXPECT_EQ(norv_iorw_block(descriptor, buffer, &length, false), errno_status(EPIPE));
    EXPECT_THAT(device_->polls, SizeIs(4));
}

// ---- transfer within a time limit

TEST_F(Transfer, WithinTheLimitEverythingIsTransferred) {
    char text[] = "12345678";
    uint32_t length = 8;
    EXPECT_EQ(norv_iorw_timeout(descriptor, text, &length, 60000, true), NORV_STATUS_OK);
    EXPECT_EQ(length, 8U);
    EXPECT_EQ(device_->received, "12345678");
}

// Three bytes arrive every 300 ms.
TEST_F(Transfer, EachStepGetsTheRestOfTheLimit) {
    long milliseconds = 0;
    kernel.set_clock(1, 0);
    device_->on_poll = [&] {
        milliseconds += 300;
        kernel.set_clock(1, milliseconds * 1000000);
    };
    uint32_t length = 8;
    EXPECT_EQ(norv_iorw_timeout(descriptor, buffer, &length, 800, false), NORV_STATUS_OK);
    EXPECT_THAT(device_->polls,
                ElementsAre(std::pair<short, int>(POLLIN, 800), std::pair<short, int>(POLLIN, 500),
                            std::pair<short, int>(POLLIN, 200)));
}

TEST_F(Transfer, TheFirstStepGetsTheRestOfTheLimitToo) {
    clock_readings = {1000, 1003};
    uint32_t length = 3;
    EXPECT_EQ(norv_iorw_timeout(descriptor, buffer, &length, 800, false), NORV_STATUS_OK);
    EXPECT_THAT(device_->polls, ElementsAre(std::pair<short, int>(POLLIN, 797)));
    EXPECT_THAT(clock_readings, IsEmpty());
}

TEST_F(Transfer, TheLastMillisecondOfTheLimitIsWaitedFor) {
    clock_readings = {1000, 1000};
    uint32_t length = 3;
    EXPECT_EQ(norv_iorw_timeout(descriptor, buffer, &length, 1, false), NORV_STATUS_OK);
    clock_readings = {1000, 1799};
    length = 3;
    EXPECT_EQ(norv_iorw_timeout(descriptor, buffer, &length, 800, false), NORV_STATUS_OK);
    EXPECT_THAT(device_->polls, testing::Each(std::pair<short, int>(POLLIN, 1)));
}

TEST_F(Transfer, ALimitReachedBeforeTheFirstStepIsATimeout) {
    clock_readings = {1000, 1800};
    uint32_t length = 8;
    EXPECT_EQ(norv_iorw_timeout(descriptor, buffer, &length, 800, false), NORV_STATUS_TIMEOUT);
    EXPECT_EQ(length, 0U);
    EXPECT_THAT(device_->polls, IsEmpty());
}

TEST_F(Transfer, ALimitReachedBetweenTwoStepsIsATimeout) {
    long milliseconds = 0;
    kernel.set_clock(1, 0);
    device_->on_poll = [&] {
        milliseconds += 400;
        kernel.set_clock(1, milliseconds * 1000000);
    };
    uint32_t length = 8;
    EXPECT_EQ(norv_iorw_timeout(descriptor, buffer, &length, 800, false), NORV_STATUS_TIMEOUT);
    EXPECT_EQ(length, 6U);
    EXPECT_THAT(device_->polls, SizeIs(2));
}

TEST_F(Transfer, ATimeoutReturnsTheBytesTransferred) {
    device_->poll_answers = {POLLIN, POLLIN, 0};
    uint32_t length = 8;
    EXPECT_EQ(norv_iorw_timeout(descriptor, buffer, &length, 60000, false), NORV_STATUS_TIMEOUT);
    EXPECT_EQ(length, 6U);
}

// quirk 9
TEST_F(Transfer, AFailureWithinTheLimitReturnsTheBytesTransferred) {
    device_->answers = {1, -EIO};
    uint32_t length = 8;
    EXPECT_EQ(norv_iorw_timeout(descriptor, buffer, &length, 60000, false), errno_status(EIO));
    EXPECT_EQ(length, 3U);
}

TEST_F(Transfer, TransientFailuresAreRetriedUntilTheLimit) {
    device_->answers = {-EAGAIN, -EINTR};
    uint32_t length = 3;
    EXPECT_EQ(norv_iorw_timeout(descriptor, buffer, &length, 60000, false), NORV_STATUS_OK);
    EXPECT_EQ(length, 3U);
}

TEST_F(Transfer, ALimitOfZeroOrLessTimesOutAtOnce) {
    for (const int32_t timeout : {0, -1, INT32_MIN}) {
        uint32_t length = 8;
        EXPECT_EQ(norv_iorw_timeout(descriptor, buffer, &length, timeout, false), NORV_STATUS_TIMEOUT);
        EXPECT_EQ(length, 0U);
    }
    EXPECT_THAT(device_->polls, IsEmpty());
}

TEST_F(Transfer, TransferringNothingWithinALimitReturnsAtOnce) {
    uint32_t length = 0;
    EXPECT_EQ(norv_iorw_timeout(descriptor, buffer, &length, 0, false), NORV_STATUS_OK);
    EXPECT_EQ(length, 0U);
    EXPECT_THAT(device_->polls, IsEmpty());
}

TEST_F(File, ASilentPipeTimesOut) {
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    char byte = 0;
    uint32_t length = 1;
    EXPECT_EQ(norv_iorw_timeout(ends[0], &byte, &length, 20, false), NORV_STATUS_TIMEOUT);
    EXPECT_EQ(length, 0U);
    close(ends[0]);
    close(ends[1]);
}

// A write(2) to a blocking pipe waits until all bytes fit, whatever the limit.
TEST_F(File, ABlockingDescriptorMayTakeLongerThanTheLimit) {
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    std::thread reader([&] {
        usleep(50000);
        std::string received(1 << 20, '\0');
        auto length = static_cast<uint32_t>(received.size());
        EXPECT_EQ(norv_iorw_block(ends[0], received.data(), &length, false), NORV_STATUS_OK);
    });
    std::string sent(1 << 20, 'x');
    auto length = static_cast<uint32_t>(sent.size());
    EXPECT_EQ(norv_iorw_timeout(ends[1], sent.data(), &length, 10, true), NORV_STATUS_OK);
    EXPECT_EQ(length, sent.size());
    reader.join();
    close(ends[0]);
    close(ends[1]);
}

TEST_F(File, ALateWriterIsWaitedFor) {
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    std::thread writer([&] {
        for (const char* part : {"ab", "cd"}) {
            usleep(5000);
            EXPECT_EQ(write(ends[1], part, 2), 2);
        }
    });
    char text[5] = {};
    uint32_t length = 4;
    EXPECT_EQ(norv_iorw_timeout(ends[0], text, &length, 60000, false), NORV_STATUS_OK);
    EXPECT_STREQ(text, "abcd");
    writer.join();
    close(ends[0]);
    close(ends[1]);
}

// ---- a closed descriptor

TEST_F(File, OnlyANonBlockingTransferFailsOnAClosedHandle) {
    char byte = 0;
    uint32_t length = 1;
    EXPECT_EQ(norv_iorw_nonblock(-1, &byte, &length, false), errno_status(EBADF));
    EXPECT_EQ(norv_iorw_timeout(-1, &byte, &length, 20, false), NORV_STATUS_TIMEOUT);
    EXPECT_EQ(length, 0U);
}

TEST_F(File, ABlockingTransferOnAClosedHandleWaits) {
    constexpr uint32_t ended_by_the_test = 77;
    kernel.map_errno(EINTR, ended_by_the_test);
    const auto previous = std::signal(SIGUSR1, [](int) {});
    std::atomic<bool> returned = false;
    std::thread waiter([&] {
        char byte = 0;
        uint32_t length = 1;
        EXPECT_EQ(norv_iorw_block(-1, &byte, &length, false), ended_by_the_test);
        returned = true;
    });
    while (!returned) {
        pthread_kill(waiter.native_handle(), SIGUSR1);
        std::this_thread::yield();
    }
    waiter.join();
    std::signal(SIGUSR1, previous);
}

TEST_F(Transfer, ATransferWithoutALengthIsAnInvalidArgument) {
    EXPECT_EQ(norv_iorw_nonblock(descriptor, buffer, nullptr, false), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(norv_iorw_block(descriptor, buffer, nullptr, false), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(norv_iorw_timeout(descriptor, buffer, nullptr, 1, false), NORV_STATUS_INVALID_ARG);
}

// ---- access and markers

TEST_F(File, AccessReturnsWhetherThePathExists) {
    kernel.add_file("/sys/class/uio/uio0/name");
    EXPECT_TRUE(norv_file_access(F_OK, "/sys/class/uio/uio%d/name", 0));
    EXPECT_FALSE(norv_file_access(F_OK, "/sys/class/uio/uio%d/name", 1));
    EXPECT_FALSE(norv_file_access(F_OK, "/sys/%ls", unprintable));
}

TEST_F(File, AccessReturnsWhetherTheModeIsAllowed) {
    kernel.add_file("/sys/value");  // which no user may execute, not even root
    EXPECT_TRUE(norv_file_access(R_OK, "/sys/value"));
    EXPECT_FALSE(norv_file_access(X_OK, "/sys/value"));
}

// quirk 1
TEST_F(File, AnErrnoThatMapsToZeroMakesAFailedAccessCountAsSuccess) {
    kernel.map_errno(ENOENT, 0);
    EXPECT_TRUE(norv_file_access(F_OK, "/sys/missing"));
}

TEST_F(File, AMarkIsAnEmptyFile) {
    EXPECT_EQ(norv_file_mark("/dev/mark%d", 1), NORV_STATUS_OK);
    EXPECT_TRUE(kernel.exists("/dev/mark1"));
    EXPECT_EQ(kernel.content("/dev/mark1"), "");
    EXPECT_THAT(kernel.open_flags("/dev/mark1"), ElementsAre(O_RDWR | O_CREAT | O_SYNC));
}

TEST_F(File, MarkingAnExistingFileLeavesItsContent) {
    kernel.add_file("/dev/mark", "content");
    EXPECT_EQ(norv_file_mark("/dev/mark"), NORV_STATUS_OK);
    EXPECT_EQ(kernel.content("/dev/mark"), "content");
}

// quirk 10
TEST_F(File, APercentSignInAMarkIsExpandedAgain) {
    EXPECT_EQ(norv_file_mark("/dev/%s", "full%%"), NORV_STATUS_OK);
    EXPECT_TRUE(kernel.exists("/dev/full%"));
}

TEST_F(File, AMarkThatCannotBeMadeGivesTheErrnoStatus) {
    EXPECT_EQ(norv_file_mark("/dev/missing/mark"), NORV_STATUS_NOT_FOUND);
    EXPECT_EQ(norv_file_mark("/dev/%ls", unprintable), NORV_STATUS_INVALID_ARG);
}

TEST_F(File, UnmarkingDeletesTheFile) {
    kernel.add_file("/dev/mark1");
    EXPECT_EQ(norv_file_unmark("/dev/mark%d", 1), NORV_STATUS_OK);
    EXPECT_FALSE(kernel.exists("/dev/mark1"));
}

TEST_F(File, UnmarkingAMissingFileGivesTheErrnoStatus) {
    EXPECT_EQ(norv_file_unmark("/dev/mark"), NORV_STATUS_NOT_FOUND);
    EXPECT_EQ(norv_file_unmark("/dev/%ls", unprintable), NORV_STATUS_INVALID_ARG);
}

// ---- failure sweep

TEST(FileSweep, SingleTransfers) {
    failure_sweep([](kernel_double& kernel) { kernel.add_file("/sys/value", "1"); },
                  [] {
                      char text[4] = {};
                      uint32_t length = 4;
                      const uint32_t status = norv_read_device(text, &length, "/sys/value");
                      length = 2;
                      return status != 0 ? status : norv_write_device("1", &length, "/sys/value");
                  });
}

uint32_t transfer_in_time(bool write, int32_t timeout) {
    char text[] = "12345678";
    uint32_t length = 8;
    int32_t descriptor = -1;
    uint32_t status = norv_open_device(O_RDWR | O_CLOEXEC, &descriptor, "/dev/slow");
    if (status == 0) {
        status = timeout < 0 ? norv_iorw_block(descriptor, text, &length, write)
                             : norv_iorw_timeout(descriptor, text, &length, timeout, write);
        close(descriptor);
    }
    return status;
}

TEST(FileSweep, WaitingTransfersRetryInterruptions) {
    norv::test::sweep_options options;
    options.expect = [](const strike& struck) {
        const bool tried_again = struck.error == EINTR && struck.name != "open";
        return tried_again ? 0 : norv::test::status_of_fault(struck);
    };
    for (const bool write : {false, true}) {
        for (const int32_t timeout : {-1, 60000}) {
            failure_sweep(
                [](kernel_double& kernel) {
                    kernel.add_device("/dev/slow", std::make_shared<slow_device>());
                },
                [=] { return transfer_in_time(write, timeout); }, options);
        }
    }
}

TEST(FileSweep, AccessAndMarkers) {
    norv::test::sweep_options options;
    options.short_counts = false;
    failure_sweep([](kernel_double& kernel) { kernel.add_directory("/dev"); },
                  [] {
                      const uint32_t status = norv_file_mark("/dev/mark");
                      return status != 0 ? status : norv_file_unmark("/dev/mark");
                  },
                  options);
    options.expect = [](const strike&) { return 1U; };
    failure_sweep([](kernel_double& kernel) { kernel.add_file("/dev/mark"); },
                  [] { return norv_file_access(F_OK, "/dev/mark") ? 0U : 1U; }, options);
}

}  // namespace
