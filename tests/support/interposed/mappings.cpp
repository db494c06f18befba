// SPDX-License-Identifier: MIT
// The calls that map a descriptor's memory that reach the kernel double.
#include <sys/mman.h>

#include <cstdint>

#include "support/interposition.hpp"

namespace {

using norv::test::active_kernel;
using norv::test::answer;
using norv::test::call;
using norv::test::calling_out;
using norv::test::device;
using norv::test::kernel_state;
using norv::test::open_file;
using norv::test::unmapping;

void* map_of_model(device& model, size_t size, int protection, int flags, off_t offset) {
    const calling_out guard;
    return reinterpret_cast<void*>(answer(model.map(size, protection, flags, offset)));
}

void* map_in(kernel_state& kernel, open_file& file, void* address, size_t size, int protection, int flags,
             int descriptor, off_t offset) {
    void* mapped = file.model != nullptr ? map_of_model(*file.model, size, protection, flags, offset)
                                         : REAL(mmap)(address, size, protection, flags, descriptor, offset);
    if (mapped != MAP_FAILED) {
        kernel.mappings[mapped] = file.model != nullptr ? 0 : size;
    }
    return mapped;
}

// Takes a mapping off the double's list; what is not on it, or is a file's, is the real kernel's as well.
int unmap_in(kernel_state& kernel, void* address, size_t size) {
    const auto found = kernel.mappings.find(address);
    const bool of_model = found != kernel.mappings.end() && found->second == 0;
    if (found != kernel.mappings.end()) {
        kernel.mappings.erase(found);
    }
    return of_model ? 0 : REAL(munmap)(address, size);
}

}  // namespace

extern "C" {

void* mmap(void* address, size_t size, int protection, int flags, int descriptor, off_t offset) noexcept {
    kernel_state* kernel = active_kernel();
    if (kernel != nullptr) {
        const std::lock_guard lock(kernel->mutex);
        open_file* file = kernel->find(descriptor);
        if (file != nullptr && kernel->strikes(call{"mmap", file->path})) {
            return MAP_FAILED;
        }
        if (file != nullptr) {
            return map_in(*kernel, *file, address, size, protection, flags, descriptor, offset);
        }
    }
    return REAL(mmap)(address, size, protection, flags, descriptor, offset);
}

// It fails only for a test that names it: most callers could not do anything about that.
int munmap(void* address, size_t size) noexcept {
    kernel_state* kernel = active_kernel();
    if (kernel == nullptr) {
        return REAL(munmap)(address, size);
    }
    const std::lock_guard lock(kernel->mutex);
    call made{"munmap", "", unmapping{size}};
    made.result = kernel->strikes_by_name(made) ? -1 : unmap_in(*kernel, address, size);
    kernel->record(made);
    return static_cast<int>(made.result);
}

}  // extern "C"
