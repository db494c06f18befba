// SPDX-License-Identifier: MIT
// Plugs USB devices into the machine's ports and out of them, with commands to the emulator's control port.
#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <unistd.h>

#include <string>

#include "norv/file.hpp"

namespace norv::board {

class usb_plug {
  public:
    usb_plug() {
        execute(R"({"execute":"qmp_capabilities"})");  // refused, and not needed, if it was done before
        if (execute(R"({"execute":"qom-list","arguments":{"path":"usb.0"}})").find("\"return\":") ==
            std::string::npos) {
            bus_ = "usb-bus.0";  // the emulator's name for the bus of an unnamed controller
        }
    }

    // Plugs a device, for instance "usb-kbd", into a port: "1", or "2.1" on a hub. `id` is its name for out().
    void in(const std::string& driver, const std::string& id, const std::string& port,
            const std::string& more = "") {
        must_execute(R"({"execute":"device_add","arguments":{"bus":")" + bus_ + R"(","driver":")" + driver +
                     R"(","id":")" + id + R"(","port":")" + port + "\"" + more + "}}");
    }
    void out(const std::string& id) {
        must_execute(R"({"execute":"device_del","arguments":{"id":")" + id + "\"}}");
    }

    // A serial line at which nothing happens, for a device that needs one.
    void add_idle_line(const std::string& id) {
        must_execute(R"({"execute":"chardev-add","arguments":{"id":")" + id +
                     R"(","backend":{"type":"null","data":{}}}})");
    }

  private:
    void must_execute(const std::string& command) {
        const std::string answer = execute(command);
        EXPECT_NE(answer.find("\"return\":"), std::string::npos) << command << " gave " << answer;
    }

    // Returns the emulator's answer; events and greetings are skipped.
    std::string execute(const std::string& command) {
        const std::string line = command + "\n";
        EXPECT_EQ(write(port_.descriptor(), line.data(), line.size()), static_cast<ssize_t>(line.size()));
        std::string answer;
        do {
            answer = next_line();
        } while (answer.find("\"event\":") != std::string::npos ||
                 answer.find("\"QMP\":") != std::string::npos);
        return answer;
    }

    std::string next_line() {
        constexpr int plenty = 60'000;  // ms
        std::string line;
        char character = '\0';
        pollfd readable = {port_.descriptor(), POLLIN, 0};
        while (poll(&readable, 1, plenty) == 1 && read(readable.fd, &character, 1) == 1 &&
               character != '\n') {
            line += character;
        }
        return line;
    }

    std::string bus_ = "usb.0";
    const norv::file port_ = norv::file::open("/dev/vport0p4", O_RDWR | O_CLOEXEC).value();
};

}  // namespace norv::board
