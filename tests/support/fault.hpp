// SPDX-License-Identifier: MIT
// Failures that a test plans for the calls of the library under test.
#pragma once

#include <sys/types.h>

#include <optional>
#include <string>

#include "support/journal.hpp"

namespace norv::test {

// Which call is to fail, and how. A call is meant when it has all that is given here:
//
//     kernel.fail({.call = "read", .path = "/dev/mtd0", .offset = 0x1000, .error = EIO});
struct fault {
    enum class kind { error, short_count };
    std::string call = {};                      // its name; empty: any call that can fail
    std::string path = {};                      // of its file
    std::optional<unsigned long> request = {};  // of an ioctl or a call on a terminal
    std::optional<off_t> offset = {};           // in the file, of a read or write
    int nth = 1;                                // the nth of the calls that are meant, counted from 1
    int error = 0;                              // errno
    kind how = kind::error;

    bool means(const norv::test::call& made) const;
};

// The call that a fault met, without its result.
struct strike : call {
    int nth = 1;  // since the fault was set, the nth call with this name, path and request
    int error = 0;
    fault::kind how = fault::kind::error;
};

}  // namespace norv::test
