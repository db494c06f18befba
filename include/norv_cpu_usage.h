/* SPDX-License-Identifier: MIT */
/**
 * @file norv_cpu_usage.h
 * CPU load of the whole system over the time between two calls, from /proc/stat. The conventions of
 * norv_status.h hold.
 *
 * Fill the record with zeros, open it, call `norv_cpu_usage_update` whenever a new value is wanted, and read
 * `usage`. /proc/stat stays open in between.
 *
 *     norv_cpu_usage_t cpu = {0};
 *     norv_cpu_usage_open(&cpu);
 *     sleep(1);
 *     norv_cpu_usage_update(&cpu);
 *     printf("%u.%02u %%\n", cpu.usage / 100, cpu.usage % 100);
 *     norv_cpu_usage_close(&cpu);
 */
#ifndef NORV_CPU_USAGE_H
#define NORV_CPU_USAGE_H

#include <stdint.h>
#include <stdio.h>

#include "norv_status.h"

NORV_BEGIN_DECLS

/** A sampler; filled with zeros before it is opened. */
typedef struct {
    FILE* file;          /**< /proc/stat; null when closed */
    uint32_t usage;      /**< busy share of the last interval in 0.01 %: 0 to 10000, but see quirk 97 */
    uint32_t last_idle;  /**< private: idle time of the last sample */
    uint32_t last_total; /**< private: sum of all times of the last sample */
} norv_cpu_usage_t;

/**
 * Opens /proc/stat and takes the first sample: `usage` is the share since the start of the system.
 *
 * @param cpu  filled with zeros, again before another open: `last_total` is not cleared (quirk 95). Closed
 *             after a failure
 * @retval NORV_STATUS_PARSE_ERROR  the first line has fewer than ten numbers
 * @retval errno                    of fopen(3) or fgets(3)
 */
NORV_API uint32_t norv_cpu_usage_open(norv_cpu_usage_t* cpu);

/**
 * Takes a sample: reads the first line of /proc/stat, and sets `usage` to the busy share of the time since
 * the previous sample, rounded to a hundredth of a percent; 0 if no time has passed.
 *
 * Of the ten times of the line (user, nice, system, idle, iowait, irq, softirq, steal, guest, guest_nice)
 * only the fourth counts as idle. The guest times are added although user and nice include them (quirk 96): a
 * processor that runs guests looks busier than it is. Times that run backwards, as the idle time sometimes
 * does, can give more than 10000 (quirk 97). Sums and differences wrap at 32 bits (quirk 98).
 *
 * @param cpu  an open sampler
 * @retval NORV_STATUS_BAD_STATE    it is closed
 * @retval NORV_STATUS_PARSE_ERROR  the line, truncated after 255 characters (quirk 99), has fewer than ten
 *                                  numbers
 * @retval errno                    of fgets(3); that of a failed fflush(3) or fseek(3) is ignored (quirk 100)
 */
NORV_API uint32_t norv_cpu_usage_update(norv_cpu_usage_t* cpu);

/**
 * Closes /proc/stat, and sets `usage` and `last_idle` to 0; `last_total` is unchanged (quirk 95).
 *
 * @param cpu  may be null
 */
NORV_API void norv_cpu_usage_close(norv_cpu_usage_t* cpu);

NORV_END_DECLS

#endif
