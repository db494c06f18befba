// SPDX-License-Identifier: MIT
// A UUID beside the bare system calls that it takes.
#include <fcntl.h>
#include <norv_uuid.h>
#include <unistd.h>

#include "support/expect.hpp"
#include "support/rows.hpp"

namespace {

char uuid[NORV_UUID_LENGTH];

void bare_generate() {
    const int descriptor = open("/proc/sys/kernel/random/uuid", O_RDONLY | O_CLOEXEC);
    bench::expect(pread(descriptor, uuid, sizeof uuid, 0) == sizeof uuid, "pread");
    close(descriptor);
}

}  // namespace

int main(int argc, char** argv) {
    bench::add_pair({.name = "norv_uuid_generate", .target = 1.05}, bare_generate,
                    [] { bench::expect(norv_uuid_generate(uuid) == NORV_STATUS_OK, "norv_uuid_generate"); });
    return bench::run_rows(argc, argv);
}
