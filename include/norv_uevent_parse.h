/**
 * @file norv_uevent_parse.h
 * A live list of the USB devices of the board and, under each, the camera, input or sound node that it
 * brought; and the changes of display connectors.
 *
 * Opening fills the list from sysfs, and allocates a context that it stores in the caller's variable; every
 * other call takes the address of that variable. The caller watches the descriptor, and polls when it is
 * readable: a poll applies the kernel's uevent messages to the list. Each change is told to one function of
 * the caller's.
 *
 * Three rules to know. A node belongs to the first device of the list whose path is a prefix of the node's:
 * while a hub stands in the list before the device that is plugged into it, nodes of the device go to the
 * hub. A device keeps one node, the first; it is not replaced by a later one. And when a device goes, every
 * device whose path is contained in its path goes with it: the hubs that it was plugged into.
 *
 *     static norv_uevent_parse_t *parser;
 *     static const norv_uevent_device_list_t *list;
 *
 *     static void on_change(const norv_uevent_device_t *device, void *user)
 *     {
 *         if (list == NULL)                                  // on the first call, never in a removal
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

/** A context; private, allocated by `norv_uevent_parse_open`, released by `norv_uevent_parse_close`. */
typedef struct norv_uevent_parse norv_uevent_parse_t;

/** What is followed: bits of `norv_uevent_parse_settings_t::filter`. */
enum {
    NORV_UEVENT_FILTER_USB = 1,    /**< the list of USB devices and their nodes */
    NORV_UEVENT_FILTER_DISPLAY = 2 /**< "change" events of display connectors, which join no list */
};

/** What happened to a device: `norv_uevent_device_t::action`. */
enum {
    NORV_UEVENT_ACTION_NONE = -1, /**< nothing: open found it in sysfs */
    NORV_UEVENT_ACTION_ADD = 0,
    NORV_UEVENT_ACTION_REMOVE = 1,
    NORV_UEVENT_ACTION_CHANGE = 2
};

/** The size of every text below, with its NUL; a longer one is cut. */
#define NORV_UEVENT_TEXT_SIZE 512

/** A place in a circular list, or the head of one: an empty list's head points to itself. */
typedef struct norv_uevent_link {
    struct norv_uevent_link* next; /**< the first place, of a head */
    struct norv_uevent_link* prev; /**< the last place, of a head */
} norv_uevent_link_t;

/** A USB device, or for the time of one call a display connector. The library's, to be read only. */
typedef struct {
    norv_uevent_link_t link;             /**< the place in the list: the record begins with it */
    int32_t action;                      /**< NORV_UEVENT_ACTION_NONE, _ADD, _REMOVE or _CHANGE */
    int32_t major;                       /**< number of the device node; -1 where the kernel gave none */
    int32_t minor;                       /**< its second number, likewise */
    int32_t connector;                   /**< the kernel's number of a display connector; -1 for all others */
    char syspath[NORV_UEVENT_TEXT_SIZE]; /**< the directory in sysfs: "/sys/devices/..." */
    char subsystem[NORV_UEVENT_TEXT_SIZE];    /**< "usb", "drm" */
    char devnode[NORV_UEVENT_TEXT_SIZE];      /**< "/dev/bus/usb/001/002"; "/dev/" if it has none */
    char devtype[NORV_UEVENT_TEXT_SIZE];      /**< "usb_device", "drm_minor" */
    char product[NORV_UEVENT_TEXT_SIZE];      /**< "46d/825/12": vendor, product and version in hexadecimal */
    char product_name[NORV_UEVENT_TEXT_SIZE]; /**< what the device calls itself; empty if it does not */
    uint32_t child_count;                     /**< 0 or 1 */
    norv_uevent_link_t children;              /**< head of the list of norv_uevent_child_t */
} norv_uevent_device_t;

/** A device node under a USB device. The library's, to be read only. */
typedef struct {
    norv_uevent_link_t link; /**< the place in the device's list: the record begins with it */
    uint32_t major;          /**< number of the device node; 0xFFFFFFFF where the kernel gave none */
    uint32_t minor;          /**< its second number, likewise */
    char syspath[NORV_UEVENT_TEXT_SIZE];   /**< the directory in sysfs */
    char subsystem[NORV_UEVENT_TEXT_SIZE]; /**< "input", "video4linux" or "sound"; empty for another node */
    char devnode[NORV_UEVENT_TEXT_SIZE];   /**< "/dev/video0" */
    char parent_product_name[NORV_UEVENT_TEXT_SIZE]; /**< what the device calls itself */
} norv_uevent_child_t;

/** The devices, oldest first. The library's, to be read only; alive until the context is closed. */
typedef struct {
    uint32_t count;             /**< devices in the list */
    norv_uevent_link_t devices; /**< head of the list of norv_uevent_device_t */
} norv_uevent_device_list_t;

/**
 * Told of every change: a device that came (also each that open finds), a node that came to a device, a
 * device that goes, a display connector that changed.
 *
 * @param device  the device that came, goes or got a node, until it is removed; or a connector (its devtype
 *                is "drm_minor"), for this call only; or, for a node that belongs to no device of the list,
 *                the address of the list's head, which is no record: compare before reading any field. A
 *                video node that cannot capture adds nothing, but is told as well, with its device
 * @param user    as given to open
 *
 * Runs in `norv_uevent_parse_open` and `norv_uevent_parse_poll`, on the thread that called them, and must
 * call neither of these nor `norv_uevent_parse_close`. When `action` is NORV_UEVENT_ACTION_REMOVE the list
 * is locked, still holds the device, and `norv_uevent_parse_get_device` would wait for ever.
 */
typedef void (*norv_uevent_parse_handler)(const norv_uevent_device_t* device, void* user);

/** What open needs to know; the caller's, only read. */
typedef struct {
    uint32_t filter;      /**< NORV_UEVENT_FILTER_USB and _DISPLAY, or-ed; other bits mean nothing */
    uint32_t buffer_size; /**< bytes of the longest message and "uevent" file; 8192 do */
    norv_uevent_parse_handler handler; /**< told of every change; null: nobody is */
    void* user;                        /**< passed on to the handler; may be null */
} norv_uevent_parse_settings_t;

/**
 * Opens the uevent socket, as `norv_uevent_open` does, and with NORV_UEVENT_FILTER_USB fills the list: reads
 * the "uevent" files below each root hub of /sys/bus/usb/devices, and calls the handler for each device and
 * node. What cannot be read is passed over. Directories are walked in the order in which the kernel lists
 * them, which decides the order of the list.
 *
 * Unlike a message, a file makes a child of any node. One with "input", "video" or "snd" in its name gets the
 * subsystem "input", "video4linux" or "sound"; any other node (hidraw0, ttyUSB0, sda) is a child with an
 * empty subsystem, and as a device keeps its first node only, it may take the place of a camera, input or
 * sound node that is found later.
 *
 * A file that contains OF_NAME is not used: a device that the device tree describes, as it does the root hubs
 * of on-chip controllers and hubs on the board, is not listed by open, but by an "add" message.
 *
 * @param context   receives the context before the handler is told of anything; not null; what it held is
 *                  overwritten; null after any failure, with everything released
 * @param settings  not null
 * @return 0; NORV_STATUS_NO_MEMORY; NORV_STATUS_INVALID_ARG for a null pointer; the status of
 *         `norv_mutex_init`; the errno status of socket(2) or bind(2). When the base library maps that errno
 *         to 0, the open goes on without a socket
 *
 * Does not block, but reads some dozen files for each device, and opens each video node. Any thread.
 */
NORV_API uint32_t norv_uevent_parse_open(norv_uevent_parse_t** context,
                                         const norv_uevent_parse_settings_t* settings);

/**
 * Closes the socket, and releases the list with all its records, and the context. The handler is not called.
 * Descriptor 0, which the socket may get in a process without standard input, counts as not open and is not
 * closed.
 *
 * @param context  becomes null; may be null or hold null, which does nothing
 *
 * Waits until no other thread is in a call that has locked the list. Never fails.
 */
NORV_API void norv_uevent_parse_close(norv_uevent_parse_t** context);

/**
 * Applies every message that waits, and tells the handler what came of it.
 *
 * An "add" of a USB device appends a record; nothing checks whether there is one of that path already, so an
 * "add" that was asked for (`udevadm trigger --action=add`, "add" written to a "uevent" file) lists a device
 * twice: compare the paths. An "add" of an input, video4linux or sound node with a name appends a child, by
 * the rules above; a video node only if `_v4l2_check_valid` finds that it captures. A "remove" of a USB
 * device releases the records that go with it; that of a node changes nothing. With
 * NORV_UEVENT_FILTER_DISPLAY a "change" of a "drm_minor" is reported. Everything else is ignored, and so is
 * what there is no memory for.
 *
 * When messages come faster than they are polled, the kernel drops some. That is not reported; the poll ends,
 * and the descriptor is still readable if later messages wait. To get the list right again, close and open.
 *
 * @param context  not null, holds a context
 * @return 0 always, receive errors included; NORV_STATUS_INVALID_ARG without a context
 *
 * Does not block, apart from opening video nodes and what the handler does. One thread at a time.
 */
NORV_API uint32_t norv_uevent_parse_poll(norv_uevent_parse_t** context);

/**
 * Replaces the filter, from the next message on. Setting NORV_UEVENT_FILTER_USB later does not look through
 * sysfs: the list then holds only what comes from now on.
 *
 * @param context  not null
 * @param filter   NORV_UEVENT_FILTER_USB and _DISPLAY, or-ed; 0 ignores every message
 * @return the context, null when there is none
 *
 * Does not block. Any thread.
 */
NORV_API norv_uevent_parse_t* norv_uevent_parse_set_filter(norv_uevent_parse_t** context, uint32_t filter);

/**
 * Gives the list to be walked:
 *
 *     for (const norv_uevent_link_t *link = list->devices.next; link != &list->devices; link = link->next) {
 *         const norv_uevent_device_t *device = (const norv_uevent_device_t *)link;
 *
 * @param context  not null, holds a context
 * @param list     receives the list, which stays the context's; not null; untouched on failure
 * @return 0; NORV_STATUS_INVALID_ARG for a null pointer or without a context; the status of a list that could
 *         not be locked
 *
 * Waits while another thread changes the list. Any thread, but never within a removal's handler. The list is
 * not locked when this returns: do not walk it while another thread polls.
 */
NORV_API uint32_t norv_uevent_parse_get_device(norv_uevent_parse_t** context,
                                               const norv_uevent_device_list_t** list);

/**
 * Tells the descriptor, to be polled or added to a loop for `POLLIN`.
 *
 * @param context  not null
 * @return the descriptor, which stays the context's; -1 when there is no context or it has no socket
 */
NORV_API int32_t norv_uevent_parse_get_fd(norv_uevent_parse_t** context);

/**
 * Tells whether a video node can capture, as a camera's picture node does and its metadata node does not:
 * opens it with `O_RDWR | O_NONBLOCK` and asks for the first capture format (VIDIOC_ENUM_FMT).
 *
 * @param path  of the node, for instance "/dev/video0"; not null
 * @return 0 when it can; NORV_STATUS_DEVICE_ERROR when it cannot be opened; NORV_STATUS_INVALID_ARG when
 *         `path` is null; otherwise the status of the number -1, which is what the refused request returned:
 *         not the status of errno
 *
 * Does not block, as far as the driver honours O_NONBLOCK. The descriptor is not close-on-exec while the call
 * lasts. Any thread.
 */
NORV_API uint32_t _v4l2_check_valid(const char* path);

NORV_END_DECLS

#endif
