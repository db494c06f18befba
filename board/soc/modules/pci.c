// SPDX-License-Identifier: GPL-2.0
//
// A PCI bus for a machine that has none, with one device: 1234:11e8, the identity of the educational device
// of the other boards. It has their identity register and their 1 MiB of registers, but is plain memory
// otherwise: nothing is computed, and its interrupt never comes.

#include <linux/interrupt.h>
#include <linux/irq.h>
#include <linux/module.h>
#include <linux/pci.h>
#include <linux/platform_device.h>
#include <linux/sizes.h>

#define IDENTITY 0x010000ED
#define REGISTERS_SIZE SZ_1M

static struct platform_device* parent;
static struct pci_host_bridge* bridge;
static u32* registers;
static int interrupt;

static struct resource bus_numbers = {
    .name = "norv_board_pci bus", .start = 0, .end = 0, .flags = IORESOURCE_BUS};
static struct resource memory = {.name = "norv_board_pci memory", .flags = IORESOURCE_MEM};

// ---- the configuration space of the device

static u8 configuration[PCI_STD_HEADER_SIZEOF] = {
    [PCI_VENDOR_ID] = 0x34,     [PCI_VENDOR_ID + 1] = 0x12,    [PCI_DEVICE_ID] = 0xe8,
    [PCI_DEVICE_ID + 1] = 0x11, [PCI_CLASS_DEVICE + 1] = 0xff, [PCI_INTERRUPT_PIN] = 1,
};

// What a program can change; the low bits of an address are those of its size, 0.
static const u8 writable[PCI_STD_HEADER_SIZEOF] = {
    [PCI_COMMAND] = 0xff,
    [PCI_COMMAND + 1] = 0x07,
    [PCI_CACHE_LINE_SIZE] = 0xff,
    [PCI_BASE_ADDRESS_0 + 2] = 0xf0,
    [PCI_BASE_ADDRESS_0 + 3] = 0xff,
    [PCI_INTERRUPT_LINE] = 0xff,
};

static int read_configuration(struct pci_bus* bus, unsigned int device, int offset, int size, u32* value) {
    int at;

    *value = 0;
    if (device != 0) {
        *value = ~0;
        return PCIBIOS_DEVICE_NOT_FOUND;
    }
    for (at = 0; at < size && offset + at < sizeof(configuration); at++) {
        *value |= (u32)configuration[offset + at] << 8 * at;
    }
    return PCIBIOS_SUCCESSFUL;
}

static int write_configuration(struct pci_bus* bus, unsigned int device, int offset, int size, u32 value) {
    int at;

    if (device != 0) {
        return PCIBIOS_DEVICE_NOT_FOUND;
    }
    for (at = 0; at < size && offset + at < sizeof(configuration); at++) {
        u8* byte = &configuration[offset + at];
        u8 mask = writable[offset + at];

        *byte = (*byte & ~mask) | (value >> 8 * at & mask);
    }
    return PCIBIOS_SUCCESSFUL;
}

static struct pci_ops operations = {.read = read_configuration, .write = write_configuration};

static int interrupt_of(const struct pci_dev* device, u8 slot, u8 pin) {
    return interrupt;
}

// ---- the bus

static int add_bus(void) {
    bridge = devm_pci_alloc_host_bridge(&parent->dev, 0);
    if (!bridge) {
        return -ENOMEM;
    }
    memory.start = virt_to_phys(registers);
    memory.end = memory.start + REGISTERS_SIZE - 1;
    pci_add_resource(&bridge->windows, &bus_numbers);
    pci_add_resource(&bridge->windows, &memory);
    bridge->dev.parent = &parent->dev;
    bridge->ops = &operations;
    bridge->map_irq = interrupt_of;
    return pci_host_probe(bridge);
}

// Number 0, which would be free on some machines, is that of no interrupt.
static int add_interrupt(void) {
    interrupt = irq_alloc_descs(-1, 1, 1, NUMA_NO_NODE);
    if (interrupt < 0) {
        return interrupt;
    }
    irq_set_chip_and_handler(interrupt, &dummy_irq_chip, handle_simple_irq);
    irq_clear_status_flags(interrupt, IRQ_NOREQUEST);
    return 0;
}

static int __init board_pci_init(void) {
    int error;

    registers = (u32*)__get_free_pages(GFP_KERNEL | __GFP_ZERO, get_order(REGISTERS_SIZE));
    if (!registers) {
        return -ENOMEM;
    }
    registers[0] = IDENTITY;
    error = add_interrupt();
    if (error) {
        goto free_registers;
    }
    parent = platform_device_register_simple("norv_board_pci", PLATFORM_DEVID_NONE, NULL, 0);
    error = PTR_ERR_OR_ZERO(parent);
    if (error) {
        goto free_interrupt;
    }
    error = add_bus();
    if (!error) {
        return 0;
    }
    platform_device_unregister(parent);
free_interrupt:
    irq_free_descs(interrupt, 1);
free_registers:
    free_pages((unsigned long)registers, get_order(REGISTERS_SIZE));
    return error;
}

static void __exit board_pci_exit(void) {
    pci_lock_rescan_remove();
    pci_stop_root_bus(bridge->bus);
    pci_remove_root_bus(bridge->bus);
    pci_unlock_rescan_remove();
    platform_device_unregister(parent);
    irq_free_descs(interrupt, 1);
    free_pages((unsigned long)registers, get_order(REGISTERS_SIZE));
}

module_init(board_pci_init);
module_exit(board_pci_exit);
MODULE_LICENSE("GPL");
MODULE_DESCRIPTION("A PCI bus with one device, for machines without");
