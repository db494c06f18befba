// SPDX-License-Identifier: MIT
// norv gpio: lines of GPIO chips, by the kernel's number.
//
// A line that is exported when a command begins stays exported; what the command exports itself it gives back
// at its end, except for `set`: giving a line back would take its level away.
#include "norv/gpio.hpp"

#include <map>
#include <optional>

#include "command.hpp"
#include "failure.hpp"
#include "interrupt.hpp"
#include "norv/file.hpp"
#include "report.hpp"
#include "text.hpp"

namespace norv::tool {

namespace {

const causes usual{
    {NORV_STATUS_INVALID_ARG, "no such line; is the gpiochip driver loaded?"},
    {NORV_STATUS_NOT_FOUND,
     "no /sys/class/gpio/export; was the kernel built without CONFIG_GPIO_SYSFS or CONFIG_GPIO_SYSFS_LEGACY?",
     "/sys/class/gpio/export"},
    {status_of(EBUSY), "a kernel driver or another program uses the line"},
    {status_of(EPERM), "the line cannot be driven; is it an input only?"}};

const causes usual_of_watched{{NORV_STATUS_NOT_FOUND, "the line has no interrupt and cannot be watched"},
                              {NORV_STATUS_DEVICE_ERROR, "the line's interrupt is in use; is it an output?"}};

struct line {
    uint32_t number;
    norv::gpio gpio;

    std::string title() const { return text("gpio %u", number); }

    void make_input() { must(title(), gpio.set_direction(norv::gpio::direction::input), usual); }

    uint32_t level() { return must(title(), gpio.get_value(), usual) ? 1 : 0; }

    // What is an output already goes straight to its new level; an input becomes one, low at first.
    void drive(bool high) {
        if (!gpio.set_value(high).ok()) {
            must(title(), gpio.set_direction(norv::gpio::direction::output), usual);
            must(title(), gpio.set_value(high), usual);
        }
    }

    void watch(norv::gpio::edge edge) { must(title(), gpio.set_edge(edge), usual_of_watched); }
};

// A line that is given back in the end if it was not exported before.
line open_line(uint32_t number) {
    const bool found = norv::can_access(text("/sys/class/gpio/gpio%u", number));
    line opened{number, must(text("gpio %u", number), norv::gpio::open(number), usual)};
    opened.gpio.keep_exported(found);
    return opened;
}

std::vector<line> open_lines(const std::vector<uint32_t>& numbers) {
    std::vector<line> opened;
    for (const uint32_t number : numbers) {
        opened.push_back(open_line(number));
    }
    return opened;
}

void add_line_numbers(CLI::App& command, std::vector<uint32_t>& numbers) {
    command.add_option("LINE", numbers, "the kernel's number of a line; may be repeated")->required();
}

struct get {
    static constexpr auto name = "get";
    static constexpr auto help = "Read lines; their direction is not changed";

    std::vector<uint32_t> numbers;
    bool input = false;
    bool active_low = false;
    report out;

    void declare(CLI::App& command) {
        add_line_numbers(command, numbers);
        command.add_flag("-i,--input", input, "make them inputs first");
        command.add_flag("-l,--active-low", active_low, "a low level is read as 1");
        out.offer_json(command);
    }

    void run() {
        std::string levels;
        json document = json::array();
        std::vector<line> opened = open_lines(numbers);
        for (line& one : opened) {
            if (input) {
                one.make_input();
            }
            const uint32_t value = one.level() ^ static_cast<uint32_t>(active_low);
            levels += text(levels.empty() ? "%u" : " %u", value);
            document.push_back({{"line", one.number}, {"value", value}});
        }
        out.show(levels, document);
    }
};

struct set {
    static constexpr auto name = "set";
    static constexpr auto help = "Drive lines as outputs; they keep their level afterwards";

    std::vector<std::string> settings;
    int hold = -1;
    bool active_low = false;

    void declare(CLI::App& command) {
        command.add_option("SETTING", settings, "a line and its level, 0 or 1; may be repeated")
            ->required()
            ->type_name("LINE=VALUE");
        command.add_option("--hold", hold, "release the lines after this many milliseconds, or at Ctrl-C");
        command.add_flag("-l,--active-low", active_low, "1 drives the line low");
    }

    void run() {
        std::vector<line> driven;
        for (const auto& [number, high] : parse()) {
            driven.push_back(open_line(number));
            driven.back().drive(high != active_low);
        }
        if (hold >= 0) {
            sleep_for(hold);
            return;
        }
        for (line& one : driven) {
            one.gpio.keep_exported(true);
        }
    }

  private:
    // All of them before the first one is driven.
    std::map<uint32_t, bool> parse() const {
        std::map<uint32_t, bool> levels;
        for (const std::string& setting : settings) {
            const size_t equals = setting.find('=');
            const std::string level = equals == std::string::npos ? "" : setting.substr(equals + 1);
            const std::optional<uint32_t> number = parse_number(setting.substr(0, equals));
            if (!number || (level != "0" && level != "1")) {
                throw usage_error{"\"" + setting + "\" is not LINE=0 or LINE=1"};
            }
            levels[*number] = level == "1";
        }
        return levels;
    }
};

struct free_lines {
    static constexpr auto name = "free";
    static constexpr auto help = "Release lines, whoever exported them";

    std::vector<uint32_t> numbers;

    void declare(CLI::App& command) { add_line_numbers(command, numbers); }

    void run() {
        for (const uint32_t number : numbers) {
            // The end of its owner unexports it.
            must(text("gpio %u", number), norv::gpio::open(number), usual);
        }
    }
};

struct watch {
    static constexpr auto name = "watch";
    static constexpr auto help = "Show the edges of lines, after their levels at the start";

    std::vector<uint32_t> numbers;
    norv::gpio::edge edge = norv::gpio::edge::both;
    uint32_t count = 0;
    int timeout = -1;
    report out;

    void declare(CLI::App& command) {
        const std::map<std::string, norv::gpio::edge> edges{{"rising", norv::gpio::edge::rising},
                                                            {"falling", norv::gpio::edge::falling},
                                                            {"both", norv::gpio::edge::both}};
        add_line_numbers(command, numbers);
        command.add_option("-e,--edge", edge, "rising, falling or both")
            ->type_name("EDGE")
            ->transform(one_of(edges));
        command.add_option("-n,--count", count, "exit after this many edges");
        command.add_option("-t,--timeout", timeout, "fail after this many milliseconds without one");
        out.offer_json(command);
    }

    void run() {
        std::vector<line> watched = open_lines(numbers);
        for (line& one : watched) {
            one.make_input();
            one.watch(edge);
            show("start", one);
        }
        uint32_t seen = 0;
        while (count == 0 || seen < count) {
            std::vector<pollfd> descriptors = poll_records(watched);
            if (!wait_for(descriptors, timeout, "gpio watch", "no edge in time")) {
                return;
            }
            seen += show_edges(watched, descriptors);
        }
    }

  private:
    static std::vector<pollfd> poll_records(const std::vector<line>& watched) {
        std::vector<pollfd> records;
        for (const line& one : watched) {
            records.push_back({one.gpio.descriptor(), POLLPRI, 0});
        }
        return records;
    }

    uint32_t show_edges(std::vector<line>& watched, const std::vector<pollfd>& descriptors) const {
        uint32_t shown = 0;
        for (size_t index = 0; index < watched.size(); ++index) {
            if ((descriptors[index].revents & POLLPRI) != 0) {
                show("edge", watched[index]);
                ++shown;
            }
        }
        return shown;
    }

    // The time is that of CLOCK_MONOTONIC after the edge was noticed. Reading the level waits for the next
    // edge.
    void show(const char* event, line& of) const {
        const double now = timestamp();
        const uint32_t level = of.level();
        out.show(text("%14.6f  gpio %u  %s  %u", now, of.number, event, level),
                 {{"time", now}, {"line", of.number}, {"event", event}, {"value", level}});
    }
};

const group gpio{"gpio", "GPIO lines, by the kernel's number", with_commands<get, set, watch, free_lines>};

}  // namespace

}  // namespace norv::tool
