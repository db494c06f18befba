// SPDX-License-Identifier: MIT
// Failures that a test plans: which call they mean, and what they report.
#include "support/kernel_double.hpp"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <memory>
#include <string>

namespace {

using norv::test::byte_transfer;
using norv::test::call;
using norv::test::control;
using norv::test::device;
using norv::test::fault;
using norv::test::kernel_double;

TEST(PlannedFault, ThePlannedCallFailsAndNoOther) {
    kernel_double kernel;
    kernel.add_file("/dev/a");
    kernel.fail({.call = "open", .nth = 2, .error = EMFILE});
    const int first = open("/dev/a", O_RDONLY);
    EXPECT_GT(first, 0);
    EXPECT_EQ(open("/dev/a", O_RDONLY), -1);
    EXPECT_EQ(errno, EMFILE);
    const int third = open("/dev/a", O_RDONLY);
    EXPECT_GT(third, 0);
    close(first);
    close(third);
    ASSERT_TRUE(kernel.struck());
    EXPECT_EQ(kernel.struck()->name, "open");
    EXPECT_EQ(kernel.struck()->path, "/dev/a");
}

TEST(PlannedFault, AFailingCloseStillReleasesTheDescriptor) {
    kernel_double kernel;
    kernel.add_file("/dev/a");
    const int descriptor = open("/dev/a", O_RDONLY);
    kernel.fail("close", EINTR);
    EXPECT_EQ(close(descriptor), -1);
    EXPECT_EQ(kernel.open_descriptors(), 0U);
}

// A device that accepts every request, and takes and gives any bytes.
class obliging_device : public device {
  public:
    long read(void* buffer, size_t size, off_t) override {
        memset(buffer, 'x', size);
        return static_cast<long>(size);
    }
    long write(const void*, size_t size, off_t) override { return static_cast<long>(size); }
    long ioctl(unsigned long, void*) override { return 0; }
};

class PlannedFaults : public testing::Test {
  protected:
    PlannedFaults() {
        kernel.add_file("/sys/file", "0123456789");
        kernel.add_device("/dev/device", std::make_shared<obliging_device>());
        descriptor = open("/dev/device", O_RDWR);
    }
    ~PlannedFaults() override { close(descriptor); }

    kernel_double kernel;
    int descriptor = -1;
    char bytes[8] = {};
};

TEST_F(PlannedFaults, MeanACallByItsPath) {
    kernel.fail({.call = "open", .path = "/sys/file", .error = EACCES});
    const int other = open("/dev/device", O_RDWR);
    EXPECT_GE(other, 0);
    EXPECT_EQ(open("/sys/file", O_RDONLY), -1);
    EXPECT_EQ(errno, EACCES);
    close(other);
}

TEST_F(PlannedFaults, MeanAnIoctlByItsRequest) {
    kernel.fail({.call = "ioctl", .request = 7, .nth = 2, .error = EBUSY});
    EXPECT_EQ(ioctl(descriptor, 7, nullptr), 0);
    EXPECT_EQ(ioctl(descriptor, 8, nullptr), 0);
    EXPECT_EQ(ioctl(descriptor, 7, nullptr), -1);
    EXPECT_EQ(ioctl(descriptor, 7, nullptr), 0);
}

TEST_F(PlannedFaults, MeanAReadOrWriteByItsOffset) {
    kernel.fail({.call = "pread", .offset = 4, .error = EIO});
    EXPECT_EQ(pread(descriptor, bytes, 4, 0), 4);
    EXPECT_EQ(pwrite(descriptor, bytes, 4, 4), 4);
    EXPECT_EQ(pread(descriptor, bytes, 4, 4), -1);
    kernel.fail({.call = "read", .offset = 4, .error = EIO});
    EXPECT_EQ(read(descriptor, bytes, 4), 4);
    EXPECT_EQ(read(descriptor, bytes, 4), -1);
}

TEST_F(PlannedFaults, AnOffsetOrARequestMeansNoCallThatHasNone) {
    kernel.fail({.offset = 0, .error = EIO});
    EXPECT_EQ(access("/sys/file", F_OK), 0);
    EXPECT_EQ(ioctl(descriptor, 0, nullptr), 0);
    kernel.fail({.request = 0, .error = EIO});
    EXPECT_EQ(access("/sys/file", F_OK), 0);
    EXPECT_EQ(pread(descriptor, bytes, 4, 0), 4);
    EXPECT_FALSE(kernel.struck());
}

TEST_F(PlannedFaults, AShortCountMovesOneByteLess) {
    kernel.fail({.call = "write", .path = "/dev/device", .how = fault::kind::short_count});
    EXPECT_EQ(write(descriptor, "abcd", 4), 3);
    EXPECT_EQ(kernel.calls<byte_transfer>("write").at(0).bytes, "abc");
    EXPECT_EQ(write(descriptor, "abcd", 4), 4);
}

TEST_F(PlannedFaults, AShortCountWithoutANameMeansReadsAndWritesAlone) {
    kernel.fail({.how = fault::kind::short_count});
    EXPECT_EQ(ioctl(descriptor, 7, nullptr), 0);
    EXPECT_EQ(read(descriptor, bytes, 4), 3);
}

TEST_F(PlannedFaults, TheCallThatWasStruckIsReportedWithWhatItWasAsked) {
    kernel.fail({.nth = 4, .error = EIO});
    EXPECT_EQ(ioctl(descriptor, 7, nullptr), 0);
    EXPECT_EQ(ioctl(descriptor, 8, nullptr), 0);
    EXPECT_EQ(access("/sys/file", F_OK), 0);
    EXPECT_FALSE(kernel.struck());
    EXPECT_EQ(ioctl(descriptor, 8, nullptr), -1);
    ASSERT_TRUE(kernel.struck());
    EXPECT_EQ(kernel.struck()->name, "ioctl");
    EXPECT_EQ(kernel.struck()->path, "/dev/device");
    EXPECT_EQ(kernel.struck()->as<control>().request, 8U);
    EXPECT_EQ(kernel.struck()->nth, 2) << "the second with this name, path and request";
    EXPECT_EQ(kernel.struck()->error, EIO);
}

TEST_F(PlannedFaults, ANewPlanStartsToCountAgain) {
    kernel.fail({.call = "read", .nth = 2, .error = EIO});
    EXPECT_EQ(read(descriptor, bytes, 4), 4);
    kernel.fail({.call = "read", .nth = 2, .error = EIO});
    EXPECT_EQ(read(descriptor, bytes, 4), 4);
    EXPECT_EQ(read(descriptor, bytes, 4), -1);
    EXPECT_EQ(kernel.struck()->nth, 2);
}

TEST_F(PlannedFaults, APlanCanBeDropped) {
    kernel.fail("read", EIO);
    kernel.fail_nothing();
    EXPECT_EQ(read(descriptor, bytes, 4), 4);
}

}  // namespace
