// SPDX-License-Identifier: MIT
// norv gadget: the board as a USB device, by the state of its USB device controller.
#include "norv/usb_gadget.hpp"

#include "command.hpp"
#include "failure.hpp"
#include "names.hpp"
#include "patience.hpp"
#include "report.hpp"
#include "sysfs.hpp"
#include "text.hpp"

namespace norv::tool {

namespace {

const std::string controllers = "/sys/class/udc";

constexpr cause no_controllers{
    NORV_STATUS_NOT_FOUND,
    "no /sys/class/udc; is the controller's driver loaded, and was the kernel built with CONFIG_USB_GADGET?",
    "/sys/class/udc"};
const causes usual{
    no_controllers,
    {NORV_STATUS_NOT_FOUND, "no such USB device controller; is its driver loaded?"},
    {NORV_STATUS_NOT_AVAILABLE, "no gadget is bound to the controller; write its name to the gadget's UDC"}};

std::string title(const std::string& controller) {
    return "gadget " + controller;
}

// The state's descriptor stays open, so that it can be waited on.
norv::usb_gadget open_state(const std::string& controller) {
    return must(title(controller), norv::usb_gadget::open(controller), usual);
}

const char* read_state(const std::string& controller, norv::usb_gadget& opened) {
    using state = norv::usb_gadget::state;
    static const std::map<state, const char*> words{{state::not_attached, "not attached"},
                                                    {state::default_state, "default"},
                                                    {state::configured, "configured"},
                                                    {state::other, "other"},
                                                    {state::addressed, "addressed"}};
    return words.at(must(title(controller), opened.get_state(), usual));
}

// The controller that a command is about; boards have one, mostly.
struct target {
    std::string controller;

    void declare(CLI::App& command) {
        command.add_option("CONTROLLER", controller, "a name in /sys/class/udc; default: the only one")
            ->check(name_of("a controller"));
    }

    std::string name() const {
        if (!controller.empty()) {
            return controller;
        }
        const auto all = names_in(controllers);
        if (all.size() > 1) {
            throw usage_error{"there are several controllers, name one; see norv gadget list"};
        }
        if (all.empty()) {
            throw failure{
                "gadget",
                NORV_STATUS_NOT_FOUND,
                {no_controllers, {NORV_STATUS_NOT_FOUND, "no USB device controller; is its driver loaded?"}}};
        }
        return all.front();
    }
};

json host_win(const std::string& controller) {
    const norv::result<bool> read = norv::usb_gadget::is_host_win(controller);
    return read ? json(*read) : json();
}

struct list {
    static constexpr auto name = "list";
    static constexpr auto help = "Show the controllers: state, speed, bound gadget, name";

    report out;

    void declare(CLI::App& command) { out.offer_json(command); }

    void run() {
        std::string table = "STATE         SPEED             GADGET            CONTROLLER";
        json document = json::array();
        for (const std::string& controller : names_in(controllers)) {
            const json shown = describe(controller);
            table += text("\n%-12s  %-16s  %-16s  %s", shown["state"].get<std::string>().c_str(),
                          shown["speed"].get<std::string>().c_str(),
                          shown["gadget"].get<std::string>().c_str(), controller.c_str());
            document.push_back(shown);
        }
        out.show(table, document);
    }

  private:
    static json describe(const std::string& controller) {
        const std::string directory = controllers + "/" + controller;
        norv::usb_gadget state = open_state(controller);
        return {{"controller", controller},
                {"state", read_state(controller, state)},
                {"speed", attribute_if_there(directory + "/current_speed").value_or("")},
                {"gadget", attribute_if_there(directory + "/function").value_or("")},
                {"is_host_win", host_win(controller)}};
    }
};

struct watch {
    static constexpr auto name = "watch";
    static constexpr auto help = "Show the state of a controller, now and whenever it changes";

    target on;
    uint32_t count = 0;
    patience patient;
    report out;

    void declare(CLI::App& command) {
        on.declare(command);
        command.add_option("-n,--count", count, "exit after this many changes");
        patient.declare(command, "a change");
        out.offer_json(command);
    }

    void run() {
        const std::string controller = on.name();
        norv::usb_gadget state = open_state(controller);
        std::string last = show(controller, read_state(controller, state));
        uint32_t seen = 0;
        while ((count == 0 || seen < count) && patient.wait(title(controller), state.descriptor(), POLLPRI)) {
            // The kernel also wakes for a state that it sets again.
            const std::string now = read_state(controller, state);
            if (now != last) {
                last = show(controller, now);
                ++seen;
                patient.restart();
            }
        }
    }

  private:
    // The time is that of CLOCK_MONOTONIC after the change was noticed.
    std::string show(const std::string& controller, const std::string& state) const {
        const double now = timestamp();
        out.show(text("%14.6f  %s  %s", now, controller.c_str(), state.c_str()),
                 {{"time", now}, {"controller", controller}, {"state", state}});
        return state;
    }
};

template <bool plugged>
struct plug {
    static constexpr auto name = plugged ? "connect" : "disconnect";
    static constexpr auto help =
        plugged ? "Connect to the host, as if the cable were plugged in" : "Disconnect, as if it were pulled";

    target on;

    void declare(CLI::App& command) { on.declare(command); }

    void run() {
        const std::string controller = on.name();
        must(title(controller),
             plugged ? norv::usb_gadget::connect(controller) : norv::usb_gadget::disconnect(controller),
             usual);
    }
};

const group gadget{"gadget", "The board as a USB device",
                   with_commands<list, watch, plug<true>, plug<false>>};

}  // namespace

}  // namespace norv::tool
