// SPDX-License-Identifier: GPL-2.0
//
// The PWM chips of the virtual board. The first has 4 channels, wired in pairs: a capture at one channel of a
// pair measures the signal of the other, and times out when that is stopped. The second has 128 channels, and
// no inverter: it refuses the polarity "inversed" (-EINVAL).
//
// Both count at 100 MHz and round as pwm-xilinx does: on the wire, period and duty cycle are rounded down to
// multiples of 10 ns, while their attributes show what was written; a period of less than two of them is
// refused (-ERANGE), and one of more than 32 bits of them is shortened. The polarity of a channel cannot be
// changed while it runs (-EBUSY). A channel that runs keeps running after it was unexported: nothing in the
// kernel stops it.

#include <linux/device.h>
#include <linux/module.h>
#include <linux/pwm.h>

#include "kernel_versions.h"

#define TICK_NS 10
#define PAIRED_CHANNELS 4

static struct device* parent;
static struct pwm_chip* paired;
static struct pwm_chip* large;

// What the other end of a pair measures.
struct signal {
    bool runs;
    u64 period;
    u64 high;  // of each period
};

static struct signal wires[PAIRED_CHANNELS];

static u64 whole_ticks(u64 time) {
    return min_t(u64, div_u64(time, TICK_NS), U32_MAX) * TICK_NS;
}

static void drive(struct signal* wire, const struct pwm_state* wanted) {
    u64 duty = whole_ticks(wanted->duty_cycle);

    wire->runs = wanted->enabled;
    wire->period = whole_ticks(wanted->period);
    wire->high = wanted->polarity == PWM_POLARITY_NORMAL ? duty : wire->period - duty;
}

static int board_pwm_apply(struct pwm_chip* chip, struct pwm_device* pwm, const struct pwm_state* wanted) {
    if (chip == large && wanted->polarity != PWM_POLARITY_NORMAL) {
        return -EINVAL;
    }
    if (wanted->period < 2 * TICK_NS) {
        return -ERANGE;
    }
    if (pwm->state.enabled && wanted->enabled && wanted->polarity != pwm->state.polarity) {
        return -EBUSY;
    }
    if (chip == paired) {
        drive(&wires[pwm->hwpwm], wanted);
    }
    return 0;
}

static int board_pwm_capture(struct pwm_chip* chip, struct pwm_device* pwm, struct pwm_capture* result,
                             unsigned long timeout) {
    const struct signal* wire = &wires[(pwm->hwpwm ^ 1) % PAIRED_CHANNELS];

    if (chip != paired || !wire->runs) {
        return -ETIMEDOUT;
    }
    result->period = wire->period;
    result->duty_cycle = wire->high;
    return 0;
}

static const struct pwm_ops ops = {
    BOARD_PWM_OWNER.apply = board_pwm_apply,
    .capture = board_pwm_capture,
};

static struct pwm_chip* add_chip(unsigned int channels) {
    struct pwm_chip* chip = board_pwmchip_alloc(parent, channels);
    int error;

    if (IS_ERR(chip)) {
        return chip;
    }
    chip->ops = &ops;
    error = pwmchip_add(chip);
    if (error) {
        board_pwmchip_put(chip);
        return ERR_PTR(error);
    }
    return chip;
}

static void remove_chip(struct pwm_chip* chip) {
    pwmchip_remove(chip);
    board_pwmchip_put(chip);
}

static int __init board_pwm_init(void) {
    int error;

    parent = root_device_register("norv-board-pwm");
    if (IS_ERR(parent)) {
        return PTR_ERR(parent);
    }
    paired = add_chip(PAIRED_CHANNELS);
    error = PTR_ERR_OR_ZERO(paired);
    if (error) {
        goto no_paired;
    }
    large = add_chip(128);
    error = PTR_ERR_OR_ZERO(large);
    if (error) {
        goto no_large;
    }
    return 0;

no_large:
    remove_chip(paired);
no_paired:
    root_device_unregister(parent);
    return error;
}

static void __exit board_pwm_exit(void) {
    remove_chip(large);
    remove_chip(paired);
    root_device_unregister(parent);
}

module_init(board_pwm_init);
module_exit(board_pwm_exit);
MODULE_LICENSE("GPL");
MODULE_DESCRIPTION("PWM chips of the virtual board, the channels of one wired in pairs");
