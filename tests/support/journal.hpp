// SPDX-License-Identifier: MIT
// The journal of the kernel double: each call that reached it, with what it was asked.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <ctime>
#include <stdexcept>
#include <string>
#include <variant>

namespace norv::test {

// What a call was asked, one record for each kind of call. Calls that are not listed have nothing but their
// name and path.

struct opening {  // open
    int flags = 0;
};
struct stream_opening {  // fopen
    std::string mode;
};
struct program_start {  // popen
    std::string command;
    std::string mode;
};
struct byte_transfer {   // read, write
    off_t position = 0;  // of the file before the call; only models have one
    std::string bytes;   // that were to be written, or that the read returned
};
struct byte_transfer_at {  // pread, pwrite
    off_t offset = 0;
    std::string bytes;  // as in a byte_transfer
};
struct stream_reading {  // fread
    size_t size = 0;     // bytes asked for
};
struct control {  // ioctl, isatty, tcgetattr, tcsetattr, tcflush
    unsigned long request = 0;
};
struct descriptor_control {  // fcntl
    int command = 0;
    int argument = 0;
};
struct polling {  // poll of one descriptor
    short events = 0;
    int timeout = 0;
};
struct waiting {  // epoll_wait
    int timeout = 0;
};
struct unmapping {  // munmap
    size_t size = 0;
};
struct directory_making {  // mkdir
    mode_t mode = 0;
};
struct socket_making {  // socket
    int type = 0;
    int protocol = 0;
};
struct address_binding {  // bind
    std::string address;
};
struct option_setting {  // setsockopt
    int level = 0;
    int name = 0;
    std::string value;
};
struct reception {    // recv
    size_t size = 0;  // of the buffer
    int flags = 0;
};
struct timer_setting {  // timerfd_settime
    int flags = 0;
    itimerspec setting = {};
};
struct affinity_setting {  // sched_setaffinity
    pid_t thread = 0;
    std::string processors;  // the set's bytes
};
struct schedule_setting {  // pthread_setschedparam
    bool of_caller = false;
    int policy = 0;
    int priority = 0;
};
struct name_setting {  // pthread_setname_np
    bool of_caller = false;
    std::string name;
};

using call_details =
    std::variant<std::monostate, opening, stream_opening, program_start, byte_transfer, byte_transfer_at,
                 stream_reading, control, descriptor_control, polling, waiting, unmapping, directory_making,
                 socket_making, address_binding, option_setting, reception, timer_setting, affinity_setting,
                 schedule_setting, name_setting>;

// One call that reached the kernel double.
struct call {
    std::string name = {};  // "open", "write", "ioctl", ...
    std::string path = {};  // of the file, where there is one
    call_details details = {};
    long result = 0;  // as returned; of a call that returns a pointer, -1 for null

    // What it was asked. Asking for the record of another kind of call is a mistake of the test.
    template <typename kind>
    const kind& as() const {
        const kind* asked = std::get_if<kind>(&details);
        if (asked == nullptr) {
            throw std::logic_error("the journal has other details of " + name);
        }
        return *asked;
    }
};

}  // namespace norv::test
