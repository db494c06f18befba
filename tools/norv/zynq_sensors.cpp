// SPDX-License-Identifier: MIT
// norv sensors: temperatures and supply voltages from the system monitor of Zynq and ZynqMP devices.
#include "command.hpp"
#include "failure.hpp"
#include "names.hpp"
#include "norv_file.h"
#include "norv_zynq.h"
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
    return norv_file_access(0, "%s/%s", monitor.c_str(), attribute.c_str());
}

struct reading {
    std::string channel;
    uint32_t status;
    int32_t value;     // hundredths or thousandths of the unit
    const char* unit;  // "C" or "V"

    bool is_voltage() const { return *unit == 'V'; }
    double in_units() const { return value / (is_voltage() ? 1000.0 : 100.0); }

    std::string words() const {
        return status != NORV_STATUS_OK ? norv_status_name(status)
                                        : text(is_voltage() ? "%9.3f %s" : "%9.2f %s", in_units(), unit);
    }
    json document() const {
        const bool good = status == NORV_STATUS_OK;
        return {{"channel", channel},
                {"value", good ? json(in_units()) : json()},
                {"unit", unit},
                {"status", norv_status_name(status)}};
    }
};

// Supplies have a name after the number of their channel: voltage0_vccint; external inputs, whose range is
// the lower one, have none.
bool is_external(const std::string& channel) {
    return channel.find('_') == std::string::npos;
}

reading voltage(const std::string& channel, bool zynqmp) {
    int32_t millivolts = 0;
    const uint32_t status = zynqmp
                                ? norv_zynqmp_get_voltage(channel.c_str(), &millivolts)
                                : norv_zynq_get_voltage(channel.c_str(), is_external(channel), &millivolts);
    return {channel, status, millivolts, "V"};
}

struct thermometer {
    const char* channel;
    bool zynqmp;
    uint32_t (*get)(int32_t*);
};

constexpr thermometer thermometers[] = {{"temp0", false, norv_zynq_get_temperature},
                                        {"temp0_ps_temp", true, norv_zynqmp_get_ps_temperature},
                                        {"temp2_pl_temp", true, norv_zynqmp_get_pl_temperature}};

reading temperature(const std::string& channel, bool zynqmp) {
    for (const thermometer& known : thermometers) {
        if (known.channel == channel && known.zynqmp == zynqmp) {
            int32_t hundredths = 0;
            const uint32_t status = known.get(&hundredths);
            return {channel, status, hundredths, "C"};
        }
    }
    return {channel, NORV_STATUS_NOT_FOUND, 0, "C"};
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
        must("sensors", chosen.empty() ? NORV_STATUS_NOT_FOUND : NORV_STATUS_OK,
             {no_iio, {NORV_STATUS_NOT_FOUND, "no system monitor; is its driver loaded?"}});
        return chosen;
    }

    // Among all channels, those that fail are shown as such; a channel that was asked for must not fail.
    reading measure(const std::string& channel, bool zynqmp) const {
        const reading measured =
            channel.starts_with("voltage") ? voltage(channel, zynqmp) : temperature(channel, zynqmp);
        must("sensor " + channel, channels.empty() ? NORV_STATUS_OK : measured.status, usual);
        return measured;
    }
};

const group sensors{"sensors", "Temperatures and voltages of Zynq and ZynqMP devices",
                    as_command<sensors_command>};

}  // namespace

}  // namespace norv::tool
