/* SPDX-License-Identifier: MIT */
/**
 * @file norv_usb_gadget.h
 * The board as a USB device: the state of its USB device controller, /sys/class/udc/NAME, and connecting to
 * and disconnecting from the host by software. The conventions of norv_status.h hold.
 *
 * The state is read through a descriptor that the caller keeps open, so that it can be read often. All other
 * functions take the controller's name and leave nothing open.
 *
 * A name is not checked: `/` and `..` in it lead to other files (quirk 94), which `norv_usb_gadget_connect`
 * would write. Do not pass a name from an untrusted source.
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

/** What `norv_usb_gadget_get_state` reports. */
enum {
    NORV_USB_GADGET_NOT_ATTACHED = 0,
    NORV_USB_GADGET_DEFAULT = 1,    /**< reset by the host, without an address yet */
    NORV_USB_GADGET_CONFIGURED = 2, /**< in use by the host */
    NORV_USB_GADGET_OTHER = 3,      /**< any other state, for instance suspended, or not readable */
    NORV_USB_GADGET_ADDRESSED = 4   /**< has an address, but no configuration yet */
};

/**
 * Opens /sys/class/udc/NAME/state for reading. A change of the state is reported as `POLLPRI`.
 *
 * @param name        directory of the controller
 * @param descriptor  receives the descriptor, to be closed with `norv_usb_gadget_close`; -1 after a failure
 * @retval NORV_STATUS_NOT_FOUND  there is no such controller
 * @retval errno                  of open(2)
 */
NORV_API uint32_t norv_usb_gadget_open(const char* name, int32_t* descriptor);

/**
 * Reads the state from the start of the open file: pread(2).
 *
 * Only the beginning of its text is compared (quirk 92).
 *
 * @param descriptor  opened with `norv_usb_gadget_open`
 * @param state       receives NORV_USB_GADGET_...
 * @return 0, even if the read failed: the state is then NORV_USB_GADGET_OTHER (quirk 91)
 */
NORV_API uint32_t norv_usb_gadget_get_state(int32_t descriptor, uint32_t* state);

/**
 * Closes the descriptor if it is above 0. A second close with the same number would close another file.
 *
 * @param descriptor  opened with `norv_usb_gadget_open`
 */
NORV_API void norv_usb_gadget_close(int32_t descriptor);

/**
 * Connects the board to the host or disconnects it, as if the cable were plugged or pulled: writes "connect"
 * or "disconnect" to /sys/class/udc/NAME/soft_connect.
 *
 * @param name     directory of the controller
 * @param connect  non-zero: connect; zero: disconnect; only the low 8 bits count: 256 disconnects (quirk 93)
 * @retval NORV_STATUS_NOT_FOUND      there is no such controller
 * @retval NORV_STATUS_NOT_AVAILABLE  no gadget is bound to it
 * @retval errno                      of open(2) or write(2)
 *
 * Blocks while the controller's driver works, milliseconds at most; the host needs longer to notice.
 */
NORV_API uint32_t norv_usb_gadget_connect(const char* name, uint32_t connect);

/**
 * Reads /sys/class/udc/NAME/is_host_win, an attribute that some drivers add and whose meaning they define.
 *
 * If the file is opened as descriptor 0, it is read but not closed (quirk 3).
 *
 * @param name         directory of the controller
 * @param is_host_win  receives 1 if the text begins with "1", otherwise 0, also if it could not be read
 *                     (quirk 91)
 * @retval NORV_STATUS_NOT_FOUND  there is no such controller, or its driver has no such attribute
 * @retval errno                  of open(2)
 */
NORV_API uint32_t norv_usb_gadget_is_host_win(const char* name, uint8_t* is_host_win);

NORV_END_DECLS

#endif
