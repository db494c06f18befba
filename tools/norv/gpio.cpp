// SPDX-License-Identifier: MIT
// norv gpio: lines of GPIO chips, by the kernel's number.
//
// A line that is exported when a command begins stays exported; what the command exports itself it gives back
// at its end, except for `set`: giving a line back would take its level away.
#include "norv_linux_gpio.h"

#include <map>
#include <memory>
#include <optional>

#include "command.hpp"
#include "failure.hpp"
#include "interrupt.hpp"
#include "norv_file.h"
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

// An exported line, given back in the end if it was not exported before.
class line {
  public:
    explicit line(uint32_t number)
        : name_{text("gpio %u", number)}, found_{norv_file_access(0, "/sys/class/gpio/gpio%u", number)} {
        must(name_, norv_linux_gpio_open(number, &gpio_), usual);
    }

    ~line() {
        if (!found_ && !kept_) {
            norv_linux_gpio_close(&gpio_);
        }
    }

    line(const line&) = delete;
    line& operator=(const line&) = delete;

    void keep() { kept_ = true; }

    uint32_t number() const { return gpio_.number; }
    int descriptor() const { return norv_linux_gpio_get_fd(&gpio_); }

    void make_input() { must(name_, norv_linux_gpio_set_dir(&gpio_, false), usual); }

    uint32_t level() {
        uint8_t value = 0;
        must(name_, norv_linux_gpio_get_value(&gpio_, &value), usual);
        return value;
    }

    // What is an output already goes straight to its new level; an input becomes one, low at first.
    void drive(bool high) {
        if (norv_linux_gpio_set_value(&gpio_, high) != NORV_STATUS_OK) {
            must(name_, norv_linux_gpio_set_dir(&gpio_, true), usual);
            must(name_, norv_linux_gpio_set_value(&gpio_, high), usual);
        }
    }

    void watch(uint32_t edge) { must(name_, norv_linux_gpio_set_irq(&gpio_, edge), watch_causes); }

  private:
    static const causes watch_causes;

    std::string name_;
    bool found_;
    bool kept_ = false;
    norv_linux_gpio_t gpio_{};
};

const causes line::watch_causes{
    {NORV_STATUS_NOT_FOUND, "the line has no interrupt and cannot be watched"},
    {NORV_STATUS_DEVICE_ERROR, "the line's interrupt is in use; is it an output?"}};

using lines = std::vector<std::unique_ptr<line>>;

lines open_lines(const std::vector<uint32_t>& numbers) {
    lines opened;
    for (const uint32_t number : numbers) {
        opened.push_back(std::make_unique<line>(number));
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
        for (const auto& opened : open_lines(numbers)) {
            if (input) {
                opened->make_input();
            }
            const uint32_t value = opened->level() ^ static_cast<uint32_t>(active_low);
            levels += text(levels.empty() ? "%u" : " %u", value);
            document.push_back({{"line", opened->number()}, {"value", value}});
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
        lines driven;
        for (const auto& [number, high] : parse()) {
            driven.push_back(std::make_unique<line>(number));
            driven.back()->drive(high != active_low);
        }
        if (hold >= 0) {
            sleep_for(hold);
            return;
        }
        for (const auto& one : driven) {
            one->keep();
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
            norv_linux_gpio_t gpio{};
            must(text("gpio %u", number), norv_linux_gpio_open(number, &gpio), usual);
            norv_linux_gpio_close(&gpio);
        }
    }
};

struct watch {
    static constexpr auto name = "watch";
    static constexpr auto help = "Show the edges of lines, after their levels at the start";

    std::vector<uint32_t> numbers;
    uint32_t edge = NORV_LINUX_GPIO_EDGE_BOTH;
    uint32_t count = 0;
    int timeout = -1;
    report out;

    void declare(CLI::App& command) {
        const std::map<std::string, uint32_t> edges{{"rising", NORV_LINUX_GPIO_EDGE_RISING},
                                                    {"falling", NORV_LINUX_GPIO_EDGE_FALLING},
                                                    {"both", NORV_LINUX_GPIO_EDGE_BOTH}};
        add_line_numbers(command, numbers);
        command.add_option("-e,--edge", edge, "rising, falling or both")
            ->type_name("EDGE")
            ->transform(one_of(edges));
        command.add_option("-n,--count", count, "exit after this many edges");
        command.add_option("-t,--timeout", timeout, "fail after this many milliseconds without one");
        out.offer_json(command);
    }

    void run() {
        const lines watched = open_lines(numbers);
        for (const auto& one : watched) {
            one->make_input();
            one->watch(edge);
            show("start", *one);
        }
        uint32_t seen = 0;
        while (count == 0 || seen < count) {
            std::vector<pollfd> descriptors = poll_records(watched);
            const wake woken = wait_for(descriptors, timeout);
            if (woken == wake::interrupted) {
                return;
            }
            must("gpio watch", woken == wake::timeout ? NORV_STATUS_TIMEOUT : NORV_STATUS_OK,
                 {{NORV_STATUS_TIMEOUT, "no edge in time"}});
            seen += show_edges(watched, descriptors);
        }
    }

  private:
    static std::vector<pollfd> poll_records(const lines& watched) {
        std::vector<pollfd> records;
        for (const auto& one : watched) {
            records.push_back({one->descriptor(), POLLPRI, 0});
        }
        return records;
    }

    uint32_t show_edges(const lines& watched, const std::vector<pollfd>& descriptors) const {
        uint32_t shown = 0;
        for (size_t index = 0; index < watched.size(); ++index) {
            if ((descriptors[index].revents & POLLPRI) != 0) {
                show("edge", *watched[index]);
                ++shown;
            }
        }
        return shown;
    }

    // The time is that of CLOCK_MONOTONIC after the edge was noticed. Reading the level waits for the next
    // edge.
    void show(const char* event, line& of) const {
        const double now = static_cast<double>(norv_time_get_us()) / 1e6;
        const uint32_t level = of.level();
        out.show(text("%14.6f  gpio %u  %s  %u", now, of.number(), event, level),
                 {{"time", now}, {"line", of.number()}, {"event", event}, {"value", level}});
    }
};

const group gpio{"gpio", "GPIO lines, by the kernel's number", with_commands<get, set, watch, free_lines>};

}  // namespace

}  // namespace norv::tool
