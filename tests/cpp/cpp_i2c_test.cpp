// SPDX-License-Identifier: MIT
// The owner of an I2C adapter.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "bus/i2c_adapter.hpp"
#include "cpp/bytes.hpp"
#include "cpp/owner_sweep.hpp"
#include "norv/i2c.hpp"
#include "support/kernel_double.hpp"

namespace {

using norv::i2c;
using norv::test::buffer_of;
using norv::test::bytes_of;
using norv::test::i2c_adapter;
using norv::test::i2c_transaction;
using norv::test::kernel_double;
using norv::test::received;
using norv::test::sent;
using testing::ElementsAre;
using testing::IsEmpty;
using namespace std::string_literals;

class I2c : public testing::Test {
  protected:
    I2c() { kernel.add_device("/dev/i2c-1", adapter); }

    kernel_double kernel;
    std::shared_ptr<i2c_adapter> adapter = std::make_shared<i2c_adapter>();
};

TEST_F(I2c, AnOpenAdapterIsClosedWithItsOwner) {
    {
        const norv::result<i2c> bus = i2c::open(1);
        ASSERT_TRUE(bus);
        EXPECT_GT(bus->descriptor(), 0);
        EXPECT_EQ(kernel.open_descriptors(), 1U);
    }
    EXPECT_EQ(kernel.open_descriptors(), 0U);
}

TEST_F(I2c, AFailedOpenHasTheStatus) {
    EXPECT_EQ(i2c::open(2).status(), NORV_STATUS_NOT_FOUND);
    adapter->functions = 0;
    EXPECT_EQ(i2c::open(1).status(), NORV_STATUS_NOT_AVAILABLE);
}

TEST_F(I2c, EachTransferIsATransaction) {
    adapter->registers[7] = 'x';
    adapter->registers[8] = 'y';
    i2c bus = i2c::open(1).value();
    std::string data = "??";
    EXPECT_EQ(bus.read(0x50, 7, buffer_of(data)), norv::ok);
    EXPECT_EQ(data, "xy");
    EXPECT_EQ(bus.write(0x50, 9, bytes_of("ab")), norv::ok);
    EXPECT_EQ(bus.raw_write(0x50, bytes_of("\x08"s)), norv::ok);
    EXPECT_EQ(bus.raw_read(0x50, buffer_of(data)), norv::ok);
    EXPECT_EQ(data, "ya");
    std::string three = "???";
    EXPECT_EQ(bus.write_then_read(0x50, bytes_of("\x07"s), buffer_of(three)), norv::ok);
    EXPECT_EQ(three, "xya");
    EXPECT_THAT(adapter->transactions,
                ElementsAre(i2c_transaction{sent(0x50, "\x07"), received(0x50, "xy")},
                            i2c_transaction{sent(0x50,
                                                 "\x09"
                                                 "ab")},
                            i2c_transaction{sent(0x50, "\x08")}, i2c_transaction{received(0x50, "ya")},
                            i2c_transaction{sent(0x50, "\x07"), received(0x50, "xya")}));
    EXPECT_EQ(bus.read(0x51, 7, buffer_of(data)), norv_get_status_by_errno(ENXIO));
}

TEST_F(I2c, EmptyTransfersArePassedOn) {
    i2c bus = i2c::open(1).value();
    EXPECT_EQ(bus.write(0x50, 9, {}), norv::ok);
    EXPECT_EQ(bus.raw_write(0x50, {}), norv::ok);
    EXPECT_THAT(adapter->transactions,
                ElementsAre(i2c_transaction{sent(0x50, "\x09")}, i2c_transaction{sent(0x50, "")}));
}

TEST_F(I2c, TheLongestTransfersArePassedOn) {
    i2c bus = i2c::open(1).value();
    std::string longest(65535, 'x');
    EXPECT_EQ(bus.raw_write(0x50, bytes_of(longest)), norv::ok);
    EXPECT_EQ(bus.raw_read(0x50, buffer_of(longest)), norv::ok);
    EXPECT_EQ(bus.read(0x50, 0, buffer_of(longest)), norv::ok);
    EXPECT_EQ(bus.write_then_read(0x50, bytes_of(longest), buffer_of(longest)), norv::ok);
    EXPECT_EQ(adapter->transactions.back()[0].bytes.size(), 65535U);
    EXPECT_EQ(adapter->transactions.back()[1].bytes.size(), 65535U);
    EXPECT_EQ(bus.write(0x50, 0, bytes_of(longest.substr(0, 256))), norv::ok);
}

TEST_F(I2c, TooManyBytesAreAnInvalidArgument) {
    i2c bus = i2c::open(1).value();
    std::string longer(65536 + 1, 'x');  // 16 bits count 1 of them
    std::string one = "x";
    kernel.forget_calls();
    EXPECT_EQ(bus.read(0x50, 0, buffer_of(longer)), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(bus.write(0x50, 0, bytes_of(longer)), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(bus.write(0x50, 0, bytes_of(longer.substr(0, 257))), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(bus.raw_read(0x50, buffer_of(longer)), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(bus.raw_write(0x50, bytes_of(longer)), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(bus.write_then_read(0x50, bytes_of(longer), buffer_of(one)), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(bus.write_then_read(0x50, bytes_of(one), buffer_of(longer)), NORV_STATUS_INVALID_ARG);
    EXPECT_THAT(kernel.calls(), IsEmpty());
}

TEST_F(I2c, AnAdapterThatWasMovedFromIsAnInvalidArgument) {
    i2c bus = i2c::open(1).value();
    i2c other = std::move(bus);
    std::string data = "?";
    kernel.forget_calls();
    EXPECT_EQ(bus.read(0x50, 0, buffer_of(data)), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(bus.write(0x50, 0, bytes_of(data)), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(bus.raw_read(0x50, buffer_of(data)), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(bus.raw_write(0x50, bytes_of(data)), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(bus.write_then_read(0x50, bytes_of(data), buffer_of(data)), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(bus.descriptor(), -1);
    EXPECT_THAT(kernel.calls(), IsEmpty());
    EXPECT_EQ(other.raw_read(0x50, buffer_of(data)), norv::ok);
}

TEST_F(I2c, MovingIntoAnOpenAdapterClosesIt) {
    i2c bus = i2c::open(1).value();
    i2c other = i2c::open(1).value();
    const int32_t kept = other.descriptor();
    bus = std::move(other);
    EXPECT_EQ(bus.descriptor(), kept);
    EXPECT_EQ(kernel.open_descriptors(), 1U);
}

TEST(I2cSweep, NothingLeaksThroughTheOwner) {
    norv::test::owner_sweep(
        [](kernel_double& kernel) { kernel.add_device("/dev/i2c-1", std::make_shared<i2c_adapter>()); },
        [] {
            norv::result<i2c> bus = i2c::open(1);
            std::string data = "?";
            return bus ? bus->read(0x50, 0, buffer_of(data)).number() : bus.status().number();
        });
}

}  // namespace
