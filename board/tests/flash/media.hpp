// SPDX-License-Identifier: MIT
// The block devices of the virtual board on which the flash families work.
#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/fs.h>
#include <linux/loop.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <random>
#include <string>
#include <thread>

namespace norv::board {

inline constexpr uint32_t KiB = 1024;
inline constexpr uint32_t MiB = 1024 * KiB;
inline constexpr uint64_t GiB = 1024 * MiB;

// Random bytes, different for each seed; up to 6 MiB.
inline std::string pattern(size_t length, unsigned seed) {
    static const std::string pool = [] {
        std::string bytes(8 * MiB, '\0');
        std::minstd_rand random(1);
        std::generate(bytes.begin(), bytes.end(), [&] { return static_cast<char>(random() >> 8U); });
        return bytes;
    }();
    return pool.substr(seed * 4099 % (2 * MiB), length);
}

// A block device, without the library: its bytes come from the device itself, past the page cache.
class medium {
  public:
    explicit medium(const std::string& path) : descriptor_(open_when_there(path)) {}
    ~medium() { close(descriptor_); }
    medium(const medium&) = delete;
    medium& operator=(const medium&) = delete;

    bool is_there() const { return descriptor_ >= 0; }

    uint64_t size() const {
        uint64_t size = 0;
        EXPECT_EQ(ioctl(descriptor_, BLKGETSIZE64, &size), 0);
        return size;
    }
    void fill(uint64_t address, const std::string& bytes) const {
        EXPECT_EQ(pwrite(descriptor_, bytes.data(), bytes.size(), static_cast<off_t>(address)),
                  static_cast<ssize_t>(bytes.size()));
        EXPECT_EQ(fsync(descriptor_), 0);
    }
    std::string content(uint64_t address, size_t count) const {
        std::string bytes(count, '\0');
        ioctl(descriptor_, BLKFLSBUF, 0);  // an MTD partition refuses: it has no cache to drop
        EXPECT_EQ(pread(descriptor_, bytes.data(), count, static_cast<off_t>(address)),
                  static_cast<ssize_t>(count));
        return bytes;
    }

  private:
    // A card is detected some time after its driver is loaded.
    static int open_when_there(const std::string& path) {
        for (int tenths = 0; tenths < 600 && access(path.c_str(), F_OK) != 0; ++tenths) {
            std::this_thread::sleep_for(std::chrono::milliseconds(100));
        }
        return open(path.c_str(), O_RDWR | O_CLOEXEC);
    }

    int descriptor_;
};

// A loop device on an empty file of that size in memory.
class loop_device {
  public:
    explicit loop_device(uint64_t size) {
        file_ = memfd_create("medium", MFD_CLOEXEC);
        EXPECT_EQ(ftruncate(file_, static_cast<off_t>(size)), 0);
        const int control = open("/dev/loop-control", O_RDWR | O_CLOEXEC);
        path_ = "/dev/loop" + std::to_string(ioctl(control, LOOP_CTL_GET_FREE));
        close(control);
        device_ = open(path_.c_str(), O_RDWR | O_CLOEXEC);
        EXPECT_EQ(ioctl(device_, LOOP_SET_FD, file_), 0) << path_;
    }
    ~loop_device() {
        EXPECT_EQ(ioctl(device_, LOOP_CLR_FD), 0);
        close(device_);
        close(file_);
    }
    loop_device(const loop_device&) = delete;
    loop_device& operator=(const loop_device&) = delete;

    const std::string& path() const { return path_; }

  private:
    int file_ = -1;
    int device_ = -1;
    std::string path_;
};

}  // namespace norv::board
