/**
 * @file norv_usb_gadget.h
 * The board as a USB device: state of its USB device controller, /sys/class/udc, connecting to the host and
 * disconnecting by software.
 *
 * The state is read through a descriptor that the caller keeps open, so that it can be asked again cheaply.
 * All other calls take the controller's name and leave nothing open.
 *
 * The name becomes part of a path, which is truncated after 255 characters: a name with "/" or ".." leads to
 * another file, which `norv_usb_gadget_connect` would write. Do not pass a name from an untrusted source.
 *
 *     int32_t gadget;
 *     uint32_t state;
 *     norv_usb_gadget_open("20980000.usb", &gadget);
 *     norv_usb_gadget_get_state(gadget, &state);
 *     if (state == NORV_USB_GADGET_CONFIGURED)
 *         norv_usb_gadget_connect("20980000.usb", 0);
 *     norv_usb_gadget_close(gadget);
 */
#ifndef NORV_USB_GADGET_H
#define NORV_USB_GADGET_H

#include <stdint.h>

#include "norv_status.h"

NORV_BEGIN_DECLS

/** What `norv_usb_gadget_get_state` tells. */
enum {
    NORV_USB_GADGET_NOT_ATTACHED = 0,
    NORV_USB_GADGET_DEFAULT = 1,    /**< reset by the host, without an address yet */
    NORV_USB_GADGET_CONFIGURED = 2, /**< in use by the host */
    NORV_USB_GADGET_OTHER = 3,      /**< attached, powered, suspended, or not readable */
    NORV_USB_GADGET_ADDRESSED = 4   /**< has an address, but no configuration yet */
};

/**
 * Opens /sys/class/udc/NAME/state for reading.
 *
 * @param name        the controller's directory; not null
 * @param descriptor  receives the descriptor, -1 on failure; not null; closed with `norv_usb_gadget_close`.
 * The kernel signals `POLLPRI` on it when the state changes
 * @return 0; NORV_STATUS_INVALID_ARG when a pointer is null; the status of `norv_open_device`, for instance
 *         NORV_STATUS_NOT_FOUND: no such controller
 *
 * Does not block. Any thread.
 */
NORV_API uint32_t norv_usb_gadget_open(const char* name, int32_t* descriptor);

/**
 * Reads the state from the start of the open file.
 *
 * @param descriptor  from `norv_usb_gadget_open`
 * @param state       receives NORV_USB_GADGET_..., by the words that the text begins with; not null. Whatever
 * is none of the four, and a text that could not be read, is NORV_USB_GADGET_OTHER
 * @return 0, also when the read failed; NORV_STATUS_INVALID_ARG when `state` is null
 *
 * Does not block. Any thread.
 */
NORV_API uint32_t norv_usb_gadget_get_state(int32_t descriptor, uint32_t* state);

/**
 * Closes the descriptor if it is greater than 0.
 *
 * @param descriptor  from `norv_usb_gadget_open`; not to be used afterwards
 *
 * Does not block. Never fails.
 */
NORV_API void norv_usb_gadget_close(int32_t descriptor);

/**
 * Connects the board to the host or disconnects it, as if the cable were plugged or pulled: writes "connect"
 * or "disconnect" to /sys/class/udc/NAME/soft_connect.
 *
 * @param name     the controller's directory; not null
 * @param connect  non-zero: connect; zero: disconnect; only the low 8 bits count: 256 disconnects
 * @return 0; NORV_STATUS_INVALID_ARG when `name` is null; the status of `norv_write_device`, for instance
 *         NORV_STATUS_NOT_FOUND: no such controller, or that of EOPNOTSUPP: no gadget is bound to it
 *
 * Blocks as long as the controller's driver takes, milliseconds at most; the host takes longer to notice.
 * Any thread.
 */
NORV_API uint32_t norv_usb_gadget_connect(const char* name, uint32_t connect);

/**
 * Reads the attribute "is_host_win", which drivers of some controllers add: /sys/class/udc/NAME/is_host_win.
 * What it means is the driver's. Descriptor 0, which the file may get in a process without standard
 * input, counts as not open: the file is read but not closed.
 *
 * @param name         the controller's directory; not null
 * @param is_host_win  receives 1 when the text begins with "1", 0 when it does not or could not be read; not
 *                     null; untouched when the file could not be opened
 * @return 0, also when the read failed; NORV_STATUS_INVALID_ARG when a pointer is null; the status of
 *         `norv_open_device`, NORV_STATUS_NOT_FOUND where the driver has no such attribute
 *
 * Does not block. Any thread.
 */
NORV_API uint32_t norv_usb_gadget_is_host_win(const char* name, uint8_t* is_host_win);

NORV_END_DECLS

#endif
