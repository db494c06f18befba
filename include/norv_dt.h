/**
 * @file norv_dt.h
 * Device-tree overlays: tell the kernel at run time which hardware there is, through configfs,
 * /sys/kernel/config/device-tree/overlays.
 *
 * An overlay has a name, that of its directory in configfs, which is made when it is loaded and removed when
 * it is unloaded; in between the kernel keeps it, also beyond the end of the program. There is no handle;
 * any thread may call at any time, but one name is used by one thread at a time. A name has at most
 * 208 characters: longer ones make paths of more than 255, which are truncated silently.
 *
 * A name becomes part of the paths unchanged: with a `/` or `..` in it, directories elsewhere are created and
 * removed. Do not pass on a name from an untrusted source.
 *
 *     norv_dt_load_overlay("camera", "/lib/firmware/camera.dtbo");
 *     ...
 *     norv_dt_unload_overlay("camera");
 */
#ifndef NORV_DT_H
#define NORV_DT_H

#include <stdbool.h>
#include <stdint.h>

#include "norv_status.h"

NORV_BEGIN_DECLS

/**
 * Loads an overlay: makes its directory in configfs, writes the whole file to NAME/dtbo with one write(2),
 * and checks that NAME/status reads "applied".
 *
 * The directory stays when a later step fails, so that the kernel's view can be looked at:
 * `norv_dt_unload_overlay` removes it.
 *
 * @param name  the overlay's name, one that is not in use; not null
 * @param path  the compiled overlay (.dtbo), used as it stands; not null
 * @return 0 when the kernel has applied the overlay; NORV_STATUS_NOT_APPLIED when it took the file, but its
 *         status is another one; NORV_STATUS_INVALID_ARG when a pointer is null or the name could not be
 *         formatted, with nothing made; NORV_STATUS_NO_MEMORY for the file's content; the errno status of
 *         mkdir(2), for instance that of EEXIST: the name is in use, with nothing written; the errno status
 *         of opening the file, of fstat(2) or of reading it; that of opening or writing NAME/dtbo, for an
 *         empty file that of EFAULT (Linux 5.10 accepts it: NORV_STATUS_NOT_APPLIED); that of opening or
 *         reading NAME/status
 *
 * Blocks while the file is read and while drivers are bound to the new hardware. Any thread.
 */
NORV_API uint32_t norv_dt_load_overlay(const char* name, const char* path);

/**
 * Tells whether an overlay is in effect: reads its status in configfs.
 *
 * @param name     the overlay's name; not null
 * @param applied  receives true exactly when NAME/status reads "applied"; false in every other case, also
 *                 when there is no such overlay or its status cannot be read; not null. The last byte that
 *                 was read is taken for the newline, whatever it is
 * @return 0; NORV_STATUS_INVALID_ARG when a pointer is null
 *
 * Does not block. Any thread.
 */
NORV_API uint32_t norv_dt_has_overlay(const char* name, bool* applied);

/**
 * Takes an overlay back: removes its directory in configfs, with which the kernel undoes it.
 *
 * @param name  the overlay's name; not null
 * @return 0; NORV_STATUS_INVALID_ARG when `name` is null or could not be formatted; the errno status of
 *         rmdir(2), for instance NORV_STATUS_NOT_FOUND: no such overlay
 *
 * Blocks while drivers let go of the hardware. Any thread.
 */
NORV_API uint32_t norv_dt_unload_overlay(const char* name);

NORV_END_DECLS

#endif
