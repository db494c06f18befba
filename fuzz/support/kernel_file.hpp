// SPDX-License-Identifier: MIT
// A file of the kernel whose content the fuzzer chooses.
//
//     extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
//         const fuzz::kernel_file file(data, size);
//         norv_get_mem_info(&info);  // reads the fuzzer's bytes
//         return 0;
//     }
#pragma once

#include <cstddef>
#include <cstdint>

namespace fuzz {

// While one lives, everything that is opened, by open(2) or fopen(3), is this file.
class kernel_file {
  public:
    kernel_file(const uint8_t* data, size_t size);
    ~kernel_file();
    kernel_file(const kernel_file&) = delete;
    kernel_file& operator=(const kernel_file&) = delete;
};

// Ends the program, which the fuzzer reports with the input, unless what must hold does.
inline void require(bool holds) {
    if (!holds) {
        __builtin_trap();
    }
}

}  // namespace fuzz
