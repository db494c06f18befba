// SPDX-License-Identifier: MIT
// Rows for mapped registers: one 32-bit access through the library beside the bare one.
#pragma once

#include <cstdint>
#include <string>

#include "support/rows.hpp"

namespace bench {

// The register that rows use, in bytes from the start of the region.
constexpr uint32_t register_offset = 0x100;

// What a program without the library calls: not inlined, because neither is the library.
[[gnu::noinline]] inline uint32_t bare_read(volatile uint32_t* registers, uint32_t offset) {
    return registers[offset / sizeof(uint32_t)];
}

[[gnu::noinline]] inline void bare_write(volatile uint32_t* registers, uint32_t offset, uint32_t value) {
    registers[offset / sizeof(uint32_t)] = value;
}

// The emulated processor of the virtual board takes about as long for a register instruction as for a memory
// access, so the few instructions that the library needs to find the mapping weigh more than on a real one.
constexpr double register_target = 2.5;

// `read` and `write` are the library's functions, named PREFIX_read_32 and PREFIX_write_32.
template <typename device>
void add_register_rows(const std::string& prefix, device** handle, void* map,
                       uint32_t (*read)(device**, uint32_t), void (*write)(device**, uint32_t, uint32_t)) {
    auto* registers = static_cast<volatile uint32_t*>(map);
    add_pair(
        {.name = prefix + "_read_32", .target = register_target},
        [=] { benchmark::DoNotOptimize(bare_read(registers, register_offset)); },
        [=] { benchmark::DoNotOptimize(read(handle, register_offset)); });
    add_pair(
        {.name = prefix + "_write_32", .target = register_target},
        [=] { bare_write(registers, register_offset, 5); }, [=] { write(handle, register_offset, 5); });
}

}  // namespace bench
