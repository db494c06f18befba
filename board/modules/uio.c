// SPDX-License-Identifier: GPL-2.0
//
// The UIO devices of the virtual board, both platform devices:
//
//   norv-board-regs    one page of registers, and an interrupt
//   norv-board-memory  two pages of registers, no interrupt
//
// The registers of norv-board-memory begin 0x800 bytes after the start of its region, as the attribute
// maps/map0/offset says, like those of a device that does not begin at a page. The first one is the identity.
//
// Registers of norv-board-regs, in the processor's byte order; all others are plain memory:
//
//   0x00  identity, 0x4E4F5256
//   0x04  interrupts that came
//   0x08  operand: the program's
//   0x0C  result: the operand's complement, as it was when the last interrupt came
//
// The interrupt is disabled at first, and again whenever it has come. In /sys/kernel/debug/norv_board_uio/
// a number N written to `raise` makes the device interrupt N more times, each time `delay_us` after the
// interrupt was enabled; `pending` tells how many are still to come, `enabled` whether it may, `controls` how
// often it was enabled or disabled, and `registers` holds the page as the driver sees it.

#include <linux/debugfs.h>
#include <linux/hrtimer.h>
#include <linux/module.h>
#include <linux/platform_device.h>
#include <linux/spinlock.h>
#include <linux/uio_driver.h>

#include "kernel_versions.h"

#define IDENTITY 0x4E4F5256
#define MEMORY_OFFSET 0x800

enum { REG_IDENTITY, REG_COUNT, REG_OPERAND, REG_RESULT };

static struct uio_info regs = {.name = "norv-board-regs", .version = "1", .irq = UIO_IRQ_CUSTOM};
static struct uio_info memory = {.name = "norv-board-memory", .version = "1", .irq = UIO_IRQ_NONE};
static struct platform_device* parents[2];
static u32* registers;

static DEFINE_SPINLOCK(lock);
static struct hrtimer timer;
static u32 pending;
static u32 controls;
static u32 delay_us = 10;
static bool enabled;

static struct dentry* directory;
static struct debugfs_blob_wrapper blob;

static void start_timer(void) {
    hrtimer_start(&timer, ns_to_ktime(delay_us * NSEC_PER_USEC), HRTIMER_MODE_REL);
}

static enum hrtimer_restart interrupt(struct hrtimer* expired) {
    bool comes;

    spin_lock(&lock);
    comes = enabled && pending;
    if (comes) {
        pending--;
        enabled = false;
        WRITE_ONCE(registers[REG_COUNT], registers[REG_COUNT] + 1);
        WRITE_ONCE(registers[REG_RESULT], ~READ_ONCE(registers[REG_OPERAND]));
    }
    spin_unlock(&lock);
    if (comes) {
        uio_event_notify(&regs);
    }
    return HRTIMER_NORESTART;
}

static int control_interrupt(struct uio_info* info, s32 enable) {
    unsigned long flags;
    bool due;

    spin_lock_irqsave(&lock, flags);
    controls++;
    enabled = enable;
    due = enabled && pending;
    spin_unlock_irqrestore(&lock, flags);
    if (due) {
        start_timer();
    }
    return 0;
}

static int raise_interrupts(void* data, u64 count) {
    unsigned long flags;
    bool due;

    spin_lock_irqsave(&lock, flags);
    pending += count;
    due = enabled && pending;
    spin_unlock_irqrestore(&lock, flags);
    if (due) {
        start_timer();
    }
    return 0;
}
DEFINE_DEBUGFS_ATTRIBUTE(raise_operations, NULL, raise_interrupts, "%llu\n");

static int allocate_registers(struct uio_info* info, size_t size) {
    info->mem[0].addr = (phys_addr_t)(unsigned long)alloc_pages_exact(size, GFP_KERNEL | __GFP_ZERO);
    info->mem[0].size = size;
    info->mem[0].memtype = UIO_MEM_LOGICAL;
    return info->mem[0].addr ? 0 : -ENOMEM;
}

static void free_registers(struct uio_info* info) {
    if (info->mem[0].addr) {
        free_pages_exact((void*)(unsigned long)info->mem[0].addr, info->mem[0].size);
    }
}

static int add_device(struct uio_info* info, struct platform_device** parent) {
    int error;

    *parent = platform_device_register_simple(info->name, PLATFORM_DEVID_NONE, NULL, 0);
    if (IS_ERR(*parent)) {
        return PTR_ERR(*parent);
    }
    error = uio_register_device(&(*parent)->dev, info);
    if (error) {
        platform_device_unregister(*parent);
    }
    return error;
}

static void remove_device(struct uio_info* info, struct platform_device* parent) {
    uio_unregister_device(info);
    platform_device_unregister(parent);
}

static void add_debug_files(void) {
    directory = debugfs_create_dir("norv_board_uio", NULL);
    blob.data = registers;
    blob.size = PAGE_SIZE;
    debugfs_create_file("raise", 0200, directory, NULL, &raise_operations);
    debugfs_create_u32("pending", 0400, directory, &pending);
    debugfs_create_bool("enabled", 0400, directory, &enabled);
    debugfs_create_u32("controls", 0400, directory, &controls);
    debugfs_create_u32("delay_us", 0600, directory, &delay_us);
    debugfs_create_blob("registers", 0400, directory, &blob);
}

static int add_devices(void) {
    int error = add_device(&regs, &parents[0]);

    if (error) {
        return error;
    }
    error = add_device(&memory, &parents[1]);
    if (error) {
        remove_device(&regs, parents[0]);
    }
    return error;
}

static int __init board_uio_init(void) {
    int error = allocate_registers(&regs, PAGE_SIZE);

    if (!error) {
        error = allocate_registers(&memory, 2 * PAGE_SIZE);
    }
    if (!error) {
        registers = (u32*)(unsigned long)regs.mem[0].addr;
        registers[REG_IDENTITY] = IDENTITY;
        memory.mem[0].offs = MEMORY_OFFSET;
        *(u32*)(unsigned long)(memory.mem[0].addr + MEMORY_OFFSET) = IDENTITY;
        board_timer_init(&timer, interrupt);
        regs.irqcontrol = control_interrupt;
        error = add_devices();
    }
    if (error) {
        free_registers(&regs);
        free_registers(&memory);
        return error;
    }
    add_debug_files();
    return 0;
}

static void __exit board_uio_exit(void) {
    debugfs_remove_recursive(directory);
    remove_device(&memory, parents[1]);
    remove_device(&regs, parents[0]);
    hrtimer_cancel(&timer);
    free_registers(&memory);
    free_registers(&regs);
}

module_init(board_uio_init);
module_exit(board_uio_exit);
MODULE_LICENSE("GPL");
MODULE_DESCRIPTION("UIO devices of the virtual board, one with an interrupt");
