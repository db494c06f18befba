// SPDX-License-Identifier: GPL-2.0
//
// The attribute "firmware" at an FPGA manager of the kernel's own: writing the name of a firmware file
// programs the FPGA, as the kernels of the FPGA's maker have it. Mainline's managers are programmed by other
// drivers only.
//
// The manager is that of the first node of the device tree with one of the names below. The module is refused
// where there is none.

#include <linux/device.h>
#include <linux/fpga/fpga-mgr.h>
#include <linux/module.h>
#include <linux/of.h>

static const char* const compatibles[] = {"xlnx,zynq-devcfg-1.0", "xlnx,zynqmp-pcap-fpga"};

static struct fpga_manager* manager;

static int program(const char* name) {
    struct fpga_image_info* info = fpga_image_info_alloc(&manager->dev);
    int error;

    if (!info) {
        return -ENOMEM;
    }
    info->firmware_name = devm_kstrdup(&manager->dev, name, GFP_KERNEL);
    error = info->firmware_name ? fpga_mgr_lock(manager) : -ENOMEM;
    if (!error) {
        error = fpga_mgr_load(manager, info);
        fpga_mgr_unlock(manager);
    }
    fpga_image_info_free(info);
    return error;
}

static ssize_t firmware_store(struct device* device, struct device_attribute* attribute, const char* text,
                              size_t count) {
    char name[NAME_MAX + 1];
    int error;

    if (strscpy(name, text, sizeof(name)) < 0) {
        return -EINVAL;
    }
    name[strcspn(name, "\n")] = '\0';
    error = program(name);
    return error ? error : count;
}
static DEVICE_ATTR_WO(firmware);

static struct fpga_manager* find_manager(void) {
    struct device_node* node = NULL;
    struct fpga_manager* found;
    int index;

    for (index = 0; index < ARRAY_SIZE(compatibles) && !node; index++) {
        node = of_find_compatible_node(NULL, NULL, compatibles[index]);
    }
    if (!node) {
        return ERR_PTR(-ENODEV);
    }
    found = of_fpga_mgr_get(node);
    of_node_put(node);
    return found;
}

static int __init board_fpga_firmware_init(void) {
    int error;

    manager = find_manager();
    if (IS_ERR(manager)) {
        return PTR_ERR(manager);
    }
    error = device_create_file(&manager->dev, &dev_attr_firmware);
    if (error) {
        fpga_mgr_put(manager);
    }
    return error;
}

static void __exit board_fpga_firmware_exit(void) {
    device_remove_file(&manager->dev, &dev_attr_firmware);
    fpga_mgr_put(manager);
}

module_init(board_fpga_firmware_init);
module_exit(board_fpga_firmware_exit);
MODULE_LICENSE("GPL");
MODULE_DESCRIPTION("The attribute firmware of the FPGA managers of the SoC machines");
