// SPDX-License-Identifier: MIT
// A process without standard input, as services may be started.
#pragma once

#include <fcntl.h>
#include <unistd.h>

namespace norv::test {

// While one lives, the process has no standard input, and the next descriptor that is opened is 0.
class no_standard_input {
  public:
    no_standard_input() { close(STDIN_FILENO); }
    ~no_standard_input() {
        if (kept_ >= 0) {
            dup2(kept_, STDIN_FILENO);
            close(kept_);
        }
    }

  private:
    int kept_ = fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, 3);
};

}  // namespace norv::test
