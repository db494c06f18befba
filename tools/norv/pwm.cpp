// SPDX-License-Identifier: MIT
// norv pwm: channels of PWM chips. What a command sets up stays, and continues after its end.
#include "norv/pwm.hpp"

#include <chrono>
#include <cmath>

#include "command.hpp"
#include "failure.hpp"
#include "report.hpp"
#include "sysfs.hpp"
#include "text.hpp"

namespace norv::tool {

namespace {

const causes usual{
    {NORV_STATUS_NOT_FOUND, "no /sys/class/pwm; was the kernel built without CONFIG_PWM?", "/sys/class/pwm"},
    {NORV_STATUS_NOT_FOUND, "no such chip; see norv pwm list"},
    {status_of(ENODEV), "the chip has no such channel"},
    {status_of(EBUSY), "a kernel driver uses the channel, or it is running and cannot be changed"},
    {NORV_STATUS_INVALID_ARG, "the kernel refused it; is a period set, and the duty not longer?"},
    {NORV_STATUS_RANGE, "the chip cannot generate such a signal"}};

const causes usual_of_capture{{status_of(ENOSYS), "the chip cannot capture"},
                              {NORV_STATUS_TIMEOUT, "there is no signal"}};

// The arguments that every command on one channel has.
struct target {
    uint32_t chip = 0;
    uint32_t number = 0;

    void declare(CLI::App& command) {
        command.add_option("CHIP", chip, "N of /sys/class/pwm/pwmchipN")->required();
        command.add_option("CHANNEL", number, "counted from 0")->required();
    }
    std::string title() const { return text("pwm %u:%u", chip, number); }

    // A channel, exported, and left so.
    norv::pwm open() const {
        norv::pwm opened = must(title(), norv::pwm::open(chip, number), usual);
        opened.keep_exported(true);
        return opened;
    }

    void enable(norv::pwm& channel, bool on) const { must(title(), channel.enable(on), usual); }
};

// "40us", "1.5ms", "25kHz" or a bare number of nanoseconds, as nanoseconds.
uint32_t parse_period(const std::string& word) {
    static const std::map<std::string, double> times{
        {"", 1}, {"ns", 1}, {"us", 1e3}, {"ms", 1e6}, {"s", 1e9}};
    static const std::map<std::string, double> frequencies{{"Hz", 1}, {"kHz", 1e3}, {"MHz", 1e6}};
    char* end = nullptr;
    const double number = std::strtod(word.c_str(), &end);
    double period = -1;
    if (end != word.c_str() && times.contains(end)) {
        period = number * times.at(end);
    } else if (end != word.c_str() && frequencies.contains(end) && number > 0) {
        period = 1e9 / (number * frequencies.at(end));
    }
    if (!(period >= 0 && period <= INT32_MAX)) {
        throw usage_error{"\"" + word +
                          "\" is not a period like 40us, 1.5ms, 25kHz or 40000 (ns), up to 2.1 s"};
    }
    return static_cast<uint32_t>(std::lround(period));
}

// The same, or a share of the period: "25%".
uint32_t parse_duty(const std::string& word, uint32_t period) {
    if (!word.ends_with('%')) {
        return parse_period(word);
    }
    char* end = nullptr;
    const double percent = std::strtod(word.c_str(), &end);
    if (end != &word.back() || end == word.c_str() || !(percent >= 0 && percent <= 100)) {
        throw usage_error{"\"" + word + "\" is not a share of the period"};
    }
    return static_cast<uint32_t>(std::lround(period * percent / 100));
}

struct list {
    static constexpr auto name = "list";
    static constexpr auto help = "List the chips and how many channels they have";

    report out;

    void declare(CLI::App& command) { out.offer_json(command); }

    // From the attribute itself: the library's call sees two digits of it.
    void run() {
        std::string lines;
        json document = json::array();
        for (const std::string& entry : names_in("/sys/class/pwm")) {
            const auto chip = number_behind(entry, "pwmchip");
            if (chip) {
                const std::string count = attribute(entry, "/sys/class/pwm/" + entry + "/npwm");
                lines += text("%s%u: %s channels", lines.empty() ? "" : "\n", *chip, count.c_str());
                document.push_back({{"chip", *chip}, {"channels", std::stoi(count)}});
            }
        }
        out.show(lines, document);
    }
};

struct set {
    static constexpr auto name = "set";
    static constexpr auto help = "Set up a signal and start it; it continues afterwards";

    target on;
    std::string period;
    std::string duty;
    std::string polarity;

    void declare(CLI::App& command) {
        on.declare(command);
        command.add_option("PERIOD", period, "of a cycle: 40us, 1.5ms, 25kHz, or nanoseconds")->required();
        command.add_option("DUTY", duty, "active part of a cycle: 25%, 10us, or nanoseconds")->required();
        command.add_option("--polarity", polarity, "normal or inversed; stops the signal to change it")
            ->check(CLI::IsMember({"normal", "inversed"}));
    }

    void run() {
        const uint32_t cycle = parse_period(period);
        const uint32_t active = parse_duty(duty, cycle);
        if (active > cycle) {
            throw usage_error{"the duty is longer than the period"};
        }
        norv::pwm opened = on.open();
        set_times(opened, std::chrono::nanoseconds{cycle}, std::chrono::nanoseconds{active});
        if (!polarity.empty()) {
            on.enable(opened, false);
            must(on.title(),
                 opened.set_polarity(polarity == "inversed" ? norv::pwm::polarity::inversed
                                                            : norv::pwm::polarity::normal),
                 usual);
        }
        on.enable(opened, true);
    }

  private:
    // Neither order of the two is right for every change: the kernel refuses a period below the duty.
    void set_times(norv::pwm& channel, std::chrono::nanoseconds cycle,
                   std::chrono::nanoseconds active) const {
        const bool is_period_set = channel.set_period(cycle).ok();
        must(on.title(), channel.set_duty(active), usual);
        if (!is_period_set) {
            must(on.title(), channel.set_period(cycle), usual);
        }
    }
};

struct start {
    static constexpr auto name = "start";
    static constexpr auto help = "Start the signal with its settings";

    target on;
    void declare(CLI::App& command) { on.declare(command); }
    void run() {
        norv::pwm opened = on.open();
        on.enable(opened, true);
    }
};

struct stop {
    static constexpr auto name = "stop";
    static constexpr auto help = "Stop the signal; its settings stay";

    target on;
    void declare(CLI::App& command) { on.declare(command); }
    void run() {
        norv::pwm opened = on.open();
        on.enable(opened, false);
    }
};

struct free_channel {
    static constexpr auto name = "free";
    static constexpr auto help = "Release a channel; its signal may continue";

    target on;
    void declare(CLI::App& command) { on.declare(command); }
    // The end of its owner unexports it, then.
    void run() { on.open().keep_exported(false); }
};

struct capture {
    static constexpr auto name = "capture";
    static constexpr auto help = "Measure the signal that arrives at a channel";

    target on;
    report out;

    void declare(CLI::App& command) {
        on.declare(command);
        out.offer_json(command);
    }

    void run() {
        const norv::pwm::capture measured = must(on.title(), on.open().get_capture(), usual_of_capture);
        const auto period = static_cast<uint32_t>(measured.period.count());
        const auto duty = static_cast<uint32_t>(measured.duty.count());
        const double share = period == 0 ? 0 : 100.0 * duty / period;
        out.show(text("period %u ns, high %u ns (%.1f %%)", period, duty, share),
                 {{"chip", on.chip}, {"channel", on.number}, {"period_ns", period}, {"duty_ns", duty}});
    }
};

const group pwm{"pwm", "PWM channels", with_commands<list, set, start, stop, capture, free_channel>};

}  // namespace

}  // namespace norv::tool
