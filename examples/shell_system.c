/* SPDX-License-Identifier: MIT */
/*
 * Shows two facts that only a program reports: which kernel runs, and for how long.
 *
 *     shell_system [COMMAND]      default: uname -sr
 *
 * Needs no hardware.
 */
#include <stdio.h>
#include <stdlib.h>

#include "norv_base.h"
#include "norv_shell.h"

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

    must("run the command", norv_shell_result(output, sizeof output - 1, argc > 1 ? argv[1] : "uname -sr"));
    must("read the uptime",
         norv_shell_format_result(uptime, sizeof uptime - 1, "cut -d '%c' -f 1 /proc/uptime", ' '));
    if (output[0] == '\0') {
        fprintf(stderr, "the command printed nothing\n");
        return EXIT_FAILURE;
    }
    printf("  system   %s\n  uptime   %s s\n", output, uptime);
    return EXIT_SUCCESS;
}
