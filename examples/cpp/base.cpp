// SPDX-License-Identifier: MIT
//
// The base library and the helpers for files:
//
//     base base             watches the thread of an event loop, and notices that a handler hangs
//     base file INTERFACE   reads attributes of a network interface, changes one and restores it
#include <array>
#include <chrono>
#include <string>
#include <thread>

#include "norv/clock.hpp"
#include "norv/file.hpp"
#include "norv/loop_thread.hpp"
#include "norv/one_shot_event.hpp"
#include "norv/thread_watchdog.hpp"
#include "program.hpp"

using namespace std::chrono_literals;

namespace {

// Checks the watchdog until it reports the expected status, for ten seconds at most.
void expect(const norv::thread_watchdog& watchdog, uint32_t wanted, const char* words) {
    const auto begin = norv::monotonic_clock::now();
    norv::status found = watchdog.check();
    while (found != wanted && norv::monotonic_clock::now() - begin < 10s) {
        std::this_thread::sleep_for(10ms);
        found = watchdog.check();
    }
    if (found != wanted) {
        report("the watchdog reports after ten seconds", found);
        std::exit(EXIT_FAILURE);
    }
    std::printf("  the loop %s\n", words);
}

void show_base(char**) {
    norv::thread_watchdog watchdog(500ms);
    norv::one_shot_event release;
    norv::timer hang([&] { release.wait(norv::no_limit).value(); });

    // The loop reports five times within the limit, by itself.
    norv::loop_thread thread =
        norv::loop_thread::start({.watchdog = watchdog.get(), .watchdog_period = 100ms}).value();
    expect(watchdog, NORV_STATUS_OK, "lives");
    hang.start(thread.loop(), 0ms).value();
    expect(watchdog, NORV_STATUS_TIMEOUT, "hangs");
    release.set().value();
    expect(watchdog, NORV_STATUS_OK, "lives again");
}

// Reads one attribute as a text without its newline.
std::string read_attribute(const std::string& interface, const char* name) {
    std::array<char, 64> buffer;
    std::string_view text = norv::read_text("/sys/class/net/" + interface + "/" + name, buffer).value();
    text = text.substr(0, text.find('\n'));
    std::printf("  %-13s %.*s\n", name, static_cast<int>(text.size()), text.data());
    return std::string(text);
}

// Writes one attribute through a descriptor; a NUL after the text is written, too.
void write_queue_length(const std::string& interface, const std::string& packets) {
    norv::file attribute =
        norv::file::open("/sys/class/net/" + interface + "/tx_queue_len", O_WRONLY | O_CLOEXEC).value();
    attribute.write_string(packets).value();
}

void show_file(char** arguments) {
    const std::string before = read_attribute(arguments[0], "tx_queue_len");
    write_queue_length(arguments[0], std::to_string(std::stoul(before) + 1));
    read_attribute(arguments[0], "tx_queue_len");
    write_queue_length(arguments[0], before);
    read_attribute(arguments[0], "tx_queue_len");
}

constexpr family families[] = {{"base", 0, show_base}, {"file", 1, show_file}};

}  // namespace

int main(int count, char** arguments) {
    return show_family(families, count, arguments);
}
