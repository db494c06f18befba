/* SPDX-License-Identifier: MIT */
/**
 * @file norv_status.h
 * Status codes, and the conventions that every function of libnorv_io_linux and libnorv_base follows.
 *
 * The description of a function gives only what is particular to it; what is common to all is here.
 *
 * **Status.** A function that can fail returns a status: 0 (NORV_STATUS_OK) on success, and otherwise one of
 * the codes below, or NORV_STATUS_ERRNO_BASE + errno where no code has the same meaning as the errno, so that
 * no cause is lost. `norv_status_name` and `norv_status_text` (norv_base.h) turn a status into words.
 *
 * **Causes.** A description lists the statuses and their causes, but not 0 on success, nor
 * NORV_STATUS_INVALID_ARG for a null pointer. An entry named after an errno, such as ENODEV, stands for its
 * status, `norv_get_status_by_errno(ENODEV)`. The entry "errno" stands for the status of any errno that the
 * named calls set, and "others" for the other statuses of the named functions. A call whose errno has the
 * status 0 is taken for a success (quirk 1).
 *
 * **Pointers.** A pointer must not be null unless its description says that it may be, and neither must a
 * handle that a variable holds. A function that returns a status checks both before it does anything else.
 * Where null is not checked, the description says so.
 *
 * **Outputs.** What an argument or a record held is unchanged after a failure, unless the description says
 * otherwise.
 *
 * **Handles.** The storage of a record is the caller's: an open function fills it, whatever it held, and
 * leaves it closed after a failure. A handle that an open function allocates is stored in the caller's
 * variable, which is null after a failure, and again after the close. A close function never fails. It
 * accepts null, a handle that is not open and one that failed to open, and does nothing then unless its
 * description says otherwise. A descriptor that a function returns stays the handle's: do not close it. A
 * descriptor of 0 counts as not open and is not closed (quirk 3), so keep standard input open.
 *
 * **Strings** end with a NUL, belong to the caller and are used only during the call. Paths are formatted
 * into 256 bytes and truncated silently after 255 characters (quirk 6). Numbers that become part of a path
 * are printed as signed 32-bit numbers (quirk 2).
 *
 * **Blocking.** A function returns as soon as the system calls that it names return, and those do not wait,
 * unless the description says that it blocks. Timeouts are in milliseconds.
 *
 * **Threads.** Any thread may open a handle or call a function that takes none. A handle is used by one
 * thread at a time; different handles are independent of each other.
 */
#ifndef NORV_STATUS_H
#define NORV_STATUS_H

#include <stdint.h>

#ifdef __cplusplus
#define NORV_BEGIN_DECLS extern "C" {
#define NORV_END_DECLS }
#else
/** Opens the declarations of a header, which are C also for a C++ compiler. */
#define NORV_BEGIN_DECLS
/** Closes the declarations of a header. */
#define NORV_END_DECLS
#endif

/** Marks a name that the shared library exports. */
#define NORV_API __attribute__((visibility("default")))

/** Marks a function that formats like printf: argument number of the format, and of the first value. */
#define NORV_PRINTF(format_argument, first_value) \
    __attribute__((format(printf, format_argument, first_value)))

/**
 * The whole list, one X(name, value, text) per status: enumerations, tables and tests expand from here.
 */
#define NORV_STATUS_LIST(X)                                                                  \
    X(OK, 0, "success")                                                                      \
    X(TIMEOUT, 2, "the wait ended, or was stopped by the caller, before the condition came") \
    X(AGAIN, 3, "temporarily not possible, try again")                                       \
    X(INTERRUPTED, 4, "interrupted by a signal")                                             \
    X(NOT_APPLIED, 6, "the kernel took the request, but it did not take effect")             \
    X(INVALID_ARG, 7, "invalid argument")                                                    \
    X(NO_MEMORY, 8, "out of memory")                                                         \
    X(NOT_AVAILABLE, 9, "the facility is not available")                                     \
    X(EMPTY, 12, "the flash device reports an empty layout")                                 \
    X(DEVICE_ERROR, 13, "the device did not behave as required")                             \
    X(PARSE_ERROR, 14, "a system file could not be read or parsed completely")               \
    X(NOT_FOUND, 16, "no such object")                                                       \
    X(EXHAUSTED, 29, "a fixed capacity or a search ran out, or the space is unusable")       \
    X(RANGE, 32, "address or length outside the device, or not aligned to its erase unit")   \
    X(BAD_STATE, 35, "the handle is not in a state for this operation")                      \
    X(VERIFY_FAILED, 40, "read-back after the write differs")                                \
    X(SHORT_READ, 49, "fewer bytes than required were read")

/* Constants of the type that the functions return: C++ would otherwise mix an enumeration with it. */
#ifdef __cplusplus
#define NORV_STATUS_CONSTANT(name, value, text) constexpr uint32_t NORV_STATUS_##name = value;
NORV_STATUS_LIST(NORV_STATUS_CONSTANT)
#else
#define NORV_STATUS_CONSTANT(name, value, text) NORV_STATUS_##name = value,
enum { NORV_STATUS_LIST(NORV_STATUS_CONSTANT) };
#endif
#undef NORV_STATUS_CONSTANT

/** Start of the range in which an errno without a status of its own keeps its number. */
#define NORV_STATUS_ERRNO_BASE 0x10000u

/**
 * Not a mapped status: what `norv_epoll_call_sync`, and every call that goes through it, returns when waking
 * the loop thread failed.
 */
#define NORV_STATUS_WAKE_FAILED 0xFFFFFFFFu

#endif
