// SPDX-License-Identifier: MIT
// A device model: what answers the system calls on a device node, attribute or socket of the kernel double.
#pragma once

#include <sys/types.h>

#include <cerrno>
#include <cstddef>
#include <cstdint>

namespace norv::test {

// Every call returns what the system call would: a result of 0 or more, or a negative errno. A model
// overrides what its device can do. Calls are serialised by the double, and reach the real C library from
// inside.
class device {
  public:
    virtual ~device() = default;

    virtual long open(int /*flags*/) { return 0; }
    virtual void close() {}
    // `offset` is the file position; it advances by the result.
    virtual long read(void* /*buffer*/, size_t /*size*/, off_t /*offset*/) { return -EINVAL; }
    virtual long write(const void* /*buffer*/, size_t /*size*/, off_t /*offset*/) { return -EINVAL; }
    virtual long ioctl(unsigned long /*request*/, void* /*argument*/) { return -ENOTTY; }
    // The events that are ready now or would be within the timeout; 0: none came.
    virtual long poll(short events, int /*timeout*/) { return events; }
    // The address that the mapping gets, or a negative errno.
    virtual intptr_t map(size_t /*size*/, int /*protection*/, int /*flags*/, off_t /*offset*/) {
        return -ENODEV;
    }
    // On sockets only.
    virtual long receive(void* /*buffer*/, size_t /*size*/, int /*flags*/) { return -ENOTSOCK; }
    virtual long bind(const void* /*address*/, size_t /*size*/) { return -ENOTSOCK; }
    virtual long set_option(int /*level*/, int /*name*/, const void* /*value*/, size_t /*size*/) {
        return -ENOTSOCK;
    }
};

}  // namespace norv::test
