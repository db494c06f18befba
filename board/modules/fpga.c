// SPDX-License-Identifier: GPL-2.0
//
// The FPGA managers of the virtual board, in the class fpga_manager: fpga0 is sound, fpga1 fails while it is
// written.
//
// Writing the name of a firmware file to "firmware" programs an FPGA: the file is looked up where the kernel
// looks for firmware, and "state" goes through the words of the kernel's FPGA framework, to "operating" or to
// that of the step that failed. An image is what has the sync word aa 99 55 66 within its first 256 bytes;
// one that ends within 64 bytes after it never raises DONE. What is in the fabric is shown by "image" (the
// name), "image_size" and "image_sum" (the sum of its bytes); a failed attempt leaves the fabric empty.
//
// A manager has one user at a time, as the kernel's framework has it: while an image is written, and while
// /sys/kernel/debug/norv_board_fpga/fpgaN is Y, as if a driver of the kernel had the manager, "firmware"
// refuses to be written (-EBUSY), and nothing changes.

#include <linux/debugfs.h>
#include <linux/delay.h>
#include <linux/device.h>
#include <linux/firmware.h>
#include <linux/jiffies.h>
#include <linux/kdev_t.h>
#include <linux/module.h>
#include <linux/mutex.h>

#include "kernel_versions.h"

#define SYNC_WINDOW 256
#define SHORTEST_DESIGN 64
#define DEFECTIVE_FPGA 1

static uint write_ms = 20;
module_param(write_ms, uint, 0644);
MODULE_PARM_DESC(write_ms, "time that writing an image takes (default 20 ms)");

struct fpga {
    struct device* device;
    struct mutex lock;  // one image at a time
    bool claimed;       // by another driver
    const char* state;
    char image[NAME_MAX + 1];
    size_t image_size;
    u32 image_sum;
};

static struct fpga fpgas[2];
static struct class* fpga_class;
static struct dentry* directory;

// Returns what follows the sync word, null when there is none.
static const u8* find_design(const struct firmware* firmware) {
    static const u8 sync_word[] = {0xaa, 0x99, 0x55, 0x66};
    size_t at;

    for (at = 0; at < SYNC_WINDOW && at + sizeof(sync_word) <= firmware->size; at++) {
        if (memcmp(firmware->data + at, sync_word, sizeof(sync_word)) == 0) {
            return firmware->data + at + sizeof(sync_word);
        }
    }
    return NULL;
}

static void clear_fabric(struct fpga* fpga) {
    fpga->image[0] = '\0';
    fpga->image_size = 0;
    fpga->image_sum = 0;
}

static int fail(struct fpga* fpga, const char* state, int error) {
    fpga->state = state;
    return error;
}

// For as long as the parameter says, which may change meanwhile.
static void take_time(void) {
    unsigned long start = jiffies;

    while (time_before(jiffies, start + msecs_to_jiffies(READ_ONCE(write_ms)))) {
        msleep(min(READ_ONCE(write_ms), 10U));
    }
}

static int write_image(struct fpga* fpga, const struct firmware* firmware) {
    const u8* design = find_design(firmware);
    size_t at;

    fpga->state = "write init";
    if (!design) {
        return fail(fpga, "write init error", -EINVAL);
    }
    fpga->state = "write";
    take_time();
    if (fpga == &fpgas[DEFECTIVE_FPGA]) {
        return fail(fpga, "write error", -EIO);
    }
    fpga->state = "write complete";
    if (firmware->data + firmware->size < design + SHORTEST_DESIGN) {
        return fail(fpga, "write complete error", -ETIMEDOUT);
    }
    fpga->image_size = firmware->size;
    for (at = 0; at < firmware->size; at++) {
        fpga->image_sum += firmware->data[at];
    }
    fpga->state = "operating";
    return 0;
}

static int program(struct fpga* fpga, const char* name) {
    const struct firmware* firmware;
    int error;

    clear_fabric(fpga);
    fpga->state = "firmware request";
    error = request_firmware(&firmware, name, fpga->device);
    if (error) {
        return fail(fpga, "firmware request error", error);
    }
    error = write_image(fpga, firmware);
    release_firmware(firmware);
    if (!error) {
        strscpy(fpga->image, name, sizeof(fpga->image));
    }
    return error;
}

static ssize_t firmware_store(struct device* device, struct device_attribute* attribute, const char* text,
                              size_t count) {
    struct fpga* fpga = dev_get_drvdata(device);
    char name[NAME_MAX + 1];
    int error;

    if (strscpy(name, text, sizeof(name)) < 0) {
        return -EINVAL;
    }
    name[strcspn(name, "\n")] = '\0';
    if (READ_ONCE(fpga->claimed) || !mutex_trylock(&fpga->lock)) {
        return -EBUSY;
    }
    error = program(fpga, name);
    mutex_unlock(&fpga->lock);
    return error ? error : count;
}
static DEVICE_ATTR_WO(firmware);

static ssize_t name_show(struct device* device, struct device_attribute* attribute, char* text) {
    return sysfs_emit(text, "norv board FPGA\n");
}
static DEVICE_ATTR_RO(name);

// Not locked: it can be watched while an image is written.
static ssize_t state_show(struct device* device, struct device_attribute* attribute, char* text) {
    const struct fpga* fpga = dev_get_drvdata(device);

    return sysfs_emit(text, "%s\n", READ_ONCE(fpga->state));
}
static DEVICE_ATTR_RO(state);

static ssize_t image_show(struct device* device, struct device_attribute* attribute, char* text) {
    const struct fpga* fpga = dev_get_drvdata(device);

    return sysfs_emit(text, "%s\n", fpga->image);
}
static DEVICE_ATTR_RO(image);

static ssize_t image_size_show(struct device* device, struct device_attribute* attribute, char* text) {
    const struct fpga* fpga = dev_get_drvdata(device);

    return sysfs_emit(text, "%zu\n", fpga->image_size);
}
static DEVICE_ATTR_RO(image_size);

static ssize_t image_sum_show(struct device* device, struct device_attribute* attribute, char* text) {
    const struct fpga* fpga = dev_get_drvdata(device);

    return sysfs_emit(text, "%u\n", fpga->image_sum);
}
static DEVICE_ATTR_RO(image_sum);

static struct attribute* fpga_attrs[] = {
    &dev_attr_firmware.attr,
    &dev_attr_name.attr,
    &dev_attr_state.attr,
    &dev_attr_image.attr,
    &dev_attr_image_size.attr,
    &dev_attr_image_sum.attr,
    NULL,
};
ATTRIBUTE_GROUPS(fpga);

static void remove_fpgas(int count) {
    while (count-- > 0) {
        device_unregister(fpgas[count].device);
    }
    class_destroy(fpga_class);
}

static int __init board_fpga_init(void) {
    int index;

    fpga_class = board_class_create("fpga_manager");
    if (IS_ERR(fpga_class)) {
        return PTR_ERR(fpga_class);
    }
    for (index = 0; index < ARRAY_SIZE(fpgas); index++) {
        struct fpga* fpga = &fpgas[index];

        mutex_init(&fpga->lock);
        fpga->state = "unknown";
        fpga->device =
            device_create_with_groups(fpga_class, NULL, MKDEV(0, 0), fpga, fpga_groups, "fpga%d", index);
        if (IS_ERR(fpga->device)) {
            remove_fpgas(index);
            return PTR_ERR(fpga->device);
        }
    }
    directory = debugfs_create_dir("norv_board_fpga", NULL);
    for (index = 0; index < ARRAY_SIZE(fpgas); index++) {
        debugfs_create_bool(dev_name(fpgas[index].device), 0600, directory, &fpgas[index].claimed);
    }
    return 0;
}

static void __exit board_fpga_exit(void) {
    debugfs_remove_recursive(directory);
    remove_fpgas(ARRAY_SIZE(fpgas));
}

module_init(board_fpga_init);
module_exit(board_fpga_exit);
MODULE_LICENSE("GPL");
MODULE_DESCRIPTION("FPGA managers of the virtual board");
