/* SPDX-License-Identifier: MIT */
/**
 * @file norv_net_usage.h
 * Receive and transmit rates of one network interface over the time between two calls, from /proc/net/dev.
 * The conventions of norv_status.h hold.
 *
 * Open a record, call `norv_net_usage_update` whenever new rates are wanted, and read `rx_rate` and
 * `tx_rate`. /proc/net/dev stays open in between.
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

/** Size of an interface's name in the record, its terminating NUL included. */
#define NORV_NET_USAGE_NAME_SIZE 32

/** A sampler. */
typedef struct {
    FILE* file;                            /**< /proc/net/dev; null when closed */
    uint32_t last_ms;                      /**< private: time of the last sample */
    char ifname[NORV_NET_USAGE_NAME_SIZE]; /**< name of the interface */
    uint8_t started;                       /**< private: 0 until the first sample is taken */
    uint32_t tx_rate;                      /**< transmitted in the last interval, kbit/s of 1000 bit/s */
    uint32_t rx_rate;                      /**< received in the last interval, kbit/s of 1000 bit/s */
    uint32_t last_tx;                      /**< private: low 32 bits of the transmitted bytes */
    uint32_t last_rx;                      /**< private: low 32 bits of the received bytes */
} norv_net_usage_t;

/**
 * Opens /proc/net/dev and takes the first sample: both rates are 0.
 *
 * @param net     receives the open sampler; closed after a failure
 * @param ifname  name of the interface, up to 31 characters; copied
 * @retval NORV_STATUS_EXHAUSTED    the name is longer
 * @retval NORV_STATUS_NOT_FOUND    there is no such interface
 * @retval NORV_STATUS_PARSE_ERROR  the interface's line has fewer than 16 numbers
 * @retval errno                    of fopen(3) or fgets(3)
 */
NORV_API uint32_t norv_net_usage_open(norv_net_usage_t* net, const char* ifname);

/**
 * Takes a sample: reads /proc/net/dev, and sets the rates, rounded down, from the bytes and the time since
 * the previous sample.
 *
 * The first line whose text before the colon contains the name is used: "eth0" also finds "veth0" if that is
 * listed first (quirk 101). Less than 11 ms after the previous sample nothing changes, and the next update
 * measures from that sample (quirk 102). Differences of bytes and milliseconds wrap at 32 bits (quirk 98):
 * 2^32 bytes or more in one interval cannot be measured.
 *
 * @param net  an open sampler
 * @retval NORV_STATUS_BAD_STATE    it is closed
 * @retval NORV_STATUS_NOT_FOUND    no line has the name
 * @retval NORV_STATUS_PARSE_ERROR  the line, truncated after 255 characters (quirk 99), has fewer than 16
 *                                  numbers
 * @retval errno                    of fgets(3); that of a failed fflush(3) or fseek(3) is ignored (quirk 100)
 */
NORV_API uint32_t norv_net_usage_update(norv_net_usage_t* net);

/**
 * Closes /proc/net/dev. The rates are unchanged.
 *
 * @param net  may be null
 */
NORV_API void norv_net_usage_close(norv_net_usage_t* net);

NORV_END_DECLS

#endif
