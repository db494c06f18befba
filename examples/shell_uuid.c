/* SPDX-License-Identifier: MIT */
/*
 * Marks a boot of the board: which kernel runs, for how long, and a fresh identifier for the log.
 *
 *     shell_uuid [COMMAND]      default: uname -sr
 *
 * Needs no hardware.
 */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "norv_base.h"
#include "norv_shell.h"
#include "norv_uuid.h"

/* Ends the program when a call failed. */
static void must(const char* what, uint32_t status) {
    if (status != NORV_STATUS_OK) {
        fprintf(stderr, "%s: %s (%s)\n", what, norv_status_name(status), norv_status_text(status));
        exit(EXIT_FAILURE);
    }
}

int main(int argc, char** argv) {
    char output[256] = ""; /* zeros, and one byte more than the size that is passed */
    char uptime[64] = "";
    char uuid[NORV_UUID_LENGTH + 1] = "";

    must("run the command", norv_shell_result(output, sizeof output - 1, argc > 1 ? argv[1] : "uname -sr"));
    must("read the uptime",
         norv_shell_format_result(uptime, sizeof uptime - 1, "cut -d '%c' -f 1 /proc/uptime", ' '));
    must("generate a UUID", norv_uuid_generate(uuid));
    printf("  system   %s\n  uptime   %s s\n  boot id  %s\n", output, uptime, uuid);
    if (strlen(uuid) != NORV_UUID_LENGTH || output[0] == '\0') {
        fprintf(stderr, "the command printed nothing\n");
        return EXIT_FAILURE;
    }
    puts("the boot was marked");
    return EXIT_SUCCESS;
}
