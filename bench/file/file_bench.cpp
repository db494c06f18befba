// SPDX-License-Identifier: MIT
// The file helpers beside the bare system calls they must make.
#include <fcntl.h>
#include <poll.h>
#include <unistd.h>
#include <norv/file.hpp>

#include <cstdint>
#include <string>

#include "support/expect.hpp"
#include "support/rows.hpp"

namespace {

// A small file in memory, deleted at the end.
class memory_file {
  public:
    memory_file() {
        const int descriptor = mkstemp(path_);
        bench::expect(descriptor > 0 && write(descriptor, "1\n", 2) == 2, path_);
        close(descriptor);
    }
    ~memory_file() { unlink(path_); }
    memory_file(const memory_file&) = delete;
    memory_file& operator=(const memory_file&) = delete;

    const char* path() const { return path_; }

  private:
    char path_[32] = "/dev/shm/norv-bench-XXXXXX";
};

constexpr uint32_t size = 64;
char buffer[size];

void wait_for(int descriptor, int16_t events, int timeout) {
    pollfd request = {descriptor, events, 0};
    bench::expect(poll(&request, 1, timeout) == 1, "poll");
}

void bare_transfer(int reading_end, int writing_end) {
    bench::expect(write(writing_end, buffer, size) == size, "write");
    bench::expect(read(reading_end, buffer, size) == size, "read");
}

void bare_waiting_transfer(int reading_end, int writing_end, int timeout) {
    wait_for(writing_end, POLLOUT, timeout);
    bench::expect(write(writing_end, buffer, size) == size, "write");
    wait_for(reading_end, POLLIN, timeout);
    bench::expect(read(reading_end, buffer, size) == size, "read");
}

// A helper's write and read of the whole buffer.
template <class transfer>
void write_and_read(int reading_end, int writing_end, transfer move) {
    uint32_t written = size;
    uint32_t read = size;
    bench::expect(move(writing_end, &written, true) == NORV_STATUS_OK, "write");
    bench::expect(move(reading_end, &read, false) == NORV_STATUS_OK, "read");
}

constexpr int limit = 1000;

// On a pipe that is never full and never empty: each round writes what it reads.
void add_transfers(int in, int out) {
    const auto add_row = [=](const char* name, auto bare, auto helper) {
        bench::add_pair({.name = name, .target = 1.05}, bare, [=] { write_and_read(in, out, helper); });
    };
    add_row(
        "norv_iorw_nonblock, write and read", [=] { bare_transfer(in, out); },
        [](int descriptor, uint32_t* length, bool write) {
            return norv_iorw_nonblock(descriptor, buffer, length, write);
        });
    add_row(
        "norv_iorw_block, write and read", [=] { bare_waiting_transfer(in, out, -1); },
        [](int descriptor, uint32_t* length, bool write) {
            return norv_iorw_block(descriptor, buffer, length, write);
        });
    add_row(
        "norv_iorw_timeout, write and read", [=] { bare_waiting_transfer(in, out, limit); },
        [](int descriptor, uint32_t* length, bool write) {
            return norv_iorw_timeout(descriptor, buffer, length, limit, write);
        });
}

// Opens, moves once, closes.
void bare_device(const char* path, int flags) {
    const int descriptor = open(path, flags | O_CLOEXEC);
    const auto moved = flags == O_WRONLY ? write(descriptor, "1", 1) : read(descriptor, buffer, size);
    bench::expect(moved > 0, path);
    close(descriptor);
}

void add_devices(const memory_file& file) {
    bench::add_pair(
        {.name = "norv_read_device", .target = 1.05}, [&] { bare_device(file.path(), O_RDONLY); },
        [&] {
            uint32_t length = size;
            bench::expect(norv_read_device(buffer, &length, "%s", file.path()) == NORV_STATUS_OK, "read");
        });
    bench::add_pair(
        {.name = "norv_write_device", .target = 1.05}, [&] { bare_device(file.path(), O_WRONLY); },
        [&] {
            uint32_t length = 1;
            bench::expect(norv_write_device("1", &length, "%s", file.path()) == NORV_STATUS_OK, "write");
        });
}

}  // namespace

int main(int argc, char** argv) {
    int ends[2];
    bench::expect(pipe2(ends, O_CLOEXEC) == 0, "pipe2");
    const norv::file in = norv::file::adopt(ends[0]).value();
    const norv::file out = norv::file::adopt(ends[1]).value();
    const memory_file file;
    add_transfers(in.descriptor(), out.descriptor());
    add_devices(file);
    return bench::run_rows(argc, argv);
}
