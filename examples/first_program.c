/* SPDX-License-Identifier: MIT */
/* Drives one GPIO line and waits until another one, which is wired to it, shows the edge. */
#include <stdio.h>
#include <stdlib.h>

#include "norv_base.h"
#include "norv_linux_gpio.h"

/* Ends the program when a call failed. */
static void must(const char* what, uint32_t status) {
    if (status != NORV_STATUS_OK) {
        fprintf(stderr, "%s: %s (%s)\n", what, norv_status_name(status), norv_status_text(status));
        exit(EXIT_FAILURE);
    }
}

int main(void) {
    norv_linux_gpio_t output;
    norv_linux_gpio_t input;
    uint8_t level = 0;

    must("open line 16", norv_linux_gpio_open(16, &output));
    must("make it an output", norv_linux_gpio_set_dir(&output, true));
    must("open line 17", norv_linux_gpio_open(17, &input));
    must("make it an input", norv_linux_gpio_set_dir(&input, false));
    must("ask for rising edges", norv_linux_gpio_set_irq(&input, NORV_LINUX_GPIO_EDGE_RISING));
    must("read it once", norv_linux_gpio_get_value(&input, &level)); /* so that only new edges count */

    must("raise line 16", norv_linux_gpio_set_value(&output, true));
    must("wait for the edge", norv_linux_gpio_wait_irq(&input, 1000));
    must("read line 17", norv_linux_gpio_get_value(&input, &level));
    printf("line 17 rose, and reads %u\n", level);

    norv_linux_gpio_close(&input);
    norv_linux_gpio_close(&output);
    return EXIT_SUCCESS;
}
