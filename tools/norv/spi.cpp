// SPDX-License-Identifier: MIT
// norv spi: slaves on an SPI bus.
#include "norv/spi.hpp"

#include <span>

#include "bytes.hpp"
#include "command.hpp"
#include "failure.hpp"
#include "names.hpp"
#include "report.hpp"
#include "text.hpp"

namespace norv::tool {

namespace {

const causes usual{
    {NORV_STATUS_NOT_FOUND,
     "no /sys/class/spidev; is the module spidev loaded, and was the kernel built with CONFIG_SPI_SPIDEV?",
     "/sys/class/spidev"},
    {NORV_STATUS_NOT_FOUND, "no such slave; are the controller's driver and spidev loaded?"},
    {NORV_STATUS_INVALID_ARG, "the controller does not offer this mode, word size or bit order"},
    {status_of(EMSGSIZE), "longer than spidev accepts at once; load it with a larger bufsiz"},
    {status_of(ENOTTY), "not a spidev device"}};

struct transfer {
    static constexpr auto name = "transfer";
    static constexpr auto help = "Send bytes and show those received meanwhile";

    std::string device;
    std::vector<std::string> words;
    uint32_t read = 0;
    norv::spi::settings config{.max_speed_hz = 1000000};
    report out;

    void declare(CLI::App& command) {
        command.add_option("DEVICE", device, "for instance /dev/spidev0.0")->required()->check(whole_path());
        command.add_option("BYTE", words, "to send; may be repeated");
        command.add_option("-r,--read", read,
                           "then send this many zeros, and show only the bytes received with them");
        command.add_option("-s,--speed", config.max_speed_hz, "of the clock, in Hz")->capture_default_str();
        command.add_option("-m,--mode", config.mode, "0 to 3: clock polarity (2) and phase (1)")
            ->check(CLI::Range(0, 3))
            ->capture_default_str();
        // A byte's own default would be printed as a character.
        command.add_option("-b,--bits", config.bits_per_word, "of a word")
            ->default_str(std::to_string(config.bits_per_word));
        command.add_flag("--lsb-first", config.lsb_first, "least significant bit first");
        out.offer_json(command);
    }

    // One transfer for both parts: the slave stays selected.
    void run() {
        bytes sent = parse_bytes(words);
        const auto skipped = static_cast<std::ptrdiff_t>(read == 0 ? 0 : sent.size());
        sent.resize(sent.size() + read);
        if (sent.empty()) {
            throw usage_error{"nothing to send or to read"};
        }
        bytes received(sent.size());
        norv::spi slave = must("spi " + device, norv::spi::open(device, config), usual);
        must("spi " + device,
             slave.duplex(std::as_bytes(std::span{sent}), std::as_writable_bytes(std::span{received})),
             usual);
        received.erase(received.begin(), received.begin() + skipped);
        out.show(hex(received), {{"device", device}, {"data", received}});
    }
};

const group spi{"spi", "Slaves on an SPI bus", with_commands<transfer>};

}  // namespace

}  // namespace norv::tool
