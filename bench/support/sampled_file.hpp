// SPDX-License-Identifier: MIT
// A file of the kernel that stays open and is read from its start again and again.
#pragma once

#include <fcntl.h>
#include <unistd.h>

#include "support/expect.hpp"

namespace bench {

class sampled_file {
  public:
    explicit sampled_file(const char* path) : descriptor_{open(path, O_RDONLY | O_CLOEXEC)} {
        expect(descriptor_ >= 0, path);
    }
    ~sampled_file() { close(descriptor_); }
    sampled_file(const sampled_file&) = delete;
    sampled_file& operator=(const sampled_file&) = delete;

    // As much of it as the samplers need.
    void read() const {
        char text[1024];
        expect(pread(descriptor_, text, sizeof text, 0) > 0, "pread");
    }

  private:
    const int descriptor_;
};

}  // namespace bench
