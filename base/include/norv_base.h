/**
 * @file norv_base.h
 * libnorv_base: what libnorv_io_linux needs of its surroundings, kept apart so that a board maker can link
 * an implementation of his own: memory, strings, mutex, one-shot event, intrusive heap, clock, thread
 * identity, thread watchdog, and the way from errno to a status and from a status to words.
 *
 * Everything is safe to call from any thread; a heap, like any plain record, is used by one thread at a
 * time.
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
 * Turns an errno value into a status.
 *
 * No two errno values share a status: those that plainly mean one of the listed statuses map to it, each
 * other one to `NORV_STATUS_ERRNO_BASE` plus its number, and 0 to 0. EAGAIN and EINTR, after which a
 * transfer is to be tried again, give NORV_STATUS_AGAIN and NORV_STATUS_INTERRUPTED.
 *
 * @param error_number  a value of errno; a number above 65535, which no errno has, counts as 65535
 * @return the status
 */
NORV_API uint32_t norv_get_status_by_errno(uint32_t error_number);

/**
 * Tells the name of a status: "TIMEOUT" for NORV_STATUS_TIMEOUT, "EPIPE" for the status of that errno,
 * "UNKNOWN" for a number that is no status.
 *
 * @param status  any number
 * @return the name; never null; a constant, not to be freed
 */
NORV_API const char* norv_status_name(uint32_t status);

/**
 * Describes a status in a few words, for a log or a user.
 *
 * @param status  any number
 * @return the description; never null; a constant, not to be freed
 */
NORV_API const char* norv_status_text(uint32_t status);

/* ---- Memory and strings ------------------------------------------------------------------------------ */

/**
 * Allocates memory.
 *
 * @param size  in bytes
 * @return the memory, to be released with `norv_free`; null when there is none
 */
NORV_API void* norv_malloc(size_t size);

/**
 * Allocates memory that is filled with zeros.
 *
 * @param size  in bytes
 * @return the memory, to be released with `norv_free`; null when there is none
 */
NORV_API void* norv_zalloc(size_t size);

/**
 * Releases memory.
 *
 * @param memory  from `norv_malloc` or `norv_zalloc`; may be null
 */
NORV_API void norv_free(void* memory);

/* The functions of the C library without the prefix, to the letter. */

/**
 * Fills memory, as memset(3) does.
 *
 * @param destination  `size` bytes; not null
 * @param byte         its low 8 bits are stored
 * @param size         in bytes
 * @return `destination`
 */
NORV_API void* norv_memset(void* destination, int byte, size_t size);

/**
 * Copies memory, as memcpy(3) does: the two areas do not overlap.
 *
 * @param destination  `size` bytes; not null
 * @param source       `size` bytes; not null
 * @param size         in bytes
 * @return `destination`
 */
NORV_API void* norv_memcpy(void* destination, const void* source, size_t size);

/**
 * Compares memory, as memcmp(3) does.
 *
 * @param first   `size` bytes; not null
 * @param second  `size` bytes; not null
 * @param size    in bytes
 * @return 0 when they are equal; below or above 0 when the first byte that differs is smaller or larger in
 *         `first`
 */
NORV_API int norv_memcmp(const void* first, const void* second, size_t size);

/**
 * Tells the length of a text, as strlen(3) does.
 *
 * @param text  not null
 * @return the bytes before its terminating NUL
 */
NORV_API size_t norv_strlen(const char* text);

/**
 * Compares two texts, as strncmp(3) does.
 *
 * @param first   not null
 * @param second  not null
 * @param size    so many bytes are compared at most
 * @return 0 when they are equal; below or above 0 when `first` comes before or behind `second`
 */
NORV_API int norv_strncmp(const char* first, const char* second, size_t size);

/**
 * Copies a text, as strncpy(3) does: a shorter one is filled up with NULs, a longer one is cut and gets none.
 *
 * @param destination  `size` bytes; not null
 * @param source       not null
 * @param size         in bytes
 * @return `destination`
 */
NORV_API char* norv_strncpy(char* destination, const char* source, size_t size);

/**
 * Finds a text in another one, as strstr(3) does.
 *
 * @param text  where to look; not null
 * @param part  what to look for; not null
 * @return where `part` starts in `text`; null when it is not there
 */
NORV_API char* norv_strstr(const char* text, const char* part);

/**
 * Takes the next piece off a text, as strtok_r(3) does.
 *
 * @param text        in the first call, the text, which is changed; in the following ones null
 * @param separators  the bytes that separate pieces; not null
 * @param position    keeps the place between two calls; not null
 * @return the piece, terminated in place; null when there is none any more
 */
NORV_API char* norv_strtok_r(char* text, const char* separators, char** position);

/* ---- Mutex ------------------------------------------------------------------------------------------- */

/** A mutex that lives in its owner's record. */
typedef struct {
    pthread_mutex_t mutex; /**< private */
} norv_mutex_t;

/**
 * Prepares a mutex: pthread_mutex_init(3).
 *
 * @param mutex  filled; not null
 * @return 0, or the errno status
 */
NORV_API uint32_t norv_mutex_init(norv_mutex_t* mutex);

/**
 * Ends the use of a mutex: pthread_mutex_destroy(3).
 *
 * @param mutex  initialised, not locked; not null
 * @return 0, or the errno status
 */
NORV_API uint32_t norv_mutex_destroy(norv_mutex_t* mutex);

/**
 * Locks a mutex: pthread_mutex_lock(3).
 *
 * @param mutex  initialised, not locked by this thread; not null
 * @return 0, or the errno status
 *
 * Blocks without limit while another thread has it.
 */
NORV_API uint32_t norv_mutex_lock(norv_mutex_t* mutex);

/**
 * Unlocks a mutex: pthread_mutex_unlock(3).
 *
 * @param mutex  locked by this thread; not null
 * @return 0, or the errno status
 */
NORV_API uint32_t norv_mutex_unlock(norv_mutex_t* mutex);

/* ---- One-shot event ---------------------------------------------------------------------------------- */

/** `norv_event_wait` without limit. */
#define NORV_EVENT_FOREVER 0xFFFFFFFFu

/** An event that lives in its owner's record. One set lets one wait pass, whichever comes first. */
typedef struct {
    uint32_t state; /**< private: sets that no wait has taken, and threads that wait */
} norv_event_t;

/**
 * Prepares an event, not set and with nobody waiting. A zero-filled event is ready too.
 *
 * @param event  filled; not null
 * @return 0
 */
NORV_API uint32_t norv_event_init(norv_event_t* event);

/**
 * Ends the use of an event. There is nothing to release: the owner's storage is all.
 *
 * @param event  nobody waits for it; not null
 * @return 0
 */
NORV_API uint32_t norv_event_deinit(norv_event_t* event);

/**
 * Sets the event: releases one of the threads that wait, or, when none waits, lets the next wait pass at
 * once. Sets beyond that add nothing.
 *
 * @param event  initialised; not null
 * @return 0
 *
 * Does not block. One futex(2) call when a thread waits, no system call otherwise. Any thread; everything
 * written before the set is visible behind the wait that it releases.
 */
NORV_API uint32_t norv_event_set(norv_event_t* event);

/**
 * Waits until the event is set, and takes that set.
 *
 * @param event    initialised; not null
 * @param timeout  milliseconds; 0: only look; NORV_EVENT_FOREVER: no limit
 * @return 0, or NORV_STATUS_TIMEOUT
 *
 * Blocks up to the time-out of CLOCK_MONOTONIC, signals or not; no system call when the event is set. Any
 * thread, up to 65535 at once.
 */
NORV_API uint32_t norv_event_wait(norv_event_t* event, uint32_t timeout);

/* ---- Intrusive heap ---------------------------------------------------------------------------------- */

/**
 * A place in a heap, embedded in the record that is queued; the record stays where it is meanwhile.
 * Zero-filled: not queued.
 */
typedef struct norv_heap_node {
    uint8_t queued;                 /**< non-zero while in a heap; callers may read it */
    struct norv_heap_node* child;   /**< private: the youngest child */
    struct norv_heap_node* sibling; /**< private: the next older child of the same parent */
    struct norv_heap_node* back;    /**< private: the next younger child, or the parent of the youngest */
} norv_heap_node_t;

/** A priority heap of nodes that their owners keep: nothing is allocated. Zero-filled: empty. */
typedef struct {
    norv_heap_node_t* top;     /**< the node that leaves next, null when empty; callers may read it */
    norv_heap_node_t* recent;  /**< private: top of the nodes that were queued last */
    norv_heap_node_t* settled; /**< private: top of all others */
    norv_heap_node_t* last;    /**< private: the recent node that was queued last, null when it left */
    uint32_t recent_count;     /**< private: nodes queued since the recent ones were last settled */
} norv_heap_t;

/**
 * Tells whether the first node must leave the heap before the second. Nodes of which neither must leave first
 * leave in any order. An order that contradicts itself, as differences that wrap around do for values too
 * far apart, costs the order of those nodes, never a node.
 */
typedef bool (*norv_heap_less_fn)(const norv_heap_node_t* first, const norv_heap_node_t* second);

/**
 * Queues a node.
 *
 * @param heap  zero-filled before its first use; not null
 * @param node  not queued in any heap; not null; what it is ordered by stays unchanged while it is queued
 * @param less  the ordering, the same in every call on this heap; not null
 *
 * Takes constant time, but for every 512th call, which sorts the nodes queued since the last such call.
 */
NORV_API void norv_heap_insert(norv_heap_t* heap, norv_heap_node_t* node, norv_heap_less_fn less);

/**
 * Takes a node out of its heap; does nothing when it is not queued.
 *
 * @param heap  the heap that the node is queued in; not null
 * @param node  queued or not; not null
 * @param less  as for insert
 *
 * Takes time in proportion to the logarithm of the number of nodes, averaged over many calls.
 */
NORV_API void norv_heap_remove(norv_heap_t* heap, norv_heap_node_t* node, norv_heap_less_fn less);

/**
 * Takes the top out, as `norv_heap_remove` does; does nothing when the heap is empty.
 *
 * @param heap  not null
 * @param less  as for insert
 */
NORV_API void norv_heap_dequeue(norv_heap_t* heap, norv_heap_less_fn less);

/* ---- Time and threads -------------------------------------------------------------------------------- */

/**
 * Reads CLOCK_MONOTONIC in milliseconds.
 *
 * @return the time since a start that does not change while the system runs
 */
NORV_API uint64_t norv_time_get_ms(void);

/**
 * Reads CLOCK_MONOTONIC in microseconds.
 *
 * @return the time since the same start
 */
NORV_API uint64_t norv_time_get_us(void);

/**
 * Identifies the calling thread.
 *
 * @return a number that no other living thread of the process has; never 0
 */
NORV_API uint64_t norv_get_curr_pthread_id(void);

/** Watches that a thread reports at least every so often; the storage is the owner's. */
typedef struct {
    uint32_t last_report; /**< private: low 32 bits of the time in ms, written by the watched thread */
    uint32_t limit;       /**< ms that may pass between two reports */
} norv_thread_watchdog_t;

/**
 * Starts watching: the time runs from now on.
 *
 * @param watchdog  filled; not null
 * @param limit     ms that may pass between two reports, below 2^31
 */
NORV_API void norv_thread_watchdog_start(norv_thread_watchdog_t* watchdog, uint32_t limit);

/**
 * Reports that the watched thread is alive; the watched thread calls it.
 *
 * @param handle  the norv_thread_watchdog_t; null is allowed and does nothing
 * @return 0, or NORV_STATUS_INVALID_ARG for null
 */
NORV_API uint32_t norv_thread_keep_alive(void* handle);

/**
 * Checks on the watched thread; any other thread calls it.
 *
 * @param watchdog  started; not null
 * @return 0 while the last report is no older than the limit, else NORV_STATUS_TIMEOUT
 */
NORV_API uint32_t norv_thread_watchdog_check(const norv_thread_watchdog_t* watchdog);

NORV_END_DECLS

#endif
