/**
 * @file norv_status.h
 * Status codes: the outcome of every call of libnorv_io_linux and libnorv_base.
 *
 * A status is an unsigned 32-bit number. 0 is success. The codes of the table below are the libraries' own
 * and the errno values that plainly mean the same. Every other errno travels as
 * `NORV_STATUS_ERRNO_BASE + errno`, so that no cause is ever lost; `norv_status_name` and
 * `norv_status_text` (norv_base.h) turn any status back into words.
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
