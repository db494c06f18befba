// SPDX-License-Identifier: MIT
// A user's program in C++, with a call of each library.
#include <norv_base.h>
#include <norv_io_linux.h>

#include <cstdio>
#include <cstring>

int main() {
    char uuid[NORV_UUID_LENGTH + 1] = "";
    const uint32_t status = norv_uuid_generate(uuid);

    std::printf("C++: %s, %s\n", norv_status_name(status), uuid);
    return std::strlen(uuid) == NORV_UUID_LENGTH ? 0 : 1;
}
