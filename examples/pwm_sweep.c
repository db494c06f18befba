/* SPDX-License-Identifier: MIT */
/*
 * Sweeps the duty of a PWM channel from 0 to 100 percent, and measures it at another channel.
 *
 *     pwm_sweep [CHIP OUTPUT INPUT]      default: 0 0 1
 *
 * Needs two channels that are wired together, and a driver that can capture on the second.
 */
#include <stdio.h>
#include <stdlib.h>

#include "norv_base.h"
#include "norv_linux_pwm.h"

/* Ends the program when a call failed. */
static void must(const char* what, uint32_t status) {
    if (status != NORV_STATUS_OK) {
        fprintf(stderr, "%s: %s (%s)\n", what, norv_status_name(status), norv_status_text(status));
        exit(EXIT_FAILURE);
    }
}

static uint32_t number(const char* text) {
    return (uint32_t)strtoul(text, NULL, 10);
}

int main(int argc, char** argv) {
    const uint32_t chip = argc > 3 ? number(argv[1]) : 0;
    const uint32_t period = 50000; /* 20 kHz */
    norv_linux_pwm_t output;
    norv_linux_pwm_t input;
    uint32_t channels = 0;
    unsigned wrong = 0;

    must("count the channels", norv_linux_pwm_get_nchannel(chip, &channels));
    printf("  chip %u has %u channels\n", chip, channels);
    must("open the output", norv_linux_pwm_open(chip, argc > 3 ? number(argv[2]) : 0, &output));
    must("open the input", norv_linux_pwm_open(chip, argc > 3 ? number(argv[3]) : 1, &input));
    must("set the period", norv_linux_pwm_set_period(&output, period));
    must("set the polarity", norv_linux_pwm_set_polarity(&output, false));
    must("start the signal", norv_linux_pwm_enable(&output, true));

    for (uint32_t percent = 0; percent <= 100; percent += 20) {
        uint32_t measured_period = 0;
        uint32_t measured_duty = 0;
        must("set the duty", norv_linux_pwm_set_duty(&output, period / 100 * percent));
        must("measure", norv_linux_pwm_get_capture(&input, &measured_period, &measured_duty));
        printf("  duty %3u %%   measured %u ns of %u ns\n", percent, measured_duty, measured_period);
        wrong += measured_period != period || measured_duty != period / 100 * percent;
    }

    must("stop the signal", norv_linux_pwm_enable(&output, false));
    norv_linux_pwm_close(&input);
    norv_linux_pwm_close(&output);
    printf("%s\n",
           wrong == 0 ? "every measured duty is the one that was set" : "the wire shows another signal");
    return wrong == 0 ? EXIT_SUCCESS : EXIT_FAILURE;
}
