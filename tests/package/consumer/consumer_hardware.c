/* SPDX-License-Identifier: MIT */
/* A user's program that calls no function of the base library. */
#include <norv_io_linux.h>
#include <stdio.h>
#include <string.h>

int main(void) {
    char uuid[NORV_UUID_LENGTH + 1] = "";
    const uint32_t status = norv_uuid_generate(uuid);

    printf("hardware: %u, %s\n", (unsigned int)status, uuid);
    return strlen(uuid) == NORV_UUID_LENGTH ? 0 : 1;
}
