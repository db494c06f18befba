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

#include "norv/file.hpp"

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
    explicit medium(const std::string& path) : file_(open_when_there(path)) {}

    bool is_there() const { return file_.has_value(); }

    uint64_t size() const {
        uint64_t size = 0;
        EXPECT_EQ(ioctl(descriptor(), BLKGETSIZE64, &size), 0);
        return size;
    }
    void fill(uint64_t address, const std::string& bytes) const {
        EXPECT_EQ(pwrite(descriptor(), bytes.data(), bytes.size(), static_cast<off_t>(address)),
                  static_cast<ssize_t>(bytes.size()));
        EXPECT_EQ(fsync(descriptor()), 0);
    }
    std::string content(uint64_t address, size_t count) const {
        std::string bytes(count, '\0');
        ioctl(descriptor(), BLKFLSBUF, 0);  // an MTD partition refuses: it has no cache to drop
        EXPECT_EQ(pread(descriptor(), bytes.data(), count, static_cast<off_t>(address)),
                  static_cast<ssize_t>(count));
        return bytes;
    }

  private:
    // A card is detected some time after its driver is loaded.
    static norv::result<norv::file> open_when_there(const std::string& path) {
        for (int tenths = 0; tenths < 600 && access(path.c_str(), F_OK) != 0; ++tenths) {
            std::this_thread::sleep_for(std::chrono::milliseconds(100));
        }
        return norv::file::adopt(open(path.c_str(), O_RDWR | O_CLOEXEC));
    }

    int descriptor() const { return is_there() ? file_->descriptor() : -1; }

    norv::result<norv::file> file_;
};

// A loop device on an empty file of that size in memory.
class loop_device {
  public:
    explicit loop_device(uint64_t size) {
        EXPECT_EQ(ftruncate(file_.descriptor(), static_cast<off_t>(size)), 0);
        EXPECT_EQ(ioctl(device_.descriptor(), LOOP_SET_FD, file_.descriptor()), 0) << path_;
    }
    ~loop_device() { EXPECT_EQ(ioctl(device_.descriptor(), LOOP_CLR_FD), 0); }
    loop_device(const loop_device&) = delete;
    loop_device& operator=(const loop_device&) = delete;

    const std::string& path() const { return path_; }

  private:
    static std::string free_device() {
        const norv::file control = norv::file::open("/dev/loop-control", O_RDWR | O_CLOEXEC).value();
        return "/dev/loop" + std::to_string(ioctl(control.descriptor(), LOOP_CTL_GET_FREE));
    }

    const std::string path_ = free_device();
    const norv::file file_ = norv::file::adopt(memfd_create("medium", MFD_CLOEXEC)).value();
    const norv::file device_ = norv::file::open(path_, O_RDWR | O_CLOEXEC).value();
};

}  // namespace norv::board
