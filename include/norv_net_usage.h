/**
 * @file norv_net_usage.h
 * Receive and transmit rates of one network interface over the time between two calls, from /proc/net/dev.
 *
 * The record belongs to the caller, who calls `norv_net_usage_update` at his own pace and reads `rx_rate` and
 * `tx_rate`. /proc/net/dev stays open in between. A record is used by one thread at a time.
 *
 *     norv_net_usage_t net;
 *     norv_net_usage_open(&net, "eth0");
 *     sleep(1);
 *     norv_net_usage_update(&net);
 *     printf("%u kbit/s in, %u kbit/s out\n", net.rx_rate, net.tx_rate);
 *     norv_net_usage_close(&net);
 */
#ifndef NORV_NET_USAGE_H
#define NORV_NET_USAGE_H

#include <stdint.h>
#include <stdio.h>

#include "norv_status.h"

NORV_BEGIN_DECLS

/** Bytes that an interface's name takes in the record, its terminating NUL included. */
#define NORV_NET_USAGE_NAME_SIZE 32

/** A sampler; the storage is the caller's, `norv_net_usage_open` fills it. */
typedef struct {
    FILE* file;                            /**< /proc/net/dev; null when closed */
    uint32_t last_ms;                      /**< private: time of the last sample */
    char ifname[NORV_NET_USAGE_NAME_SIZE]; /**< the name that is searched for */
    uint8_t started;                       /**< private: 0 until the first sample is taken */
    uint32_t tx_rate;                      /**< transmitted in the last interval, kbit/s of 1000 bit/s */
    uint32_t rx_rate;                      /**< received in the last interval, kbit/s of 1000 bit/s */
    uint32_t last_tx;                      /**< private: low 32 bits of the transmitted bytes */
    uint32_t last_rx;                      /**< private: low 32 bits of the received bytes */
} norv_net_usage_t;

/**
 * Opens /proc/net/dev and takes the first sample; both rates are 0 then.
 *
 * @param net     filled; not null; closed after a failure
 * @param ifname  the interface's name, of 31 characters at most; copied; not null
 * @return 0; NORV_STATUS_INVALID_ARG when a pointer is null; the errno status of fopen(3);
 *         NORV_STATUS_EXHAUSTED when the name is longer; the status of `norv_net_usage_update`, for instance
 *         NORV_STATUS_NOT_FOUND: no such interface
 *
 * Does not block. Any thread.
 */
NORV_API uint32_t norv_net_usage_open(norv_net_usage_t* net, const char* ifname);

/**
 * Takes a sample: reads /proc/net/dev again, and sets the rates from the bytes and the time since the sample
 * before.
 *
 * The line is the first one in which the text before the colon contains the name anywhere: "eth0" also finds
 * "veth0" when that comes first. Less than 11 ms after the sample before nothing changes, and that sample
 * stays the one that is counted from. Bytes and milliseconds are counted with 32 bits, so sample often
 * enough: more than 4294967295 bytes in one interval cannot be told. Rates are rounded down.
 *
 * @param net  not null
 * @return 0; NORV_STATUS_INVALID_ARG when `net` is null; NORV_STATUS_BAD_STATE when it is closed; the errno
 *         status of fgets(3), not that of a failed fflush(3) or fseek(3); NORV_STATUS_NOT_FOUND when no line
 *         has the name; NORV_STATUS_PARSE_ERROR when its line does not hold 16 numbers; after a failure the
 *         record is as it was, and the next update counts from the sample before
 *
 * Does not block.
 */
NORV_API uint32_t norv_net_usage_update(norv_net_usage_t* net);

/**
 * Closes /proc/net/dev. The rates stay as they are.
 *
 * @param net  may be null or closed
 *
 * Does not block. Never fails.
 */
NORV_API void norv_net_usage_close(norv_net_usage_t* net);

NORV_END_DECLS

#endif
