// SPDX-License-Identifier: MIT
// The calls on sockets, and on a descriptor's flags, that reach the kernel double.
#include <fcntl.h>
#include <sys/socket.h>

#include <cstdarg>
#include <string>

#include "support/interposition.hpp"
#include "support/kernel_state.hpp"
#include "support/real_calls.hpp"

namespace {

using norv::test::active_kernel;
using norv::test::ask;
using norv::test::call;
using norv::test::device;
using norv::test::outside_the_double;
using kernel_state = norv::test::kernel_double::state;

std::string text_of(const void* bytes, size_t size) {
    return {static_cast<const char*>(bytes), size};
}

int open_socket(kernel_state& kernel, int family, int type, int protocol) {
    const auto answered = kernel.socket_families.find(family);
    if (answered != kernel.socket_families.end()) {
        const outside_the_double guard;
        return norv::test::open_model(kernel, "socket", answered->second(type, protocol));
    }
    const int descriptor = REAL(socket)(family, type, protocol);
    kernel.opened(descriptor, "socket");
    return descriptor;
}

}  // namespace

extern "C" {

// The journal keeps the type as the flags and the protocol as the request.
int socket(int family, int type, int protocol) noexcept {
    kernel_state* kernel = active_kernel();
    if (kernel == nullptr) {
        return REAL(socket)(family, type, protocol);
    }
    const std::lock_guard lock(kernel->mutex);
    call made;
    made.name = "socket";
    made.path = "socket";
    made.flags = type;
    made.request = static_cast<unsigned long>(protocol);
    made.result = kernel->strikes("socket", made.path) ? -1 : open_socket(*kernel, family, type, protocol);
    kernel->record(made);
    return static_cast<int>(made.result);
}

// The journal keeps the address.
int bind(int descriptor, const struct sockaddr* address, socklen_t size) noexcept {
    call made;
    made.name = "bind";
    made.bytes = text_of(address, size);
    return ask(
        made, descriptor, [&](device& model) { return model.bind(address, size); },
        [&] { return REAL(bind)(descriptor, address, size); });
}

// The journal keeps the level as the flags, the option as the request, and the value.
int setsockopt(int descriptor, int level, int name, const void* value, socklen_t size) noexcept {
    call made;
    made.name = "setsockopt";
    made.flags = level;
    made.request = static_cast<unsigned long>(name);
    made.bytes = text_of(value, size);
    return ask(
        made, descriptor, [&](device& model) { return model.set_option(level, name, value, size); },
        [&] { return REAL(setsockopt)(descriptor, level, name, value, size); });
}

// The journal keeps the flags, and the size of the buffer as the request.
ssize_t recv(int descriptor, void* buffer, size_t size, int flags) {
    call made;
    made.name = "recv";
    made.flags = flags;
    made.request = size;
    return ask(
        made, descriptor, [&](device& model) { return model.receive(buffer, size, flags); },
        [&] { return static_cast<int>(REAL(recv)(descriptor, buffer, size, flags)); });
}

// The flags of a descriptor are the real kernel's, for a model too. The journal keeps the command as the
// flags and its argument as the request.
int fcntl(int descriptor, int command, ...) {
    va_list values;
    va_start(values, command);
    const unsigned long argument = va_arg(values, unsigned long);
    va_end(values);
    call made;
    made.name = "fcntl";
    made.flags = command;
    made.request = static_cast<unsigned int>(argument);  // the commands that matter here take an int
    return norv::test::pass_journalled(made, -1, [&] { return REAL(fcntl)(descriptor, command, argument); });
}

}  // extern "C"
