// SPDX-License-Identifier: MIT
// norv sensors: temperatures and supply voltages from the system monitor of Zynq and ZynqMP devices.
#include "command.hpp"
#include "failure.hpp"
#include "names.hpp"
#include "norv/file.hpp"
#include "norv/zynq.hpp"
#include "report.hpp"
#include "sysfs.hpp"
#include "text.hpp"
#include "zynq.hpp"

namespace norv::tool {

namespace {

const std::string monitor = "/sys/bus/iio/devices/iio:device0";

constexpr cause no_iio{
    NORV_STATUS_NOT_FOUND,
    "no /sys/bus/iio; is the system monitor's driver loaded, and was the kernel built with CONFIG_IIO?",
    "/sys/bus/iio"};
const causes usual{no_iio,
                   {NORV_STATUS_NOT_FOUND, "no such channel; is the system monitor's driver loaded?"},
                   {NORV_STATUS_DEVICE_ERROR, "the conversion failed"}};

bool has(const std::string& attribute) {
    return norv::can_access(monitor + "/" + attribute);
}

struct reading {
    std::string channel;
    norv::result<int32_t> value;  // hundredths or thousandths of the unit
    const char* unit;             // "C" or "V"

    bool is_voltage() const { return *unit == 'V'; }
    double in_units() const { return *value / (is_voltage() ? 1000.0 : 100.0); }

    std::string words() const {
        return value ? text(is_voltage() ? "%9.3f %s" : "%9.2f %s", in_units(), unit) : value.status().name();
    }
    json document() const {
        return {{"channel", channel},
                {"value", value ? json(in_units()) : json()},
                {"unit", unit},
                {"status", value.status().name()}};
    }
};

// Supplies have a name after the number of their channel: voltage0_vccint; external inputs, whose range is
// the lower one, have none.
bool is_external(const std::string& channel) {
    return channel.find('_') == std::string::npos;
}

norv::result<int32_t> voltage(const std::string& channel, bool zynqmp) {
    using norv::zynq::full_scale;
    return zynqmp ? norv::zynqmp::get_voltage(channel)
                  : norv::zynq::get_voltage(
                        channel, is_external(channel) ? full_scale::one_volt : full_scale::three_volts);
}

struct thermometer {
    const char* channel;
    bool zynqmp;
    norv::result<int32_t> (*get)();
};

constexpr thermometer thermometers[] = {{"temp0", false, norv::zynq::get_temperature},
                                        {"temp0_ps_temp", true, norv::zynqmp::get_ps_temperature},
                                        {"temp2_pl_temp", true, norv::zynqmp::get_pl_temperature}};

norv::result<int32_t> temperature(const std::string& channel, bool zynqmp) {
    for (const thermometer& known : thermometers) {
        if (known.channel == channel && known.zynqmp == zynqmp) {
            return known.get();
        }
    }
    return norv::status{NORV_STATUS_NOT_FOUND};
}

std::vector<std::string> all_channels(bool zynqmp) {
    std::vector<std::string> all;
    for (const thermometer& known : thermometers) {
        if (known.zynqmp == zynqmp && has(text("in_%s_raw", known.channel))) {
            all.emplace_back(known.channel);
        }
    }
    for (const std::string& entry : names_in(monitor)) {
        if (entry.starts_with("in_voltage") && entry.ends_with("_raw")) {
            all.push_back(entry.substr(3, entry.size() - 7));
        }
    }
    return all;
}

struct sensors_command {
    std::vector<std::string> channels;
    zynq_family family;
    report out;

    void declare(CLI::App& command) {
        command
            .add_option("CHANNEL", channels,
                        "the system monitor's name for it, like temp0 or voltage0_vccint; default: all")
            ->check(name_of("a channel"));
        family.declare(command);
        out.offer_json(command);
    }

    void run() {
        const bool zynqmp = family.is_zynqmp(has("in_temp0_ps_temp_raw"));
        std::string table;
        json document = json::array();
        for (const std::string& channel : wanted(zynqmp)) {
            const reading measured = measure(channel, zynqmp);
            table += text("%s%-24s %s", table.empty() ? "" : "\n", channel.c_str(), measured.words().c_str());
            document.push_back(measured.document());
        }
        out.show(table, document);
    }

  private:
    std::vector<std::string> wanted(bool zynqmp) const {
        const std::vector<std::string> chosen = channels.empty() ? all_channels(zynqmp) : channels;
        if (chosen.empty()) {
            throw failure{"sensors",
                          NORV_STATUS_NOT_FOUND,
                          {no_iio, {NORV_STATUS_NOT_FOUND, "no system monitor; is its driver loaded?"}}};
        }
        return chosen;
    }

    // Among all channels, those that fail are shown as such; a channel that was asked for must not fail.
    reading measure(const std::string& channel, bool zynqmp) const {
        const reading measured = channel.starts_with("voltage")
                                     ? reading{channel, voltage(channel, zynqmp), "V"}
                                     : reading{channel, temperature(channel, zynqmp), "C"};
        if (!channels.empty()) {
            must("sensor " + channel, measured.value, usual);
        }
        return measured;
    }
};

const group sensors{"sensors", "Temperatures and voltages of Zynq and ZynqMP devices",
                    as_command<sensors_command>};

}  // namespace

}  // namespace norv::tool
