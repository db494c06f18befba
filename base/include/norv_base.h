/* SPDX-License-Identifier: MIT */
/**
 * @file norv_base.h
 * The base library, libnorv_base: memory, strings, mutex, one-shot event, intrusive heap, clock, thread
 * identity, thread watchdog, the status of an errno, and statuses in words. The conventions of norv_status.h
 * hold, except that pointers are not checked unless the description says so.
 *
 * It is a library of its own so that a board maker can link another implementation.
 *
 * Threads may share a mutex, an event and a watchdog. A heap is used by one thread at a time.
 *
 *     uint32_t status = norv_linux_gpio_open(17, &gpio);
 *     if (status != NORV_STATUS_OK)
 *         printf("GPIO 17: %s (%s)\n", norv_status_name(status), norv_status_text(status));
 */
#ifndef NORV_BASE_H
#define NORV_BASE_H

#include <pthread.h>
#include <stdbool.h>
#include <stddef.h>
#include <stdint.h>

#include "norv_status.h"

NORV_BEGIN_DECLS

/* ---- Status ------------------------------------------------------------------------------------------ */

/**
 * Returns the status of an errno value.
 *
 * No two errno values share a status: 0 gives 0, an errno with the same meaning as a listed status gives that
 * status, and any other gives `NORV_STATUS_ERRNO_BASE` plus its number. EAGAIN and EINTR, after which a
 * transfer is repeated, give NORV_STATUS_AGAIN and NORV_STATUS_INTERRUPTED.
 *
 * @param error_number  a value of errno; a number above 65535, which no errno has, counts as 65535
 * @return the status
 */
NORV_API uint32_t norv_get_status_by_errno(uint32_t error_number);

/**
 * Returns the name of a status: "TIMEOUT" for NORV_STATUS_TIMEOUT, "EPIPE" for the status of that errno,
 * "UNKNOWN" for a number that is not a status.
 *
 * @param status  any number
 * @return the name, a constant; never null
 */
NORV_API const char* norv_status_name(uint32_t status);

/**
 * Returns a description of a status in a few words, for a log or a user.
 *
 * @param status  any number
 * @return the description, a constant; never null
 */
NORV_API const char* norv_status_text(uint32_t status);

/* ---- Memory and strings ------------------------------------------------------------------------------ */

/**
 * Allocates memory.
 *
 * @param size  in bytes
 * @return the memory, released with `norv_free`; null when out of memory
 */
NORV_API void* norv_malloc(size_t size);

/**
 * Allocates zero-filled memory.
 *
 * @param size  in bytes
 * @return the memory, released with `norv_free`; null when out of memory
 */
NORV_API void* norv_zalloc(size_t size);

/**
 * Releases memory.
 *
 * @param memory  from `norv_malloc` or `norv_zalloc`; may be null
 */
NORV_API void norv_free(void* memory);

/* The string functions do exactly what those of the C library without the prefix do. */

/**
 * Fills memory: memset(3).
 *
 * @param destination  `size` bytes
 * @param byte         its low 8 bits are stored
 * @param size         in bytes
 * @return `destination`
 */
NORV_API void* norv_memset(void* destination, int byte, size_t size);

/**
 * Copies memory: memcpy(3). The two areas must not overlap.
 *
 * @param destination  `size` bytes
 * @param source       `size` bytes
 * @param size         in bytes
 * @return `destination`
 */
NORV_API void* norv_memcpy(void* destination, const void* source, size_t size);

/**
 * Compares memory: memcmp(3).
 *
 * @param first   `size` bytes
 * @param second  `size` bytes
 * @param size    in bytes
 * @return 0 if they are equal; below or above 0 if the first byte that differs is smaller or larger in
 *         `first`
 */
NORV_API int norv_memcmp(const void* first, const void* second, size_t size);

/**
 * Returns the length of a text: strlen(3).
 *
 * @param text  ends with a NUL
 * @return the number of bytes before the NUL
 */
NORV_API size_t norv_strlen(const char* text);

/**
 * Compares two texts: strncmp(3).
 *
 * @param first   the first text
 * @param second  the second text
 * @param size    the number of bytes to compare at most
 * @return 0 if they are equal; below or above 0 if `first` sorts before or after `second`
 */
NORV_API int norv_strncmp(const char* first, const char* second, size_t size);

/**
 * Copies a text: strncpy(3). A text of fewer than `size` bytes is padded with NULs, a longer one is truncated
 * and not terminated.
 *
 * @param destination  `size` bytes
 * @param source       the text
 * @param size         in bytes
 * @return `destination`
 */
NORV_API char* norv_strncpy(char* destination, const char* source, size_t size);

/**
 * Finds a text in another one: strstr(3).
 *
 * @param text  the text to search
 * @param part  the text to find
 * @return the first occurrence of `part` in `text`; null if there is none
 */
NORV_API char* norv_strstr(const char* text, const char* part);

/**
 * Returns the next token of a text: strtok_r(3).
 *
 * @param text        in the first call the text, which is changed; null in the following calls
 * @param separators  the bytes that separate tokens
 * @param position    keeps the position between the calls
 * @return the token, terminated in place; null after the last one
 */
NORV_API char* norv_strtok_r(char* text, const char* separators, char** position);

/* ---- Mutex ------------------------------------------------------------------------------------------- */

/** A mutex; its storage is the owner's. */
typedef struct {
    pthread_mutex_t mutex; /**< private */
} norv_mutex_t;

/**
 * Initialises a mutex: pthread_mutex_init(3).
 *
 * @param mutex  not checked
 * @retval errno  returned by pthread_mutex_init(3)
 */
NORV_API uint32_t norv_mutex_init(norv_mutex_t* mutex);

/**
 * Destroys a mutex: pthread_mutex_destroy(3).
 *
 * @param mutex  initialised, not locked; not checked
 * @retval errno  returned by pthread_mutex_destroy(3)
 */
NORV_API uint32_t norv_mutex_destroy(norv_mutex_t* mutex);

/**
 * Locks a mutex: pthread_mutex_lock(3).
 *
 * @param mutex  initialised, not locked by this thread; not checked
 * @retval errno  returned by pthread_mutex_lock(3)
 *
 * Blocks while another thread holds the mutex.
 */
NORV_API uint32_t norv_mutex_lock(norv_mutex_t* mutex);

/**
 * Unlocks a mutex: pthread_mutex_unlock(3).
 *
 * @param mutex  locked by this thread; not checked
 * @retval errno  returned by pthread_mutex_unlock(3)
 */
NORV_API uint32_t norv_mutex_unlock(norv_mutex_t* mutex);

/* ---- One-shot event ---------------------------------------------------------------------------------- */

/** Timeout of `norv_event_wait`: no limit. */
#define NORV_EVENT_FOREVER 0xFFFFFFFFu

/** An event; its storage is the owner's. One set lets one wait pass, whichever of the two comes first. */
typedef struct {
    uint32_t state; /**< private: the sets that no wait has taken, and the waiting threads */
} norv_event_t;

/**
 * Initialises an event as not set. A zero-filled event is initialised too.
 *
 * @param event  not checked
 * @return 0
 */
NORV_API uint32_t norv_event_init(norv_event_t* event);

/**
 * Ends the use of an event. An event holds no resources, so this does nothing.
 *
 * @param event  no thread waits for it; not checked
 * @return 0
 */
NORV_API uint32_t norv_event_deinit(norv_event_t* event);

/**
 * Sets an event: releases one waiting thread or, if there is none, lets the next wait pass at once.
 *
 * Sets add up to the number of waiting threads: without one, a second set adds nothing. Everything written
 * before the set is visible after the wait that takes it. A set makes one futex(2) call if a thread waits,
 * and otherwise no system call.
 *
 * @param event  initialised; not checked
 * @return 0
 */
NORV_API uint32_t norv_event_set(norv_event_t* event);

/**
 * Waits until an event is set, and takes the set. Makes no system call if the event is set already.
 *
 * @param event    initialised; not checked
 * @param timeout  milliseconds of CLOCK_MONOTONIC; 0: returns at once; NORV_EVENT_FOREVER: no limit
 * @retval NORV_STATUS_TIMEOUT  the event was not set
 *
 * Blocks for up to `timeout`, whether or not signals arrive. Up to 65535 threads may wait at the same time.
 */
NORV_API uint32_t norv_event_wait(norv_event_t* event, uint32_t timeout);

/* ---- Intrusive heap ---------------------------------------------------------------------------------- */

/**
 * A node of a heap, embedded in the record that is queued, which must not move while it is. Zero-filled: not
 * queued.
 */
typedef struct norv_heap_node {
    uint8_t queued;                 /**< non-zero while in a heap; callers may read it */
    struct norv_heap_node* child;   /**< private: the youngest child */
    struct norv_heap_node* sibling; /**< private: the next older child of the same parent */
    struct norv_heap_node* back;    /**< private: the next younger child, or the parent of the youngest */
} norv_heap_node_t;

/** A priority heap of nodes in their owners' records: nothing is allocated. Zero-filled: empty. */
typedef struct {
    norv_heap_node_t* top;     /**< the node that leaves next, null when empty; callers may read it */
    norv_heap_node_t* recent;  /**< private: the top of the nodes that were queued last */
    norv_heap_node_t* settled; /**< private: the top of all others */
    norv_heap_node_t* last;    /**< private: the recent node that was queued last, null once it has left */
    uint32_t recent_count;     /**< private: nodes queued since the recent ones were last settled */
} norv_heap_t;

/**
 * Returns whether the first node must leave the heap before the second. Nodes of which neither must leave
 * first leave in any order. If the ordering contradicts itself, as differences that wrap around do for values
 * too far apart, those nodes leave in any order, but none is lost.
 */
typedef bool (*norv_heap_less_fn)(const norv_heap_node_t* first, const norv_heap_node_t* second);

/**
 * Queues a node. Takes constant time, except that every 512th call sorts the nodes queued since the last such
 * call.
 *
 * @param heap  zero-filled before its first use
 * @param node  not queued in any heap; its key must not change while it is queued
 * @param less  the ordering, the same in every call on this heap
 */
NORV_API void norv_heap_insert(norv_heap_t* heap, norv_heap_node_t* node, norv_heap_less_fn less);

/**
 * Removes a node from its heap; does nothing if it is not queued. Takes logarithmic time, averaged over many
 * calls.
 *
 * @param heap  the heap that the node is queued in
 * @param node  zero-filled or queued before
 * @param less  as for insert
 */
NORV_API void norv_heap_remove(norv_heap_t* heap, norv_heap_node_t* node, norv_heap_less_fn less);

/**
 * Removes the top as `norv_heap_remove` does; does nothing if the heap is empty.
 *
 * @param heap  zero-filled before its first use
 * @param less  as for insert
 */
NORV_API void norv_heap_dequeue(norv_heap_t* heap, norv_heap_less_fn less);

/* ---- Time and threads -------------------------------------------------------------------------------- */

/**
 * Returns the time of CLOCK_MONOTONIC in milliseconds.
 *
 * @return the time since a start that does not change while the system runs
 */
NORV_API uint64_t norv_time_get_ms(void);

/**
 * Returns the time of CLOCK_MONOTONIC in microseconds.
 *
 * @return the time since the same start
 */
NORV_API uint64_t norv_time_get_us(void);

/**
 * Returns an identifier of the calling thread.
 *
 * @return a number that no other running thread of the process has; never 0
 */
NORV_API uint64_t norv_get_curr_pthread_id(void);

/** A watchdog, which notices when a thread stops reporting; its storage is the owner's. */
typedef struct {
    uint32_t last_report; /**< private: low 32 bits of the time in ms, written by the watched thread */
    uint32_t limit;       /**< milliseconds that may pass between two reports */
} norv_thread_watchdog_t;

/**
 * Starts a watchdog; this counts as the first report.
 *
 * @param watchdog  receives the started watchdog
 * @param limit     milliseconds that may pass between two reports, below 2^31
 */
NORV_API void norv_thread_watchdog_start(norv_thread_watchdog_t* watchdog, uint32_t limit);

/**
 * Reports that the watched thread is alive; called by that thread.
 *
 * @param handle  the norv_thread_watchdog_t
 * @retval NORV_STATUS_INVALID_ARG  `handle` is null; nothing was done
 */
NORV_API uint32_t norv_thread_keep_alive(void* handle);

/**
 * Checks that the watched thread reported in time; called by any other thread.
 *
 * @param watchdog  started; not checked
 * @retval NORV_STATUS_TIMEOUT  the last report is older than the limit
 */
NORV_API uint32_t norv_thread_watchdog_check(const norv_thread_watchdog_t* watchdog);

NORV_END_DECLS

#endif
