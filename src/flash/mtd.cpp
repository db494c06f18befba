// SPDX-License-Identifier: MIT
// One MTD partition through its character device.
#include "norv_linux_mtd.h"

#include <fcntl.h>
#include <sys/ioctl.h>
#include <sys/types.h>
#include <unistd.h>

#include <cstddef>

#include "core/attribute.hpp"
#include "core/descriptor.hpp"
#include "core/ioctl.hpp"
#include "core/layout.hpp"
#include "core/status.hpp"

static_assert(sizeof(mtd_info_user) == 32);
NORV_LAYOUT(norv_mtd_t, 40, descriptor, info);
static_assert(MEMGETINFO == 0x80204d01 && MEMERASE == 0x40084d02 && MEMGETBADBLOCK == 0x40084d0b &&
              MEMSETBADBLOCK == 0x40084d0c);
static_assert(sizeof(void*) == 4 || (MEMWRITEOOB == 0xc0104d03 && MEMREADOOB == 0xc0104d04));

namespace {

bool is_within(const norv_mtd_t* device, uint32_t offset) {
    return device != nullptr && offset < device->info.size;
}

// Issues a request for the block of an offset. Only the query has an answer.
uint32_t block_request(const norv_mtd_t* device, uint32_t offset, unsigned long request, uint8_t* answer) {
    if (!is_within(device, offset)) {
        return NORV_STATUS_INVALID_ARG;
    }
    loff_t position = offset;
    const int result = ioctl(device->descriptor, request, &position);
    NORV_TRY(norv::status_of(result));
    if (answer != nullptr) {
        *answer = result > 0 ? 1 : 0;
    }
    return NORV_STATUS_OK;
}

uint32_t oob_request(const norv_mtd_t* device, unsigned long request, uint32_t start, uint32_t length,
                     void* bytes) {
    // quirk 130: only the kernel checks the range.
    if (device == nullptr) {
        return NORV_STATUS_INVALID_ARG;
    }
    mtd_oob_buf area = {start, length, static_cast<unsigned char*>(bytes)};
    return norv::device_ioctl(device->descriptor, request, &area);
}

int64_t transfer(int32_t descriptor, void* bytes, uint32_t length, bool write) {
    return write ? ::write(descriptor, bytes, length) : ::read(descriptor, bytes, length);
}

uint32_t transfer_at(const norv_mtd_t* device, uint32_t offset, uint32_t length, void* bytes, uint32_t* count,
                     bool write) {
    if (!is_within(device, offset) || bytes == nullptr) {
        return NORV_STATUS_INVALID_ARG;
    }
    // quirk 127: a failed seek is reported only after the transfer.
    const uint32_t seek_status = norv::status_of(lseek(device->descriptor, offset, SEEK_SET));
    // quirk 128: the kernel truncates at the end of the partition, and a short transfer is not continued.
    // quirk 129: a read succeeds even if error correction fails.
    const int64_t result = transfer(device->descriptor, bytes, length, write);
    NORV_TRY(norv::status_of(result));
    if (count != nullptr) {
        *count = result > 0 ? static_cast<uint32_t>(result) : 0;
    }
    return seek_status;
}

uint32_t open_device(const char* path, norv_mtd_t* device) {
    // quirk 125: the path is a printf format.
    NORV_TRY(
        norv::open_file(O_RDWR | O_SYNC | O_CLOEXEC, norv::file_path::expanded(path), &device->descriptor));
    return norv::device_ioctl(device->descriptor, MEMGETINFO, &device->info);
}

}  // namespace

uint32_t norv_linux_mtd_open(const char* path, norv_mtd_t* device) {
    if (device == nullptr) {
        return NORV_STATUS_INVALID_ARG;
    }
    *device = {-1, {}};
    const uint32_t status = open_device(path, device);
    if (status != NORV_STATUS_OK) {
        norv_linux_mtd_close(device);
    }
    return status;
}

void norv_linux_mtd_close(norv_mtd_t* device) {
    // quirk 126: a record of zeros was never opened, and stays unchanged.
    if (device != nullptr && device->descriptor > 0) {
        norv::close_descriptor(device->descriptor);
    }
}

bool norv_linux_mtd_type_is_nand(const norv_mtd_t* device) {
    return device != nullptr && (device->info.type == MTD_NANDFLASH || device->info.type == MTD_MLCNANDFLASH);
}

uint32_t norv_linux_mtd_erase(const norv_mtd_t* device, uint32_t start, uint32_t length) {
    if (!is_within(device, start) || length > device->info.size - start) {
        return NORV_STATUS_INVALID_ARG;
    }
    erase_info_user area = {start, length};
    return norv::device_ioctl(device->descriptor, MEMERASE, &area);
}

uint32_t norv_linux_mtd_block_isbad(const norv_mtd_t* device, uint32_t offset, uint8_t* bad) {
    return block_request(device, offset, MEMGETBADBLOCK, bad);
}

uint32_t norv_linux_mtd_block_markbad(const norv_mtd_t* device, uint32_t offset) {
    return block_request(device, offset, MEMSETBADBLOCK, nullptr);
}

uint32_t norv_linux_mtd_read_oob(const norv_mtd_t* device, uint32_t start, uint32_t length, void* buffer) {
    return oob_request(device, MEMREADOOB, start, length, buffer);
}

uint32_t norv_linux_mtd_write_oob(const norv_mtd_t* device, uint32_t start, uint32_t length,
                                  const void* data) {
    return oob_request(device, MEMWRITEOOB, start, length, const_cast<void*>(data));
}

uint32_t norv_linux_mtd_read(const norv_mtd_t* device, uint32_t offset, uint32_t length, void* buffer,
                             uint32_t* count) {
    return transfer_at(device, offset, length, buffer, count, false);
}

uint32_t norv_linux_mtd_write(const norv_mtd_t* device, uint32_t offset, uint32_t length, const void* data,
                              uint32_t* count) {
    return transfer_at(device, offset, length, const_cast<void*>(data), count, true);
}
