// SPDX-License-Identifier: MIT
// The driver at /dev/uio-dma, and the dma-bufs that it creates.
#pragma once

#include <linux/dma-buf.h>
#include <sys/ioctl.h>

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "support/device.hpp"
#include "support/kernel_double.hpp"

namespace norv::test {

// A number at an offset of a driver's record.
template <typename number>
number field(const std::string& record, size_t offset) {
    number value = 0;
    memcpy(&value, record.data() + offset, sizeof value);
    return value;
}

// One buffer: records how it is mapped and synchronised.
class dma_buffer : public device {
  public:
    struct mapping {
        size_t size;
        int protection;
        int flags;
        off_t offset;
    };
    std::vector<mapping> mapped;
    std::vector<uint64_t> sync_flags;

    long ioctl(unsigned long request, void* argument) override {
        if (request != DMA_BUF_IOCTL_SYNC) {
            return -ENOTTY;
        }
        sync_flags.push_back(static_cast<const dma_buf_sync*>(argument)->flags);
        return 0;
    }

    // Each mapping has an address of its own.
    intptr_t map(size_t size, int protection, int flags, off_t offset) override {
        mapped.push_back({size, protection, flags, offset});
        return reinterpret_cast<intptr_t>(&memory_[mapped.size()]);
    }

    const void* address_of_mapping(size_t number) const { return &memory_[number]; }

  private:
    char memory_[16] = {};
};

// The manager: records each request, and answers as the test has set it.
class dma_manager : public device {
  public:
    explicit dma_manager(kernel_double& kernel) : kernel_(kernel) {}

    struct request {
        unsigned long number;
        std::string record;
    };
    std::vector<request> requests;

    std::vector<std::shared_ptr<dma_buffer>> buffers;
    int32_t descriptor = -1;  // what the last create returned
    bool hands_out_0 = false;
    std::string entries = "entry one, 16 B.entry two, 16 B.";
    bool fills_entries = true;
    std::vector<int32_t> unlocked;

    std::vector<unsigned long> request_numbers() const {
        std::vector<unsigned long> numbers;
        for (const request& one : requests) {
            numbers.push_back(one.number);
        }
        return numbers;
    }

    long ioctl(unsigned long number, void* argument) override {
        requests.push_back({number, std::string(static_cast<const char*>(argument), _IOC_SIZE(number))});
        auto* record = static_cast<char*>(argument);
        switch (number) {
            case 0xC0205500:
                return create(record);
            case 0xC0085501:
                return put(record + 4, static_cast<uint32_t>(entries.size() / 16));
            case 0x40045502:
                unlocked.push_back(field<int32_t>(requests.back().record, 0));
                return 0;
            case 0xC0105503:
                return fill(requests.back().record);
            case 0x40185504:
                return 0;
            default:
                return -ENOTTY;
        }
    }

  private:
    template <typename number>
    static long put(char* place, number value) {
        memcpy(place, &value, sizeof value);
        return 0;
    }

    long create(char* record) {
        buffers.push_back(std::make_shared<dma_buffer>());
        descriptor = hands_out_0 ? 0 : kernel_.hand_out("dma-buf", buffers.back());
        return put(record + 16, descriptor);
    }

    long fill(const std::string& record) const {
        if (fills_entries) {
            memcpy(reinterpret_cast<void*>(field<uint64_t>(record, 8)), entries.data(), entries.size());
        }
        return 0;
    }

    kernel_double& kernel_;
};

}  // namespace norv::test
