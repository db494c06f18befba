// SPDX-License-Identifier: MIT
// norv uevent: the kernel's messages of devices that come, go and change.
#include "norv/uevent.hpp"

#include <algorithm>
#include <iostream>
#include <string_view>

#include "command.hpp"
#include "failure.hpp"
#include "patience.hpp"
#include "report.hpp"
#include "text.hpp"

namespace norv::tool {

namespace {

const causes usual{{NORV_STATUS_NO_MEMORY, "no memory for messages"},
                   {status_of(EPROTONOSUPPORT), "the kernel has no uevents (CONFIG_NET)"}};

// "add@/devices/..." and texts KEY=value, each ended by a NUL.
struct message {
    std::string header;
    json keys = json::object();

    explicit message(std::string_view content) {
        while (!content.empty()) {
            take(content.substr(0, content.find('\0')));
            content.remove_prefix(std::min(content.size(), content.find('\0') + 1));
        }
    }

    std::string value(const char* key) const { return keys.value(key, ""); }
    std::string shown(const char* key) const { return printable(value(key)); }

  private:
    void take(std::string_view part) {
        const size_t equals = part.find('=');
        if (header.empty()) {
            header = part;
        } else if (equals != std::string_view::npos) {
            keys[std::string{part.substr(0, equals)}] = std::string{part.substr(equals + 1)};
        }
    }
};

struct uevent_command {
    std::vector<std::string> subsystems;
    bool with_keys = false;
    uint32_t count = 0;
    patience patient;
    report out;

    void declare(CLI::App& command) {
        command.add_option("-s,--subsystem", subsystems, "only of this subsystem; may be repeated")
            ->allow_extra_args(false);
        command.add_flag("-k,--keys", with_keys, "show all keys of each message");
        command.add_option("-n,--count", count, "exit after this many messages");
        patient.declare(command, "a message");
        out.offer_json(command);
    }

    void run() {
        norv::uevent opened = must("uevents", norv::uevent::open(), usual);
        while ((count == 0 || seen < count) && patient.wait("uevents", opened.descriptor(), POLLIN)) {
            const norv::status polled =
                opened.poll([this](std::string_view content) { take(message{content}); });
            // What the kernel had to drop does not affect the rest.
            if (polled == status_of(ENOBUFS)) {
                std::cerr << "norv: uevents: messages arrived too fast, some are lost\n";
            } else {
                must("uevents", polled);
            }
        }
    }

  private:
    uint32_t seen = 0;

    void take(const message& taken) {
        if (is_wanted(taken)) {
            show(taken);
            ++seen;
            patient.restart();
        }
    }

    // The messages of a udev daemon come over the same socket.
    bool is_wanted(const message& taken) const {
        const bool fits = subsystems.empty() || std::find(subsystems.begin(), subsystems.end(),
                                                          taken.value("SUBSYSTEM")) != subsystems.end();
        return fits && taken.header != "libudev" && (count == 0 || seen < count);
    }

    // The time is that of CLOCK_MONOTONIC after the message came.
    void show(const message& taken) const {
        const double now = timestamp();
        std::string line = text("%14.6f  %-7s %-12s %s", now, taken.shown("ACTION").c_str(),
                                taken.shown("SUBSYSTEM").c_str(), taken.shown("DEVPATH").c_str());
        if (with_keys) {
            for (const auto& [key, value] : taken.keys.items()) {
                line += "\n    " + printable(key) + "=" + printable(value.get<std::string>());
            }
        }
        out.show(line, {{"time", now}, {"keys", taken.keys}});
    }
};

const group uevent{"uevent", "Show the kernel's messages about devices that are added, removed and changed",
                   as_command<uevent_command>};

}  // namespace

}  // namespace norv::tool
