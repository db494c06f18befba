// SPDX-License-Identifier: MIT
// The owner of a partition of raw flash.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <utility>

#include "cpp/bytes.hpp"
#include "cpp/owner_sweep.hpp"
#include "flash/mtd_device.hpp"
#include "norv/mtd.hpp"
#include "support/kernel_double.hpp"

namespace {

using norv::mtd;
using norv::transferred;
using norv::test::buffer_of;
using norv::test::bytes_of;
using norv::test::flash_step;
using norv::test::has_huge_spans;
using norv::test::huge_span;
using norv::test::kernel_double;
using norv::test::mtd_device;
using norv::test::nand;
using norv::test::nor;
using testing::ElementsAre;
using testing::IsEmpty;
using namespace std::string_literals;

// 64 KiB of NAND in blocks of 4 KiB and pages of 256 bytes.
class Mtd : public testing::Test {
  protected:
    Mtd() { kernel.add_device("/dev/mtd0", flash); }

    kernel_double kernel;
    std::shared_ptr<mtd_device> flash = std::make_shared<mtd_device>(nand(0x10000, 0x1000));
};

class OpenMtd : public Mtd {
  protected:
    OpenMtd() { kernel.forget_calls(); }

    mtd partition = mtd::open("/dev/mtd0").value();
};

TEST_F(Mtd, AnOpenPartitionIsClosedWithItsOwner) {
    {
        const norv::result<mtd> partition = mtd::open("/dev/mtd0");
        ASSERT_TRUE(partition);
        EXPECT_GT(partition->descriptor(), 0);
        EXPECT_EQ(partition->info().size, 0x10000U);
        EXPECT_EQ(partition->info().erasesize, 0x1000U);
        EXPECT_TRUE(partition->is_nand());
    }
    EXPECT_EQ(kernel.open_descriptors(), 0U);
}

TEST_F(Mtd, AFailedOpenHasTheStatus) {
    EXPECT_EQ(mtd::open("/dev/mtd1").status(), NORV_STATUS_NOT_FOUND);
    kernel.fail("ioctl", ENOTTY);
    EXPECT_EQ(mtd::open("/dev/mtd0").status(), norv_get_status_by_errno(ENOTTY));
    EXPECT_EQ(kernel.open_descriptors(), 0U);
}

TEST_F(Mtd, APercentSignIsPartOfThePath) {
    kernel.add_device("/dev/100%d", std::make_shared<mtd_device>(nor(0x2000, 0x1000)));
    const mtd partition = mtd::open("/dev/100%d").value();
    EXPECT_FALSE(partition.is_nand());
    kernel.forget_calls();
    EXPECT_EQ(mtd::open("/dev/" + std::string(251, 'x')).status(), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(mtd::open("/dev/mtd0\0x"s).status(), NORV_STATUS_INVALID_ARG);
    EXPECT_THAT(kernel.calls(), IsEmpty());
}

TEST_F(OpenMtd, BlocksAreErasedAndMarked) {
    EXPECT_EQ(partition.erase(0x1000, 0x2000), norv::ok);
    EXPECT_FALSE(partition.is_bad_block(0x3000).value());
    EXPECT_EQ(partition.mark_bad_block(0x3000), norv::ok);
    EXPECT_TRUE(partition.is_bad_block(0x3000).value());
    EXPECT_EQ(partition.is_bad_block(0x10000).status(), NORV_STATUS_INVALID_ARG);
    EXPECT_THAT(flash->steps, ElementsAre(flash_step{"erase", 0x1000, 0x2000}, flash_step{"query", 0x3000},
                                          flash_step{"mark", 0x3000}, flash_step{"query", 0x3000}));
}

TEST_F(OpenMtd, BytesAreWrittenAndRead) {
    const std::string page(256, 'x');
    const transferred written = partition.write(0x100, bytes_of(page));
    EXPECT_EQ(written.status, norv::ok);
    EXPECT_EQ(written.count, 256U);
    std::string back(10, '?');
    const transferred read = partition.read(0x1FB, buffer_of(back));
    EXPECT_EQ(read.status, norv::ok);
    EXPECT_EQ(read.count, 10U);
    EXPECT_EQ(back, "xxxxx\xFF\xFF\xFF\xFF\xFF");
}

TEST_F(OpenMtd, OutOfBandBytesAreWrittenAndRead) {
    EXPECT_EQ(partition.write_oob(0x100, bytes_of("spare")), norv::ok);
    std::string back(5, '?');
    EXPECT_EQ(partition.read_oob(0x100, buffer_of(back)), norv::ok);
    EXPECT_EQ(back, "spare");
}

TEST_F(OpenMtd, AShortReadHasItsCount) {
    std::string back(10, '?');
    const transferred read = partition.read(0xFFFC, buffer_of(back));
    EXPECT_EQ(read.status, norv::ok);
    EXPECT_EQ(read.count, 4U);
}

TEST_F(OpenMtd, AFailedTransferHasCountedNothing) {
    std::string back(256, '?');
    kernel.fail("read", EIO);
    const transferred read = partition.read(0, buffer_of(back));
    EXPECT_EQ(read.status, norv_get_status_by_errno(EIO));
    EXPECT_EQ(read.count, 0U);
    kernel.fail("write", EIO);
    const transferred written = partition.write(0, bytes_of(back));
    EXPECT_EQ(written.status, norv_get_status_by_errno(EIO));
    EXPECT_EQ(written.count, 0U);
}

// quirk 127
TEST_F(OpenMtd, AfterAFailedSeekTheCountIsThatOfTheRead) {
    std::string back(10, '?');
    kernel.fail("lseek", EIO);
    const transferred read = partition.read(0x100, buffer_of(back));
    EXPECT_EQ(read.status, norv_get_status_by_errno(EIO));
    EXPECT_EQ(read.count, 10U);
}

TEST_F(OpenMtd, MoreBytesThan32BitsCountAreAnInvalidArgument) {
    if (has_huge_spans) {
        EXPECT_EQ(partition.read_oob(0, huge_span()), NORV_STATUS_INVALID_ARG);
        EXPECT_EQ(partition.write_oob(0, huge_span()), NORV_STATUS_INVALID_ARG);
    }
    EXPECT_THAT(kernel.calls(), IsEmpty());
}

TEST_F(OpenMtd, APartitionThatWasMovedFromIsAnInvalidArgument) {
    mtd other = std::move(partition);
    std::string data(256, 'x');
    EXPECT_EQ(partition.erase(0, 0x1000), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(partition.is_bad_block(0).status(), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(partition.mark_bad_block(0), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(partition.read_oob(0, buffer_of(data)), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(partition.write_oob(0, bytes_of(data)), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(partition.read(0, buffer_of(data)).status, NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(partition.write(0, bytes_of(data)).status, NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(partition.info().size, 0U);
    EXPECT_FALSE(partition.is_nand());
    EXPECT_EQ(partition.descriptor(), -1);
    EXPECT_EQ(partition.get(), nullptr);
    EXPECT_THAT(kernel.calls(), IsEmpty());
    EXPECT_EQ(other.write(0, bytes_of(data)).status, norv::ok);
    EXPECT_EQ(other.get()->descriptor, other.descriptor());
}

TEST_F(OpenMtd, MovingIntoAnOpenPartitionClosesIt) {
    partition = mtd::open("/dev/mtd0").value();
    EXPECT_EQ(kernel.open_descriptors(), 1U);
}

TEST(MtdSweep, NothingLeaksThroughTheOwner) {
    norv::test::owner_sweep(
        [](kernel_double& kernel) {
            kernel.add_device("/dev/mtd0", std::make_shared<mtd_device>(nor(0x4000, 0x1000)));
        },
        [] {
            norv::result<mtd> partition = mtd::open("/dev/mtd0");
            if (!partition) {
                return partition.status().number();
            }
            const norv::status erased = partition->erase(0, 0x1000);
            return erased.ok() ? partition->write(0, bytes_of("data")).status.number() : erased.number();
        });
}

}  // namespace
