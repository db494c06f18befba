// SPDX-License-Identifier: GPL-2.0
//
// The GPIO chips of the virtual board. The first has 32 lines, wired in pairs. Lines 2n and 2n+1 hang on one
// wire, so driving line 16 changes line 17, and the other way round. A wire that no line drives keeps its
// level; at load every wire is low. Every change of a wire is an edge for both of its lines.
//
// Line 29 is input-only: it refuses to become an output. Line 31 refuses to be requested at all.
//
// Lines 32 to 39 are those of a port expander, on an I2C bus as it were: 2n and 2n+1 are wired to each other
// as well, every access sleeps, no line interrupts, and while
// /sys/kernel/debug/norv_board_gpio/expander_fails is Y no access succeeds: reading a level and making a line
// an output fail (-EIO), and a level that is written is lost without a report, as the kernel has it.

#include <linux/debugfs.h>
#include <linux/delay.h>
#include <linux/gpio/driver.h>
#include <linux/interrupt.h>
#include <linux/irq.h>
#include <linux/module.h>
#include <linux/mutex.h>
#include <linux/spinlock.h>

#include "kernel_versions.h"

#define LINE_COUNT 32
#define INPUT_ONLY_LINE 29
#define RESERVED_LINE 31
#define EXPANDER_LINES 8

static int base;
module_param(base, int, 0444);
MODULE_PARM_DESC(base, "number of the first line (default 0)");

// ---- the lines of the processor

static DEFINE_RAW_SPINLOCK(lock);
static u32 wires;     // level of line 2n's wire in bit n
static u32 outputs;   // lines that are outputs
static u32 unmasked;  // lines whose interrupt is enabled
static u32 rising;    // lines that interrupt on a rising edge
static u32 falling;   // lines that interrupt on a falling edge

static struct gpio_chip chip;

static u32 wire_of(unsigned int line) {
    return BIT(line / 2);
}

// Returns the lines that have to interrupt.
static u32 drive_wire(unsigned int line, bool high) {
    u32 pair = 3u << (line & ~1u);

    if (high == !!(wires & wire_of(line))) {
        return 0;
    }
    wires ^= wire_of(line);
    return pair & unmasked & (high ? rising : falling);
}

static void raise_interrupts(u32 lines) {
    unsigned long pending = lines;
    unsigned int line;

    for_each_set_bit(line, &pending, LINE_COUNT) {
        board_handle_domain_irq(chip.irq.domain, line);
    }
}

static int gpio_request(struct gpio_chip* gc, unsigned int line) {
    return line == RESERVED_LINE ? -EBUSY : 0;
}

static int gpio_get_direction(struct gpio_chip* gc, unsigned int line) {
    return outputs & BIT(line) ? GPIO_LINE_DIRECTION_OUT : GPIO_LINE_DIRECTION_IN;
}

static int gpio_direction_input(struct gpio_chip* gc, unsigned int line) {
    unsigned long flags;

    raw_spin_lock_irqsave(&lock, flags);
    outputs &= ~BIT(line);
    raw_spin_unlock_irqrestore(&lock, flags);
    return 0;
}

static int gpio_direction_output(struct gpio_chip* gc, unsigned int line, int value) {
    unsigned long flags;
    u32 interrupting;

    if (line == INPUT_ONLY_LINE) {
        return -EPERM;
    }
    raw_spin_lock_irqsave(&lock, flags);
    outputs |= BIT(line);
    interrupting = drive_wire(line, value);
    raw_spin_unlock_irqrestore(&lock, flags);
    raise_interrupts(interrupting);
    return 0;
}

static int gpio_get(struct gpio_chip* gc, unsigned int line) {
    return !!(wires & wire_of(line));
}

static board_gpio_set_result gpio_set(struct gpio_chip* gc, unsigned int line, int value) {
    unsigned long flags;
    u32 interrupting;

    raw_spin_lock_irqsave(&lock, flags);
    interrupting = drive_wire(line, value);
    raw_spin_unlock_irqrestore(&lock, flags);
    raise_interrupts(interrupting);
    return BOARD_GPIO_SET_RESULT(0);
}

static void gpio_irq_mask(struct irq_data* data) {
    unsigned long flags;

    raw_spin_lock_irqsave(&lock, flags);
    unmasked &= ~BIT(irqd_to_hwirq(data));
    raw_spin_unlock_irqrestore(&lock, flags);
    board_disable_line_irq(&chip, irqd_to_hwirq(data));
}

static void gpio_irq_unmask(struct irq_data* data) {
    unsigned long flags;

    board_enable_line_irq(&chip, irqd_to_hwirq(data));
    raw_spin_lock_irqsave(&lock, flags);
    unmasked |= BIT(irqd_to_hwirq(data));
    raw_spin_unlock_irqrestore(&lock, flags);
}

static int gpio_irq_set_type(struct irq_data* data, unsigned int type) {
    u32 line = BIT(irqd_to_hwirq(data));
    unsigned long flags;

    if (type & ~IRQ_TYPE_EDGE_BOTH) {
        return -EINVAL;
    }
    raw_spin_lock_irqsave(&lock, flags);
    rising = type & IRQ_TYPE_EDGE_RISING ? rising | line : rising & ~line;
    falling = type & IRQ_TYPE_EDGE_FALLING ? falling | line : falling & ~line;
    raw_spin_unlock_irqrestore(&lock, flags);
    return 0;
}

BOARD_IRQ_CHIP irq_chip = {
    BOARD_IMMUTABLE_IRQ_CHIP.name = "norv-board-gpio",
    .irq_mask = gpio_irq_mask,
    .irq_unmask = gpio_irq_unmask,
    .irq_set_type = gpio_irq_set_type,
};

static struct gpio_chip chip = {
    .label = "norv-board-gpio",
    .owner = THIS_MODULE,
    .ngpio = LINE_COUNT,
    .request = gpio_request,
    .get_direction = gpio_get_direction,
    .direction_input = gpio_direction_input,
    .direction_output = gpio_direction_output,
    .get = gpio_get,
    .set = gpio_set,
};

// ---- the lines of the expander

static DEFINE_MUTEX(expander_bus);
static bool expander_fails;
static unsigned long expander_wires;
static unsigned long expander_outputs;
static struct dentry* directory;

static int access_expander(void) {
    usleep_range(100, 200);
    return READ_ONCE(expander_fails) ? -EIO : 0;
}

static void drive_expander_wire(unsigned int line, int value) {
    __assign_bit(line / 2, &expander_wires, value);
}

static int expander_get_direction(struct gpio_chip* gc, unsigned int line) {
    return test_bit(line, &expander_outputs) ? GPIO_LINE_DIRECTION_OUT : GPIO_LINE_DIRECTION_IN;
}

static int expander_direction_input(struct gpio_chip* gc, unsigned int line) {
    int error;

    mutex_lock(&expander_bus);
    error = access_expander();
    if (!error) {
        __clear_bit(line, &expander_outputs);
    }
    mutex_unlock(&expander_bus);
    return error;
}

static int expander_direction_output(struct gpio_chip* gc, unsigned int line, int value) {
    int error;

    mutex_lock(&expander_bus);
    error = access_expander();
    if (!error) {
        drive_expander_wire(line, value);
        __set_bit(line, &expander_outputs);
    }
    mutex_unlock(&expander_bus);
    return error;
}

static int expander_get(struct gpio_chip* gc, unsigned int line) {
    int level;

    mutex_lock(&expander_bus);
    level = access_expander();
    if (!level) {
        level = test_bit(line / 2, &expander_wires);
    }
    mutex_unlock(&expander_bus);
    return level;
}

static board_gpio_set_result expander_set(struct gpio_chip* gc, unsigned int line, int value) {
    int error;

    mutex_lock(&expander_bus);
    error = access_expander();
    if (!error) {
        drive_expander_wire(line, value);
    }
    mutex_unlock(&expander_bus);
    return BOARD_GPIO_SET_RESULT(error);
}

static struct gpio_chip expander = {
    .label = "norv-board-expander",
    .owner = THIS_MODULE,
    .ngpio = EXPANDER_LINES,
    .can_sleep = true,
    .get_direction = expander_get_direction,
    .direction_input = expander_direction_input,
    .direction_output = expander_direction_output,
    .get = expander_get,
    .set = expander_set,
};

// ---- both

static int __init board_gpio_init(void) {
    int error;

    board_set_irq_chip(&chip.irq, &irq_chip);
    chip.parent = BOARD_GPIO_PARENT;
    chip.irq.handler = handle_simple_irq;
    chip.irq.default_type = IRQ_TYPE_NONE;
    chip.base = base;
    error = gpiochip_add_data(&chip, NULL);
    if (error) {
        return error;
    }
    expander.base = base + LINE_COUNT;
    error = gpiochip_add_data(&expander, NULL);
    if (error) {
        gpiochip_remove(&chip);
        return error;
    }
    directory = debugfs_create_dir("norv_board_gpio", NULL);
    debugfs_create_bool("expander_fails", 0600, directory, &expander_fails);
    return 0;
}

static void __exit board_gpio_exit(void) {
    debugfs_remove_recursive(directory);
    gpiochip_remove(&expander);
    gpiochip_remove(&chip);
}

module_init(board_gpio_init);
module_exit(board_gpio_exit);
MODULE_LICENSE("GPL");
MODULE_DESCRIPTION("GPIO chips of the virtual board, their lines wired in pairs");
