/**
 * @file norv_uevent.h
 * The kernel's uevent messages: device arrivals, removals and changes, as they come over its netlink socket.
 *
 * Opening binds a socket to every multicast group of NETLINK_KOBJECT_UEVENT. The caller watches its
 * descriptor, and polls when it is readable: a poll hands each waiting message, unparsed, to the caller's
 * function. For USB devices and their nodes norv_uevent_parse.h does the parsing too. A record is used by one
 * thread at a time.
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
 * A message is a header line, "add@/devices/...", and texts of the form KEY=value, each ended by one NUL
 * byte. A udev daemon sends messages of its own to the same groups; they begin with "libudev".
 */
#ifndef NORV_UEVENT_H
#define NORV_UEVENT_H

#include <stdint.h>

#include "norv_status.h"

NORV_BEGIN_DECLS

/** The receiving end of uevent messages; the storage is the caller's. */
typedef struct {
    uint64_t buffer_size; /**< set before open: bytes of the longest message; the kernel's fit in 8192 */
    int32_t fd;           /**< the socket; -1 when opening it failed, 0 after a close */
    uint8_t* buffer;      /**< private: takes one message after the other, allocated by open */
} norv_uevent_t;

/**
 * Takes one message, on the thread that polls.
 *
 * @param message  the message; ends at `length`, with or without a NUL; overwritten by the next one. Copy
 *                 what is to stay
 * @param length   its bytes, 1 to buffer_size; a longer message was cut to buffer_size
 * @param user     as given to the poll
 *
 * It may do anything but close or move the record.
 */
typedef void (*norv_uevent_handler)(const uint8_t* message, int64_t length, void* user);

/** The number of entries of `p_uevent_key`. */
#define NORV_UEVENT_KEY_COUNT 9

/**
 * The keys that the parser of norv_uevent_parse.h knows, each with its "=": "ACTION=", "CONNECTOR=",
 * "DEVNAME=", "DEVPATH=", "DEVTYPE=", "MAJOR=", "MINOR=", "PRODUCT=", "SUBSYSTEM=". In ascending order of
 * bytes, which that parser's search relies on. The entries are writable; leave them as they are.
 */
extern NORV_API const char* p_uevent_key[NORV_UEVENT_KEY_COUNT];

/**
 * Opens and binds the socket, and allocates the buffer with malloc(3).
 *
 * The socket is non-blocking and close-on-exec. Its receive buffer is set to 65536 bytes (the kernel doubles
 * that), whatever the system's limit, if the process has the right to (CAP_NET_ADMIN); if not, it stays at
 * the system's default, and nothing is reported.
 *
 * @param uevent  `buffer_size` is read, the rest is filled; not null, not open. After a failure nothing is
 *                open or allocated: `fd` is -1 when the socket failed, 0 when the memory did
 * @return 0; NORV_STATUS_NO_MEMORY; NORV_STATUS_INVALID_ARG when `uevent` is null; the errno status of
 *         socket(2) or bind(2). When the base library maps that errno to 0, the open goes on without a
 *         socket, and `fd` is -1 all the same
 *
 * Does not block. Any thread.
 */
NORV_API uint32_t norv_uevent_open(norv_uevent_t* uevent);

/**
 * Closes the socket and releases the buffer with free(3). Descriptor 0, which the socket may get in a process
 * without standard input, counts as not open and is not closed.
 *
 * @param uevent  `fd` becomes 0 if it was above 0, and stays as it is otherwise; `buffer` becomes null. May
 *                be null, closed already, zero-filled, or one whose open failed: then nothing happens
 *
 * Does not block. Never fails.
 */
NORV_API void norv_uevent_close(norv_uevent_t* uevent);

/**
 * Hands every message that waits to a function, until the socket is empty: recv(2) until it fails.
 *
 * When more messages arrive than the socket's receive buffer holds, the kernel drops some and reports that
 * once (ENOBUFS): the poll then ends with the status of that errno, while later messages may wait still.
 * Poll again, and look through sysfs for what was missed.
 *
 * @param uevent   not null, open
 * @param handler  called once for every message, before the poll returns; not null
 * @param user     passed on to it; may be null
 * @return 0 when the socket was emptied (EAGAIN); NORV_STATUS_INVALID_ARG when `uevent` or `handler` is null
 *         or the record is not open; the errno status of recv(2) otherwise: messages that were handed on
 *         before it stay handed on. An empty message, which only another process can send, ends the poll
 *         too, and is judged by whatever errno holds then
 *
 * Does not block, apart from what the handler does.
 */
NORV_API uint32_t norv_uevent_poll(norv_uevent_t* uevent, norv_uevent_handler handler, void* user);

NORV_END_DECLS

#endif
