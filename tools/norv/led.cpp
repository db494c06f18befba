// SPDX-License-Identifier: MIT
// norv led: LEDs of the LED class, by the names of their directories.
#include "norv/led.hpp"

#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <sstream>

#include "command.hpp"
#include "failure.hpp"
#include "names.hpp"
#include "report.hpp"
#include "sysfs.hpp"
#include "text.hpp"

namespace norv::tool {

namespace {

const std::string leds = "/sys/class/leds";

constexpr cause no_leds{NORV_STATUS_NOT_FOUND,
                        "no /sys/class/leds; was the kernel built without CONFIG_LEDS_CLASS?",
                        "/sys/class/leds"};
constexpr cause no_such_led{NORV_STATUS_NOT_FOUND, "no such LED; see norv led list"};
const causes usual{
    no_leds,
    no_such_led,
    {NORV_STATUS_INVALID_ARG, "the kernel refused it"},
    {status_of(EACCES),
     "no permission; are you root? The kernel creates delay_on, delay_off and shot for root when the trigger "
     "is set"}};

// Null when the attribute cannot be read, as of an LED that goes away.
json number_if_there(const std::string& name, const char* attribute_name) {
    const auto content = attribute_if_there(leds + "/" + name + "/" + attribute_name);
    return content ? json(std::strtol(content->c_str(), nullptr, 10)) : json();
}

std::string words(const json& number) {
    return number.is_null() ? "?" : number.dump();
}

// The triggers in the kernel's list "none [timer] oneshot"; the one in brackets drives the LED.
struct triggers {
    std::vector<std::string> known;
    std::string current;

    explicit triggers(const std::string& list) {
        std::istringstream words{list};
        for (std::string word; words >> word;) {
            if (word.starts_with('[')) {
                word = word.substr(1, word.size() - 2);
                current = word;
            }
            known.push_back(word);
        }
    }

    static triggers of(const std::string& name) {
        return triggers{attribute("led " + name, leds + "/" + name + "/trigger", usual)};
    }

    // None where the kernel has no triggers.
    static triggers if_there(const std::string& name) {
        return triggers{attribute_if_there(leds + "/" + name + "/trigger").value_or("")};
    }
};

void set_trigger(const std::string& name, const std::string& trigger) {
    must("led " + name, norv::led{name}.set_trigger(trigger),
         {no_leds,
          no_such_led,
          {NORV_STATUS_INVALID_ARG, "no such trigger; is its module (ledtrig-...) loaded?"}});
}

// Setting a trigger anew would make the kernel create its attributes anew, and take away the permissions that
// somebody has set on them.
void need_trigger(const std::string& name, const std::string& trigger) {
    if (triggers::of(name).current != trigger) {
        set_trigger(name, trigger);
    }
}

void add_name(CLI::App& command, std::string& name) {
    command.add_option("LED", name, "name of its directory in /sys/class/leds")
        ->required()
        ->check(name_of("an LED"));
}

struct list {
    static constexpr auto name = "list";
    static constexpr auto help = "List the LEDs: brightness, maximum brightness and trigger";

    report out;

    void declare(CLI::App& command) { out.offer_json(command); }

    void run() {
        std::string lines;
        json document = json::array();
        for (const std::string& led : names_in(leds)) {
            const json brightness = number_if_there(led, "brightness");
            const json greatest = number_if_there(led, "max_brightness");
            const std::string trigger = triggers::if_there(led).current;
            lines += text("%s%-24s %4s of %-4s %s", lines.empty() ? "" : "\n", led.c_str(),
                          words(brightness).c_str(), words(greatest).c_str(), trigger.c_str());
            document.push_back({{"led", led},
                                {"brightness", brightness},
                                {"max_brightness", greatest},
                                {"trigger", trigger}});
        }
        out.show(lines, document);
    }
};

struct set {
    static constexpr auto name = "set";
    static constexpr auto help = "Set an LED's brightness; 0 also removes its trigger";

    std::string led;
    int32_t brightness = 0;

    void declare(CLI::App& command) {
        add_name(command, led);
        command.add_option("BRIGHTNESS", brightness, "0 to 255; limited to the LED's maximum")
            ->required()
            ->check(CLI::Range(0, 255));
    }

    void run() { must("led " + led, norv::led{led}.set_brightness(static_cast<uint8_t>(brightness)), usual); }
};

struct trigger {
    static constexpr auto name = "trigger";
    static constexpr auto help = "Show or set an LED's trigger";

    std::string led;
    std::string wanted;
    report out;

    void declare(CLI::App& command) {
        add_name(command, led);
        command.add_option("TRIGGER", wanted, "for instance none, timer, oneshot, heartbeat");
        out.offer_json(command);
    }

    void run() {
        if (!wanted.empty()) {
            set_trigger(led, wanted);
            return;
        }
        const triggers found = triggers::of(led);
        std::string lines;
        for (const std::string& known : found.known) {
            lines += (lines.empty() ? "" : "\n") + known + (known == found.current ? " *" : "");
        }
        out.show(lines, {{"led", led}, {"trigger", found.current}, {"triggers", found.known}});
    }
};

struct blink {
    static constexpr auto name = "blink";
    static constexpr auto help = "Let the kernel blink an LED (trigger timer)";

    std::string led;
    int32_t on = 500;
    int32_t off = 500;

    void declare(CLI::App& command) {
        add_name(command, led);
        // CLI::PositiveNumber names the largest of all numbers in its message.
        const auto positive = CLI::Range(1, INT32_MAX).description("");
        command.add_option("--on", on, "milliseconds on")->check(positive)->capture_default_str();
        command.add_option("--off", off, "milliseconds off")->check(positive)->capture_default_str();
    }

    void run() {
        need_trigger(led, "timer");
        must("led " + led,
             norv::led{led}.set_delay(std::chrono::milliseconds{on}, std::chrono::milliseconds{off}), usual);
    }
};

struct flash_once {
    static constexpr auto name = "shot";
    static constexpr auto help = "Flash an LED once (trigger oneshot)";

    std::string led;

    void declare(CLI::App& command) { add_name(command, led); }

    void run() {
        need_trigger(led, "oneshot");
        must("led " + led, norv::led{led}.trigger_shot(), usual);
    }
};

const group led{"led", "LEDs", with_commands<list, set, trigger, blink, flash_once>};

}  // namespace

}  // namespace norv::tool
