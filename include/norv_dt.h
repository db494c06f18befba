/* SPDX-License-Identifier: MIT */
/**
 * @file norv_dt.h
 * Device-tree overlays through configfs, /sys/kernel/config/device-tree/overlays: describe to the kernel, at
 * run time, hardware that was added. The conventions of norv_status.h hold.
 *
 * An overlay is identified by its name, that of its directory in configfs. Loading creates the directory and
 * unloading removes it; in between the kernel keeps the overlay, even after the program has ended. There is
 * no handle. One name is used by one thread at a time.
 *
 * A name becomes part of paths unchanged: with a `/` or `..` in it, directories elsewhere are created and
 * removed. Do not pass on a name from an untrusted source. A name has at most 208 characters: longer ones
 * make paths that are truncated silently (quirk 6).
 *
 *     bool applied = false;
 *     norv_dt_load_overlay("camera", "/lib/firmware/camera.dtbo");
 *     norv_dt_has_overlay("camera", &applied);
 *     norv_dt_unload_overlay("camera");
 */
#ifndef NORV_DT_H
#define NORV_DT_H

#include <stdbool.h>
#include <stdint.h>

#include "norv_status.h"

NORV_BEGIN_DECLS

/**
 * Loads an overlay: creates its directory in configfs, writes the whole file to NAME/dtbo with one write(2),
 * and checks that NAME/status is "applied".
 *
 * A failure after the directory was created leaves it, so that the kernel's view can be inspected (quirk 72):
 * remove it with `norv_dt_unload_overlay`. Where an errno has the status 0 (quirk 1), a file that cannot be
 * read counts as empty.
 *
 * @param name  the overlay's name, not in use
 * @param path  the compiled overlay (.dtbo); neither formatted nor truncated
 * @retval EEXIST                   the name is in use; nothing is written. Where EEXIST has the status 0, the
 *                                  overlay is written again (quirk 73)
 * @retval NORV_STATUS_NOT_FOUND    there is no such file, or the kernel has no overlays in configfs
 * @retval NORV_STATUS_NOT_APPLIED  the kernel took the file, but has not applied it
 * @retval EFAULT                   the file is empty (Linux 5.10 accepts it: NORV_STATUS_NOT_APPLIED)
 * @retval NORV_STATUS_INVALID_ARG  the name cannot be formatted; nothing is created
 * @retval NORV_STATUS_NO_MEMORY    for the file's content
 * @retval errno                    of mkdir(2), of open(2), fstat(2) or read(2) of the file, of opening or
 *                                  writing NAME/dtbo, or of opening or reading NAME/status
 *
 * Blocks while the file is read and while drivers are bound to the new hardware.
 */
NORV_API uint32_t norv_dt_load_overlay(const char* name, const char* path);

/**
 * Reports whether an overlay is applied: reads NAME/status. No failure of that is reported.
 *
 * @param name     the overlay's name
 * @param applied  receives true exactly when the status is "applied"; false if it is another one or cannot be
 *                 read (quirk 74), or if there is no such overlay. At most 255 bytes are read, and the last
 *                 one is dropped, whether or not it is a newline (quirk 5)
 * @return 0; NORV_STATUS_INVALID_ARG for a null pointer
 */
NORV_API uint32_t norv_dt_has_overlay(const char* name, bool* applied);

/**
 * Unloads an overlay: removes its directory in configfs, upon which the kernel reverts the overlay.
 *
 * @param name  the overlay's name
 * @retval NORV_STATUS_NOT_FOUND    there is no such overlay
 * @retval NORV_STATUS_INVALID_ARG  the name cannot be formatted
 * @retval errno                    of rmdir(2)
 *
 * Blocks while drivers release the hardware.
 */
NORV_API uint32_t norv_dt_unload_overlay(const char* name);

NORV_END_DECLS

#endif
