/**
 * @file norv_cpu_usage.h
 * CPU load of the whole system over the time between two calls, from the first line of /proc/stat.
 *
 * The record belongs to the caller, who fills it with zeros before `norv_cpu_usage_open`, calls
 * `norv_cpu_usage_update` at his own pace and reads `usage`. /proc/stat stays open in between. A record is
 * used by one thread at a time.
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

/** A sampler; the storage is the caller's, zero-filled before it is opened. */
typedef struct {
    FILE* file;          /**< /proc/stat; null when closed */
    uint32_t usage;      /**< busy share of the last interval in hundredths of a percent, 0 to 10000 */
    uint32_t last_idle;  /**< private: the idle time of the last sample */
    uint32_t last_total; /**< private: the sum of all times of the last sample */
} norv_cpu_usage_t;

/**
 * Opens /proc/stat and takes the first sample. `usage` is then the share since the system was started.
 *
 * @param cpu  zero-filled, or closed and zero-filled again; not null; `last_total` is left as it is, which
 *             spoils the first `usage` of a record that was not zero-filled
 * @return 0; NORV_STATUS_INVALID_ARG when `cpu` is null; the errno status of fopen(3); the status of
 *         `norv_cpu_usage_update`; after a failure the record is closed
 *
 * Does not block. Any thread.
 */
NORV_API uint32_t norv_cpu_usage_open(norv_cpu_usage_t* cpu);

/**
 * Takes a sample: reads the first line of /proc/stat again, and sets `usage` to the busy share of the time
 * since the sample before, rounded to a hundredth of a percent.
 *
 * Of the ten times of the line (user, nice, system, idle, iowait, irq, softirq, steal, guest, guest_nice) the
 * fourth counts as idle and all others as busy, guest and guest_nice included, which the kernel counts in
 * user and nice already: a processor that runs guests looks busier than it is. When no time has passed,
 * `usage` is 0. Times that run backwards, which an idle time sometimes does, can give more than 10000.
 *
 * @param cpu  not null
 * @return 0; NORV_STATUS_INVALID_ARG when `cpu` is null; NORV_STATUS_BAD_STATE when it is closed; the errno
 *         status of fgets(3), not that of a failed fflush(3) or fseek(3); NORV_STATUS_PARSE_ERROR when the
 *         line does not hold ten numbers; after a failure the record is as it was, and the next update counts
 *         from the sample before
 *
 * Does not block.
 */
NORV_API uint32_t norv_cpu_usage_update(norv_cpu_usage_t* cpu);

/**
 * Closes /proc/stat, and sets `usage` and `last_idle` to 0; `last_total` stays.
 *
 * @param cpu  may be null or closed
 *
 * Does not block. Never fails.
 */
NORV_API void norv_cpu_usage_close(norv_cpu_usage_t* cpu);

NORV_END_DECLS

#endif
