// SPDX-License-Identifier: MIT
// norv i2c: devices on an I2C bus, in the manner of i2cdetect, i2cget, i2cset, i2cdump and i2ctransfer.
#include "norv/i2c.hpp"

#include <algorithm>
#include <optional>
#include <span>

#include "bytes.hpp"
#include "command.hpp"
#include "failure.hpp"
#include "report.hpp"
#include "text.hpp"

namespace norv::tool {

namespace {

constexpr uint8_t first_address = 0x08;
constexpr uint8_t last_address = 0x77;

const causes usual_at_device{{status_of(ENXIO), "no answer; is the address right and the device powered?"},
                             {status_of(EREMOTEIO), "no answer, or the device refused a byte"},
                             {NORV_STATUS_TIMEOUT, "the bus is stuck; does a device hold SDA or SCL low?"},
                             {NORV_STATUS_NOT_AVAILABLE, "the adapter does not support such a transfer"}};

norv::i2c open_bus(uint32_t number) {
    return must(text("i2c bus %u", number), norv::i2c::open(number),
                {{NORV_STATUS_NOT_FOUND,
                  "no /sys/class/i2c-dev; is the module i2c-dev loaded, and was the kernel built with "
                  "CONFIG_I2C_CHARDEV?",
                  "/sys/class/i2c-dev"},
                 {NORV_STATUS_NOT_FOUND, "no such bus; are the adapter's driver and i2c-dev loaded?"},
                 {NORV_STATUS_NOT_AVAILABLE, "the adapter supports SMBus only"}});
}

void must_answer(uint32_t bus_number, uint8_t address, norv::status ended) {
    must(text("i2c %u-%04x", bus_number, address), ended, usual_at_device);
}

// The arguments that every command on one device has.
struct target {
    uint32_t bus_number = 0;
    uint8_t address = 0;

    void declare_bus(CLI::App& command) {
        command.add_option("BUS", bus_number, "N of /dev/i2c-N")->required();
    }
    void declare(CLI::App& command) {
        declare_bus(command);
        command.add_option("ADDRESS", address, "7 bits, not shifted")->required()->check(CLI::Range(0, 0x7F));
    }

    bytes read(norv::i2c& bus, uint8_t reg, uint16_t length) const {
        bytes data(length);
        must_answer(bus_number, address, bus.read(address, reg, std::as_writable_bytes(std::span{data})));
        return data;
    }
};

struct detect {
    static constexpr auto name = "detect";
    static constexpr auto help = "Scan a bus for devices, by reading a byte at each address";

    target on;
    report out;

    void declare(CLI::App& command) {
        on.declare_bus(command);
        out.offer_json(command);
    }

    void run() {
        norv::i2c opened = open_bus(on.bus_number);
        json found = json::array();
        std::string table = "     0  1  2  3  4  5  6  7  8  9  a  b  c  d  e  f";
        for (uint8_t address = 0; address < 0x80; ++address) {
            if (address % 16 == 0) {
                table += text("\n%02x:", address);
            }
            table += cell(opened, address, found);
        }
        out.show(table, {{"bus", on.bus_number}, {"addresses", found}});
    }

  private:
    // Reserved addresses are left alone.
    std::string cell(norv::i2c& opened, uint8_t address, json& found) const {
        if (address < first_address || address > last_address) {
            return "   ";
        }
        if (!answers(opened, address)) {
            return " --";
        }
        found.push_back(address);
        return text(" %02x", address);
    }

    bool answers(norv::i2c& opened, uint8_t address) const {
        std::byte byte{};
        const norv::status read = opened.raw_read(address, {&byte, 1});
        if (read == NORV_STATUS_TIMEOUT || read == NORV_STATUS_NOT_AVAILABLE) {
            must_answer(on.bus_number, address, read);
        }
        return read.ok();
    }
};

struct get {
    static constexpr auto name = "get";
    static constexpr auto help = "Read registers of a device";

    target on;
    uint8_t reg = 0;
    uint16_t count = 1;
    report out;

    void declare(CLI::App& command) {
        on.declare(command);
        command.add_option("REGISTER", reg, "the register to start at")->required();
        command.add_option("-n,--count", count, "bytes to read")
            ->check(CLI::Range(1, 8192))
            ->capture_default_str();
        out.offer_json(command);
    }

    void run() {
        norv::i2c opened = open_bus(on.bus_number);
        const bytes data = on.read(opened, reg, count);
        out.show(hex(data),
                 {{"bus", on.bus_number}, {"address", on.address}, {"register", reg}, {"data", data}});
    }
};

struct set {
    static constexpr auto name = "set";
    static constexpr auto help = "Write registers of a device";

    target on;
    uint8_t reg = 0;
    std::vector<std::string> values;

    void declare(CLI::App& command) {
        on.declare(command);
        command.add_option("REGISTER", reg, "the register to start at")->required();
        command.add_option("VALUE", values, "a byte; further bytes go to the following registers")
            ->required();
    }

    void run() {
        const bytes data = parse_bytes(values);
        if (data.size() > NORV_LINUX_I2C_MAX_WRITE) {
            throw usage_error{text("a transfer has at most %d bytes", NORV_LINUX_I2C_MAX_WRITE)};
        }
        norv::i2c opened = open_bus(on.bus_number);
        must_answer(on.bus_number, on.address, opened.write(on.address, reg, std::as_bytes(std::span{data})));
    }
};

struct dump {
    static constexpr auto name = "dump";
    static constexpr auto help = "Show all 256 registers of a device";

    target on;
    report out;

    void declare(CLI::App& command) {
        on.declare(command);
        out.offer_json(command);
    }

    void run() {
        norv::i2c opened = open_bus(on.bus_number);
        bytes data;
        // In rows, which every adapter can do.
        for (uint32_t row = 0; row < 256; row += 16) {
            const bytes part = on.read(opened, static_cast<uint8_t>(row), 16);
            data.insert(data.end(), part.begin(), part.end());
        }
        out.show(hex_dump(data), {{"bus", on.bus_number}, {"address", on.address}, {"data", data}});
    }
};

// One message of a transfer, written as for i2ctransfer: w2@0x50 or r16.
struct message {
    bool read = false;
    uint16_t length = 0;
    int address = -1;  // of the message before
};

message parse_message(const std::string& word) {
    const bool is_read = word.starts_with('r');
    const size_t at = word.find('@');
    const bool has_address = at != std::string::npos;
    const std::string digits = word.empty() ? "" : word.substr(1, has_address ? at - 1 : std::string::npos);
    const std::optional<uint32_t> length = parse_number(digits);
    const std::optional<uint32_t> address = has_address ? parse_number(word.substr(at + 1)) : std::nullopt;
    const bool is_valid_length = length && *length > 0 && *length <= 8192;
    const bool is_valid_address = !has_address || (address && *address <= 0x7F);
    if ((!is_read && !word.starts_with('w')) || !is_valid_length || !is_valid_address) {
        throw usage_error{"\"" + word + "\" is not a message like w2@0x50 or r16"};
    }
    return {is_read, static_cast<uint16_t>(*length),
            has_address ? static_cast<int>(address.value_or(0)) : -1};
}

struct transfer {
    static constexpr auto name = "transfer";
    static constexpr auto help =
        "Run a transfer of one or two messages: w2@0x50 0x00 0x10 r16 writes two bytes and reads 16";

    uint32_t bus_number = 0;
    std::vector<std::string> words;
    report out;

    void declare(CLI::App& command) {
        command.add_option("BUS", bus_number, "N of /dev/i2c-N")->required();
        command
            .add_option("MESSAGE", words,
                        "wLENGTH@ADDRESS and its bytes, rLENGTH@ADDRESS, or both in this order")
            ->required();
        out.offer_json(command);
    }

    void run() {
        parse();
        norv::i2c opened = open_bus(bus_number);
        bytes data(read_length);
        must_answer(bus_number, address, run_on(opened, std::as_writable_bytes(std::span{data})));
        if (read_length > 0) {
            out.show(hex(data), {{"bus", bus_number}, {"address", address}, {"data", data}});
        }
    }

  private:
    uint8_t address = 0;
    bytes written;
    uint16_t read_length = 0;

    void parse() {
        const message first = parse_message(words[0]);
        if (first.address < 0) {
            throw usage_error{"the first message needs an address, like w2@0x50"};
        }
        address = static_cast<uint8_t>(first.address);
        size_t next = 1;
        if (first.read) {
            read_length = first.length;
        } else {
            next = take_bytes(first.length);
            if (next < words.size()) {
                take_read(parse_message(words[next++]));
            }
        }
        if (next < words.size()) {
            throw usage_error{"a transfer is a write, a read, or a write and then a read"};
        }
    }

    size_t take_bytes(uint16_t length) {
        const size_t end = std::min<size_t>(words.size(), 1U + length);
        written = parse_bytes({words.begin() + 1, words.begin() + static_cast<std::ptrdiff_t>(end)});
        if (written.size() < length) {
            throw usage_error{text("%s must be followed by %u bytes", words[0].c_str(), length)};
        }
        return end;
    }

    void take_read(const message& second) {
        if (!second.read || (second.address >= 0 && second.address != address)) {
            throw usage_error{"the second message can only be a read at the same address"};
        }
        read_length = second.length;
    }

    norv::status run_on(norv::i2c& opened, std::span<std::byte> data) const {
        const std::span sent = std::as_bytes(std::span{written});
        if (sent.empty()) {
            return opened.raw_read(address, data);
        }
        return data.empty() ? opened.raw_write(address, sent) : opened.write_then_read(address, sent, data);
    }
};

const group i2c{"i2c", "Devices on an I2C bus", with_commands<detect, get, set, dump, transfer>};

}  // namespace

}  // namespace norv::tool
