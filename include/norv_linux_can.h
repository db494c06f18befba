/* SPDX-License-Identifier: MIT */
/**
 * @file norv_linux_can.h
 * CAN frames through the kernel's raw CAN sockets. The conventions of norv_status.h hold.
 *
 * A context names a CAN network interface, for instance "can0". Each of its channels is a socket of its own,
 * which the kernel filters to the frames of one identifier, or of two. Frames are the kernel's
 * `struct can_frame` (linux/can.h, classic CAN, 16 bytes), passed on unchanged. The interface is set up
 * elsewhere (`ip link set can0 up type can bitrate 500000`).
 *
 * A variable without a context is an invalid argument. Closing a context releases all its channels. Threads
 * may remove channels of one context at the same time, but adding takes no lock (quirk 71): during an add, no
 * other add, remove or close of the same context may run. One thread may write to a channel while another one
 * reads from it.
 *
 * When the interface goes down, a read on each channel returns ENETDOWN once, and the channel works again
 * when the interface is up. When the interface is deleted, for instance because a USB adapter is unplugged, a
 * read returns ENODEV once. From then on the channel receives nothing and each write returns ENXIO, even
 * after an interface of that name has come back (quirk 64): remove the channel before you add it again,
 * because an add alone returns the dead one.
 *
 *     norv_linux_can_t* can = NULL;
 *     norv_linux_can_raw_t* speed = NULL;
 *     struct can_frame frame;
 *     uint32_t length = sizeof frame;
 *     norv_linux_can_open("can0", &can);
 *     norv_linux_can_raw_add(&can, 1, 0x123, &speed);
 *     if (norv_linux_can_read(speed, &frame, &length, 1000) == NORV_STATUS_OK)
 *         printf("%u\n", frame.data[0]);
 *     norv_linux_can_close(&can);
 */
#ifndef NORV_LINUX_CAN_H
#define NORV_LINUX_CAN_H

#include <stdint.h>

#include "norv_status.h"

NORV_BEGIN_DECLS

/** A CAN interface and its channels; private. */
typedef struct norv_linux_can norv_linux_can_t;

/** A channel; private. It belongs to its context once the add has succeeded. */
typedef struct norv_linux_can_raw norv_linux_can_raw_t;

/**
 * Allocates a context for an interface. Whether the interface exists is checked only when a channel is added.
 *
 * @param interface_name  for instance "can0"; the pointer is kept and not the text (quirk 62), so keep the
 *                        text until the last channel is added
 * @param can             receives the context
 * @retval NORV_STATUS_NO_MEMORY  there is no memory for the context
 * @retval others                 of `norv_mutex_init`
 */
NORV_API uint32_t norv_linux_can_open(const char* interface_name, norv_linux_can_t** can);

/**
 * Closes the sockets of all channels, and releases them and the context, even if its lock fails.
 *
 * A channel that a failed add returned is not among them (quirk 67): remove it before or after.
 *
 * @param can  becomes null; may be null
 *
 * Blocks while another thread's `norv_linux_can_remove` runs.
 */
NORV_API void norv_linux_can_close(norv_linux_can_t** can);

/**
 * Adds a channel that receives the frames of one identifier, or finds the existing one.
 *
 * If the context has a channel with that main identifier, it is returned unchanged, whatever its alternative
 * identifier and non-blocking flag are (quirk 63). Otherwise a socket is opened: socket(2) with AF_CAN,
 * `SOCK_RAW | SOCK_CLOEXEC` and CAN_RAW, fcntl(2) for O_NONBLOCK, ioctl SIOCGIFINDEX, setsockopt(2) with
 * CAN_RAW_FILTER and CAN_RAW_LOOPBACK, bind(2).
 *
 * The filter compares the low 11 bits (quirk 65): standard frames pass, and so do extended frames and remote
 * requests whose identifiers end in the same bits; error frames do not. Local loopback is off: frames that a
 * channel sends reach the bus, but no other socket of this host on this interface.
 *
 * An add that fails after the allocation still returns its channel, which is in no context (quirk 67):
 * release it with `norv_linux_can_remove`, even after the context was closed. Do not read or write it:
 * without a socket, a transfer waits for its whole timeout, or forever (quirk 68).
 *
 * @param can          an open context
 * @param nonblocking  non-zero: O_NONBLOCK is set, even if it is already, and transfers with timeout 0 do not
 *                     wait; only the low 8 bits count: 256 is zero (quirk 70)
 * @param identifier   the main identifier; all its 32 bits distinguish channels; bit 29 (CAN_INV_FILTER)
 *                     makes the kernel pass all frames except these
 * @param channel      receives the channel, even if the add fails; unchanged without memory; may be null:
 *                     the channel of a failed add is then released
 * @retval NORV_STATUS_NO_MEMORY  there is no memory for the channel
 * @retval ENODEV                 there is no such interface
 * @retval EPERM                  bind(2) failed, whatever its errno (quirk 66)
 * @retval EBADF                  socket(2) failed and `nonblocking` is set: the failure of fcntl(2) on the
 *                                missing descriptor is reported (quirk 69)
 * @retval errno                  of socket(2), fcntl(2), the ioctl or setsockopt(2)
 *
 * The kernel truncates interface names after 15 characters. Blocks only while the kernel looks for a module
 * for an unknown name. No other add, remove or close of the context may run meanwhile (quirk 71).
 */
NORV_API uint32_t norv_linux_can_raw_add(norv_linux_can_t** can, uint32_t nonblocking, uint32_t identifier,
                                         norv_linux_can_raw_t** channel);

/**
 * Adds a channel that receives the frames of two identifiers; otherwise like `norv_linux_can_raw_add`.
 *
 * @param can                     an open context
 * @param nonblocking             as for `norv_linux_can_raw_add`
 * @param identifier              the main identifier, by which the context finds the channel again
 * @param alternative_identifier  the other identifier, which may be 0; it is not a key: adding it as a main
 *                                identifier makes another channel (quirk 63)
 * @param channel                 as for `norv_linux_can_raw_add`
 * @retval others  of `norv_linux_can_raw_add`
 *
 * Blocks, and must run alone, as `norv_linux_can_raw_add`.
 */
NORV_API uint32_t norv_linux_can_raw_add_with_alt_id(norv_linux_can_t** can, uint32_t nonblocking,
                                                     uint32_t identifier, uint32_t alternative_identifier,
                                                     norv_linux_can_raw_t** channel);

/**
 * Removes a channel from its context, closes its socket and releases it.
 *
 * A channel of a failed add is released without the lock and without the context, which may be closed.
 *
 * @param channel  from an add, successful or not; after a successful one, only until the context is closed
 * @retval others  of `norv_mutex_lock`: the channel stays; or of `norv_mutex_unlock`: it is released
 *
 * Blocks while another remove runs. Any thread may call it, but not during an add or the close of the
 * context.
 */
NORV_API uint32_t norv_linux_can_remove(norv_linux_can_raw_t* channel);

/**
 * Returns the socket, to be polled or added to a loop for `POLLIN` and `POLLOUT`.
 *
 * @param channel  from an add; may be null
 * @return the descriptor; -1 for null, and if socket(2) failed
 */
NORV_API int32_t norv_linux_can_get_fd(norv_linux_can_raw_t* channel);

/**
 * Writes a frame: write(2).
 *
 * The whole buffer is passed to one write(2), and Linux refuses more than one frame: write them one by one.
 *
 * @param channel  from a successful add
 * @param buffer   a `struct can_frame`; not checked
 * @param length   in: bytes to write, 16; out: bytes written, after a failure only if `timeout` is positive
 *                 (quirk 9)
 * @param timeout  0: one write; negative: no limit; positive: milliseconds
 * @retval NORV_STATUS_AGAIN        timeout 0, non-blocking channel: the socket's buffer is full
 * @retval NORV_STATUS_TIMEOUT      positive timeout: the socket's buffer stayed full; `length` is 0
 * @retval NORV_STATUS_INVALID_ARG  the length is not that of one frame
 * @retval ENOBUFS                  the interface's queue is full
 * @retval ENETDOWN                 the interface is down
 * @retval ENXIO                    the interface was deleted
 * @retval errno                    of poll(2) or write(2)
 *
 * Blocks for up to `timeout`; with timeout 0 on a blocking channel, as long as write(2) does. See
 * `norv_iorw_nonblock`, `norv_iorw_block` and `norv_iorw_timeout` (norv_file.h).
 */
NORV_API uint32_t norv_linux_can_write(norv_linux_can_raw_t* channel, const void* buffer, uint32_t* length,
                                       int32_t timeout);

/**
 * Reads frames: read(2), one for each frame.
 *
 * @param channel  from a successful add
 * @param buffer   receives one or more `struct can_frame`; not checked
 * @param length   in: bytes wanted, a multiple of 16; out: bytes read, after a failure only if `timeout` is
 *                 positive (quirk 9)
 * @param timeout  0: one read of one frame, however long the buffer is; otherwise waits until the buffer is
 *                 full: negative: no limit; positive: milliseconds
 * @retval NORV_STATUS_AGAIN    timeout 0, non-blocking channel: there is no frame
 * @retval NORV_STATUS_TIMEOUT  positive timeout: the buffer is not full; it holds the frames up to `length`
 * @retval ENETDOWN             the interface went down
 * @retval ENODEV               the interface was deleted
 * @retval errno                of poll(2) or read(2)
 *
 * Blocks for up to `timeout`; with timeout 0 on a blocking channel, until a frame arrives. See
 * `norv_iorw_nonblock`, `norv_iorw_block` and `norv_iorw_timeout` (norv_file.h).
 */
NORV_API uint32_t norv_linux_can_read(norv_linux_can_raw_t* channel, void* buffer, uint32_t* length,
                                      int32_t timeout);

NORV_END_DECLS

#endif
