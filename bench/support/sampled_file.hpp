// SPDX-License-Identifier: MIT
// A file of the kernel that stays open and is read from its start again and again.
#pragma once

#include <fcntl.h>
#include <unistd.h>
#include <norv/file.hpp>

#include "support/expect.hpp"

namespace bench {

inline norv::file open_sampled(const char* path) {
    return norv::file::open(path, O_RDONLY | O_CLOEXEC).value();
}

// Reads as much of it as the samplers need.
inline void read_sample(int descriptor) {
    char text[1024];
    expect(pread(descriptor, text, sizeof text, 0) > 0, "pread");
}

}  // namespace bench
