// SPDX-License-Identifier: MIT
// The C library's own memory functions, as far as the library under test calls them itself: they can fail
// there, and what they allocate is watched. The calls of the rest of the program do not reach the double.
#include <dlfcn.h>
#include <link.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <mutex>
#include <span>
#include <string_view>

#include "support/kernel_state.hpp"

namespace {

using norv::test::active_kernel;
using norv::test::call;
using norv::test::outside_the_double;
using norv::test::watched_allocation;
using kernel_state = norv::test::kernel_double::state;

// Where an object is in memory.
struct address_range {
    uintptr_t begin = UINTPTR_MAX;
    uintptr_t end = 0;

    bool holds(const void* place) const {
        const auto address = reinterpret_cast<uintptr_t>(place);
        return address >= begin && address < end;
    }
};

address_range program;
address_range library;  // the one under test

int note_range(dl_phdr_info* object, size_t, void*) {
    const std::string_view name = object->dlpi_name;
    const bool is_library = name.find("libnorv_io_linux.so") != std::string_view::npos;
    if (!name.empty() && !is_library) {
        return 0;
    }
    // The program comes first, without a name; so does the kernel's page of calls, later.
    address_range& range = is_library ? library : program;
    const bool known = range.end != 0;
    for (const auto& part : std::span(object->dlpi_phdr, object->dlpi_phnum)) {
        if (part.p_type == PT_LOAD && !known) {
            range.begin = std::min(range.begin, object->dlpi_addr + part.p_vaddr);
            range.end = std::max(range.end, object->dlpi_addr + part.p_vaddr + part.p_memsz);
        }
    }
    return 0;
}

// The double, when the library under test is calling.
kernel_state* kernel_of(const void* caller) {
    return library.holds(caller) ? active_kernel() : nullptr;
}

template <typename function>
function* real(const char* name) {
    return reinterpret_cast<function*>(dlsym(RTLD_NEXT, name));
}

// These are called before anything else in the program is ready, and for that reason keep what they look up
// in plain variables. Looking it up twice does no harm.
void* (*real_malloc)(size_t);
void* (*real_calloc)(size_t, size_t);
void (*real_free)(void*);

}  // namespace

void norv::test::locate_tested_library() {
    if (library.end == 0) {
        dl_iterate_phdr(note_range, nullptr);
    }
}

extern "C" {

void* malloc(size_t size) {
    if (real_malloc == nullptr) {
        real_malloc = real<void*(size_t)>("malloc");
    }
    return watched_allocation(kernel_of(__builtin_return_address(0)), "malloc",
                              [&] { return real_malloc(size); });
}

void* calloc(size_t count, size_t size) {
    if (real_calloc == nullptr) {
        real_calloc = real<void*(size_t, size_t)>("calloc");
    }
    return watched_allocation(kernel_of(__builtin_return_address(0)), "calloc",
                              [&] { return real_calloc(count, size); });
}

// The library under test, or the program: a library that releases memory with its last step may have left the
// stack by then. Not the C library, which tidies up after a thread that has ended for the thread sanitizer.
void free(void* memory) {
    const void* const caller = __builtin_return_address(0);
    static bool looking_up = false;
    if (real_free == nullptr) {
        if (looking_up) {
            return;  // the message of an earlier lookup that failed, released by this one: leaked
        }
        looking_up = true;
        real_free = real<void(void*)>("free");
    }
    kernel_state* kernel = library.holds(caller) || program.holds(caller) ? active_kernel() : nullptr;
    if (kernel != nullptr) {
        const std::lock_guard lock(kernel->mutex);
        const outside_the_double guard;
        if (kernel->allocations.erase(memory) > 0) {
            kernel->record(call{"free"});
        }
    }
    real_free(memory);
}

}  // extern "C"
