/* SPDX-License-Identifier: MIT */
/*
 * Lets the kernel blink an LED, flashes it once, and switches it off.
 *
 *     led_blink [NAME [ON OFF]]      default: norv:red:alarm 100 150 (milliseconds)
 *
 * Needs the kernel's "timer" and "oneshot" triggers. While the kernel blinks, the program has nothing to do.
 */
#include <stdio.h>
#include <stdlib.h>
#include <time.h>

#include "norv_base.h"
#include "norv_linux_led.h"

/* Ends the program when a call failed. */
static void must(const char* what, uint32_t status) {
    if (status != NORV_STATUS_OK) {
        fprintf(stderr, "%s: %s (%s)\n", what, norv_status_name(status), norv_status_text(status));
        exit(EXIT_FAILURE);
    }
}

static void rest(int milliseconds) {
    const struct timespec time = {milliseconds / 1000, milliseconds % 1000 * 1000000L};
    nanosleep(&time, NULL);
}

int main(int argc, char** argv) {
    const char* name = argc > 1 ? argv[1] : "norv:red:alarm";
    const int32_t on = argc > 3 ? (int32_t)strtol(argv[2], NULL, 10) : 100;
    const int32_t off = argc > 3 ? (int32_t)strtol(argv[3], NULL, 10) : 150;

    printf("  %s blinks: %d ms lit, %d ms dark\n", name, on, off);
    must("select the timer", norv_linux_led_set_trigger(name, "timer"));
    must("set the blink times", norv_linux_led_set_delay(name, on, off));
    rest(1000);

    printf("  %s flashes once\n", name);
    must("select single flashes", norv_linux_led_set_trigger(name, "oneshot"));
    must("set their length", norv_linux_led_set_delay(name, on, off));
    must("flash", norv_linux_led_trigger_shot(name));
    rest(on + off);

    must("remove the trigger", norv_linux_led_set_trigger(name, "none"));
    must("switch it off", norv_linux_led_set_brightness(name, 0));
    printf("%s blinked, flashed and is dark\n", name);
    return EXIT_SUCCESS;
}
