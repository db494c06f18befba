// SPDX-License-Identifier: MIT
// A serial port: keeps its terminal settings and modem lines, takes and delivers bytes in pieces.
#pragma once

#include <poll.h>
#include <sys/ioctl.h>
#include <termios.h>

#include <algorithm>
#include <cerrno>
#include <deque>
#include <functional>
#include <string>
#include <vector>

#include "support/device.hpp"

namespace norv::test {

class serial_port : public device {
  public:
    termios settings = as_a_login_leaves_it();
    int modem_lines = 0;
    std::vector<std::string> requests;  // what the port was asked to do, in order

    std::string received;              // waits to be read
    std::deque<std::string> arriving;  // pieces that arrive later, one during each wait
    std::string sent;
    size_t room = 1000;           // bytes that can be sent at once; each wait makes that much room again
    std::vector<int> poll_waits;  // the timeout of every poll
    std::function<void()> on_open = [] {};

    long open(int) override {
        on_open();
        return 0;
    }

    long ioctl(unsigned long request, void* argument) override {
        switch (request) {
            case TCGETS:
                requests.emplace_back("get");
                *static_cast<termios*>(argument) = settings;
                return 0;
            case TCSETS:
                requests.emplace_back("set now");
                settings = *static_cast<const termios*>(argument);
                return 0;
            case TCFLSH:
                return discard(static_cast<int>(reinterpret_cast<intptr_t>(argument)));
            default:
                return modem_ioctl(request, *static_cast<int*>(argument));
        }
    }

    long read(void* buffer, size_t size, off_t) override {
        const size_t count = received.copy(static_cast<char*>(buffer), size);
        received.erase(0, count);
        return count == 0 ? -EAGAIN : static_cast<long>(count);
    }

    long write(const void* buffer, size_t size, off_t) override {
        const size_t count = std::min(size, room - used_);
        sent.append(static_cast<const char*>(buffer), count);
        used_ += count;
        return count == 0 ? -EAGAIN : static_cast<long>(count);
    }

    long poll(short events, int timeout) override {
        poll_waits.push_back(timeout);
        if (events == POLLOUT) {
            used_ = 0;
            return room > 0 ? POLLOUT : 0;
        }
        if (received.empty() && !arriving.empty()) {
            received = arriving.front();
            arriving.pop_front();
        }
        return received.empty() ? 0 : POLLIN;
    }

  private:
    static termios as_a_login_leaves_it() {
        termios settings = {};
        settings.c_iflag = ICRNL | IXON;
        settings.c_oflag = OPOST | ONLCR;
        settings.c_cflag = CS8 | CREAD | HUPCL;
        settings.c_lflag = ICANON | ECHO | ISIG;
        settings.c_cc[VINTR] = 3;
        settings.c_cc[VMIN] = 1;
        cfsetspeed(&settings, B38400);
        return settings;
    }

    long discard(int queue) {
        requests.emplace_back(queue == TCIFLUSH ? "discard input" : "discard something else");
        received.clear();
        return 0;
    }

    long modem_ioctl(unsigned long request, int& lines) {
        switch (request) {
            case TIOCMBIS:
                modem_lines |= lines;
                return 0;
            case TIOCMBIC:
                modem_lines &= ~lines;
                return 0;
            case TIOCMGET:
                lines = modem_lines;
                return 0;
            default:
                return -ENOTTY;
        }
    }

    size_t used_ = 0;
};

}  // namespace norv::test
