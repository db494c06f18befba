// SPDX-License-Identifier: MIT
/**
 * @file norv.hpp
 * All of the C++ interface. A program that uses one or two families includes their headers instead.
 *
 *     norv::gpio led = norv::gpio::open(17).value();
 *     led.set_direction(norv::gpio::direction::output).value();
 *     led.set_value(true).value();
 */
#pragma once

#include "norv/callback.hpp"
#include "norv/clock.hpp"
#include "norv/cpu_usage.hpp"
#include "norv/file.hpp"
#include "norv/gpio.hpp"
#include "norv/heap.hpp"
#include "norv/interval_timer.hpp"
#include "norv/loop.hpp"
#include "norv/loop_thread.hpp"
#include "norv/memory.hpp"
#include "norv/mutex.hpp"
#include "norv/net_usage.hpp"
#include "norv/one_shot_event.hpp"
#include "norv/owner.hpp"
#include "norv/result.hpp"
#include "norv/shell.hpp"
#include "norv/status.hpp"
#include "norv/system_info.hpp"
#include "norv/task.hpp"
#include "norv/text.hpp"
#include "norv/thread.hpp"
#include "norv/thread_watchdog.hpp"
#include "norv/timeout.hpp"
#include "norv/transfer.hpp"
#include "norv/uart.hpp"
#include "norv/uuid.hpp"
#include "norv/wait.hpp"
