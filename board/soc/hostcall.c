/* SPDX-License-Identifier: MIT */
/*
 * Reaches files of the host from within a machine that has no other way to it: through the emulator's
 * semihosting, the calls by which an ARM program asks its debugger for files. The emulator answers them in
 * its own process, with the rights of the user who started it.
 *
 *     hostcall write FILE                  copies the standard input into a file, each piece as it comes
 *     hostcall terminal NODE INTO FROM     makes a pseudo-terminal, with NODE as a link to it, in the
 * background: what is written there goes into the file INTO; what FROM has comes out of it hostcall exit ends
 * the emulator
 *
 * Linked statically, and compiled to ARM code on 32-bit processors.
 */
#define _GNU_SOURCE
#include <fcntl.h>
#include <poll.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <termios.h>
#include <unistd.h>

enum { SYS_OPEN = 0x01, SYS_CLOSE = 0x02, SYS_WRITE = 0x05, SYS_READ = 0x06, SYS_EXIT = 0x18 };
enum { OPEN_READ_BINARY = 1, OPEN_WRITE_BINARY = 5 };

#define APPLICATION_EXIT 0x20026

/* How long a terminal waits between two looks at what FROM has, once something was asked. */
#define LOOK_MS 20

static intptr_t call_host(uintptr_t operation, const void* argument) {
#ifdef __aarch64__
    register uintptr_t x0 __asm__("x0") = operation;
    register const void* x1 __asm__("x1") = argument;
    __asm__ volatile("hlt #0xf000" : "+r"(x0) : "r"(x1) : "memory");
    return (intptr_t)x0;
#else
    register uintptr_t r0 __asm__("r0") = operation;
    register const void* r1 __asm__("r1") = argument;
    __asm__ volatile("svc #0x123456" : "+r"(r0) : "r"(r1) : "memory");
    return (intptr_t)r0;
#endif
}

/*
 * The emulator looks at the memory of a call in the mapping of that moment: what a call refers to is on the
 * stack, and was written just before.
 */
static intptr_t open_on_host(const char* given, uintptr_t mode) {
    char path[4096];
    uintptr_t block[3];
    const size_t length = strlen(given);

    if (length >= sizeof path) {
        return -1;
    }
    memcpy(path, given, length + 1);
    block[0] = (uintptr_t)path;
    block[1] = mode;
    block[2] = length;
    return call_host(SYS_OPEN, block);
}

/* Both calls return how many bytes were not moved. */
static int write_to_host(intptr_t file, const char* bytes, size_t size) {
    while (size > 0) {
        const uintptr_t block[3] = {(uintptr_t)file, (uintptr_t)bytes, size};
        const intptr_t left = call_host(SYS_WRITE, block);
        if (left < 0 || (size_t)left >= size) {
            return -1;
        }
        bytes += size - (size_t)left;
        size = (size_t)left;
    }
    return 0;
}

static size_t read_from_host(intptr_t file, char* bytes, size_t size) {
    const uintptr_t block[3] = {(uintptr_t)file, (uintptr_t)bytes, size};
    memset(bytes, 0, size);
    const intptr_t left = call_host(SYS_READ, block);
    return left < 0 || (size_t)left > size ? 0 : size - (size_t)left;
}

static void close_on_host(intptr_t file) {
    const uintptr_t block[1] = {(uintptr_t)file};
    call_host(SYS_CLOSE, block);
}

static int write_file(const char* path) {
    char bytes[16384];
    ssize_t size;
    int status = EXIT_SUCCESS;
    const intptr_t file = open_on_host(path, OPEN_WRITE_BINARY);

    if (file < 0) {
        fprintf(stderr, "hostcall: the host does not open %s\n", path);
        return EXIT_FAILURE;
    }
    while (status == EXIT_SUCCESS && (size = read(STDIN_FILENO, bytes, sizeof bytes)) > 0) {
        status = write_to_host(file, bytes, (size_t)size) == 0 ? EXIT_SUCCESS : EXIT_FAILURE;
    }
    close_on_host(file);
    return status;
}

/* Opens both ends, so that the terminal outlives its users. */
static int make_terminal(const char* node) {
    struct termios settings;
    const int master = posix_openpt(O_RDWR | O_NOCTTY);

    if (master < 0 || grantpt(master) != 0 || unlockpt(master) != 0) {
        return -1;
    }
    const char* name = ptsname(master);
    const int slave = open(name, O_RDWR | O_NOCTTY);
    if (slave < 0 || tcgetattr(slave, &settings) != 0) {
        return -1;
    }
    cfmakeraw(&settings);
    if (tcsetattr(slave, TCSANOW, &settings) != 0 || symlink(name, node) != 0) {
        return -1;
    }
    return master;
}

static int serve_terminal(const char* node, const char* into, const char* from) {
    char bytes[4096];
    const intptr_t commands = open_on_host(into, OPEN_WRITE_BINARY);
    const intptr_t answers = open_on_host(from, OPEN_READ_BINARY);
    const int master = make_terminal(node);
    int wait = -1; /* nothing is answered before something was asked */

    if (commands < 0 || answers < 0 || master < 0) {
        fprintf(stderr, "hostcall: no terminal %s\n", node);
        return EXIT_FAILURE;
    }
    if (daemon(0, 0) != 0) {
        return EXIT_FAILURE;
    }
    for (;;) {
        struct pollfd asked = {master, POLLIN, 0};
        if (poll(&asked, 1, wait) > 0) {
            const ssize_t size = read(master, bytes, sizeof bytes);
            if (size <= 0 || write_to_host(commands, bytes, (size_t)size) != 0) {
                return EXIT_FAILURE;
            }
            wait = LOOK_MS;
        }
        for (size_t size = 1; wait > 0 && size > 0;) {
            size = read_from_host(answers, bytes, sizeof bytes);
            if (write(master, bytes, size) != (ssize_t)size) {
                return EXIT_FAILURE;
            }
        }
    }
}

static void end_emulator(void) {
#ifdef __aarch64__
    const uintptr_t block[2] = {APPLICATION_EXIT, 0};
    call_host(SYS_EXIT, block);
#else
    call_host(SYS_EXIT, (const void*)APPLICATION_EXIT);
#endif
}

int main(int argc, char** argv) {
    if (argc == 3 && strcmp(argv[1], "write") == 0) {
        return write_file(argv[2]);
    }
    if (argc == 5 && strcmp(argv[1], "terminal") == 0) {
        return serve_terminal(argv[2], argv[3], argv[4]);
    }
    if (argc == 2 && strcmp(argv[1], "exit") == 0) {
        end_emulator();
    }
    fprintf(stderr, "usage: hostcall write FILE | terminal NODE INTO FROM | exit\n");
    return 2;
}
