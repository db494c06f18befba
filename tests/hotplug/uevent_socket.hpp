// SPDX-License-Identifier: MIT
// The socket on which the kernel sends uevent messages, and the messages.
#pragma once

#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <deque>
#include <initializer_list>
#include <memory>
#include <string>
#include <utility>

#include "support/kernel_double.hpp"

namespace norv::test {

// A message as the kernel writes it: the header line and the texts, each followed by a NUL.
inline std::string uevent_message(const std::string& action, const std::string& devpath,
                                  std::initializer_list<std::string> texts = {}) {
    std::string message = action + "@" + devpath + '\0';
    message += "ACTION=" + action + '\0';
    message += "DEVPATH=" + devpath + '\0';
    for (const std::string& text : texts) {
        message += text + '\0';
    }
    return message;
}

class uevent_socket {
  public:
    explicit uevent_socket(kernel_double& kernel) : waiting_(std::make_shared<queue>()) {
        kernel.add_socket_family(AF_NETLINK,
                                 [waiting = waiting_](int, int) { return std::make_shared<end>(waiting); });
    }

    // A message that waits to be received.
    void send(const std::string& message) { waiting_->push_back({message, 0}); }
    // One failure of recv(2), queued among the messages.
    void fail_receive(int error) { waiting_->push_back({"", error}); }
    size_t waiting() const { return waiting_->size(); }

  private:
    struct item {
        std::string message;
        int error;
    };
    using queue = std::deque<item>;

    class end : public device {
      public:
        explicit end(std::shared_ptr<queue> waiting) : waiting_(std::move(waiting)) {}

        long bind(const void*, size_t) override { return 0; }
        long set_option(int, int, const void*, size_t) override { return 0; }
        long receive(void* buffer, size_t size, int) override {
            if (waiting_->empty()) {
                return -EAGAIN;
            }
            const item first = std::move(waiting_->front());
            waiting_->pop_front();
            // What does not fit is lost.
            return first.error != 0 ? -first.error
                                    : static_cast<long>(first.message.copy(static_cast<char*>(buffer), size));
        }

      private:
        std::shared_ptr<queue> waiting_;
    };

    std::shared_ptr<queue> waiting_;
};

}  // namespace norv::test
