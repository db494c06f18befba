/* SPDX-License-Identifier: GPL-2.0 */
/*
 * Where the kernel's own interfaces differ between the versions that the virtual board runs. Every module
 * that meets one of these differences takes it from here.
 */
#ifndef NORV_BOARD_KERNEL_VERSIONS_H
#define NORV_BOARD_KERNEL_VERSIONS_H

#include <linux/device/class.h>
#include <linux/err.h>
#include <linux/pwm.h>
#include <linux/slab.h>
#include <linux/version.h>

/* Linux 6.4 dropped the owner. */
#if LINUX_VERSION_CODE < KERNEL_VERSION(6, 4, 0)
#define board_class_create(name) class_create(THIS_MODULE, name)
#else
#define board_class_create(name) class_create(name)
#endif

/* Linux 6.7 finds the owner by itself. */
#if LINUX_VERSION_CODE < KERNEL_VERSION(6, 7, 0)
#define BOARD_PWM_OWNER .owner = THIS_MODULE,
#else
#define BOARD_PWM_OWNER
#endif

/* Since Linux 6.9 a chip is allocated by the core, which frees it with the last of its users. */
#if LINUX_VERSION_CODE < KERNEL_VERSION(6, 9, 0)
static inline struct pwm_chip* board_pwmchip_alloc(struct device* parent, unsigned int channels) {
    struct pwm_chip* chip = kzalloc(sizeof(*chip), GFP_KERNEL);

    if (!chip) {
        return ERR_PTR(-ENOMEM);
    }
    chip->dev = parent;
    chip->npwm = channels;
    return chip;
}
static inline void board_pwmchip_put(struct pwm_chip* chip) {
    kfree(chip);
}
#else
#define board_pwmchip_alloc(parent, channels) pwmchip_alloc(parent, channels, 0)
#define board_pwmchip_put(chip) pwmchip_put(chip)
#endif

#endif
