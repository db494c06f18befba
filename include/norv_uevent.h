/* SPDX-License-Identifier: MIT */
/**
 * @file norv_uevent.h
 * The kernel's uevent messages about devices that are added, removed or changed, received from its netlink
 * socket. The conventions of norv_status.h hold.
 *
 * Set `buffer_size`, open the record, wait until its descriptor is readable, and poll: each waiting message
 * is passed, unparsed, to the caller's handler. norv_uevent_parse.h parses the messages about USB devices.
 *
 *     static void print(const uint8_t* message, int64_t length, void* user)
 *     {
 *         printf("%.*s\n", (int)strnlen((const char*)message, (size_t)length), (const char*)message);
 *     }
 *
 *     norv_uevent_t events = {.buffer_size = 8192};
 *     norv_uevent_open(&events);
 *     struct pollfd readable = {.fd = events.fd, .events = POLLIN};
 *     while (poll(&readable, 1, -1) == 1)
 *         norv_uevent_poll(&events, print, NULL);
 *     norv_uevent_close(&events);
 *
 * A message is a header line, "add@/devices/...", and texts of the form KEY=value, each followed by a NUL. A
 * udev daemon sends messages of its own to the same groups; they begin with "libudev".
 */
#ifndef NORV_UEVENT_H
#define NORV_UEVENT_H

#include <stdint.h>

#include "norv_status.h"

NORV_BEGIN_DECLS

/** A receiver of uevent messages. */
typedef struct {
    uint64_t buffer_size; /**< set before open: size of the longest message; the kernel's fit in 8192 */
    int32_t fd;           /**< the socket; -1 if it could not be opened, 0 after a close (quirk 106) */
    uint8_t* buffer;      /**< private: the message being delivered; from malloc(3) */
} norv_uevent_t;

/**
 * Receives one message, on the thread that polls. It must not close or move the record.
 *
 * @param message  the message, with or without a NUL at its end; the next one overwrites it
 * @param length   its size, 1 to buffer_size; a longer message was truncated to buffer_size
 * @param user     as passed to `norv_uevent_poll`
 */
typedef void (*norv_uevent_handler)(const uint8_t* message, int64_t length, void* user);

/** Number of entries of `p_uevent_key`. */
#define NORV_UEVENT_KEY_COUNT 9

/**
 * The keys that norv_uevent_parse.h evaluates, each with its "=": "ACTION=", "CONNECTOR=", "DEVNAME=",
 * "DEVPATH=", "DEVTYPE=", "MAJOR=", "MINOR=", "PRODUCT=", "SUBSYSTEM=". The binary search in it
 * requires ascending order of bytes. The table is writable (quirk 108), but do not change it.
 */
extern NORV_API const char* p_uevent_key[NORV_UEVENT_KEY_COUNT];

/**
 * Opens a non-blocking, close-on-exec netlink socket, binds it to all groups of NETLINK_KOBJECT_UEVENT, and
 * allocates the buffer with malloc(3).
 *
 * With CAP_NET_ADMIN, the receive buffer of the socket is set to 65536 bytes (which the kernel doubles),
 * whatever the system's limit; without, it keeps the system's default.
 *
 * @param uevent  its `buffer_size` is set. After a failure nothing is open or allocated: `fd` is -1 if the socket
 *                failed and 0 if the memory did (quirk 106)
 * @retval NORV_STATUS_NO_MEMORY  no memory for the buffer
 * @retval errno                  of socket(2) or bind(2); if it has the status 0, the open succeeds without a
 *                                socket (quirk 1)
 */
NORV_API uint32_t norv_uevent_open(norv_uevent_t* uevent);

/**
 * Closes the socket and releases the buffer with free(3).
 *
 * @param uevent  `fd` becomes 0 if it was above 0 (quirk 106); may be null
 */
NORV_API void norv_uevent_close(norv_uevent_t* uevent);

/**
 * Receives all waiting messages and passes each to a function: recv(2) until it fails.
 *
 * If more messages arrive than the socket's receive buffer holds, the kernel drops some and reports that
 * once, as ENOBUFS, while later messages may still be waiting: poll again, and read from sysfs what was
 * missed.
 *
 * An empty message, which only another process can send, ends the poll; the status is then that of whatever
 * value errno has (quirk 107).
 *
 * @param uevent   an open record
 * @param handler  called for each message
 * @param user     passed to the handler; may be null
 * @retval NORV_STATUS_INVALID_ARG  the record is not open
 * @retval ENOBUFS                  messages were lost
 * @retval errno                    of recv(2), but not EAGAIN, which ends a successful poll
 */
NORV_API uint32_t norv_uevent_poll(norv_uevent_t* uevent, norv_uevent_handler handler, void* user);

NORV_END_DECLS

#endif
