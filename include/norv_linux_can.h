/**
 * @file norv_linux_can.h
 * CAN frames through the kernel's raw CAN sockets.
 *
 * A context names one CAN network interface, for instance "can0". On it any number of channels is open, each
 * a socket of its own that the kernel filters to the frames of one identifier, or of two. Frames are the
 * kernel's `struct can_frame` (linux/can.h, 16 bytes, classic CAN), which this library does not look into.
 * Bit rate and state of the interface are set up elsewhere (`ip link set can0 up type can bitrate 500000`).
 *
 * A context is allocated by `norv_linux_can_open` and released, with all its channels, by
 * `norv_linux_can_close`. Threads may remove channels of one context at the same time. Adding takes no lock:
 * no other add, no remove and no close of the same context may run meanwhile. On a channel one thread may
 * write while another reads.
 *
 * When the interface goes down, a read on each channel reports ENETDOWN once, and the channel works again
 * when the interface is up. When the interface is deleted, as that of a USB adapter is when it is unplugged,
 * a read reports ENODEV once. The channel then receives nothing any more and a write reports ENXIO, even
 * after an interface of that name has come back: remove the channel, then add it again (an add alone returns
 * it as it is).
 *
 *     norv_linux_can_t* can = NULL;
 *     norv_linux_can_raw_t* speed = NULL;
 *     struct can_frame frame;
 *     uint32_t length = sizeof frame;
 *     norv_linux_can_open("can0", &can);
 *     norv_linux_can_raw_add(&can, 1, 0x123, &speed);
 *     if (norv_linux_can_read(speed, &frame, &length, 1000) == NORV_STATUS_OK) { ... }
 *     norv_linux_can_close(&can);
 */
#ifndef NORV_LINUX_CAN_H
#define NORV_LINUX_CAN_H

#include <stdint.h>

#include "norv_status.h"

NORV_BEGIN_DECLS

/** One CAN interface and its channels; private, allocated by `norv_linux_can_open`. */
typedef struct norv_linux_can norv_linux_can_t;

/** One channel; private, allocated by the add functions and owned by its context once the add succeeded. */
typedef struct norv_linux_can_raw norv_linux_can_raw_t;

/**
 * Makes a context for an interface. Touches nothing: whether there is such an interface shows when a channel
 * is added.
 *
 * @param interface_name  for instance "can0"; the pointer is kept, not the text, so the caller's text stays
 * in place until the last channel is added; not null
 * @param can             receives the context; not null; what it held is overwritten; null after a failure
 * @return 0; NORV_STATUS_NO_MEMORY; NORV_STATUS_INVALID_ARG when a pointer is null; the status of
 *         `norv_mutex_init`
 *
 * Does not block. Any thread.
 */
NORV_API uint32_t norv_linux_can_open(const char* interface_name, norv_linux_can_t** can);

/**
 * Closes the sockets of all channels and releases them and the context.
 *
 * Channels that a failed add returned are not among them: they are removed by the caller, before or after.
 * A socket with the descriptor 0, in a program that had closed its standard input, counts as not open and is
 * not closed.
 *
 * @param can  its context is released and it becomes null; may be null or hold null, which does nothing
 *
 * Waits for a `norv_linux_can_remove` that is under way on another thread. Never fails.
 */
NORV_API void norv_linux_can_close(norv_linux_can_t** can);

/**
 * Adds a channel that receives the frames of one identifier, or finds the one that is there.
 *
 * A context has one channel for a main identifier: when it has one already, that one is returned as it is,
 * and neither the non-blocking flag nor an alternative identifier is looked at. Otherwise a socket is made:
 * socket(2) with AF_CAN, `SOCK_RAW | SOCK_CLOEXEC` and CAN_RAW, fcntl(2) for O_NONBLOCK, ioctl SIOCGIFINDEX,
 * setsockopt(2) with CAN_RAW_FILTER and CAN_RAW_LOOPBACK, bind(2).
 *
 * The filter compares the low 11 bits: standard frames pass, and so do extended frames and remote requests
 * whose identifier ends in these bits; error frames do not. Local loop-back is off: what a channel sends
 * reaches the bus, but no other socket of this host on this interface.
 *
 * An add that fails after the allocation still returns its channel, which belongs to no context: the caller
 * releases it with `norv_linux_can_remove`, even after the context was closed. Do not read or write it: a
 * transfer without limit on a channel that has no socket never returns.
 *
 * @param can          not null, holds an open context
 * @param nonblocking  non-zero: reads and writes with time-out 0 do not wait; only the low 8 bits count: 256
 *                     is zero
 * @param identifier   the main identifier; all 32 bits of it tell channels apart, the filter compares the low
 *                     11, and bit 29 (CAN_INV_FILTER) makes the kernel pass all frames but these
 * @param channel      receives the channel, which stays the context's; untouched when no memory is left; may
 *                     be null: a failed add then releases its channel itself
 * @return 0; NORV_STATUS_NO_MEMORY; NORV_STATUS_INVALID_ARG when there is no context; the errno status of
 *         socket(2), fcntl(2), the ioctl (that of ENODEV: no such interface) or setsockopt(2); the status of
 *         EPERM whenever bind(2) fails, whatever the cause. When socket(2) fails and `nonblocking` is set,
 * the status is that of fcntl(2) on the missing descriptor, EBADF.
 *
 * The kernel cuts an interface name after 15 characters. Blocks only while the kernel looks for a module for
 * a name that it does not know. Not while another add, a remove or the close of the same context runs.
 */
NORV_API uint32_t norv_linux_can_raw_add(norv_linux_can_t** can, uint32_t nonblocking, uint32_t identifier,
                                         norv_linux_can_raw_t** channel);

/**
 * Adds a channel that receives the frames of two identifiers; otherwise like `norv_linux_can_raw_add`.
 *
 * @param can                     not null, holds an open context
 * @param nonblocking             non-zero: reads and writes with time-out 0 do not wait; only the low 8 bits
 *                                count
 * @param identifier              the main identifier, by which the context finds the channel again
 * @param alternative_identifier  the other one, 0 included; no key: adding it as a main identifier makes
 *                                another channel
 * @param channel                 receives the channel, as with `norv_linux_can_raw_add`
 * @return as `norv_linux_can_raw_add`
 *
 * Blocks as `norv_linux_can_raw_add` does. Not while another add, a remove or the close of the same context
 * runs.
 */
NORV_API uint32_t norv_linux_can_raw_add_with_alt_id(norv_linux_can_t** can, uint32_t nonblocking,
                                                     uint32_t identifier, uint32_t alternative_identifier,
                                                     norv_linux_can_raw_t** channel);

/**
 * Takes a channel out of its context, closes its socket and releases it.
 *
 * @param channel  released; from an add, successful or not; not one whose context was closed since it was
 *                 added successfully; not null
 * @return 0; NORV_STATUS_INVALID_ARG for null; the status of `norv_mutex_lock`, with the channel left in
 * place; the status of `norv_mutex_unlock`, with the channel released
 *
 * Waits while another remove runs. Any thread, but not while an add or the close of the same context runs. A
 * channel of a failed add takes no lock and touches no context.
 */
NORV_API uint32_t norv_linux_can_remove(norv_linux_can_raw_t* channel);

/**
 * Tells the socket, to be polled or added to a loop for `POLLIN` and `POLLOUT`.
 *
 * @param channel  from an add
 * @return the descriptor, which stays the channel's; -1 for null, and when socket(2) had failed
 */
NORV_API int32_t norv_linux_can_get_fd(norv_linux_can_raw_t* channel);

/**
 * Writes a frame: write(2).
 *
 * The whole buffer goes to one write(2), and Linux refuses more than one frame there: write frames one by
 * one.
 *
 * @param channel  from a successful add; not null
 * @param buffer   `struct can_frame`; the caller's, only read
 * @param length   in: bytes to write: 16; out: bytes written; as it was when a write without waiting or
 * without limit fails; not null
 * @param timeout  0: one write; below 0: waits without limit until the socket takes the frame; above 0: so
 * many milliseconds
 * @return 0; NORV_STATUS_AGAIN when the socket's buffer is full (time-out 0, non-blocking channel);
 *         NORV_STATUS_TIMEOUT when the time was up first (time-out above 0), with `length` 0;
 *         NORV_STATUS_INVALID_ARG for a null channel or length, and for EINVAL of write(2): the length is not
 *         that of one frame; the errno status of poll(2) or write(2), for instance that of ENOBUFS when the
 *         interface's queue is full, of ENETDOWN when the interface is down, and of ENXIO when it was deleted
 *
 * Blocks as `timeout` says; with time-out 0 on a channel that is not non-blocking, as long as write(2) does.
 * See `norv_iorw_nonblock`, `norv_iorw_block` and `norv_iorw_timeout` (norv_file.h).
 */
NORV_API uint32_t norv_linux_can_write(norv_linux_can_raw_t* channel, const void* buffer, uint32_t* length,
                                       int32_t timeout);

/**
 * Reads frames: read(2), which gives one frame a call.
 *
 * @param channel  from a successful add; not null
 * @param buffer   receives one or more `struct can_frame`; the caller's
 * @param length   in: bytes wanted, a multiple of 16; out: bytes read; as it was when a read without waiting
 * or without limit fails; not null
 * @param timeout  0: one frame, with one read, however long the buffer is; below 0: waits until the buffer is
 *                 full, without limit; above 0: waits until it is full, so many milliseconds
 * @return 0; NORV_STATUS_AGAIN when no frame is there (time-out 0, non-blocking channel); NORV_STATUS_TIMEOUT
 *         when the time was up first (time-out above 0): the frames up to `length` are in the buffer;
 *         NORV_STATUS_INVALID_ARG for a null channel or length; the errno status of poll(2) or read(2), for
 *         instance that of ENETDOWN or ENODEV when the interface went down or was deleted
 *
 * Blocks as `timeout` says; with time-out 0 on a channel that is not non-blocking, until a frame comes. See
 * `norv_iorw_nonblock`, `norv_iorw_block` and `norv_iorw_timeout` (norv_file.h).
 */
NORV_API uint32_t norv_linux_can_read(norv_linux_can_raw_t* channel, void* buffer, uint32_t* length,
                                      int32_t timeout);

NORV_END_DECLS

#endif
