// SPDX-License-Identifier: GPL-2.0
//
// A display of the virtual board that can be made to change: writing N to the "connector" attribute of
// /sys/class/norv_board_display/card9 makes the kernel announce what a display driver announces when
// something happens at connector N.

#include <linux/device.h>
#include <linux/fs.h>
#include <linux/module.h>

#include "kernel_versions.h"

static dev_t number;
static struct class* display_class;
static struct device* card;

static ssize_t connector_store(struct device* dev, struct device_attribute* attribute, const char* text,
                               size_t size) {
    char connector[32];
    char* keys[] = {"HOTPLUG=1", connector, NULL};
    unsigned int value;
    int error = kstrtouint(text, 10, &value);

    if (error)
        return error;
    snprintf(connector, sizeof(connector), "CONNECTOR=%u", value);
    error = kobject_uevent_env(&dev->kobj, KOBJ_CHANGE, keys);
    return error ? error : size;
}

static DEVICE_ATTR_WO(connector);

static struct attribute* card_attrs[] = {&dev_attr_connector.attr, NULL};
ATTRIBUTE_GROUPS(card);

static const struct device_type display_type = {
    .name = "drm_minor",
    .groups = card_groups,
};

static void card_release(struct device* dev) {
    kfree(dev);
}

static int add_card(void) {
    int error;

    card = kzalloc(sizeof(*card), GFP_KERNEL);
    if (!card)
        return -ENOMEM;
    card->class = display_class;
    card->type = &display_type;
    card->devt = number;
    card->release = card_release;
    dev_set_name(card, "card9");
    error = device_register(card);
    if (error)
        put_device(card);
    return error;
}

static int __init display_init(void) {
    int error = alloc_chrdev_region(&number, 0, 1, "norv-board-display");

    if (error)
        return error;
    display_class = board_class_create("norv_board_display");
    error = PTR_ERR_OR_ZERO(display_class);
    if (error)
        goto free_number;
    error = add_card();
    if (error)
        goto destroy_class;
    return 0;

destroy_class:
    class_destroy(display_class);
free_number:
    unregister_chrdev_region(number, 1);
    return error;
}

static void __exit display_exit(void) {
    device_unregister(card);
    class_destroy(display_class);
    unregister_chrdev_region(number, 1);
}

module_init(display_init);
module_exit(display_exit);
MODULE_LICENSE("GPL");
MODULE_DESCRIPTION("A display of the virtual board that changes on request");
