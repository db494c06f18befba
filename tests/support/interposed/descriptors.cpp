// SPDX-License-Identifier: MIT
// The calls that control descriptors and wait for them that reach the kernel double.
#include <fcntl.h>
#include <poll.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

#include <cstdarg>
#include <cstdint>

#include "support/interposition.hpp"

namespace {

using norv::test::active_kernel;
using norv::test::answer;
using norv::test::call;
using norv::test::calling_out;
using norv::test::create_descriptor;
using norv::test::descriptor_control;
using norv::test::device;
using norv::test::kernel_state;
using norv::test::open_file;
using norv::test::pass;
using norv::test::polling;
using norv::test::waiting;

// A control request: a model answers it, or the real kernel.
template <typename passing>
int control(const char* name, int descriptor, unsigned long request, void* argument, passing through) {
    return norv::test::ask(
        call{name, "", norv::test::control{request}}, descriptor,
        [&](device& model) { return model.ioctl(request, argument); }, through);
}

int poll_model(kernel_state& kernel, call made, device& model, struct pollfd& request, int timeout) {
    const long ready = [&] {
        const calling_out guard;
        return model.poll(request.events, timeout);
    }();
    request.revents = static_cast<short>(ready > 0 ? ready : 0);
    made.result = answer(ready > 0 ? 1L : ready);
    kernel.record(made);
    return static_cast<int>(made.result);
}

}  // namespace

extern "C" {

int ioctl(int descriptor, unsigned long request, ...) noexcept {
    va_list values;
    va_start(values, request);
    void* argument = va_arg(values, void*);
    va_end(values);
    return control("ioctl", descriptor, request, argument,
                   [&] { return REAL(ioctl)(descriptor, request, argument); });
}

// The calls on a terminal are ioctls of the kernel, and that is how a model gets them: TCGETS and TCSETS with
// the C library's termios, TCFLSH with the queue's number in place of the argument.

int isatty(int descriptor) noexcept {
    termios settings = {};
    return control("isatty", descriptor, TCGETS, &settings, [&] { return REAL(isatty)(descriptor) - 1; }) + 1;
}

int tcgetattr(int descriptor, struct termios* settings) noexcept {
    return control("tcgetattr", descriptor, TCGETS, settings,
                   [&] { return REAL(tcgetattr)(descriptor, settings); });
}

int tcsetattr(int descriptor, int when, const struct termios* settings) noexcept {
    // The C library keeps an input speed of 0 in the topmost input flag, which the kernel never gets.
    constexpr tcflag_t input_speed_is_zero = 1U << 31U;
    termios sent = *settings;
    sent.c_iflag &= ~input_speed_is_zero;
    return control("tcsetattr", descriptor, TCSETS + static_cast<unsigned long>(when), &sent,
                   [&] { return REAL(tcsetattr)(descriptor, when, settings); });
}

int tcflush(int descriptor, int queue) noexcept {
    return control("tcflush", descriptor, TCFLSH, reinterpret_cast<void*>(static_cast<intptr_t>(queue)),
                   [&] { return REAL(tcflush)(descriptor, queue); });
}

// The flags of a descriptor are the real kernel's, for a model too. The commands that matter here take an
// int.
int fcntl(int descriptor, int command, ...) {
    va_list values;
    va_start(values, command);
    const unsigned long argument = va_arg(values, unsigned long);
    va_end(values);
    return norv::test::pass_journalled(
        call{"fcntl", "", descriptor_control{command, static_cast<int>(argument)}}, -1,
        [&] { return REAL(fcntl)(descriptor, command, argument); });
}

int poll(struct pollfd* requests, nfds_t count, int timeout) {
    kernel_state* kernel = active_kernel();
    if (kernel != nullptr) {
        const std::lock_guard lock(kernel->mutex);
        open_file* file = count == 1 ? kernel->find(requests->fd) : nullptr;
        call made{"poll", file != nullptr ? file->path : "", {}};
        if (count == 1) {
            made.details = polling{requests->events, timeout};
        }
        if (kernel->strikes(made)) {
            return -1;
        }
        if (file != nullptr && file->model != nullptr) {
            return poll_model(*kernel, made, *file->model, *requests, timeout);
        }
    }
    return REAL(poll)(requests, count, timeout);
}

int epoll_create(int size) noexcept {
    return create_descriptor("epoll_create", [&] { return REAL(epoll_create)(size); });
}

int epoll_ctl(int instance, int operation, int descriptor, struct epoll_event* event) noexcept {
    return pass("epoll_ctl", -1, [&] { return REAL(epoll_ctl)(instance, operation, descriptor, event); });
}

// Journalled before the wait, which may not end.
int epoll_wait(int instance, struct epoll_event* events, int maximum, int timeout) {
    kernel_state* kernel = active_kernel();
    if (kernel != nullptr) {
        const std::lock_guard lock(kernel->mutex);
        kernel->record(call{"epoll_wait", "", waiting{timeout}});
    }
    return pass("epoll_wait", -1, [&] { return REAL(epoll_wait)(instance, events, maximum, timeout); });
}

int eventfd(unsigned int count, int flags) noexcept {
    return create_descriptor("eventfd", [&] { return REAL(eventfd)(count, flags); });
}

int eventfd_read(int descriptor, eventfd_t* value) {
    return pass("eventfd_read", -1, [&] { return REAL(eventfd_read)(descriptor, value); });
}

int eventfd_write(int descriptor, eventfd_t value) {
    return pass("eventfd_write", -1, [&] { return REAL(eventfd_write)(descriptor, value); });
}

}  // extern "C"
