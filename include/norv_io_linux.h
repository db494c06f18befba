/* SPDX-License-Identifier: MIT */
/**
 * @file norv_io_linux.h
 * All of libnorv_io_linux. A program that uses one or two families includes their headers instead.
 */
#ifndef NORV_IO_LINUX_H
#define NORV_IO_LINUX_H

#include "norv_cpu_usage.h"
#include "norv_dt.h"
#include "norv_epoll.h"
#include "norv_file.h"
#include "norv_flash_types.h"
#include "norv_fpga.h"
#include "norv_linux_can.h"
#include "norv_linux_dma.h"
#include "norv_linux_emmc_flash.h"
#include "norv_linux_flash.h"
#include "norv_linux_gpio.h"
#include "norv_linux_i2c.h"
#include "norv_linux_i2c_bus.h"
#include "norv_linux_led.h"
#include "norv_linux_mtd.h"
#include "norv_linux_pwm.h"
#include "norv_linux_spi.h"
#include "norv_linux_spi_flash.h"
#include "norv_linux_thread.h"
#include "norv_linux_timer.h"
#include "norv_mcb_bus.h"
#include "norv_net_usage.h"
#include "norv_shell.h"
#include "norv_system_info.h"
#include "norv_uart.h"
#include "norv_uevent.h"
#include "norv_uevent_parse.h"
#include "norv_uio.h"
#include "norv_umcb.h"
#include "norv_usb_gadget.h"
#include "norv_uuid.h"
#include "norv_zynq.h"

#endif
