// SPDX-License-Identifier: MIT
// A descriptor that really is ready for EPOLLPRI when a test says so, as one of a driver's interrupt source.
#pragma once

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <optional>

#include "norv/file.hpp"

namespace norv::test {

// A TCP connection, whose urgent data makes its receiving end ready.
class urgent_connection {
  public:
    urgent_connection() {
        const norv::file listening = open_socket();
        sockaddr_in address = {};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t size = sizeof address;
        auto* const place = reinterpret_cast<sockaddr*>(&address);
        EXPECT_EQ(bind(listening.descriptor(), place, size), 0);
        EXPECT_EQ(listen(listening.descriptor(), 1), 0);
        EXPECT_EQ(getsockname(listening.descriptor(), place, &size), 0);
        EXPECT_EQ(connect(sending_.descriptor(), place, size), 0);
        receiving_ = norv::file::adopt(accept(listening.descriptor(), nullptr, nullptr)).value();
    }

    // Puts the receiving end in the place of a descriptor that the kernel double handed out: its model still answers
    // the calls, and the real kernel what epoll(7) asks.
    void replace(int descriptor) const { EXPECT_EQ(dup2(receiving_->descriptor(), descriptor), descriptor); }

    void raise() { EXPECT_EQ(send(sending_.descriptor(), "!", 1, MSG_OOB), 1); }
    void lower() {
        char taken = 0;
        EXPECT_EQ(recv(receiving_->descriptor(), &taken, 1, MSG_OOB), 1);
    }

  private:
    static norv::file open_socket() {
        return norv::file::adopt(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)).value();
    }

    norv::file sending_ = open_socket();
    std::optional<norv::file> receiving_;
};

// One that has replaced a descriptor.
class urgent_descriptor : public urgent_connection {
  public:
    explicit urgent_descriptor(int replaced) { replace(replaced); }
};

}  // namespace norv::test
