// SPDX-License-Identifier: MIT
// An I2C adapter as i2c-dev shows it: /dev/i2c-N, with a register device at address 0x50.
#pragma once

#include <linux/i2c-dev.h>
#include <linux/i2c.h>

#include <array>
#include <cerrno>
#include <cstdint>
#include <string>
#include <vector>

#include "support/kernel_double.hpp"

namespace norv::test {

// One message on the bus; for a read, the bytes that the device sent.
struct i2c_message {
    uint16_t address;
    uint16_t flags;
    std::string bytes;

    bool operator==(const i2c_message&) const = default;
};

inline i2c_message sent(uint16_t address, std::string bytes) {
    return {address, 0, std::move(bytes)};
}
inline i2c_message received(uint16_t address, std::string bytes) {
    return {address, I2C_M_RD, std::move(bytes)};
}

using i2c_transaction = std::vector<i2c_message>;

// The adapter and its register device: the first byte of a write selects a register, each further byte is
// stored in the next one, and a read starts at the selected one.
class i2c_adapter : public device {
  public:
    unsigned long functions = I2C_FUNC_I2C | I2C_FUNC_SMBUS_BYTE_DATA;
    std::array<uint8_t, 256> registers = {};
    std::vector<i2c_transaction> transactions;

    long ioctl(unsigned long request, void* argument) override {
        switch (request) {
            case I2C_FUNCS:
                *static_cast<unsigned long*>(argument) = functions;
                return 0;
            case I2C_RDWR:
                return transfer(*static_cast<i2c_rdwr_ioctl_data*>(argument));
            default:
                return -ENOTTY;
        }
    }

  private:
    long transfer(const i2c_rdwr_ioctl_data& request) {
        transactions.emplace_back();
        for (uint32_t index = 0; index < request.nmsgs; ++index) {
            const i2c_msg& message = request.msgs[index];
            if (message.addr != 0x50) {
                transactions.back().push_back({message.addr, message.flags, ""});
                return -ENXIO;
            }
            if ((message.flags & I2C_M_RD) != 0) {
                deliver(message);
            } else {
                take(message);
            }
            const std::string bytes(reinterpret_cast<const char*>(message.buf), message.len);
            transactions.back().push_back({message.addr, message.flags, bytes});
        }
        return request.nmsgs;
    }

    void deliver(const i2c_msg& message) {
        for (uint16_t index = 0; index < message.len; ++index) {
            message.buf[index] = registers[next_++];
        }
    }

    void take(const i2c_msg& message) {
        for (uint16_t index = 0; index < message.len; ++index) {
            if (index == 0) {
                next_ = message.buf[0];
            } else {
                registers[next_++] = message.buf[index];
            }
        }
    }

    uint8_t next_ = 0;
};

}  // namespace norv::test
