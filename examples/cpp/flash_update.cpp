// SPDX-License-Identifier: MIT
//
// Writes a file to a flash, with progress, and continues where an earlier run was interrupted: by SIGTERM or
// SIGINT, by kill -9 or by a power cut. No journal is kept. Each block is read first, and one that has its bytes
// already is neither erased nor written.
//
//     flash_update DEVICE ADDRESS FILE [END]
//
// DEVICE is the block device of an eMMC or SD card, or "spi" for the SPI flash. The last block is filled up with
// 0xFF. ADDRESS must be a multiple of a block (at least 128 KiB), and the blocks must end at END, by default where
// the file does; a larger area lets the SPI flash use other blocks in place of bad ones.
//
// A block that reads back right may have been erased or written for too short a time when the power went. Where
// that matters, write the area again after a power cut.
#include <algorithm>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <span>
#include <utility>
#include <vector>

#include "norv/flash.hpp"
#include "program.hpp"

namespace {

volatile std::sig_atomic_t terminated = 0;

bool is_terminated() {
    return terminated != 0;
}

// The image in memory, in whole blocks.
std::vector<std::byte> load_image(const char* path, size_t block) {
    std::ifstream file(path, std::ios::binary);
    const std::vector<char> bytes{std::istreambuf_iterator<char>(file), {}};
    if (!file || bytes.empty()) {
        std::fprintf(stderr, "%s: cannot be read, or is empty\n", path);
        std::exit(EXIT_FAILURE);
    }
    std::vector<std::byte> image((bytes.size() + block - 1) / block * block, std::byte(0xFF));
    std::memcpy(image.data(), bytes.data(), bytes.size());
    return image;
}

// Writes an image block by block.
class updater {
  public:
    updater(norv::flash& flash, std::span<const std::byte> image, uint32_t start, uint32_t end, size_t block)
        : flash_(flash), image_(image), cursor_(start), end_(end), found_(block) {}

    norv::status run() {
        for (size_t done = 0; done < image_.size(); done += found_.size()) {
            if (const norv::status updated = update(image_.subspan(done, found_.size())); !updated.ok()) {
                return updated;
            }
            std::printf("%3zu %%, %zu bytes written\n", (done + found_.size()) * 100 / image_.size(),
                        written_);
        }
        return norv::ok;
    }

    // Without the blocks that were right already.
    size_t written() const { return written_; }

  private:
    // What follows a transfer, and notes where its block ends: after the last step, bad blocks included.
    auto follow() {
        return [this,
                remaining = static_cast<uint32_t>(found_.size())](const norv::flash_progress& step) mutable {
            next_ = step.address + (std::exchange(remaining, step.remaining) - step.remaining);
        };
    }

    // Makes a block of the flash have these bytes, and moves the cursor after it.
    norv::status update(std::span<const std::byte> bytes) {
        norv::status status = read();
        if (!status.ok() || std::ranges::equal(bytes, found_)) {
            cursor_ = next_;
            return status;
        }
        const norv::flash_erased erased = flash_.continue_erase(cursor_, static_cast<uint32_t>(bytes.size()),
                                                                end_, norv::no_progress, is_terminated);
        status = erased.status.ok() ? write(bytes, erased.end) : erased.status;
        cursor_ = next_;
        return status;
    }

    norv::status read() {
        std::ranges::fill(found_, std::byte(0));
        return flash_.continue_read(cursor_, found_, follow(), is_terminated).status;
    }

    norv::status write(std::span<const std::byte> bytes, uint32_t end) {
        const norv::flash_written stored =
            flash_.continue_write_verify(cursor_, 0, bytes, end, follow(), is_terminated);
        written_ += stored.count;
        return stored.status;
    }

    norv::flash& flash_;
    std::span<const std::byte> image_;
    uint32_t cursor_;
    uint32_t next_ = 0;
    uint32_t end_;
    std::vector<std::byte> found_;
    size_t written_ = 0;
};

norv::flash open_flash(const char* device) {
    return must(device,
                std::strcmp(device, "spi") == 0 ? norv::flash::open_spi() : norv::flash::open_emmc(device));
}

}  // namespace

int main(int count, char** arguments) {
    if (count != 4 && count != 5) {
        std::fputs("usage: flash_update DEVICE|spi ADDRESS FILE [END]\n", stderr);
        return 2;
    }
    std::setvbuf(stdout, nullptr, _IOLBF, 0);
    std::signal(SIGTERM, [](int) { terminated = 1; });
    std::signal(SIGINT, [](int) { terminated = 1; });

    norv::flash flash = open_flash(arguments[1]);
    const norv::flash_info info = must(arguments[1], flash.get_info());
    const size_t block = std::max<size_t>(info.erase_block_size, 128 * 1024);
    const std::vector<std::byte> image = load_image(arguments[3], block);
    const uint32_t start = number(arguments[2]);
    const uint64_t end = count == 5 ? number(arguments[4]) : start + uint64_t{image.size()};
    if (start % block != 0 || start + uint64_t{image.size()} > end ||
        end > std::min<uint64_t>(info.size, UINT32_MAX)) {
        std::fprintf(
            stderr, "the area does not start at a multiple of %zu, or is too small, or is not on the flash\n",
            block);
        return EXIT_FAILURE;
    }

    updater update(flash, image, start, static_cast<uint32_t>(end), block);
    const norv::status ended = update.run();
    if (terminated != 0) {
        std::fputs("stopped: the same command continues the update\n", stderr);
    } else if (!ended.ok()) {
        report(arguments[1], ended);
    } else {
        std::printf("all %zu bytes are on the flash: %zu written, %zu right before\n", image.size(),
                    update.written(), image.size() - update.written());
    }
    return ended.ok() ? EXIT_SUCCESS : EXIT_FAILURE;
}
