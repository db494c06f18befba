// SPDX-License-Identifier: MIT
// The base of the SPI flash tests: a board whose partitions the test chooses, and an observer.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "flash/mtd_device.hpp"
#include "flash/observer.hpp"
#include "norv_linux_spi_flash.h"
#include "support/kernel_double.hpp"
#include "support/status.hpp"

namespace norv::test {

class concatenated_flash : public testing::Test {
  protected:
    ~concatenated_flash() override { norv_linux_spi_flash_close(&flash); }

    // Adds a partition, /dev/mtd0 and so on.
    std::shared_ptr<mtd_device> add(const flash_geometry& geometry) {
        partitions.push_back(std::make_shared<mtd_device>(geometry));
        kernel.add_device("/dev/mtd" + std::to_string(partitions.size() - 1), partitions.back());
        return partitions.back();
    }

    // Adds partitions and opens the flash.
    void open(const std::vector<flash_geometry>& geometries) {
        for (const flash_geometry& geometry : geometries) {
            add(geometry);
        }
        ASSERT_EQ(norv_linux_spi_flash_open(&flash), 0U);
        kernel.forget_calls();
    }

    mtd_device& partition(size_t number) { return *partitions.at(number); }

    kernel_double kernel;
    std::vector<std::shared_ptr<mtd_device>> partitions;
    norv_spi_flash_t* flash = nullptr;
    observer watcher;
};

// Data that differs from block to block and from byte to byte.
inline std::vector<uint8_t> pattern(size_t size, uint32_t seed = 1) {
    std::vector<uint8_t> bytes(size);
    for (size_t index = 0; index < size; ++index) {
        bytes[index] = static_cast<uint8_t>((index + seed) * 2654435761U >> 24U);
    }
    return bytes;
}

}  // namespace norv::test
