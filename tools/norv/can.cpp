// SPDX-License-Identifier: MIT
// norv can: frames on a CAN bus, written and shown as by cansend and candump.
#include "norv/can.hpp"

#include <linux/can.h>
#include <net/if.h>

#include <algorithm>
#include <cctype>
#include <chrono>
#include <cstdlib>

#include "bytes.hpp"
#include "command.hpp"
#include "failure.hpp"
#include "interrupt.hpp"
#include "names.hpp"
#include "report.hpp"
#include "text.hpp"

namespace norv::tool {

namespace {

using namespace std::chrono_literals;

const causes usual{
    {status_of(ENODEV), "no such interface; is its driver loaded?"},
    {status_of(ENETDOWN), "the interface is down; ip link set IF up type can bitrate 500000"},
    {status_of(ENOBUFS), "the queue is full; is there another node that acknowledges?"},
    {NORV_STATUS_TIMEOUT, "the bus does not accept the frame; is there another node that acknowledges?"},
    {status_of(EPERM), "the interface cannot be bound; is it a CAN interface?"},
    {status_of(EBADF), "no CAN socket; was the kernel built without CONFIG_CAN or CONFIG_CAN_RAW?"}};

norv::can open_channel(const std::string& on, uint32_t identifier, uint32_t alternative) {
    return must(on, norv::can::open(on, identifier, alternative), usual);
}

// Whatever is not 0 or not 1 is everything.
norv::can open_channel_for_all(const std::string& on) {
    return open_channel(on, 0 | CAN_INV_FILTER, 1 | CAN_INV_FILTER);
}

bool is_extended(const can_frame& frame) {
    return (frame.can_id & CAN_EFF_FLAG) != 0;
}

bool is_remote(const can_frame& frame) {
    return (frame.can_id & CAN_RTR_FLAG) != 0;
}

uint32_t identifier_of(const can_frame& frame) {
    return frame.can_id & (is_extended(frame) ? CAN_EFF_MASK : CAN_SFF_MASK);
}

bytes data_of(const can_frame& frame) {
    return is_remote(frame) ? bytes{}
                            : bytes(frame.data, frame.data + std::min<size_t>(frame.len, CAN_MAX_DLEN));
}

std::string upper(std::string word) {
    std::transform(word.begin(), word.end(), word.begin(), [](unsigned char c) { return std::toupper(c); });
    return word;
}

// Without the 0x that may come first.
std::string digits_of(const std::string& word) {
    return word.starts_with("0x") || word.starts_with("0X") ? word.substr(2) : word;
}

// ID#DATA as cansend takes it: three digits are a standard identifier, eight an extended one.
can_frame parse_frame(const std::string& word) {
    const size_t hash = word.find('#');
    const std::string digits = word.substr(0, hash);
    const unsigned long identifier = std::strtoul(digits.c_str(), nullptr, 16);
    const bool extended = digits.size() == 8;
    if (hash == std::string::npos || !is_hexadecimal(digits) || (digits.size() != 3 && !extended) ||
        identifier > (extended ? CAN_EFF_MASK : CAN_SFF_MASK)) {
        throw usage_error{"\"" + word + "\" is not a frame like 123#DEADBEEF, 12345678#00 or 123#R"};
    }
    can_frame frame{};
    frame.can_id = static_cast<canid_t>(identifier) | (extended ? CAN_EFF_FLAG : 0);
    const std::string content = word.substr(hash + 1);
    if (content == "R" || content == "r") {
        frame.can_id |= CAN_RTR_FLAG;
        return frame;
    }
    const bytes data = parse_hex_digits(content);
    if (data.size() > CAN_MAX_DLEN) {
        throw usage_error{"\"" + word + "\" has more than 8 bytes"};
    }
    frame.len = static_cast<uint8_t>(data.size());
    std::copy(data.begin(), data.end(), frame.data);
    return frame;
}

// A longer name would be truncated to that of another interface.
void add_interface(CLI::App& command, std::string& name) {
    command.add_option("INTERFACE", name, "for instance can0")
        ->required()
        ->check(name_of("a network interface", IFNAMSIZ - 1));
}

struct dump {
    static constexpr auto name = "dump";
    static constexpr auto help = "Show the frames that arrive, until Ctrl-C";

    std::string on;
    std::vector<std::string> identifiers;
    uint32_t count = 0;
    int timeout = -1;
    report out;

    void declare(CLI::App& command) {
        add_interface(command, on);
        command.add_option(
            "ID", identifiers,
            "hexadecimal; only frames whose identifier ends in these 11 bits; may be repeated");
        command.add_option("-n,--count", count, "exit after this many frames");
        command.add_option("-t,--timeout", timeout, "fail after this many milliseconds without one");
        out.offer_json(command);
    }

    void run() {
        std::vector<norv::can> channels = open_channels();
        for (uint32_t seen = 0; count == 0 || seen < count;) {
            std::vector<pollfd> sources;
            for (const norv::can& channel : channels) {
                sources.push_back({channel.descriptor(), POLLIN, 0});
            }
            if (!wait_for(sources, timeout, on, "no frame arrived in time")) {
                return;
            }
            seen += show_frames(channels, sources);
        }
    }

  private:
    std::vector<norv::can> open_channels() const {
        std::vector<norv::can> channels;
        if (identifiers.empty()) {
            channels.push_back(open_channel_for_all(on));
        }
        for (const std::string& word : identifiers) {
            const unsigned long identifier = std::strtoul(word.c_str(), nullptr, 16);
            if (!is_hexadecimal(digits_of(word)) || identifier > CAN_EFF_MASK) {
                throw usage_error{"\"" + word + "\" is not an identifier"};
            }
            channels.push_back(
                open_channel(on, static_cast<uint32_t>(identifier), static_cast<uint32_t>(identifier)));
        }
        return channels;
    }

    uint32_t show_frames(std::vector<norv::can>& channels, const std::vector<pollfd>& sources) const {
        uint32_t shown = 0;
        for (size_t index = 0; index < channels.size(); ++index) {
            if (sources[index].revents != 0) {
                show(must(on, channels[index].read(0ms), usual));
                ++shown;
            }
        }
        return shown;
    }

    void show(const can_frame& frame) const {
        const bytes data = data_of(frame);
        out.show(text("  %s  %*s   [%u]  %s", on.c_str(), 8,
                      text(is_extended(frame) ? "%08X" : "%03X", identifier_of(frame)).c_str(), frame.len,
                      is_remote(frame) ? "remote request" : upper(hex(data)).c_str()),
                 {{"interface", on},
                  {"id", identifier_of(frame)},
                  {"extended", is_extended(frame)},
                  {"remote", is_remote(frame)},
                  {"data", data}});
    }
};

struct send {
    static constexpr auto name = "send";
    static constexpr auto help = "Send frames: 123#DEADBEEF, 12345678#00 (extended), 123#R (remote request)";

    std::string on;
    std::vector<std::string> words;

    void declare(CLI::App& command) {
        add_interface(command, on);
        command
            .add_option("FRAME", words, "identifier, # and up to 8 bytes, in hexadecimal; may be repeated")
            ->required();
    }

    void run() {
        std::vector<can_frame> frames;
        for (const std::string& word : words) {
            frames.push_back(parse_frame(word));
        }
        norv::can channel = open_channel(on, 0, 0);
        for (const can_frame& frame : frames) {
            must(on, channel.write(frame, 1s), usual);
        }
    }
};

const group can{"can", "Frames on a CAN bus", with_commands<dump, send>};

}  // namespace

}  // namespace norv::tool
