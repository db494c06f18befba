// SPDX-License-Identifier: MIT
// The owner of an SPI slave.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "bus/spi_device.hpp"
#include "cpp/bytes.hpp"
#include "cpp/owner_sweep.hpp"
#include "norv/spi.hpp"
#include "support/kernel_double.hpp"

namespace {

using norv::spi;
using norv::test::buffer_of;
using norv::test::bytes_of;
using norv::test::has_huge_spans;
using norv::test::huge_span;
using norv::test::kernel_double;
using norv::test::spi_device;
using testing::IsEmpty;
using testing::SizeIs;
using namespace std::chrono_literals;
using namespace std::string_literals;

constexpr spi::settings one_megahertz = {.mode = 3, .max_speed_hz = 1'000'000};

class Spi : public testing::Test {
  protected:
    Spi() { kernel.add_device("/dev/spidev1.0", slave); }

    kernel_double kernel;
    std::shared_ptr<spi_device> slave = std::make_shared<spi_device>();
};

class OpenSpi : public Spi {
  protected:
    OpenSpi() { kernel.forget_calls(); }

    spi chip = spi::open("/dev/spidev1.0", one_megahertz).value();
};

TEST_F(Spi, AnOpenSlaveIsClosedWithItsOwner) {
    {
        const norv::result<spi> chip = spi::open("/dev/spidev1.0", one_megahertz);
        ASSERT_TRUE(chip);
        EXPECT_GT(chip->descriptor(), 0);
        EXPECT_EQ(slave->mode, 3);
        EXPECT_EQ(slave->bits_per_word, 8);
        EXPECT_EQ(slave->speed, 1'000'000U);
        EXPECT_EQ(slave->lsb_first, 0);
    }
    EXPECT_EQ(kernel.open_descriptors(), 0U);
}

TEST_F(Spi, AFailedOpenHasTheStatus) {
    EXPECT_EQ(spi::open("/dev/spidev2.0", one_megahertz).status(), NORV_STATUS_NOT_FOUND);
    EXPECT_EQ(spi::open("/dev/spidev1.0", {.mode = 4}).status(), NORV_STATUS_INVALID_ARG);
}

TEST_F(Spi, APercentSignIsPartOfThePath) {
    kernel.add_device("/dev/100%d", slave);
    EXPECT_TRUE(spi::open("/dev/100%d", one_megahertz));
}

TEST_F(Spi, APathThatWouldBeTruncatedIsAnInvalidArgument) {
    const std::string longest = "/dev/" + std::string(250, '%');
    kernel.add_device(longest, slave);
    EXPECT_TRUE(spi::open(longest, one_megahertz));
    kernel.forget_calls();
    EXPECT_EQ(spi::open(longest + 'x', one_megahertz).status(), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(spi::open("/dev/spidev1.0\0x"s, one_megahertz).status(), NORV_STATUS_INVALID_ARG);
    EXPECT_THAT(kernel.calls(), IsEmpty());
}

TEST_F(OpenSpi, TheSettingsCanBeChanged) {
    EXPECT_FALSE(chip.emulates_words());
    slave->refuses_16_bits = true;
    EXPECT_EQ(chip.configure({.max_speed_hz = 5, .bits_per_word = 16, .lsb_first = true}), norv::ok);
    EXPECT_TRUE(chip.emulates_words());
    EXPECT_EQ(slave->mode, 0);
    EXPECT_EQ(slave->bits_per_word, 8);
    EXPECT_EQ(slave->speed, 5U);
    EXPECT_EQ(slave->lsb_first, 1);
}

TEST_F(OpenSpi, BothDirectionsAreOneTransfer) {
    slave->incoming = "reply";
    std::string received(5, '?');
    EXPECT_EQ(chip.duplex(bytes_of("query"), buffer_of(received)), norv::ok);
    EXPECT_EQ(received, "reply");
    ASSERT_THAT(slave->messages, SizeIs(1));
    ASSERT_THAT(slave->messages[0], SizeIs(1));
    EXPECT_EQ(slave->messages[0][0].sent, "query");
}

TEST_F(OpenSpi, ADirectionMayBeLeftOut) {
    slave->incoming = "reply";
    std::string received(5, '?');
    EXPECT_EQ(chip.duplex({}, buffer_of(received)), norv::ok);
    EXPECT_EQ(received, "reply");
    EXPECT_EQ(chip.duplex(bytes_of("query"), {}), norv::ok);
    ASSERT_THAT(slave->messages, SizeIs(2));
    EXPECT_EQ(slave->messages[0][0].given.tx_buf, 0U);
    EXPECT_EQ(slave->messages[0][0].given.len, 5U);
    EXPECT_EQ(slave->messages[1][0].given.rx_buf, 0U);
    EXPECT_EQ(slave->messages[1][0].sent, "query");
    // Nothing at an address is nothing, too.
    const std::string none = "query";
    EXPECT_EQ(chip.duplex(bytes_of(none).first(0), buffer_of(received)), norv::ok);
    EXPECT_EQ(slave->messages[2][0].given.tx_buf, 0U);
    EXPECT_EQ(chip.duplex(bytes_of(none), buffer_of(received).first(0)), norv::ok);
    EXPECT_EQ(slave->messages[3][0].given.rx_buf, 0U);
}

TEST_F(OpenSpi, WritingThenReadingIsOneMessage) {
    slave->incoming = "reply";
    std::string received(5, '?');
    EXPECT_EQ(chip.write_then_read(bytes_of("ab"), 65535us, buffer_of(received)), norv::ok);
    EXPECT_EQ(received, "reply");
    ASSERT_THAT(slave->messages, SizeIs(1));
    ASSERT_THAT(slave->messages[0], SizeIs(2));
    EXPECT_EQ(slave->messages[0][0].sent, "ab");
    EXPECT_EQ(slave->messages[0][0].given.delay_usecs, 65535U);
}

TEST_F(OpenSpi, AListIsOneMessage) {
    slave->incoming = "reply";
    const std::string query = "query";
    std::string received(5, '?');
    EXPECT_EQ(chip.run({{.sent = bytes_of(query), .pause = 7us}, {.received = buffer_of(received)}}),
              norv::ok);
    EXPECT_EQ(received, "reply");
    ASSERT_THAT(slave->messages, SizeIs(1));
    ASSERT_THAT(slave->messages[0], SizeIs(2));
    EXPECT_EQ(slave->messages[0][0].sent, "query");
    EXPECT_EQ(slave->messages[0][0].given.delay_usecs, 7U);
    EXPECT_EQ(slave->messages[0][1].given.delay_usecs, 0U);
}

TEST_F(OpenSpi, AListOfTooManyTransfersIsAnInvalidArgument) {
    const std::vector<norv_spi_transfer_t> list(spi::most_transfers + 1);
    EXPECT_EQ(chip.run_list(std::span(list).first(spi::most_transfers)), norv::ok);
    ASSERT_THAT(slave->messages, SizeIs(1));
    EXPECT_THAT(slave->messages[0], SizeIs(spi::most_transfers));
    kernel.forget_calls();
    EXPECT_EQ(chip.run_list(list), NORV_STATUS_INVALID_ARG);
    EXPECT_THAT(kernel.calls(), IsEmpty());
}

TEST_F(OpenSpi, WhatDoesNotFitIsAnInvalidArgument) {
    std::string two = "??";
    std::string three = "???";
    EXPECT_EQ(chip.duplex(bytes_of(two), buffer_of(three)), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(chip.duplex(bytes_of(three), buffer_of(two)), NORV_STATUS_INVALID_ARG);
    for (const auto pause : {-1us, 65536us}) {
        EXPECT_EQ(chip.write_then_read(bytes_of(two), pause, buffer_of(three)), NORV_STATUS_INVALID_ARG);
        EXPECT_EQ(chip.run({{.sent = bytes_of(two)}, {.received = buffer_of(two), .pause = pause}}),
                  NORV_STATUS_INVALID_ARG);
    }
    if (has_huge_spans) {
        EXPECT_EQ(chip.duplex(huge_span(), {}), NORV_STATUS_INVALID_ARG);
        EXPECT_EQ(chip.write_then_read(bytes_of(two), 0us, huge_span()), NORV_STATUS_INVALID_ARG);
        EXPECT_EQ(chip.write_then_read(huge_span(), 0us, buffer_of(two)), NORV_STATUS_INVALID_ARG);
    }
    EXPECT_THAT(kernel.calls(), IsEmpty());
}

TEST_F(OpenSpi, ASlaveThatWasMovedFromIsAnInvalidArgument) {
    spi other = std::move(chip);
    std::string data = "?";
    EXPECT_EQ(chip.configure(one_megahertz), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(chip.duplex(bytes_of(data), {}), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(chip.write_then_read(bytes_of(data), 0us, buffer_of(data)), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(chip.run({{.sent = bytes_of(data)}}), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(chip.run_list({}), NORV_STATUS_INVALID_ARG);
    EXPECT_FALSE(chip.emulates_words());
    EXPECT_EQ(chip.descriptor(), -1);
    EXPECT_EQ(chip.get(), nullptr);
    EXPECT_THAT(kernel.calls(), IsEmpty());
    EXPECT_EQ(other.duplex(bytes_of(data), {}), norv::ok);
    EXPECT_EQ(other.get()->descriptor, other.descriptor());
}

TEST_F(OpenSpi, MovingIntoAnOpenSlaveClosesIt) {
    chip = spi::open("/dev/spidev1.0", one_megahertz).value();
    EXPECT_EQ(kernel.open_descriptors(), 1U);
}

TEST(SpiSweep, NothingLeaksThroughTheOwner) {
    norv::test::owner_sweep(
        [](kernel_double& kernel) {
            auto slave = std::make_shared<spi_device>();
            slave->refuses_16_bits = true;
            kernel.add_device("/dev/spidev1.0", slave);
        },
        [] {
            norv::result<spi> chip = spi::open("/dev/spidev1.0", {.bits_per_word = 16});
            if (!chip) {
                return chip.status().number();
            }
            const std::string data = "data";
            const norv::status done = chip->duplex(bytes_of(data), {});
            return done.ok() ? chip->run({{.sent = bytes_of(data)}}).number() : done.number();
        });
}

}  // namespace
