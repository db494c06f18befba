// SPDX-License-Identifier: GPL-2.0
//
// Makes the USB device controller of dummy_hcd more like real ones:
//
// - It gets the attribute "is_host_win", which drivers of some controllers have; it shows the parameter
//   "host_win" of this module.
// - Its state becomes "not attached" when the pull-up is dropped, which dummy_hcd does not report.
// - It notices the host again when it was disconnected and connected by software: the kernel then starts the
//   controller without allowing it to call back, which dummy_hcd, unlike others, requires.
// - Its endpoints without a fixed type may be isochronous, as a camera's stream requires. Nothing can be
//   streamed: the host side of dummy_hcd has no isochronous transfers.

#include <linux/device.h>
#include <linux/kprobes.h>
#include <linux/module.h>
#include <linux/platform_device.h>
#include <linux/usb/gadget.h>

#include "kernel_versions.h"

static bool host_win;
module_param(host_win, bool, 0644);
MODULE_PARM_DESC(host_win, "what is_host_win shows (default 0)");

static struct device* controller;

static ssize_t is_host_win_show(struct device* device, struct device_attribute* attribute, char* text) {
    return sysfs_emit(text, "%d\n", host_win);
}
static DEVICE_ATTR_RO(is_host_win);

static int is_controller(struct device* device, BOARD_MATCH_CONST void* unused) {
    return device->class && !strcmp(device->class->name, "udc");
}

// "gadget" on Linux 5.10, "gadget.N" on later ones.
static int is_gadget(struct device* device, BOARD_MATCH_CONST void* unused) {
    return strstarts(dev_name(device), "gadget");
}

// A part of dummy_hcd's device side. The caller gives the reference back.
static struct device* find_part(int (*is_it)(struct device* device, BOARD_MATCH_CONST void* unused)) {
    struct device* parent = bus_find_device_by_name(&platform_bus_type, NULL, "dummy_udc.0");
    struct device* found;

    if (!parent) {
        return NULL;
    }
    found = device_find_child(parent, NULL, is_it);
    put_device(parent);
    return found;
}

static void allow_isochronous(bool allowed) {
    struct device* device = find_part(is_gadget);
    struct usb_ep* endpoint;

    if (!device) {
        return;
    }
    gadget_for_each_ep(endpoint, container_of(device, struct usb_gadget, dev)) {
        if (strstarts(endpoint->name, "ep-")) {
            endpoint->caps.type_iso = allowed;
        }
    }
    put_device(device);
}

// Called before dummy_pullup(gadget, is_on).
static int on_pullup(struct kprobe* probe, struct pt_regs* registers) {
    struct usb_gadget* gadget = (struct usb_gadget*)board_kernel_argument(registers, 0);
    bool is_on = (int)board_kernel_argument(registers, 1);

    if (!is_on) {
        usb_gadget_set_state(gadget, USB_STATE_NOTATTACHED);
    }
    return 0;
}

static struct kprobe pullup_probe = {.symbol_name = "dummy_pullup", .pre_handler = on_pullup};

struct starting {
    struct usb_gadget* gadget;
};

// Called before dummy_udc_start(gadget, driver).
static int on_start(struct kretprobe_instance* instance, struct pt_regs* registers) {
    ((struct starting*)instance->data)->gadget = (struct usb_gadget*)board_kernel_argument(registers, 0);
    return 0;
}

// Called after it.
static int on_started(struct kretprobe_instance* instance, struct pt_regs* registers) {
    struct usb_gadget* gadget = ((struct starting*)instance->data)->gadget;

    if (regs_return_value(registers) == 0) {
        board_gadget_callbacks(gadget, true);
    }
    return 0;
}

static struct kretprobe start_probe = {
    .kp.symbol_name = "dummy_udc_start",
    .entry_handler = on_start,
    .handler = on_started,
    .data_size = sizeof(struct starting),
};

static int __init board_usb_gadget_init(void) {
    int error;

    controller = find_part(is_controller);
    if (!controller) {
        return -ENODEV;
    }
    error = device_create_file(controller, &dev_attr_is_host_win);
    if (error) {
        goto no_attribute;
    }
    error = register_kprobe(&pullup_probe);
    if (error) {
        goto no_pullup_probe;
    }
    error = register_kretprobe(&start_probe);
    if (error) {
        goto no_start_probe;
    }
    allow_isochronous(true);
    return 0;

no_start_probe:
    unregister_kprobe(&pullup_probe);
no_pullup_probe:
    device_remove_file(controller, &dev_attr_is_host_win);
no_attribute:
    put_device(controller);
    return error;
}

static void __exit board_usb_gadget_exit(void) {
    allow_isochronous(false);
    unregister_kretprobe(&start_probe);
    unregister_kprobe(&pullup_probe);
    device_remove_file(controller, &dev_attr_is_host_win);
    put_device(controller);
}

module_init(board_usb_gadget_init);
module_exit(board_usb_gadget_exit);
MODULE_LICENSE("GPL");
MODULE_SOFTDEP("pre: dummy_hcd");
MODULE_DESCRIPTION("What real USB device controllers have and dummy_hcd's has not");
