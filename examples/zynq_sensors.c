/* SPDX-License-Identifier: MIT */
/*
 * Reads temperatures, a supply voltage and fabric clocks of a Zynq-7000 or ZynqMP device.
 *
 *     zynq_sensors zynq [CHANNEL]        default: voltage0_vccint
 *     zynq_sensors zynqmp [CHANNEL]      default: voltage1_vcc_psintlp
 *
 * CHANNEL is a voltage of the system monitor: the attribute in_CHANNEL_raw of iio:device0.
 */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "norv_base.h"
#include "norv_zynq.h"

/* Ends the program if a call failed. */
static void must(const char* what, uint32_t status) {
    if (status != NORV_STATUS_OK) {
        fprintf(stderr, "%s: %s (%s)\n", what, norv_status_name(status), norv_status_text(status));
        exit(EXIT_FAILURE);
    }
}

static void print_temperature(const char* name, int32_t hundredths) {
    printf("  %-22s %7.2f C\n", name, hundredths / 100.0);
}

static void print_voltage(const char* channel, int32_t millivolts) {
    printf("  %-22s %7.3f V\n", channel, millivolts / 1000.0);
}

static void print_clock(uint32_t index, uint32_t rate) {
    printf("  fclk%u                  %11u Hz\n", index, rate);
}

static void show_zynq(const char* channel) {
    int32_t value;
    uint32_t rate = 100000000;

    must("measure the temperature", norv_zynq_get_temperature(&value));
    print_temperature("temperature", value);
    must("measure the voltage", norv_zynq_get_voltage(channel, false, &value));
    print_voltage(channel, value);

    /* The clock changes while what it drives is held in reset. */
    must("assert the reset", norv_zynq_set_fclk_reset(0, true));
    must("set the clock", norv_zynq_set_fclk_freq(0, &rate));
    must("release the reset", norv_zynq_set_fclk_reset(0, false));
    printf("  100 MHz were requested:\n");
    print_clock(0, rate);
    must("read the clock", norv_zynq_get_fclk_freq(1, &rate));
    print_clock(1, rate);
}

static void show_zynqmp(const char* channel) {
    int32_t value;
    uint32_t rate;

    must("measure the processing system", norv_zynqmp_get_ps_temperature(&value));
    print_temperature("processing system", value);
    must("measure the programmable logic", norv_zynqmp_get_pl_temperature(&value));
    print_temperature("programmable logic", value);
    must("measure the voltage", norv_zynqmp_get_voltage(channel, &value));
    print_voltage(channel, value);
    must("read the clock", norv_zynqmp_get_fclk_freq(0, &rate));
    print_clock(0, rate);
}

int main(int argc, char** argv) {
    const bool is_zynq = argc > 1 && strcmp(argv[1], "zynq") == 0;
    if (!is_zynq && (argc < 2 || strcmp(argv[1], "zynqmp") != 0)) {
        fprintf(stderr, "usage: %s zynq|zynqmp [CHANNEL]\n", argv[0]);
        return EXIT_FAILURE;
    }
    if (is_zynq) {
        show_zynq(argc > 2 ? argv[2] : "voltage0_vccint");
    } else {
        show_zynqmp(argc > 2 ? argv[2] : "voltage1_vcc_psintlp");
    }
    puts("all sensors were read");
    return EXIT_SUCCESS;
}
