// SPDX-License-Identifier: GPL-2.0
//
// Clocks and system monitor of Zynq and ZynqMP devices, for the virtual board.
//
// Four fabric clocks are divided from 999999990 Hz by a whole number of 1 to 4095: fclk0 to fclk3 of the
// class fclkcfg, with "rate" and "reset", and the platform devices of the same names, with "set_rate", for
// the same clocks. A rate that a clock cannot make becomes the nearest divider's. fclk3 is in use: it cannot
// be set.
//
// The system monitor is an IIO device, iio:device0 where there is no other. Its attributes take no writes
// (-EINVAL), like those of xilinx-ams; a number written to a file of /sys/kernel/debug/norv_board_zynq/ is
// what the channel of that name measures from then on. voltage9 has no scale, voltage10 no reading, and of
// voltage11 each conversion fails.

#include <linux/debugfs.h>
#include <linux/device.h>
#include <linux/iio/iio.h>
#include <linux/kdev_t.h>
#include <linux/module.h>
#include <linux/platform_device.h>

#include "kernel_versions.h"

// ---- fabric clocks

#define CLOCK_COUNT 4
#define CLOCK_IN_USE 3
#define SOURCE_HZ 999999990UL
#define LARGEST_DIVIDER 4095UL

struct fabric_clock {
    unsigned long divider;
    bool reset;
    struct device* device;
    struct platform_device* platform_device;
};

static struct fabric_clock clocks[CLOCK_COUNT];
static struct class* clock_class;

static ssize_t rate_show(struct device* device, struct device_attribute* attribute, char* text) {
    const struct fabric_clock* clock = dev_get_drvdata(device);

    return sysfs_emit(text, "%lu\n", SOURCE_HZ / clock->divider);
}

static ssize_t rate_store(struct device* device, struct device_attribute* attribute, const char* text,
                          size_t count) {
    struct fabric_clock* clock = dev_get_drvdata(device);
    unsigned long rate;
    int error = kstrtoul(text, 0, &rate);

    if (error || rate == 0) {
        return -EINVAL;
    }
    if (clock == &clocks[CLOCK_IN_USE]) {
        return -EBUSY;
    }
    clock->divider = clamp(DIV_ROUND_CLOSEST(SOURCE_HZ, min(rate, SOURCE_HZ)), 1UL, LARGEST_DIVIDER);
    return count;
}
static DEVICE_ATTR_RW(rate);
static DEVICE_ATTR(set_rate, 0644, rate_show, rate_store);

static ssize_t reset_show(struct device* device, struct device_attribute* attribute, char* text) {
    const struct fabric_clock* clock = dev_get_drvdata(device);

    return sysfs_emit(text, "%d\n", clock->reset);
}

static ssize_t reset_store(struct device* device, struct device_attribute* attribute, const char* text,
                           size_t count) {
    struct fabric_clock* clock = dev_get_drvdata(device);
    int error = kstrtobool(text, &clock->reset);

    return error ? error : count;
}
static DEVICE_ATTR_RW(reset);

static struct attribute* clock_attrs[] = {&dev_attr_rate.attr, &dev_attr_reset.attr, NULL};
ATTRIBUTE_GROUPS(clock);

static void remove_clocks(int count) {
    while (count-- > 0) {
        device_remove_file(&clocks[count].platform_device->dev, &dev_attr_set_rate);
        platform_device_unregister(clocks[count].platform_device);
        device_unregister(clocks[count].device);
    }
}

static int add_clock(int index) {
    struct fabric_clock* clock = &clocks[index];
    char name[] = "fclk0";
    int error;

    name[4] += index;
    clock->divider = 20;
    clock->device =
        device_create_with_groups(clock_class, NULL, MKDEV(0, 0), clock, clock_groups, "%s", name);
    if (IS_ERR(clock->device)) {
        return PTR_ERR(clock->device);
    }
    clock->platform_device = platform_device_register_simple(name, PLATFORM_DEVID_NONE, NULL, 0);
    if (IS_ERR(clock->platform_device)) {
        device_unregister(clock->device);
        return PTR_ERR(clock->platform_device);
    }
    platform_set_drvdata(clock->platform_device, clock);
    error = device_create_file(&clock->platform_device->dev, &dev_attr_set_rate);
    if (error) {
        platform_device_unregister(clock->platform_device);
        device_unregister(clock->device);
    }
    return error;
}

static int add_clocks(void) {
    int index, error;

    for (index = 0; index < CLOCK_COUNT; index++) {
        error = add_clock(index);
        if (error) {
            remove_clocks(index);
            return error;
        }
    }
    return 0;
}

// ---- system monitor

struct sensor {
    const char* name;  // null: has no reading
    u32 raw;
    int offset;
    int scale;       // milli-units per step
    int scale_nano;  // and their fraction
    bool fails;
};

#define CHANNEL(kind, number, name, parts)                                                               \
    {                                                                                                    \
        .type = kind, .indexed = 1, .channel = number, .extend_name = name, .info_mask_separate = parts, \
        .scan_index = -1,                                                                                \
    }

#define RAW BIT(IIO_CHAN_INFO_RAW)
#define SCALE BIT(IIO_CHAN_INFO_SCALE)
#define OFFSET BIT(IIO_CHAN_INFO_OFFSET)

static const struct iio_chan_spec channels[] = {
    CHANNEL(IIO_TEMP, 0, NULL, RAW | SCALE | OFFSET),
    CHANNEL(IIO_TEMP, 0, "ps_temp", RAW | SCALE | OFFSET),
    CHANNEL(IIO_TEMP, 2, "pl_temp", RAW | SCALE | OFFSET),
    CHANNEL(IIO_VOLTAGE, 0, "vccint", RAW | SCALE),
    CHANNEL(IIO_VOLTAGE, 1, "vcc_psintlp", RAW | SCALE),
    CHANNEL(IIO_VOLTAGE, 8, NULL, RAW | SCALE),
    CHANNEL(IIO_VOLTAGE, 9, NULL, RAW),
    CHANNEL(IIO_VOLTAGE, 10, NULL, SCALE),
    CHANNEL(IIO_VOLTAGE, 11, NULL, RAW | SCALE),
};

// The values of these attributes: a Zynq at 34.45 degrees, a ZynqMP at 38.41 and 37.25 degrees.
static struct sensor sensors[ARRAY_SIZE(channels)] = {
    {.name = "temp0", .raw = 2500, .offset = -2219, .scale = 123, .scale_nano = 40771484},
    {.name = "temp0_ps_temp", .raw = 41000, .offset = -36058, .scale = 7, .scale_nano = 771514892},
    {.name = "temp2_pl_temp", .raw = 40851, .offset = -36058, .scale = 7, .scale_nano = 771514892},
    {.name = "voltage0_vccint", .raw = 1365, .scale_nano = 732421875},
    {.name = "voltage1_vcc_psintlp", .raw = 18568, .scale_nano = 45776367},
    {.name = "voltage8", .raw = 1365, .scale_nano = 244140625},
    {.name = "voltage9", .raw = 100},
    {.scale = 1},
    {.scale = 1, .fails = true},
};

static struct iio_dev* monitor;
static struct dentry* directory;

static struct sensor* sensor_of(const struct iio_chan_spec* channel) {
    return &sensors[channel - monitor->channels];
}

static int monitor_read(struct iio_dev* device, const struct iio_chan_spec* channel, int* value,
                        int* fraction, long part) {
    const struct sensor* sensor = sensor_of(channel);

    switch (part) {
        case IIO_CHAN_INFO_RAW:
            *value = (int)READ_ONCE(sensor->raw);
            return sensor->fails ? -EIO : IIO_VAL_INT;
        case IIO_CHAN_INFO_OFFSET:
            *value = sensor->offset;
            return IIO_VAL_INT;
        default:
            *value = sensor->scale;
            *fraction = sensor->scale_nano;
            return IIO_VAL_INT_PLUS_NANO;
    }
}

static const struct iio_info monitor_info = {.read_raw = monitor_read};

static void add_readings(void) {
    int index;

    directory = debugfs_create_dir("norv_board_zynq", NULL);
    for (index = 0; index < ARRAY_SIZE(sensors); index++) {
        if (sensors[index].name) {
            debugfs_create_u32(sensors[index].name, 0600, directory, &sensors[index].raw);
        }
    }
}

static int add_monitor(void) {
    int error;

    monitor = iio_device_alloc(&clocks[0].platform_device->dev, 0);
    if (!monitor) {
        return -ENOMEM;
    }
    monitor->name = "norv-board-monitor";
    monitor->info = &monitor_info;
    monitor->channels = channels;
    monitor->num_channels = ARRAY_SIZE(channels);
    monitor->modes = INDIO_DIRECT_MODE;
    error = iio_device_register(monitor);
    if (error) {
        iio_device_free(monitor);
    }
    return error;
}

static int __init board_zynq_init(void) {
    int error;

    clock_class = board_class_create("fclkcfg");
    if (IS_ERR(clock_class)) {
        return PTR_ERR(clock_class);
    }
    error = add_clocks();
    if (!error) {
        error = add_monitor();
        if (error) {
            remove_clocks(CLOCK_COUNT);
        }
    }
    if (error) {
        class_destroy(clock_class);
        return error;
    }
    add_readings();
    return 0;
}

static void __exit board_zynq_exit(void) {
    debugfs_remove_recursive(directory);
    iio_device_unregister(monitor);
    iio_device_free(monitor);
    remove_clocks(CLOCK_COUNT);
    class_destroy(clock_class);
}

module_init(board_zynq_init);
module_exit(board_zynq_exit);
MODULE_LICENSE("GPL");
MODULE_DESCRIPTION("Clocks and system monitor of Zynq and ZynqMP for the virtual board");
