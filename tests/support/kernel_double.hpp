// SPDX-License-Identifier: MIT
// The kernel double: a small board inside the test program.
//
// While a kernel_double lives, every path under /sys, /proc, /dev and /lib/firmware that the library (or the
// test) uses leads into a scratch tree that the test builds, device models answer the calls on their nodes,
// and the calls are journalled. Sockets of the address families that the test adds are models too. Everything
// else (other sockets, epoll, eventfd, pipes) is the real kernel's. At its end the double reports whatever
// the library left open, mapped or allocated as a test failure.
//
//     kernel_double kernel;
//     kernel.add_file("/sys/class/leds/red/brightness", "0");
//     norv_linux_led_set_brightness("red", 7);
//     EXPECT_THAT(kernel.writes("/sys/class/leds/red/brightness"), ElementsAre("7\0"s));
#pragma once

#include <cstdint>
#include <ctime>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "support/device.hpp"
#include "support/fault.hpp"
#include "support/journal.hpp"

namespace norv::test {

class kernel_double {
  public:
    kernel_double();
    ~kernel_double();
    kernel_double(const kernel_double&) = delete;
    kernel_double& operator=(const kernel_double&) = delete;

    // Building the tree. Missing parent directories are made. A directory lists what it holds in the order in
    // which the test made it; a link's target may be relative to the link.
    void add_directory(const std::string& path);
    void add_file(const std::string& path, std::string_view content = "");
    void add_link(const std::string& path, const std::string& target);
    void add_device(const std::string& path, std::shared_ptr<device> model);
    void remove(const std::string& path);

    // A new descriptor that a model answers, as a driver hands one out; the path names it in the journal. The
    // caller closes it.
    int hand_out(const std::string& path, std::shared_ptr<device> model);

    // Reacts to each write of an attribute before it is stored: 0 accepts, an errno refuses.
    using write_reaction = std::function<int(std::string_view bytes)>;
    void on_write(const std::string& path, write_reaction reaction);

    // Answers socket(2) for this address family: each socket gets the model that is returned. In the journal
    // its calls have the path "socket".
    using socket_factory = std::function<std::shared_ptr<device>(int type, int protocol)>;
    void add_socket_family(int family, socket_factory create);

    // Fills each directory that is made in this one. Such a directory goes with its files, as in configfs.
    using directory_reaction = std::function<void(const std::string& path)>;
    void on_make_directory(const std::string& parent, directory_reaction reaction);

    // Runs whenever a mutex of the base library was taken (true), and before one is released (false): both
    // times on the thread that has it.
    using lock_reaction = std::function<void(bool taken)>;
    void on_lock(lock_reaction reaction);

    // What a file contains, and whether a path exists.
    std::string content(const std::string& path) const;
    bool exists(const std::string& path) const;

    // What the library did: all calls, those with a name, and what those were asked.
    const std::vector<call>& calls() const;
    std::vector<call> calls(std::string_view name) const;
    template <typename kind>
    std::vector<kind> calls(std::string_view name) const {
        std::vector<kind> found;
        for (const call& made : calls(name)) {
            found.push_back(made.as<kind>());
        }
        return found;
    }
    std::vector<std::string> writes(const std::string& path) const;
    std::vector<int> open_flags(const std::string& path) const;
    void forget_calls();

    // Makes a call fail: the one that the fault means, or the next one with this name. Only one fault is set
    // at a time; `struck` returns the call that it met, if it met one.
    void fail(const fault& planned);
    void fail(const std::string& call, int error) { fail(fault{.call = call, .error = error}); }
    void fail_nothing();
    std::optional<strike> struck() const;

    // Makes a thread-setting call, sysconf or scandir return this, whatever it is asked, and do nothing.
    void answer(const std::string& name, long result);

    // Stops CLOCK_MONOTONIC at this time.
    void set_clock(time_t seconds, long nanoseconds);

    // Lets sysinfo(2) report that the system was started this number of seconds ago.
    void set_uptime(long seconds);

    // Makes the base library map this errno to this status, 0 included.
    void map_errno(int error, uint32_t status);

    // What the library holds at this moment.
    size_t open_descriptors() const;
    size_t mappings() const;
    size_t allocations() const;
    // Leaks that are documented behaviour: accepted at the end of the double's life.
    void accept_leaked_descriptors(size_t count);
    void accept_leaked_allocations(size_t count);

    struct state;

  private:
    std::unique_ptr<state> state_;
};

}  // namespace norv::test
