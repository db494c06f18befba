/* SPDX-License-Identifier: MIT */
// What the examples in the public headers leave to the reader.
#include <linux/can.h>
#include <poll.h>
#include <stdio.h>
#include <string.h>
#include <termios.h>
#include <unistd.h>

#include "norv_io_linux.h"

enum { CONTROL = 0x00, RESULT = 0x04, START = 1, TYPE = 0 };

extern const uint8_t image[];
extern const uint32_t image_size;
extern uint32_t area_end, cursor, done, address, size, remaining, samples[64];
extern norv_linux_gpio_t gpio;
extern norv_uart_t* uart;

extern const uint8_t page[256];
extern uint32_t start;
extern norv_flash_t flash;
extern struct update update;

void note(void* user, uint32_t status, uint32_t address, uint32_t remaining, uint32_t percentage);

void on_edge(norv_epoll_fd_t* record, uint32_t events);
void serve(uint32_t result);
