// SPDX-License-Identifier: MIT
// Rates of a network interface.
#include "norv_net_usage.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "support/failure_sweep.hpp"
#include "support/status.hpp"

namespace {

using norv::test::errno_status;
using norv::test::kernel_double;
using norv::test::stream_opening;
using norv::test::strike;
using testing::IsEmpty;

constexpr const char* dev_file = "/proc/net/dev";
constexpr const char* heading =
    "Inter-|   Receive                                                |  Transmit\n"
    " face |bytes    packets errs drop fifo frame compressed multicast|bytes    packets errs drop fifo colls "
    "carrier compressed\n";

std::string line(const std::string& name, uint64_t received, uint64_t transmitted) {
    return name + ": " + std::to_string(received) + " 2 3 4 5 6 7 8 " + std::to_string(transmitted) +
           " 10 11 12 13 14 15 16\n";
}

class NetUsage : public testing::Test {
  protected:
    ~NetUsage() override { norv_net_usage_close(&net); }

    void show(const std::string& lines) { kernel.add_file(dev_file, heading + lines); }
    void show(uint64_t received, uint64_t transmitted) {
        show(line("    lo", 1, 1) + line("  eth0", received, transmitted));
    }
    void at(time_t seconds, long milliseconds) { kernel.set_clock(seconds, milliseconds * 1000000); }
    uint32_t update(uint64_t received, uint64_t transmitted) {
        show(received, transmitted);
        return norv_net_usage_update(&net);
    }

    kernel_double kernel;
    norv_net_usage_t net = {};
};

// Opened for eth0 at 10 s, when 1000 bytes had been received and 2000 transmitted.
class OpenNetUsage : public NetUsage {
  protected:
    OpenNetUsage() {
        at(10, 0);
        show(1000, 2000);
        EXPECT_EQ(norv_net_usage_open(&net, "eth0"), 0U);
    }
};

// ---- open and close

TEST_F(NetUsage, OpeningTakesTheFirstSampleAndKeepsTheFileOpen) {
    at(10, 5);
    show(1000, 2000);
    net.tx_rate = 77;
    net.rx_rate = 77;
    EXPECT_EQ(norv_net_usage_open(&net, "eth0"), 0U);
    EXPECT_NE(net.file, nullptr);
    EXPECT_EQ(net.started, 1);
    EXPECT_EQ(net.last_ms, 10005U);
    EXPECT_EQ(net.last_rx, 1000U);
    EXPECT_EQ(net.last_tx, 2000U);
    EXPECT_EQ(net.rx_rate, 0U);
    EXPECT_EQ(net.tx_rate, 0U);
    EXPECT_STREQ(net.ifname, "eth0");
    EXPECT_EQ(kernel.open_descriptors(), 1U);
}

TEST_F(NetUsage, TheFileIsNotInheritedByPrograms) {
    show(1, 1);
    norv_net_usage_open(&net, "eth0");
    EXPECT_EQ(kernel.calls("fopen").at(0).path, dev_file);
    EXPECT_EQ(kernel.calls("fopen").at(0).as<stream_opening>().mode, "re");
}

TEST_F(NetUsage, TheRecordNeedNotBeFilledWithZeros) {
    memset(&net, 0xA5, sizeof net);
    show(1000, 2000);
    EXPECT_EQ(norv_net_usage_open(&net, "eth0"), 0U);
    EXPECT_EQ(net.rx_rate, 0U);
    EXPECT_EQ(net.last_rx, 1000U);
}

TEST_F(NetUsage, NothingAfterTheNameIsCopied) {
    memset(&net, 0xA5, sizeof net);
    show(1000, 2000);
    EXPECT_EQ(norv_net_usage_open(&net, "eth0\0more"), 0U);
    EXPECT_EQ(net.ifname[4], '\0');
    EXPECT_EQ(net.ifname[5], '\xA5');
}

TEST_F(NetUsage, ANameOf31CharactersFits) {
    const std::string name(31, 'n');
    show(line(name, 5, 6));
    EXPECT_EQ(norv_net_usage_open(&net, name.c_str()), 0U);
    EXPECT_EQ(net.ifname, name);
}

TEST_F(NetUsage, ANameOf32CharactersIsTooLongAndTheRecordIsClosed) {
    const std::string name(32, 'n');
    show(line(name, 5, 6));
    EXPECT_EQ(norv_net_usage_open(&net, name.c_str()), NORV_STATUS_EXHAUSTED);
    EXPECT_EQ(net.file, nullptr);
    EXPECT_EQ(kernel.open_descriptors(), 0U);
}

TEST_F(NetUsage, AMuchLongerNameIsTooLongToo) {
    const std::string name(60, 'n');
    show(line(name, 5, 6));
    EXPECT_EQ(norv_net_usage_open(&net, name.c_str()), NORV_STATUS_EXHAUSTED);
}

TEST_F(NetUsage, WithoutTheFileTheRecordIsClosed) {
    net.started = 1;
    EXPECT_EQ(norv_net_usage_open(&net, "eth0"), NORV_STATUS_NOT_FOUND);
    EXPECT_EQ(net.file, nullptr);
    EXPECT_EQ(net.started, 0);
}

TEST_F(NetUsage, AFailedOpenWhoseErrnoMapsToZeroIsABadState) {
    kernel.map_errno(ENOENT, 0);
    EXPECT_EQ(norv_net_usage_open(&net, "eth0"), NORV_STATUS_BAD_STATE);
    EXPECT_EQ(net.file, nullptr);
}

TEST_F(NetUsage, AFirstSampleThatFailsLeavesNothingOpen) {
    show(1, 1);
    EXPECT_EQ(norv_net_usage_open(&net, "wlan0"), NORV_STATUS_NOT_FOUND);
    EXPECT_EQ(net.file, nullptr);
    EXPECT_EQ(net.started, 0);
    EXPECT_EQ(kernel.open_descriptors(), 0U);
}

TEST_F(OpenNetUsage, ClosingClearsTheFileAndTheStartButNotTheRates) {
    at(11, 0);
    update(126000, 2000);
    norv_net_usage_close(&net);
    EXPECT_EQ(net.file, nullptr);
    EXPECT_EQ(net.started, 0);
    EXPECT_EQ(net.rx_rate, 1000U);
    EXPECT_EQ(kernel.open_descriptors(), 0U);
}

TEST_F(OpenNetUsage, ClosingTwiceClosesOnce) {
    norv_net_usage_close(&net);
    kernel.forget_calls();
    norv_net_usage_close(&net);
    EXPECT_THAT(kernel.calls(), IsEmpty());
}

// ---- rates

TEST_F(NetUsage, UpdatingAClosedRecordIsABadState) {
    EXPECT_EQ(norv_net_usage_update(&net), NORV_STATUS_BAD_STATE);
}

TEST_F(OpenNetUsage, Receiving125000BytesInASecondIs1000Kilobits) {
    at(11, 0);
    EXPECT_EQ(update(126000, 2000), 0U);
    EXPECT_EQ(net.rx_rate, 1000U);
    EXPECT_EQ(net.tx_rate, 0U);
}

TEST_F(OpenNetUsage, TransmittedBytesHaveTheirOwnRate) {
    at(10, 500);
    EXPECT_EQ(update(1000, 2000 + 125000), 0U);
    EXPECT_EQ(net.rx_rate, 0U);
    EXPECT_EQ(net.tx_rate, 2000U);
}

TEST_F(OpenNetUsage, EachRateCountsFromThePreviousSample) {
    at(11, 0);
    update(126000, 2000);
    at(13, 0);
    EXPECT_EQ(update(126000 + 500000, 2000 + 250), 0U);
    EXPECT_EQ(net.rx_rate, 2000U);
    EXPECT_EQ(net.tx_rate, 1U);
}

TEST_F(OpenNetUsage, RatesAreRoundedDown) {
    at(11, 0);
    EXPECT_EQ(update(1000 + 249, 2000 + 124), 0U);
    EXPECT_EQ(net.rx_rate, 1U);
    EXPECT_EQ(net.tx_rate, 0U);
}

TEST_F(OpenNetUsage, FiveMillisecondsLaterNothingChanges) {
    at(11, 0);
    update(126000, 2000);
    at(11, 5);
    EXPECT_EQ(update(999000, 999000), 0U);
    EXPECT_EQ(net.rx_rate, 1000U);
    EXPECT_EQ(net.last_rx, 126000U);
    EXPECT_EQ(net.last_tx, 2000U);
    EXPECT_EQ(net.last_ms, 11000U);
}

// quirk 102
TEST_F(OpenNetUsage, ElevenMillisecondsAreTheShortestInterval) {
    at(10, 10);
    EXPECT_EQ(update(1000 + 1375, 2000), 0U);
    EXPECT_EQ(net.rx_rate, 0U);
    at(10, 11);
    EXPECT_EQ(norv_net_usage_update(&net), 0U);
    EXPECT_EQ(net.rx_rate, 1000U);
    EXPECT_EQ(net.last_ms, 10011U);
}

// quirk 98
TEST_F(NetUsage, CountersAndTheClockWrapAt32Bits) {
    at(4294967, 290);
    show(4294967000, 8589934000);
    ASSERT_EQ(norv_net_usage_open(&net, "eth0"), 0U);
    EXPECT_EQ(net.last_ms, 4294967290U);
    EXPECT_EQ(net.last_tx, 4294966704U);
    at(4294968, 290);
    EXPECT_EQ(update(4294967000 + 125000, 8589934000 + 250000), 0U);
    EXPECT_EQ(net.last_ms, 994U);
    EXPECT_EQ(net.rx_rate, 1000U);
    EXPECT_EQ(net.tx_rate, 2000U);
}

TEST_F(NetUsage, OnlyTheDifferencesWrapAndNotTheProducts) {
    at(10, 0);
    show(0, 0);
    ASSERT_EQ(norv_net_usage_open(&net, "eth0"), 0U);
    at(10, 11);
    EXPECT_EQ(update(4294967295, 1073741824), 0U);
    EXPECT_EQ(net.rx_rate, 3123612578U);
    EXPECT_EQ(net.tx_rate, 780903144U);
    at(10 + 4294967, 11 + 200);
    EXPECT_EQ(update(4294967295 + 4294967295, 1073741824), 0U);
    EXPECT_EQ(net.rx_rate, 8U) << "an interval of 4294967200 ms";
}

// ---- the line

// quirk 101
TEST_F(OpenNetUsage, ALongerNameThatContainsTheNameMatchesIfListedFirst) {
    at(11, 0);
    show(line(" veth0", 126000, 2000) + line("  eth0", 1000, 2000));
    EXPECT_EQ(norv_net_usage_update(&net), 0U);
    EXPECT_EQ(net.last_rx, 126000U);
}

TEST_F(OpenNetUsage, TheNameIsSearchedOnlyBeforeTheColon) {
    at(11, 0);
    show("  wlan0: eth0 7 7\n" + line("  eth0", 126000, 2000));
    EXPECT_EQ(norv_net_usage_update(&net), 0U);
    EXPECT_EQ(net.last_rx, 126000U);
}

TEST_F(OpenNetUsage, ALineWithoutAColonIsSkipped) {
    at(11, 0);
    show("eth0 7 7 7 7 7 7 7 7 7 7 7 7 7 7 7 7\n" + line("  eth0", 126000, 2000));
    EXPECT_EQ(norv_net_usage_update(&net), 0U);
    EXPECT_EQ(net.last_rx, 126000U);
}

TEST_F(OpenNetUsage, NumbersBeforeTheColonDoNotCount) {
    at(11, 0);
    show("eth0.77:126000 2 3 4 5 6 7 8 2000 10 11 12 13 14 15 16\n");
    EXPECT_EQ(norv_net_usage_update(&net), 0U);
    EXPECT_EQ(net.last_rx, 126000U);
    EXPECT_EQ(net.last_tx, 2000U);
}

TEST_F(NetUsage, AnEmptyNameIsFoundInTheFirstLineWithAColon) {
    show(line("lo", 5, 6) + line("eth0", 7, 8));
    EXPECT_EQ(norv_net_usage_open(&net, ""), 0U);
    EXPECT_EQ(net.last_rx, 5U);
}

TEST_F(OpenNetUsage, AnInterfaceThatIsGoneIsNotFoundAndChangesNothing) {
    at(11, 0);
    show(line("lo", 126000, 2000));
    EXPECT_EQ(norv_net_usage_update(&net), NORV_STATUS_NOT_FOUND);
    EXPECT_EQ(net.last_ms, 10000U);
    EXPECT_EQ(update(126000, 2000), 0U);
    EXPECT_EQ(net.rx_rate, 1000U);
}

TEST_F(OpenNetUsage, FewerThan16NumbersAreAParseErrorAndChangeNothing) {
    at(11, 0);
    show("eth0: 126000 2 3 4 5 6 7 8 2000 10 11 12 13 14 15\n");
    EXPECT_EQ(norv_net_usage_update(&net), NORV_STATUS_PARSE_ERROR);
    EXPECT_EQ(net.last_rx, 1000U);
    EXPECT_EQ(net.last_ms, 10000U);
}

// quirk 99
TEST_F(OpenNetUsage, ALineIsTruncatedAfter255Characters) {
    at(11, 0);
    show("eth0: " + std::string(250, ' ') + "126000 2 3 4 5 6 7 8 2000 10 11 12 13 14 15 16\n");
    EXPECT_EQ(norv_net_usage_update(&net), NORV_STATUS_PARSE_ERROR);
}

TEST_F(OpenNetUsage, AFailedReadGivesTheErrnoStatusAndTheRecordStaysOpen) {
    at(11, 0);
    kernel.fail("fgets", EACCES);
    EXPECT_EQ(norv_net_usage_update(&net), errno_status(EACCES));
    EXPECT_EQ(update(126000, 2000), 0U);
    EXPECT_EQ(net.rx_rate, 1000U);
}

// quirk 100
TEST_F(OpenNetUsage, AFailedFlushIsNotReported) {
    at(11, 0);
    kernel.fail("fflush", EACCES);
    EXPECT_EQ(norv_net_usage_update(&net), 0U);
    EXPECT_TRUE(kernel.struck());
}

// quirk 100
TEST_F(OpenNetUsage, AFailedSeekIsNotReportedAndTheSearchContinues) {
    at(11, 0);
    kernel.fail("fseek", EACCES);
    EXPECT_EQ(norv_net_usage_update(&net), NORV_STATUS_NOT_FOUND) << "eth0 is the last line";
    EXPECT_TRUE(kernel.struck());
    EXPECT_EQ(update(126000, 2000), 0U);
    EXPECT_EQ(net.rx_rate, 1000U);
}

TEST_F(OpenNetUsage, AFailedReadWhoseErrnoMapsToZeroEndsTheSearch) {
    kernel.map_errno(EIO, 0);
    kernel.fail("fgets", EIO);
    EXPECT_EQ(norv_net_usage_update(&net), NORV_STATUS_NOT_FOUND);
}

TEST_F(NetUsage, ANullRecordOrNameIsAnInvalidArgument) {
    memset(&net, 0xA5, sizeof net);
    norv_net_usage_close(nullptr);
    EXPECT_EQ(norv_net_usage_open(nullptr, "eth0"), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(norv_net_usage_open(&net, nullptr), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(net.file, nullptr) << "so that it can be closed";
    EXPECT_EQ(norv_net_usage_update(nullptr), NORV_STATUS_INVALID_ARG);
    EXPECT_THAT(kernel.calls(), IsEmpty());
}

TEST(RealNetUsage, TheLoopbackInterfaceOfTheTestMachineCanBeSampled) {
    norv_net_usage_t net;
    EXPECT_EQ(norv_net_usage_open(&net, "lo"), 0U);
    EXPECT_EQ(norv_net_usage_update(&net), 0U);
    norv_net_usage_close(&net);
}

// ---- failure sweep

TEST(NetUsageSweep, EveryFailingCallIsReportedAndLeavesNothingOpen) {
    norv::test::sweep_options options;
    options.expect = [](const strike& struck) {
        return struck.name == "fflush" || struck.name == "fseek" ? NORV_STATUS_OK
                                                                 : norv::test::status_of_fault(struck);
    };
    norv::test::failure_sweep(
        [](kernel_double& kernel) {
            // A failed seek finds the second line.
            kernel.add_file(dev_file, heading + line("eth0", 1, 2) + line("veth0", 1, 2));
        },
        [] {
            norv_net_usage_t net;
            uint32_t status = norv_net_usage_open(&net, "eth0");
            EXPECT_EQ(net.file == nullptr, status != 0);
            if (status == 0) {
                status = norv_net_usage_update(&net);
            }
            norv_net_usage_close(&net);
            return status;
        },
        options);
}

}  // namespace
