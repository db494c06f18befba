// SPDX-License-Identifier: GPL-2.0
//
// The PCI driver uio_pci_mmap of the virtual board: it serves the devices whose identity is written to its
// "new_id", and shows each as a UIO device "uio_pci_mmap" with BAR 0 as region 0.
//
// An interrupt sets the Interrupt Disable bit of the command register, as the device keeps asserting its
// line until the program has served it; the program clears the bit again in the configuration space.
//
// The emulator (QEMU 7.2) looks at that bit only when the low byte of the command register is written, so
// that a write of the high byte alone changes the bit, but neither raises nor lowers the line. While this
// driver is loaded, such a write to a device of its bus goes out as one of the whole register, as a real
// device would take it.

#include <linux/module.h>
#include <linux/pci.h>
#include <linux/uio_driver.h>

static struct pci_bus* bus;
static struct pci_ops* original_operations;
static struct pci_ops operations;

static int write_configuration(struct pci_bus* given_bus, unsigned int device, int offset, int size,
                               u32 value) {
    u32 low = 0;

    if (offset != PCI_COMMAND + 1 || size != 1) {
        return original_operations->write(given_bus, device, offset, size, value);
    }
    original_operations->read(given_bus, device, PCI_COMMAND, 1, &low);
    return original_operations->write(given_bus, device, PCI_COMMAND, 2, (value & 0xFF) << 8 | (low & 0xFF));
}

// All devices of the machine sit on one bus.
static void watch_configuration(struct pci_bus* given_bus) {
    if (!bus) {
        bus = given_bus;
        original_operations = bus->ops;
        operations = *original_operations;
        operations.write = write_configuration;
        pci_bus_set_ops(bus, &operations);
    }
}

static irqreturn_t handle_interrupt(int irq, struct uio_info* info) {
    return pci_check_and_mask_intx(info->priv) ? IRQ_HANDLED : IRQ_NONE;
}

static void describe(struct uio_info* info, struct pci_dev* device) {
    info->name = "uio_pci_mmap";
    info->version = "1";
    info->priv = device;
    info->mem[0].addr = pci_resource_start(device, 0);
    info->mem[0].size = pci_resource_len(device, 0);
    info->mem[0].memtype = UIO_MEM_PHYS;
    info->irq = device->irq;
    info->irq_flags = IRQF_SHARED;
    info->handler = handle_interrupt;
}

static int probe(struct pci_dev* device, const struct pci_device_id* id) {
    struct uio_info* info = devm_kzalloc(&device->dev, sizeof(*info), GFP_KERNEL);
    int error;

    if (!info) {
        return -ENOMEM;
    }
    error = pcim_enable_device(device);
    if (error) {
        return error;
    }
    if (!device->irq || !pci_intx_mask_supported(device) || !pci_resource_len(device, 0)) {
        return -ENODEV;
    }
    watch_configuration(device->bus);
    describe(info, device);
    return devm_uio_register_device(&device->dev, info);
}

static struct pci_driver board_driver = {
    .name = "uio_pci_mmap",
    .probe = probe,
};

static int __init board_uio_pci_mmap_init(void) {
    return pci_register_driver(&board_driver);
}

static void __exit board_uio_pci_mmap_exit(void) {
    pci_unregister_driver(&board_driver);
    if (bus) {
        pci_bus_set_ops(bus, original_operations);
    }
}

module_init(board_uio_pci_mmap_init);
module_exit(board_uio_pci_mmap_exit);
MODULE_LICENSE("GPL");
MODULE_DESCRIPTION("PCI devices of the virtual board as UIO devices");
