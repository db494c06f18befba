// SPDX-License-Identifier: GPL-2.0
//
// The LEDs of the virtual board: norv:green:status can be dimmed from 0 to 255, norv:red:alarm is lit or
// dark.
//
// Each has the attribute "changes" beside those of the LED class: the number of times its light has changed since
// the module was loaded. It shows blinking and flashes to whoever cannot look.

#include <linux/atomic.h>
#include <linux/device.h>
#include <linux/leds.h>
#include <linux/module.h>

struct lamp {
    struct led_classdev led;
    enum led_brightness light;
    atomic_t changes;
};

static struct device* parent;

static struct lamp* lamp_of(struct led_classdev* led) {
    return container_of(led, struct lamp, led);
}

static void lamp_set(struct led_classdev* led, enum led_brightness brightness) {
    struct lamp* lamp = lamp_of(led);

    if (lamp->light != brightness) {
        lamp->light = brightness;
        atomic_inc(&lamp->changes);
    }
}

static enum led_brightness lamp_get(struct led_classdev* led) {
    return lamp_of(led)->light;
}

static ssize_t changes_show(struct device* device, struct device_attribute* attribute, char* text) {
    return sysfs_emit(text, "%d\n", atomic_read(&lamp_of(dev_get_drvdata(device))->changes));
}
static DEVICE_ATTR_RO(changes);

static struct attribute* lamp_attrs[] = {&dev_attr_changes.attr, NULL};
ATTRIBUTE_GROUPS(lamp);

#define LAMP(lamp_name, lamp_brightness)           \
    {                                              \
        .led = {.name = lamp_name,                 \
                .max_brightness = lamp_brightness, \
                .brightness_set = lamp_set,        \
                .brightness_get = lamp_get,        \
                .groups = lamp_groups},            \
    }

static struct lamp lamps[] = {
    LAMP("norv:green:status", LED_FULL),
    LAMP("norv:red:alarm", LED_ON),
};

static void unregister_lamps(int count) {
    while (count-- > 0) {
        led_classdev_unregister(&lamps[count].led);
    }
}

static int __init board_led_init(void) {
    int index, error;

    parent = root_device_register("norv-board-led");
    if (IS_ERR(parent)) {
        return PTR_ERR(parent);
    }
    for (index = 0; index < ARRAY_SIZE(lamps); index++) {
        error = led_classdev_register(parent, &lamps[index].led);
        if (error) {
            unregister_lamps(index);
            root_device_unregister(parent);
            return error;
        }
    }
    return 0;
}

static void __exit board_led_exit(void) {
    unregister_lamps(ARRAY_SIZE(lamps));
    root_device_unregister(parent);
}

module_init(board_led_init);
module_exit(board_led_exit);
MODULE_LICENSE("GPL");
MODULE_SOFTDEP("pre: ledtrig-timer ledtrig-oneshot");
MODULE_DESCRIPTION("LEDs of the virtual board, which count their changes");
