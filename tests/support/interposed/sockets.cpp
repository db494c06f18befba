// SPDX-License-Identifier: MIT
// The calls on sockets that reach the kernel double.
#include <sys/socket.h>

#include "support/interposition.hpp"
#include "support/thread_sanitizer.hpp"

namespace {

using norv::test::active_kernel;
using norv::test::address_binding;
using norv::test::ask;
using norv::test::bytes_of;
using norv::test::call;
using norv::test::calling_out;
using norv::test::device;
using norv::test::kernel_double;
using norv::test::kernel_state;
using norv::test::option_setting;
using norv::test::reception;
using norv::test::socket_making;

std::shared_ptr<device> create_model(const kernel_double::socket_factory& create, int type, int protocol) {
    const calling_out guard;
    return create(type, protocol);
}

int open_socket(kernel_state& kernel, int family, int type, int protocol) {
    const auto answered = kernel.socket_families.find(family);
    if (answered != kernel.socket_families.end()) {
        return norv::test::open_model(kernel, "socket", create_model(answered->second, type, protocol));
    }
    const int descriptor = REAL(socket)(family, type, protocol);
    kernel.opened(descriptor, "socket");
    return descriptor;
}

}  // namespace

extern "C" {

int socket(int family, int type, int protocol) noexcept {
    kernel_state* kernel = active_kernel();
    if (kernel == nullptr) {
        return REAL(socket)(family, type, protocol);
    }
    const std::lock_guard lock(kernel->mutex);
    call made{"socket", "socket", socket_making{type, protocol}};
    made.result = kernel->strikes(made) ? -1 : open_socket(*kernel, family, type, protocol);
    kernel->record(made);
    return static_cast<int>(made.result);
}

int bind(int descriptor, const struct sockaddr* address, socklen_t size) noexcept {
    return ask(
        call{"bind", "", address_binding{bytes_of(address, size)}}, descriptor,
        [&](device& model) { return model.bind(address, size); },
        [&] { return REAL(bind)(descriptor, address, size); });
}

int setsockopt(int descriptor, int level, int name, const void* value, socklen_t size) noexcept {
    return ask(
        call{"setsockopt", "", option_setting{level, name, bytes_of(value, size)}}, descriptor,
        [&](device& model) { return model.set_option(level, name, value, size); },
        [&] { return REAL(setsockopt)(descriptor, level, name, value, size); });
}

ssize_t recv(int descriptor, void* buffer, size_t size, int flags) {
    const int count = ask(
        call{"recv", "", reception{size, flags}}, descriptor,
        [&](device& model) { return model.receive(buffer, size, flags); },
        [&] { return static_cast<int>(REAL(recv)(descriptor, buffer, size, flags)); });
    norv::test::was_written(buffer, count);
    return count;
}

}  // extern "C"
