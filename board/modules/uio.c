// SPDX-License-Identifier: GPL-2.0
//
// The UIO devices of the virtual board, both platform devices:
//
//   norv-board-regs    one page of registers, and an interrupt
//   norv-board-memory  two regions of registers, of two pages and of one, no interrupt
//
// The registers of norv-board-memory begin 0x800 bytes after the start of its first region and 0x40 bytes
// after that of its second, as the attributes maps/map0/offset and maps/map1/offset say, like those of a
// device that does not begin at a page. The first one is the identity, in the second region its complement.
//
// All are mapped as the registers of a device are: uncached, and not as memory of the process, so that the
// kernel refuses to read or write them on its behalf, in O_DIRECT and process_vm_readv(2) for example
// (EFAULT).
//
// Registers of norv-board-regs, in the processor's byte order; all others are plain memory:
//
//   0x00  identity, 0x4E4F5256
//   0x04  interrupts that came
//   0x08  operand: the program's
//   0x0C  result: the operand's complement, at the time of the last interrupt
//
// The interrupt is disabled at first, and again whenever it has come. In /sys/kernel/debug/norv_board_uio/
// a number N written to `raise` makes the device interrupt N more times, each time `delay_us` after the
// interrupt was enabled; `pending` shows how many are still to come, `enabled` whether it may, `controls` how
// often it was enabled or disabled, and `registers` holds the page as the driver sees it.

#include <linux/debugfs.h>
#include <linux/hrtimer.h>
#include <linux/io.h>
#include <linux/mm.h>
#include <linux/module.h>
#include <linux/platform_device.h>
#include <linux/spinlock.h>
#include <linux/uio_driver.h>

#include "kernel_versions.h"

#define IDENTITY 0x4E4F5256
#define FIRST_OFFSET 0x800
#define SECOND_OFFSET 0x40

enum { REG_IDENTITY, REG_COUNT, REG_OPERAND, REG_RESULT };

static struct uio_info regs = {.name = "norv-board-regs", .version = "1", .irq = UIO_IRQ_CUSTOM};
static struct uio_info memory = {.name = "norv-board-memory", .version = "1", .irq = UIO_IRQ_NONE};
static struct platform_device* parents[2];
static void* regs_page;
static void* memory_pages[2];
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

// Pages that stand for registers: whoever maps them maps them as uncached, the driver as well.
static void* allocate_registers(struct uio_mem* region, const char* name, size_t size) {
    void* pages = alloc_pages_exact(size, GFP_KERNEL | __GFP_ZERO);

    if (!pages) {
        return NULL;
    }
    if (board_set_memory_uc(pages, size / PAGE_SIZE)) {
        free_pages_exact(pages, size);
        return NULL;
    }
    region->name = name;
    region->addr = virt_to_phys(pages);
    region->size = size;
    region->memtype = UIO_MEM_PHYS;
    return pages;
}

static void free_registers(const struct uio_mem* region, void* pages) {
    if (pages) {
        board_set_memory_wb(pages, region->size / PAGE_SIZE);
        free_pages_exact(pages, region->size);
    }
}

static void free_all_registers(void) {
    free_registers(&regs.mem[0], regs_page);
    free_registers(&memory.mem[0], memory_pages[0]);
    free_registers(&memory.mem[1], memory_pages[1]);
}

static int allocate_all_registers(void) {
    regs_page = allocate_registers(&regs.mem[0], "registers", PAGE_SIZE);
    memory_pages[0] = allocate_registers(&memory.mem[0], "first", 2 * PAGE_SIZE);
    memory_pages[1] = allocate_registers(&memory.mem[1], "second", PAGE_SIZE);
    return regs_page && memory_pages[0] && memory_pages[1] ? 0 : -ENOMEM;
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
    int error = allocate_all_registers();

    if (!error) {
        registers = regs_page;
        registers[REG_IDENTITY] = IDENTITY;
        memory.mem[0].offs = FIRST_OFFSET;
        memory.mem[1].offs = SECOND_OFFSET;
        *(u32*)(memory_pages[0] + FIRST_OFFSET) = IDENTITY;
        *(u32*)(memory_pages[1] + SECOND_OFFSET) = ~IDENTITY;
        board_timer_init(&timer, interrupt);
        regs.irqcontrol = control_interrupt;
        error = add_devices();
    }
    if (error) {
        free_all_registers();
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
    free_all_registers();
}

module_init(board_uio_init);
module_exit(board_uio_exit);
MODULE_LICENSE("GPL");
MODULE_DESCRIPTION("UIO devices of the virtual board, one with an interrupt");
