// SPDX-License-Identifier: GPL-2.0
//
// The PWM chips of the virtual board. The first has 4 channels, wired in pairs: a capture at one channel of a
// pair measures the signal of the other, and times out when that is stopped. The second has 128 channels.
//
// As with real controllers, the polarity of a channel cannot be changed while it runs, a cycle is 10 ns long
// at least, and a channel that runs goes on after it was unexported: nothing in the kernel stops it.

#include <linux/device.h>
#include <linux/module.h>
#include <linux/pwm.h>

#include "kernel_versions.h"

#define SHORTEST_PERIOD 10

static struct device* parent;

// What the other end of a pair measures: the time that the wire is high in each cycle.
static u64 high_time(const struct pwm_state* signal) {
    return signal->polarity == PWM_POLARITY_NORMAL ? signal->duty_cycle : signal->period - signal->duty_cycle;
}

static int board_pwm_apply(struct pwm_chip* chip, struct pwm_device* pwm, const struct pwm_state* wanted) {
    if (wanted->period < SHORTEST_PERIOD) {
        return -ERANGE;
    }
    if (pwm->state.enabled && wanted->enabled && wanted->polarity != pwm->state.polarity) {
        return -EBUSY;
    }
    return 0;  // the core keeps the state, and there is nothing else
}

static int board_pwm_capture(struct pwm_chip* chip, struct pwm_device* pwm, struct pwm_capture* result,
                             unsigned long timeout) {
    const struct pwm_state* signal = &chip->pwms[pwm->hwpwm ^ 1].state;

    if (!signal->enabled) {
        return -ETIMEDOUT;
    }
    result->period = signal->period;
    result->duty_cycle = high_time(signal);
    return 0;
}

static const struct pwm_ops ops = {
    BOARD_PWM_OWNER.apply = board_pwm_apply,
    .capture = board_pwm_capture,
};

static struct pwm_chip* paired;
static struct pwm_chip* large;

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
    paired = add_chip(4);
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
