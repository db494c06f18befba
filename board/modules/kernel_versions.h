/* SPDX-License-Identifier: GPL-2.0 */
/*
 * Where the kernel's own interfaces differ between the versions and processors of the virtual board. Every
 * module that meets one of these differences takes it from here.
 */
#ifndef NORV_BOARD_KERNEL_VERSIONS_H
#define NORV_BOARD_KERNEL_VERSIONS_H

#ifdef CONFIG_X86
#include <asm/set_memory.h>
#endif
#include <linux/device/class.h>
#include <linux/err.h>
#include <linux/gpio/driver.h>
#include <linux/hrtimer.h>
#include <linux/irq.h>
#include <linux/irqdomain.h>
#include <linux/platform_device.h>
#include <linux/pwm.h>
#include <linux/serial_core.h>
#include <linux/slab.h>
#include <linux/timer.h>
#include <linux/version.h>

/* 32-bit ARM has no function for it; the first four arguments are in registers. */
#ifdef CONFIG_ARM
#define board_kernel_argument(registers, number) ((registers)->uregs[number])
#else
#define board_kernel_argument(registers, number) regs_get_kernel_argument(registers, number)
#endif

/* Linux 6.4 dropped the owner. */
#if LINUX_VERSION_CODE < KERNEL_VERSION(6, 4, 0)
#define board_class_create(name) class_create(THIS_MODULE, name)
#else
#define board_class_create(name) class_create(name)
#endif

/* Linux 6.7 finds the owner by itself. */
#if LINUX_VERSION_CODE < KERNEL_VERSION(6, 7, 0)
#define BOARD_PWM_OWNER .owner = THIS_MODULE,
#else
#define BOARD_PWM_OWNER
#endif

/* Since Linux 6.9 a chip is allocated by the core, which frees it with the last of its users. */
#if LINUX_VERSION_CODE < KERNEL_VERSION(6, 9, 0)
static inline struct pwm_chip* board_pwmchip_alloc(struct device* parent, unsigned int channels) {
    struct pwm_chip* chip = kzalloc(sizeof(*chip), GFP_KERNEL);

    if (!chip) {
        return ERR_PTR(-ENOMEM);
    }
    chip->dev = parent;
    chip->npwm = channels;
#if LINUX_VERSION_CODE < KERNEL_VERSION(5, 13, 0)
    chip->base = -1; /* the core finds it by itself since then */
#endif
    return chip;
}
static inline void board_pwmchip_put(struct pwm_chip* chip) {
    kfree(chip);
}
#else
#define board_pwmchip_alloc(parent, channels) pwmchip_alloc(parent, channels, 0)
#define board_pwmchip_put(chip) pwmchip_put(chip)
#endif

/* Since Linux 6.13 a timer's function is an argument. */
#if LINUX_VERSION_CODE < KERNEL_VERSION(6, 13, 0)
static inline void board_timer_init(struct hrtimer* timer,
                                    enum hrtimer_restart (*function)(struct hrtimer*)) {
    hrtimer_init(timer, CLOCK_MONOTONIC, HRTIMER_MODE_REL);
    timer->function = function;
}
#else
#define board_timer_init(timer, function) hrtimer_setup(timer, function, CLOCK_MONOTONIC, HRTIMER_MODE_REL)
#endif

/* Since Linux 6.13 a namespace is a text. */
#if LINUX_VERSION_CODE < KERNEL_VERSION(6, 13, 0)
#define BOARD_IMPORT_DMA_BUF MODULE_IMPORT_NS(DMA_BUF)
#else
#define BOARD_IMPORT_DMA_BUF MODULE_IMPORT_NS("DMA_BUF")
#endif

/* Since Linux 6.14 the match of a device leaves what it is compared with alone. */
#if LINUX_VERSION_CODE < KERNEL_VERSION(6, 14, 0)
#define BOARD_MATCH_CONST
#else
#define BOARD_MATCH_CONST const
#endif

/* Since Linux 6.17 setting a line can fail. */
#if LINUX_VERSION_CODE < KERNEL_VERSION(6, 17, 0)
typedef void board_gpio_set_result;
#define BOARD_GPIO_SET_RESULT(error)
#else
typedef int board_gpio_set_result;
#define BOARD_GPIO_SET_RESULT(error) (error)
#endif

/* Since Linux 6.0 an interrupt chip is constant, and enables and disables its chip's lines itself. */
#if LINUX_VERSION_CODE < KERNEL_VERSION(6, 0, 0)
#define BOARD_IRQ_CHIP static struct irq_chip
#define BOARD_GPIO_PARENT (&platform_bus) /* looked at where there is an interrupt chip */
#define BOARD_IMMUTABLE_IRQ_CHIP
#define board_set_irq_chip(irq, irq_chip) ((irq)->chip = (irq_chip))
#define board_enable_line_irq(chip, line)
#define board_disable_line_irq(chip, line)
static inline void board_handle_domain_irq(struct irq_domain* domain, unsigned int line) {
    unsigned long flags;

    local_irq_save(flags);
    generic_handle_irq(irq_find_mapping(domain, line));
    local_irq_restore(flags);
}
#else
#define BOARD_IRQ_CHIP static const struct irq_chip
#define BOARD_GPIO_PARENT NULL
#define BOARD_IMMUTABLE_IRQ_CHIP .flags = IRQCHIP_IMMUTABLE, GPIOCHIP_IRQ_RESOURCE_HELPERS,
#define board_set_irq_chip(irq, irq_chip) gpio_irq_chip_set_chip(irq, irq_chip)
#define board_enable_line_irq(chip, line) gpiochip_enable_irq(chip, line)
#define board_disable_line_irq(chip, line) gpiochip_disable_irq(chip, line)
#define board_handle_domain_irq(domain, line) generic_handle_domain_irq_safe(domain, line)
#endif

/* Since Linux 5.15 spidev answers to the names of some devices, and no longer to its own. */
#if LINUX_VERSION_CODE < KERNEL_VERSION(5, 15, 0)
#define BOARD_SPIDEV_NAME "spidev"
#else
#define BOARD_SPIDEV_NAME "dh2228fv"
#endif

/* Linux 6.6 gave the function a new name. */
#if LINUX_VERSION_CODE < KERNEL_VERSION(6, 6, 0)
#define board_spi_alloc(parent, size) spi_alloc_master(parent, size)
#else
#define board_spi_alloc(parent, size) spi_alloc_host(parent, size)
#endif

/* Before Linux 5.14 a gadget's callbacks came without being asked for. */
#if LINUX_VERSION_CODE < KERNEL_VERSION(5, 14, 0)
#define board_gadget_callbacks(gadget, on) ((void)(gadget))
#else
#define board_gadget_callbacks(gadget, on) (gadget)->ops->udc_async_callbacks(gadget, on)
#endif

/* Linux 5.11 gave the field a new name, and Linux 5.12 the functions an argument. */
#if LINUX_VERSION_CODE < KERNEL_VERSION(5, 11, 0)
#define board_can_length(frame) ((frame)->can_dlc)
#else
#define board_can_length(frame) ((frame)->len)
#endif
#if LINUX_VERSION_CODE < KERNEL_VERSION(5, 12, 0)
#define board_can_put_echo(packet, device) can_put_echo_skb(packet, device, 0)
#define board_can_get_echo(device) can_get_echo_skb(device, 0)
#else
#define board_can_put_echo(packet, device) can_put_echo_skb(packet, device, 0, 0)
#define board_can_get_echo(device) can_get_echo_skb(device, 0, NULL)
#endif

/* Linux 7 changes the MTU of an interface without asking its driver. */
#if LINUX_VERSION_CODE < KERNEL_VERSION(7, 0, 0)
#define BOARD_CAN_CHANGE_MTU .ndo_change_mtu = can_change_mtu,
#else
#define BOARD_CAN_CHANGE_MTU
#endif

/* Since Linux 5.11 a page can be mapped for the thread alone. */
#if LINUX_VERSION_CODE < KERNEL_VERSION(5, 11, 0)
#define board_map_page(page) kmap_atomic(page)
#define board_unmap_page(address) kunmap_atomic(address)
#else
#define board_map_page(page) kmap_local_page(page)
#define board_unmap_page(address) kunmap_local(address)
#endif

/* Linux 6.1 lets a controller drop frames in listen-only mode, too. */
#if LINUX_VERSION_CODE < KERNEL_VERSION(6, 1, 0)
#define can_dev_dropped_skb(device, packet) can_dropped_invalid_skb(device, packet)
#endif

/* Linux 6.1 made the settings before const. */
#if LINUX_VERSION_CODE < KERNEL_VERSION(6, 1, 0)
#define board_old_termios struct ktermios
#else
#define board_old_termios const struct ktermios
#endif

/* Linux 6.2 renamed it. */
#if LINUX_VERSION_CODE < KERNEL_VERSION(6, 2, 0)
#define board_timer_delete_sync(timer) del_timer_sync(timer)
#else
#define board_timer_delete_sync(timer) timer_delete_sync(timer)
#endif

/* What a serial port has to send: a ring until Linux 6.9, a kfifo since. The port is locked. */
#if LINUX_VERSION_CODE < KERNEL_VERSION(6, 10, 0)
static inline bool board_uart_has_bytes(struct uart_port* port) {
    return !uart_circ_empty(&port->state->xmit);
}
static inline unsigned int board_uart_take(struct uart_port* port, u8* bytes, unsigned int most) {
    struct circ_buf* ring = &port->state->xmit;
    unsigned int count = 0;

    while (count < most && !uart_circ_empty(ring)) {
        bytes[count++] = ring->buf[ring->tail];
        ring->tail = (ring->tail + 1) & (UART_XMIT_SIZE - 1);
        port->icount.tx++;
    }
    return count;
}
#else
static inline bool board_uart_has_bytes(struct uart_port* port) {
    return !kfifo_is_empty(&port->state->port.xmit_fifo);
}
static inline unsigned int board_uart_take(struct uart_port* port, u8* bytes, unsigned int most) {
    return uart_fifo_out(port, bytes, most);
}
#endif

/* A PC keeps one memory type for each page, and maps memory as cached unless its pages say otherwise. */
static inline int board_set_memory_uc(void* pages, int count) {
#ifdef CONFIG_X86
    return set_memory_uc((unsigned long)pages, count);
#else
    return 0;
#endif
}
static inline void board_set_memory_wb(void* pages, int count) {
#ifdef CONFIG_X86
    set_memory_wb((unsigned long)pages, count);
#endif
}

#endif
