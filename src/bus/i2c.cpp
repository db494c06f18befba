// SPDX-License-Identifier: MIT
// I2C transfers through i2c-dev.
#include "norv_linux_i2c.h"

#include <fcntl.h>
#include <linux/i2c-dev.h>
#include <linux/i2c.h>

#include "core/descriptor.hpp"
#include "core/ioctl.hpp"
#include "core/status.hpp"
#include "norv_base.h"
#include "norv_file.h"

namespace {

// quirk 52: the address is not checked.
i2c_msg message(uint8_t address, uint16_t flags, const void* data, uint16_t length) {
    return {address, flags, length, static_cast<uint8_t*>(const_cast<void*>(data))};
}

i2c_msg write_message(uint8_t address, const void* data, uint16_t length) {
    return message(address, 0, data, length);
}

i2c_msg read_message(uint8_t address, void* data, uint16_t length) {
    return message(address, I2C_M_RD, data, length);
}

bool lacks_data(const void* data, int32_t length) {
    return data == nullptr && length != 0;
}

// Runs one transaction. quirk 50: the number of messages that the kernel reports as done is not checked, as
// either all of them are done or the request fails. quirk 53: nothing is retried.
template <uint32_t count>
uint32_t transfer(const int32_t* descriptor, i2c_msg (&messages)[count]) {
    if (descriptor == nullptr) {
        return NORV_STATUS_INVALID_ARG;
    }
    for (const i2c_msg& message : messages) {
        if (lacks_data(message.buf, message.len)) {
            return NORV_STATUS_INVALID_ARG;
        }
    }
    i2c_rdwr_ioctl_data transaction = {messages, count};
    return norv::device_ioctl(*descriptor, I2C_RDWR, &transaction);
}

uint32_t raw_transfer(const int32_t* descriptor, uint8_t address, uint16_t flags, const void* data,
                      int32_t length) {
    // quirk 51: compared as signed numbers, so a negative length passes, and its low 16 bits are sent.
    if (length > NORV_LINUX_I2C_MAX_RAW) {
        return NORV_STATUS_INVALID_ARG;
    }
    i2c_msg messages[] = {message(address, flags, data, static_cast<uint16_t>(length))};
    return transfer(descriptor, messages);
}

uint32_t require_plain_transfers(int32_t descriptor) {
    unsigned long functions = 0;
    NORV_TRY(norv::device_ioctl(descriptor, I2C_FUNCS, &functions));
    return (functions & I2C_FUNC_I2C) != 0 ? NORV_STATUS_OK : NORV_STATUS_NOT_AVAILABLE;
}

uint32_t open_adapter(uint32_t bus_number, int32_t* descriptor) {
    // The number is printed signed: quirk 2.
    NORV_TRY(norv_open_device(O_RDWR | O_CLOEXEC, descriptor, "/dev/i2c-%d", bus_number));
    return require_plain_transfers(*descriptor);
}

}  // namespace

uint32_t norv_linux_i2c_open(uint32_t bus_number, int32_t* descriptor) {
    if (descriptor == nullptr) {
        return NORV_STATUS_INVALID_ARG;
    }
    const uint32_t status = open_adapter(bus_number, descriptor);
    if (status != NORV_STATUS_OK) {
        norv::close_descriptor(*descriptor);
    }
    return status;
}

void norv_linux_i2c_close(const int32_t* descriptor) {
    // quirk 49: callers read the stored number after the close.
    int32_t closing = descriptor != nullptr ? *descriptor : -1;
    norv::close_descriptor(closing);
}

uint32_t norv_linux_i2c_read(const int32_t* descriptor, uint8_t address, uint8_t reg, void* data,
                             uint16_t length) {
    i2c_msg messages[] = {write_message(address, &reg, 1), read_message(address, data, length)};
    return transfer(descriptor, messages);
}

uint32_t norv_linux_i2c_write(const int32_t* descriptor, uint8_t address, uint8_t reg, const void* data,
                              int32_t length) {
    uint8_t bytes[1 + NORV_LINUX_I2C_MAX_WRITE];
    // A negative length would be copied far past the end of the buffer.
    if (length < 0 || length > NORV_LINUX_I2C_MAX_WRITE || lacks_data(data, length)) {
        return NORV_STATUS_INVALID_ARG;
    }
    bytes[0] = reg;
    if (length > 0) {
        norv_memcpy(bytes + 1, data, static_cast<size_t>(length));
    }
    i2c_msg messages[] = {write_message(address, bytes, static_cast<uint16_t>(length + 1))};
    return transfer(descriptor, messages);
}

uint32_t norv_linux_i2c_raw_read(const int32_t* descriptor, uint8_t address, void* data, int32_t length) {
    return raw_transfer(descriptor, address, I2C_M_RD, data, length);
}

uint32_t norv_linux_i2c_raw_write(const int32_t* descriptor, uint8_t address, const void* data,
                                  int32_t length) {
    return raw_transfer(descriptor, address, 0, data, length);
}

uint32_t norv_linux_i2c_write_then_read(const int32_t* descriptor, uint8_t address, const void* write_data,
                                        uint16_t write_length, void* read_data, uint16_t read_length) {
    i2c_msg messages[] = {write_message(address, write_data, write_length),
                          read_message(address, read_data, read_length)};
    return transfer(descriptor, messages);
}
