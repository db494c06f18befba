// SPDX-License-Identifier: MIT
// A descriptor that really is ready for EPOLLPRI when a test says so, as one of a driver's interrupt source.
#pragma once

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

namespace norv::test {

// Puts one end of a TCP connection in the place of a descriptor that the kernel double handed out: its model
// still answers the calls, and the real kernel what epoll(7) asks. Urgent data makes it ready.
class urgent_descriptor {
  public:
    explicit urgent_descriptor(int replaced) {
        const int listening = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        sockaddr_in address = {};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t size = sizeof address;
        auto* const place = reinterpret_cast<sockaddr*>(&address);
        EXPECT_EQ(bind(listening, place, size), 0);
        EXPECT_EQ(listen(listening, 1), 0);
        EXPECT_EQ(getsockname(listening, place, &size), 0);
        EXPECT_EQ(connect(sending_, place, size), 0);
        receiving_ = accept(listening, nullptr, nullptr);
        close(listening);
        EXPECT_EQ(dup2(receiving_, replaced), replaced);
    }
    ~urgent_descriptor() {
        close(sending_);
        close(receiving_);
    }
    urgent_descriptor(const urgent_descriptor&) = delete;
    urgent_descriptor& operator=(const urgent_descriptor&) = delete;

    void raise() { EXPECT_EQ(send(sending_, "!", 1, MSG_OOB), 1); }
    void lower() {
        char taken = 0;
        EXPECT_EQ(recv(receiving_, &taken, 1, MSG_OOB), 1);
    }

  private:
    int sending_ = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    int receiving_ = -1;
};

}  // namespace norv::test
