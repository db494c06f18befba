// SPDX-License-Identifier: MIT
// Rates of a real kernel's loopback interface, under known traffic.
#include "norv_net_usage.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <string>
#include <thread>

#include "../support/attribute.hpp"
#include "norv_status.h"

namespace {

constexpr int packet_size = 1000;
constexpr int header_size = 28;  // of UDP and IP, which the kernel counts too

uint32_t kernels_count(const char* name) {
    const std::string path = std::string("/sys/class/net/lo/statistics/") + name;
    return static_cast<uint32_t>(std::stoull(norv::board::attribute(path)));
}

// Sends packets to the discard port. No one receives them, which only adds the kernel's ICMP replies to the
// counters.
void send_packets(int count) {
    const int sender = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_port = htons(9);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    const std::array<char, packet_size> packet = {};
    for (int sent = 0; sent < count; ++sent) {
        sendto(sender, packet.data(), packet.size(), 0, reinterpret_cast<const sockaddr*>(&address),
               sizeof address);
    }
    close(sender);
}

class NetUsageOnBoard : public testing::Test {
  protected:
    NetUsageOnBoard() { EXPECT_EQ(norv_net_usage_open(&net, "lo"), 0U); }
    ~NetUsageOnBoard() override { norv_net_usage_close(&net); }

    void update_after(std::chrono::milliseconds pause) {
        std::this_thread::sleep_for(pause);
        EXPECT_EQ(norv_net_usage_update(&net), 0U);
    }

    norv_net_usage_t net = {};
};

TEST_F(NetUsageOnBoard, TheCountersAreTheKernels) {
    send_packets(10);
    update_after(std::chrono::milliseconds(20));
    EXPECT_EQ(net.last_rx, kernels_count("rx_bytes"));
    EXPECT_EQ(net.last_tx, kernels_count("tx_bytes"));
}

TEST_F(NetUsageOnBoard, TheRatesAreTheBytesOverTheTime) {
    const uint32_t received = net.last_rx;
    const uint32_t since = net.last_ms;
    send_packets(1000);
    update_after(std::chrono::milliseconds(200));
    const uint32_t bytes = net.last_rx - received;
    EXPECT_GE(bytes, 1000U * (packet_size + header_size));
    EXPECT_EQ(net.rx_rate, bytes * 8 / (net.last_ms - since));
    EXPECT_EQ(net.tx_rate, net.rx_rate) << "what the loopback interface sends, it receives";
}

TEST_F(NetUsageOnBoard, WithoutTrafficTheRatesAreZero) {
    send_packets(10);
    update_after(std::chrono::milliseconds(20));
    update_after(std::chrono::milliseconds(50));
    EXPECT_EQ(net.rx_rate, 0U);
    EXPECT_EQ(net.tx_rate, 0U);
}

TEST(NetUsageOnBoardRefusals, AnInterfaceThatTheKernelDoesNotHaveIsNotFound) {
    norv_net_usage_t net;
    EXPECT_EQ(norv_net_usage_open(&net, "none0"), NORV_STATUS_NOT_FOUND);
    EXPECT_EQ(net.file, nullptr);
}

}  // namespace
