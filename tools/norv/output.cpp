// SPDX-License-Identifier: MIT
#include "output.hpp"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>

#include "failure.hpp"

namespace norv::tool {

namespace {

struct sigaction usual_end {};

}  // namespace

void prepare_output() {
    for (const int descriptor : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
        if (fcntl(descriptor, F_GETFD) < 0) {
            // Reading the first fails, and so does writing the others. The lowest free number is this one.
            [[maybe_unused]] const int opened =
                open("/dev/null", descriptor == STDIN_FILENO ? O_WRONLY : O_RDONLY);
        }
    }
    struct sigaction ignored {};
    ignored.sa_handler = SIG_IGN;
    sigaction(SIGPIPE, &ignored, &usual_end);
}

void print(std::string_view text) {
    errno = 0;
    if (std::fwrite(text.data(), 1, text.size(), stdout) == text.size() && std::fflush(stdout) == 0) {
        return;
    }
    if (errno == EPIPE) {
        throw reader_gone{};
    }
    throw failure{"standard output",
                  status_of(errno),
                  {{status_of(ENOSPC), "no space left on the device"}, {status_of(EBADF), "it is closed"}}};
}

void end_without_reader() {
    sigaction(SIGPIPE, &usual_end, nullptr);
    raise(SIGPIPE);
}

}  // namespace norv::tool
