/* SPDX-License-Identifier: MIT */
/**
 * @file norv_uevent_parse.h
 * A live list of the board's USB devices, each with its camera, input or sound node, and reports of display
 * connectors that change. The conventions of norv_status.h hold.
 *
 * Opening fills the list from sysfs. Then wait until the descriptor is readable, and poll: the kernel's
 * uevent messages are applied to the list, and each change is reported to a handler.
 *
 * A node belongs to the first listed device whose path is a prefix of the node's path (quirk 109): while a
 * hub is listed before the device that is plugged into it, the device's nodes are added to the hub; and as
 * characters are compared, the nodes of port 10 may be added to the device of port 1. A device keeps its
 * first node only (quirk 110). When a device is removed, every device whose path is contained in its path is
 * removed too: the hubs that it was plugged into (quirk 115).
 *
 *     static norv_uevent_parse_t* parser;
 *     static const norv_uevent_device_list_t* list;
 *
 *     static void on_change(const norv_uevent_device_t* device, void* user)
 *     {
 *         if (list == NULL)                                  // in the first call, which is never a removal
 *             norv_uevent_parse_get_device(&parser, &list);
 *         if (&device->link == &list->devices)
 *             return;                                        // a node without a device
 *         printf("%d %s %s\n", device->action, device->syspath, device->product_name);
 *     }
 *
 *     const norv_uevent_parse_settings_t settings = {
 *         .filter = NORV_UEVENT_FILTER_USB, .buffer_size = 8192, .handler = on_change};
 *     norv_uevent_parse_open(&parser, &settings);
 *     struct pollfd readable = {.fd = norv_uevent_parse_get_fd(&parser), .events = POLLIN};
 *     while (poll(&readable, 1, -1) == 1)
 *         norv_uevent_parse_poll(&parser);
 *     norv_uevent_parse_close(&parser);
 */
#ifndef NORV_UEVENT_PARSE_H
#define NORV_UEVENT_PARSE_H

#include <stdint.h>

#include "norv_status.h"

NORV_BEGIN_DECLS

/** A context; private. */
typedef struct norv_uevent_parse norv_uevent_parse_t;

/** What is tracked: bits of `norv_uevent_parse_settings_t::filter`. */
enum {
    NORV_UEVENT_FILTER_USB = 1,    /**< the list of USB devices and their nodes */
    NORV_UEVENT_FILTER_DISPLAY = 2 /**< "change" events of display connectors, which are not listed */
};

/** What happened to a device: `norv_uevent_device_t::action`. */
enum {
    NORV_UEVENT_ACTION_NONE = -1, /**< nothing: found in sysfs by open */
    NORV_UEVENT_ACTION_ADD = 0,
    NORV_UEVENT_ACTION_REMOVE = 1,
    NORV_UEVENT_ACTION_CHANGE = 2
};

/** Size of every text below, with its NUL; a longer one is truncated. */
#define NORV_UEVENT_TEXT_SIZE 512

/** An entry of a circular list, or its head: the head of an empty list points to itself. */
typedef struct norv_uevent_link {
    struct norv_uevent_link* next; /**< of a head: the first entry */
    struct norv_uevent_link* prev; /**< of a head: the last entry */
} norv_uevent_link_t;

/** A USB device or, during one call of the handler, a display connector. Owned by the library; read only. */
typedef struct {
    norv_uevent_link_t link;             /**< entry in the list: a pointer to it is one to the record */
    int32_t action;                      /**< NORV_UEVENT_ACTION_NONE, _ADD, _REMOVE or _CHANGE */
    int32_t major;                       /**< number of the device node; -1 if the kernel gave none */
    int32_t minor;                       /**< its second number, likewise */
    int32_t connector;                   /**< the kernel's number of a display connector; -1 for all others */
    char syspath[NORV_UEVENT_TEXT_SIZE]; /**< the directory in sysfs: "/sys/devices/..." */
    char subsystem[NORV_UEVENT_TEXT_SIZE];    /**< "usb", "drm" */
    char devnode[NORV_UEVENT_TEXT_SIZE];      /**< "/dev/bus/usb/001/002"; "/dev/" if it has none */
    char devtype[NORV_UEVENT_TEXT_SIZE];      /**< "usb_device", "drm_minor" */
    char product[NORV_UEVENT_TEXT_SIZE];      /**< "46d/825/12": vendor, product and version in hexadecimal */
    char product_name[NORV_UEVENT_TEXT_SIZE]; /**< the name that the device reports; empty if none */
    uint32_t child_count;                     /**< 0 or 1 */
    norv_uevent_link_t children;              /**< head of the list of norv_uevent_child_t */
} norv_uevent_device_t;

/** A device node of a USB device. Owned by the library; read only. */
typedef struct {
    norv_uevent_link_t link; /**< entry in the device's list: a pointer to it is one to the record */
    uint32_t major;          /**< number of the device node; 0xFFFFFFFF if the kernel gave none */
    uint32_t minor;          /**< its second number, likewise */
    char syspath[NORV_UEVENT_TEXT_SIZE];             /**< the directory in sysfs */
    char subsystem[NORV_UEVENT_TEXT_SIZE];           /**< "input", "video4linux" or "sound"; else quirk 111 */
    char devnode[NORV_UEVENT_TEXT_SIZE];             /**< "/dev/video0" */
    char parent_product_name[NORV_UEVENT_TEXT_SIZE]; /**< the name that the device reports */
} norv_uevent_child_t;

/** The devices, oldest first. Owned by the library; read only; valid until the context is closed. */
typedef struct {
    uint32_t count;             /**< devices in the list */
    norv_uevent_link_t devices; /**< head of the list of norv_uevent_device_t */
} norv_uevent_device_list_t;

/**
 * Receives each change: a device that was added or found by open, a node that was added to a device, a device
 * that is being removed, a display connector that changed.
 *
 * Runs in `norv_uevent_parse_open` and `norv_uevent_parse_poll`, and must call neither of them nor
 * `norv_uevent_parse_close`. During a removal the list is locked and still contains the device (quirk 116):
 * `norv_uevent_parse_get_device` would wait forever.
 *
 * @param device  the device, valid until it is removed; or a connector (its devtype is "drm_minor"), valid
 *                during this call; or, for a node that belongs to no listed device, the address of the list's
 *                head, which is not a record (quirk 113): compare it before reading a field. If a node is not
 *                added because it cannot capture video (quirk 114) or for lack of memory, its device is
 *                reported nevertheless
 * @param user    as passed to open
 */
typedef void (*norv_uevent_parse_handler)(const norv_uevent_device_t* device, void* user);

/** The settings of `norv_uevent_parse_open`. */
typedef struct {
    uint32_t filter;      /**< NORV_UEVENT_FILTER_USB and _DISPLAY, or-ed; other bits are ignored */
    uint32_t buffer_size; /**< size of the longest message and "uevent" file; 8192 is enough */
    norv_uevent_parse_handler handler; /**< called for each change; may be null */
    void* user;                        /**< passed to the handler; may be null */
} norv_uevent_parse_settings_t;

/**
 * Opens the uevent socket, as `norv_uevent_open` does, and with NORV_UEVENT_FILTER_USB fills the list: reads
 * the "uevent" files below each root hub of /sys/bus/usb/devices.
 *
 * The handler is called for each device and node, in the order in which the kernel lists the directories.
 * What cannot be read is skipped.
 *
 * Unlike a message, a "uevent" file adds a node of any kind (quirk 111). The subsystem is "input",
 * "video4linux" or "sound" if the node's name contains "input", "video" or "snd". Any other node (hidraw0,
 * ttyUSB0, sda) has an empty one, and may take the place of a camera, input or sound node that is found
 * later.
 *
 * A device whose file contains OF_NAME is not listed (quirk 112), but an "add" message lists it: one that the
 * device tree describes, such as the root hub of an on-chip controller or a hub on the board.
 *
 * @param context   receives the context, before the handler is called; null after a failure
 * @param settings  the settings
 * @retval NORV_STATUS_NO_MEMORY  no memory for the context, its buffer or the list
 * @retval errno                  of socket(2), bind(2) or `norv_mutex_init`; if that of the socket has the
 *                                status 0, the open succeeds without one (quirk 1)
 *
 * Does not wait, but reads about a dozen files for each device and opens each video node.
 */
NORV_API uint32_t norv_uevent_parse_open(norv_uevent_parse_t** context,
                                         const norv_uevent_parse_settings_t* settings);

/**
 * Closes the socket and releases the context and the list with all its records. The handler is not called.
 *
 * @param context  becomes null; may be null
 *
 * Blocks while another thread has the list locked.
 */
NORV_API void norv_uevent_parse_close(norv_uevent_parse_t** context);

/**
 * Applies all waiting messages to the list and reports the changes: recv(2) until it fails.
 *
 * A USB device is appended even if its path is listed already (quirk 117), as after a requested event
 * (`udevadm trigger --action=add`, or "add" written to a "uevent" file): compare the paths. An input,
 * video4linux or sound node with a name is added to its device, a video node only if `_v4l2_check_valid`
 * accepts it. The removal of a node changes nothing: it is released with its device. With
 * NORV_UEVENT_FILTER_DISPLAY, a "change" of a "drm_minor" is reported. Other messages are ignored, and so are
 * devices and connectors that there is no memory for.
 *
 * Only as many characters of an action are compared as the word has: "removed" removes (quirk 118).
 *
 * Receive errors are not reported (quirk 119). If messages arrive faster than they are polled, the kernel
 * drops some; the poll ends, and the descriptor is still readable if later messages are waiting. To correct
 * the list, close the context and open it again.
 *
 * @param context  holds a context
 * @retval NORV_STATUS_INVALID_ARG  there is no context
 *
 * Blocks only while a video node is opened.
 */
NORV_API uint32_t norv_uevent_parse_poll(norv_uevent_parse_t** context);

/**
 * Replaces the filter from the next message on. Sysfs is not read again: if NORV_UEVENT_FILTER_USB is set
 * now, only devices that are added later are listed. Any thread may call this function, even during a poll.
 *
 * @param context  holds a context
 * @param filter   NORV_UEVENT_FILTER_USB and _DISPLAY, or-ed; 0 ignores every message
 * @return the context; null if there is none
 */
NORV_API norv_uevent_parse_t* norv_uevent_parse_set_filter(norv_uevent_parse_t** context, uint32_t filter);

/**
 * Returns the list, which stays the context's. Any thread may call this function, even during a poll.
 *
 *     norv_uevent_parse_get_device(&parser, &list);
 *     for (const norv_uevent_link_t* link = list->devices.next; link != &list->devices; link = link->next) {
 *         const norv_uevent_device_t* device = (const norv_uevent_device_t*)link;
 *         printf("%s\n", device->syspath);
 *     }
 *
 * The list is not locked afterwards: do not read it while another thread polls.
 *
 * @param context  holds a context
 * @param list     receives the list
 * @retval NORV_STATUS_INVALID_ARG  there is no context
 * @retval others                   of `norv_mutex_lock`
 *
 * Blocks while another thread changes the list, and forever in the handler of a removal (quirk 116).
 */
NORV_API uint32_t norv_uevent_parse_get_device(norv_uevent_parse_t** context,
                                               const norv_uevent_device_list_t** list);

/**
 * Returns the descriptor of the socket, to be polled or added to a loop for `POLLIN`.
 *
 * @param context  holds a context
 * @return the descriptor; -1 without a context or a socket
 */
NORV_API int32_t norv_uevent_parse_get_fd(norv_uevent_parse_t** context);

/**
 * Checks that a video node can capture, as a camera's picture node can and its metadata node cannot: opens it
 * with `O_RDWR | O_NONBLOCK` and requests the first capture format (VIDIOC_ENUM_FMT).
 *
 * The descriptor is not close-on-exec during the call (quirk 120).
 *
 * @param path  the node, for instance "/dev/video0"
 * @retval NORV_STATUS_DEVICE_ERROR      the node could not be opened
 * @retval norv_get_status_by_errno(-1)  the request was refused, whatever errno it set (quirk 120)
 *
 * Blocks only if the driver ignores O_NONBLOCK.
 */
NORV_API uint32_t _v4l2_check_valid(const char* path);

NORV_END_DECLS

#endif
