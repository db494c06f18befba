// SPDX-License-Identifier: MIT
// norv clock: the fabric clocks of Zynq and ZynqMP devices.
#include <cmath>

#include "command.hpp"
#include "failure.hpp"
#include "norv/zynq.hpp"
#include "report.hpp"
#include "sysfs.hpp"
#include "text.hpp"
#include "zynq.hpp"

namespace norv::tool {

namespace {

const std::string zynq_clocks = "/sys/class/fclkcfg";
const std::string zynqmp_clocks = "/sys/devices/platform";
constexpr auto prefix = "fclk";

const causes usual{{NORV_STATUS_NOT_FOUND, "no such clock; is the fabric clocks' driver loaded?"},
                   {NORV_STATUS_INVALID_ARG, "the clock cannot have that rate"},
                   {status_of(EBUSY), "the clock is in use and cannot be set"}};

std::string title(uint32_t number) {
    return text("clock %u", number);
}

// The class is there on a Zynq only.
bool found_zynqmp() {
    return names_in(zynq_clocks).empty();
}

uint32_t rate_of(uint32_t number, bool zynqmp) {
    return must(title(number),
                zynqmp ? norv::zynqmp::get_fclk_freq(number) : norv::zynq::get_fclk_freq(number), usual);
}

void show_rate(uint32_t number, uint32_t rate, const report& out) {
    out.show(std::to_string(rate), {{"clock", number}, {"rate", rate}});
}

struct list {
    static constexpr auto name = "list";
    static constexpr auto help = "Show all clocks and their rates in Hz";

    zynq_family family;
    report out;

    void declare(CLI::App& command) {
        family.declare(command);
        out.offer_json(command);
    }

    void run() {
        const bool zynqmp = family.is_zynqmp(found_zynqmp());
        std::string table = "CLOCK  RATE";
        json document = json::array();
        for (const std::string& entry : names_in(zynqmp ? zynqmp_clocks : zynq_clocks)) {
            if (const auto number = number_behind(entry, prefix)) {
                const uint32_t rate = rate_of(*number, zynqmp);
                table += text("\n%5u  %u", *number, rate);
                document.push_back({{"clock", *number}, {"rate", rate}});
            }
        }
        out.show(table, document);
    }
};

struct get {
    static constexpr auto name = "get";
    static constexpr auto help = "Show the rate of a clock in Hz";

    uint32_t number = 0;
    zynq_family family;
    report out;

    void declare(CLI::App& command) {
        command.add_option("CLOCK", number, "N of fclkN")->required();
        family.declare(command);
        out.offer_json(command);
    }

    void run() { show_rate(number, rate_of(number, family.is_zynqmp(found_zynqmp())), out); }
};

struct set {
    static constexpr auto name = "set";
    static constexpr auto help = "Set the rate of a clock (Zynq only), and show what it makes of that";

    uint32_t number = 0;
    double rate = 0;
    report out;

    void declare(CLI::App& command) {
        const std::map<std::string, double> units{{"k", 1e3}, {"M", 1e6}, {"G", 1e9}};
        command.add_option("CLOCK", number, "N of fclkN")->required();
        command.add_option("RATE", rate, "in Hz, or with a unit: 148.5M")
            ->required()
            ->transform(CLI::AsNumberWithUnit(units, CLI::AsNumberWithUnit::CASE_SENSITIVE).description(""))
            ->type_name("RATE");
        out.offer_json(command);
    }

    void run() {
        // The driver gets a signed number.
        if (!(rate >= 1 && rate <= INT32_MAX)) {
            throw usage_error{text("a rate of %g Hz cannot be requested", rate)};
        }
        const auto wanted = static_cast<uint32_t>(std::lround(rate));
        show_rate(number, must(title(number), norv::zynq::set_fclk_freq(number, wanted), usual), out);
    }
};

struct reset {
    static constexpr auto name = "reset";
    static constexpr auto help = "Assert or release the reset of what a clock drives (Zynq only)";

    uint32_t number = 0;
    uint32_t held = 0;

    void declare(CLI::App& command) {
        command.add_option("CLOCK", number, "N of fclkN")->required();
        command.add_option("STATE", held, "on or off")
            ->required()
            ->transform(one_of({{"on", 1}, {"off", 0}}));
    }

    void run() { must(title(number), norv::zynq::set_fclk_reset(number, held != 0), usual); }
};

const group fabric_clock{"clock", "Fabric clocks of Zynq and ZynqMP devices",
                         with_commands<list, get, set, reset>};

}  // namespace

}  // namespace norv::tool
