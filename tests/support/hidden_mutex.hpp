// SPDX-License-Identifier: MIT
// The double's lock, which the thread sanitizer does not see. Every call of the library under test takes it:
// a lock that the sanitizer sees would put those calls in an order, and a lock that the library forgot would
// not be missed.
#pragma once

#include <cstdint>

namespace norv::test {

// Recursive. While a thread holds it, the sanitizer ignores what that thread reads and writes and how it
// synchronises.
class hidden_mutex {
  public:
    void lock();
    void unlock();

  private:
    void wait_until_taken();

    uint32_t state_ = 0;  // 0: free, 1: taken, 2: taken, and there may be threads that wait
    const void* owner_ = nullptr;
    int depth_ = 0;
};

}  // namespace norv::test
