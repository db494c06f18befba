// SPDX-License-Identifier: MIT
//
// Devices that are added and removed:
//
//     hotplug uevent SECONDS            prints the kernel's messages
//     hotplug uevent_parse SECONDS      shows the USB devices that are plugged in, and then each change
//     hotplug usb_gadget CONTROLLER     disconnects the board from its host, and connects it again
#include <chrono>

#include "norv/file.hpp"
#include "norv/uevent.hpp"
#include "norv/uevent_parse.hpp"
#include "norv/usb_gadget.hpp"
#include "program.hpp"

using namespace std::chrono_literals;

namespace {

// Prints the texts of a message, each followed by a NUL, on one line.
void show_message(std::string_view message) {
    for (const char character : message) {
        std::putchar(character != '\0' ? character : ' ');
    }
    std::putchar('\n');
}

norv::task<norv::status> watch(norv::uevent& events) {
    norv::uevent_messages messages(events);
    norv::status received;
    while (received.ok()) {
        received = co_await messages.poll(show_message);
    }
    co_return received;
}

// Ends a task after a time, which is not a failure.
norv::task<norv::status> run_for(std::chrono::seconds time, norv::task<norv::status> task) {
    const norv::status ended = co_await norv::with_timeout(time, std::move(task));
    co_return ended == NORV_STATUS_TIMEOUT ? norv::ok : ended;
}

void show_uevent(char** arguments) {
    norv::loop loop = norv::loop::open().value();
    norv::uevent events = norv::uevent::open().value();
    norv::write_text("/sys/class/net/lo/uevent", "change").value();  // requests a message
    norv::run(loop, run_for(std::chrono::seconds(number(arguments[0])), watch(events))).value();
}

void show_change(const norv_uevent_device_t* device) {
    if (device == nullptr) {
        return;  // a node that belongs to no device of the list
    }
    const bool removed = norv::uevent_parse::action_of(*device) == norv::uevent_parse::action::remove;
    std::printf("%s  %s", removed ? "removed" : "added", device->product_name);
    for (const norv_uevent_child_t& child : norv::uevent_parse::children_of(*device)) {
        std::printf("  %s %s", child.subsystem, child.devnode);
    }
    std::printf("\n");
}

norv::task<norv::status> follow(norv::uevent_parse& parser) {
    norv::uevent_parse_changes changes(parser);
    norv::status applied;
    while (applied.ok()) {
        applied = co_await changes.poll(show_change);
    }
    co_return applied;
}

void show_uevent_parse(char** arguments) {
    using norv::uevent_parse;
    norv::loop loop = norv::loop::open().value();
    uevent_parse parser = uevent_parse::open(uevent_parse::filter::usb, show_change).value();
    norv::run(loop, run_for(std::chrono::seconds(number(arguments[0])), follow(parser))).value();
}

// Waits for a state; the kernel reports every change.
norv::task<norv::status> reach(norv::usb_gadget& gadget, norv::usb_gadget::state wanted) {
    norv::readiness changes(gadget.descriptor());
    while (gadget.get_state().value() != wanted) {
        if (const norv::result<uint32_t> changed = co_await changes.wait(EPOLLPRI); !changed) {
            co_return changed.status();
        }
    }
    co_return norv::ok;
}

norv::task<norv::status> replug(norv::usb_gadget& gadget, const char* controller) {
    using state = norv::usb_gadget::state;
    (co_await norv::with_timeout(10s, reach(gadget, state::configured))).value();
    norv::usb_gadget::disconnect(controller).value();
    (co_await norv::with_timeout(10s, reach(gadget, state::not_attached))).value();
    std::printf("  disconnected\n");
    norv::usb_gadget::connect(controller).value();
    (co_await norv::with_timeout(10s, reach(gadget, state::configured))).value();
    std::printf("  configured by the host again\n");
    co_return norv::ok;
}

void show_usb_gadget(char** arguments) {
    norv::loop loop = norv::loop::open().value();
    norv::usb_gadget gadget = norv::usb_gadget::open(arguments[0]).value();
    norv::run(loop, replug(gadget, arguments[0])).value();
}

constexpr family families[] = {
    {"uevent", 1, show_uevent}, {"uevent_parse", 1, show_uevent_parse}, {"usb_gadget", 1, show_usb_gadget}};

}  // namespace

int main(int count, char** arguments) {
    return show_family(families, count, arguments);
}
