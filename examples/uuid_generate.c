/* SPDX-License-Identifier: MIT */
/*
 * Generates UUIDs, for instance to mark a boot in a log.
 *
 *     uuid_generate [COUNT]      default: 1
 *
 * Needs no hardware.
 */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "norv_base.h"
#include "norv_uuid.h"

/* Ends the program when a call failed. */
static void must(const char* what, uint32_t status) {
    if (status != NORV_STATUS_OK) {
        fprintf(stderr, "%s: %s (%s)\n", what, norv_status_name(status), norv_status_text(status));
        exit(EXIT_FAILURE);
    }
}

int main(int argc, char** argv) {
    const unsigned long count = argc > 1 ? strtoul(argv[1], NULL, 10) : 1;
    char uuid[NORV_UUID_LENGTH + 1] = "";

    for (unsigned long number = 0; number < count; ++number) {
        must("generate a UUID", norv_uuid_generate(uuid));
        printf("  %s\n", uuid);
        if (strlen(uuid) != NORV_UUID_LENGTH) {
            fprintf(stderr, "a UUID has %d characters\n", NORV_UUID_LENGTH);
            return EXIT_FAILURE;
        }
    }
    return EXIT_SUCCESS;
}
