/* SPDX-License-Identifier: MIT */
/*
 * Reads attributes of a network interface, changes one and restores it, with a marker file in place
 * meanwhile.
 *
 *     file_attributes [INTERFACE]      default: lo
 *
 * Changing needs permission to write to sysfs; without it, the program says so and only reads.
 */
#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include "norv_base.h"
#include "norv_file.h"

#define MARK "/tmp/file_attributes.%s"

/* Ends the program when a call failed. */
static void must(const char* what, uint32_t status) {
    if (status != NORV_STATUS_OK) {
        fprintf(stderr, "%s: %s (%s)\n", what, norv_status_name(status), norv_status_text(status));
        exit(EXIT_FAILURE);
    }
}

/* Reads one attribute as a text without its newline. */
static void read_attribute(const char* interface, const char* name, char* text, uint32_t size) {
    uint32_t length = size - 1;
    must(name, norv_read_device(text, &length, "/sys/class/net/%s/%s", interface, name));
    text[length] = '\0';
    text[strcspn(text, "\n")] = '\0';
    printf("  %-13s %s\n", name, text);
}

/* Writes one attribute through a descriptor; the terminating NUL of a text is written too. */
static void write_queue_length(const char* interface, uint32_t packets) {
    int32_t descriptor = -1;
    must("open tx_queue_len",
         norv_open_device(O_WRONLY | O_CLOEXEC, &descriptor, "/sys/class/net/%s/tx_queue_len", interface));
    must("write tx_queue_len", norv_write_string(descriptor, 16, "%u", packets));
    close(descriptor);
}

/* The mark shows that the interface is not in its normal state. */
static void change_and_restore(const char* interface, uint32_t before) {
    char text[32];
    must("set the mark", norv_file_mark(MARK, interface));
    write_queue_length(interface, before + 1);
    read_attribute(interface, "tx_queue_len", text, sizeof text);
    write_queue_length(interface, before);
    must("take the mark away", norv_file_unmark(MARK, interface));
    if (strtoul(text, NULL, 10) != before + 1) {
        fprintf(stderr, "the interface did not take what was written\n");
        exit(EXIT_FAILURE);
    }
}

int main(int argc, char** argv) {
    const char* interface = argc > 1 ? argv[1] : "lo";
    char text[64];

    if (norv_file_access(F_OK, MARK, interface)) {
        printf("a run before this one did not restore %s\n", interface);
    }
    read_attribute(interface, "address", text, sizeof text);
    read_attribute(interface, "tx_queue_len", text, sizeof text);
    if (!norv_file_access(W_OK, "/sys/class/net/%s/tx_queue_len", interface)) {
        printf("%s was read; changing it is not allowed here\n", interface);
        return EXIT_SUCCESS;
    }
    change_and_restore(interface, (uint32_t)strtoul(text, NULL, 10));
    printf("%s was changed and restored\n", interface);
    return EXIT_SUCCESS;
}
