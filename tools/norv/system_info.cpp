// SPDX-License-Identifier: MIT
// norv stat: how the board is doing.
#include "norv/system_info.hpp"

#include <unistd.h>

#include "command.hpp"
#include "failure.hpp"
#include "interrupt.hpp"
#include "norv/cpu_usage.hpp"
#include "norv/net_usage.hpp"
#include "norv/zynq.hpp"
#include "output.hpp"
#include "report.hpp"
#include "sysfs.hpp"
#include "text.hpp"

namespace norv::tool {

namespace {

double percentage(norv::cpu_usage& processor) {
    must("/proc/stat", processor.update());
    return processor.usage() / 100.0;
}

struct network {
    std::string name;
    norv::net_usage usage;
};

network open_network(const std::string& name) {
    if (name.empty()) {
        throw usage_error{"a network interface has a name"};  // an empty one is part of every name
    }
    return {name, must(name, norv::net_usage::open(name),
                       {{NORV_STATUS_NOT_FOUND, "no such network interface"},
                        {NORV_STATUS_EXHAUSTED, "too long for the name of a network interface"}})};
}

struct temperature {
    const char* name;
    double celsius;
};

// Those of the system monitor that this processor has; a board without one has none.
std::vector<temperature> temperatures() {
    struct source {
        const char* name;
        const char* raw;
        norv::result<int32_t> (*measure)();
    };
    const source sources[] = {{"PS", "in_temp0_ps_temp_raw", norv::zynqmp::get_ps_temperature},
                              {"PL", "in_temp2_pl_temp_raw", norv::zynqmp::get_pl_temperature},
                              {"chip", "in_temp0_raw", norv::zynq::get_temperature}};
    std::vector<temperature> measured;
    for (const source& one : sources) {
        if (!attribute_if_there(std::string{"/sys/bus/iio/devices/iio:device0/"} + one.raw)) {
            continue;
        }
        if (const norv::result<int32_t> hundredths = one.measure()) {
            measured.push_back({one.name, *hundredths / 100.0});
        }
    }
    return measured;
}

struct stat_command {
    std::vector<std::string> interfaces;
    int interval = 1000;
    bool watch = false;
    report out;

    void declare(CLI::App& command) {
        command.add_option("-i,--interface", interfaces, "only these network interfaces; may be repeated")
            ->type_name("NAME");
        command.add_option("--interval", interval, "milliseconds over which CPU and network are measured")
            ->check(CLI::Range(20, 3600000))
            ->capture_default_str();
        command.add_flag("-w,--watch", watch, "repeat until Ctrl-C");
        out.offer_json(command);
    }

    void run() {
        norv::cpu_usage processor = must("/proc/stat", norv::cpu_usage::open());
        std::vector<network> networks;
        for (const std::string& name : interfaces.empty() ? all_interfaces() : interfaces) {
            networks.push_back(open_network(name));
        }
        while (sleep_for(interval)) {
            const json now = sample(processor, networks);
            if (is_drawn_again()) {
                print("\033[H\033[J");
            }
            out.show(as_text(now), now);
            if (!watch) {
                return;
            }
        }
    }

  private:
    static std::vector<std::string> all_interfaces() {
        std::vector<std::string> names = names_in("/sys/class/net");
        std::erase_if(names, [](const auto& name) {
            return !attribute_if_there("/sys/class/net/" + name + "/ifindex");
        });
        return names;
    }

    // Only where somebody looks; a file keeps one sample after the other.
    bool is_drawn_again() const { return watch && !out.is_json() && isatty(STDOUT_FILENO) != 0; }

    static json sample(norv::cpu_usage& processor, std::vector<network>& networks) {
        const norv_mem_info_t memory = must("/proc/meminfo", norv::memory_info());
        const std::chrono::seconds uptime = must("uptime", norv::uptime());
        json document{{"cpu_percent", percentage(processor)},
                      {"memory_kib",
                       {{"total", memory.total},
                        {"available", memory.available},
                        {"free", memory.free},
                        {"buffers", memory.buffers},
                        {"cached", memory.cached}}},
                      {"uptime_s", uptime.count()},
                      {"network", json::array()},
                      {"temperatures", json::array()}};
        for (network& one : networks) {
            // An interface that went away meanwhile shows its last rates.
            one.usage.update().ignore();
            document["network"].push_back({{"interface", one.name},
                                           {"rx_kbit_s", one.usage.rx_rate()},
                                           {"tx_kbit_s", one.usage.tx_rate()}});
        }
        for (const temperature& one : temperatures()) {
            document["temperatures"].push_back({{"name", one.name}, {"celsius", one.celsius}});
        }
        return document;
    }

    static std::string as_text(const json& now) {
        const uint32_t uptime = now["uptime_s"];
        const json& memory = now["memory_kib"];
        std::string lines = text("cpu      %6.2f %%\n", now["cpu_percent"].get<double>());
        lines += text("memory   %d of %d kB available\n", memory["available"].get<int>(),
                      memory["total"].get<int>());
        lines += text("uptime   %u d %02u:%02u:%02u", uptime / 86400, uptime / 3600 % 24, uptime / 60 % 60,
                      uptime % 60);
        for (const json& one : now["network"]) {
            lines += text("\n%-8s %u kbit/s in, %u kbit/s out", one["interface"].get<std::string>().c_str(),
                          one["rx_kbit_s"].get<uint32_t>(), one["tx_kbit_s"].get<uint32_t>());
        }
        for (const json& one : now["temperatures"]) {
            lines += text("\n%-8s %.2f degrees Celsius", one["name"].get<std::string>().c_str(),
                          one["celsius"].get<double>());
        }
        return lines;
    }
};

const group stat{"stat", "CPU, memory, network, uptime and temperatures", as_command<stat_command>};

}  // namespace

}  // namespace norv::tool
