// SPDX-License-Identifier: MIT
/**
 * @file norv/file.hpp
 * Device nodes and attribute files: a file that closes itself, transfers of whole files, marker files, and the
 * transfers of any descriptor for tasks. What the functions do, and their statuses, are those of norv_file.h;
 * after a move they return NORV_STATUS_INVALID_ARG. A path of 256 characters or more is an invalid argument: it
 * is not truncated.
 *
 *     std::array<char, 32> text;
 *     norv::result<std::string_view> address = norv::read_text("/sys/class/net/eth0/address", text);
 *     norv::file led = norv::file::open("/sys/class/leds/red/brightness", O_WRONLY | O_CLOEXEC).value();
 *     led.write_string("1").value();
 *     norv::file counter = norv::file::adopt(eventfd(0, EFD_CLOEXEC)).value();
 *
 * In a task:
 *
 *     norv::file_stream stream(terminal);  // opened with O_NONBLOCK
 *     while (norv::result<size_t> count = co_await stream.read_some(buffer)) {
 *         ...
 *     }
 */
#pragma once

#include <fcntl.h>
#include <sys/epoll.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>
#include <string_view>
#include <utility>

#include "norv/result.hpp"
#include "norv/text.hpp"
#include "norv/timeout.hpp"
#include "norv/transfer.hpp"
#include "norv/wait.hpp"
#include "norv_base.h"
#include "norv_file.h"

namespace norv {

namespace detail {

using path_string = c_string<256>;

// Calls a function that formats its path, with a path that is not changed by that.
template <typename function>
status with_path(std::string_view path, function call) {
    const path_string name(path);
    return name.get() != nullptr ? status(call(name.get())) : status(NORV_STATUS_INVALID_ARG);
}

// The transfers of a descriptor; -1 is an invalid argument, for which the C functions would wait.
class descriptor_transfers {
  public:
    explicit constexpr descriptor_transfers(int32_t descriptor) noexcept : descriptor_(descriptor) {}

    transferred receive(std::span<std::byte> buffer, timeout limit) const {
        return move(buffer.data(), buffer.size(), limit, false);
    }
    transferred send(std::span<const std::byte> data, timeout limit) const {
        return move(const_cast<std::byte*>(data.data()), data.size(), limit, true);
    }
    int32_t descriptor() const noexcept { return descriptor_; }

  private:
    transferred move(void* bytes, size_t size, timeout limit, bool write) const {
        if (descriptor_ < 0) {
            return {0, status(NORV_STATUS_INVALID_ARG)};
        }
        return transfer(size, limit, [&](uint32_t* length, int32_t ms) {
            if (ms == 0) {
                return norv_iorw_nonblock(descriptor_, bytes, length, write);
            }
            return ms < 0 ? norv_iorw_block(descriptor_, bytes, length, write)
                          : norv_iorw_timeout(descriptor_, bytes, length, ms, write);
        });
    }

    int32_t descriptor_;
};

}  // namespace detail

/** An open file. */
class file {
  public:
    /**
     * See `norv_open_device`.
     *
     * @param path   the path
     * @param flags  of open(2), for instance `O_RDWR | O_CLOEXEC`
     * @return the file; also NORV_STATUS_BAD_STATE if there is no descriptor though the call succeeded (quirk 1)
     */
    static result<file> open(std::string_view path, int flags) {
        int32_t descriptor = -1;
        const status opened = detail::with_path(path, [&](const char* name) {
            return norv_open_device(static_cast<uint32_t>(flags), &descriptor, "%s", name);
        });
        if (!opened.ok()) {
            return opened;
        }
        return descriptor >= 0 ? result<file>(file(descriptor)) : result<file>(status(NORV_STATUS_BAD_STATE));
    }
    /**
     * Takes over a descriptor of any kind, which is then closed with the object.
     *
     * @param descriptor  what a call such as socket(2) has just returned
     * @return the file; the errno status if the descriptor is negative, NORV_STATUS_BAD_STATE if that status is 0
     */
    static result<file> adopt(int32_t descriptor) {
        if (descriptor >= 0) {
            return file(descriptor);
        }
        const status failed(norv_get_status_by_errno(static_cast<uint32_t>(errno)));
        return failed.ok() ? status(NORV_STATUS_BAD_STATE) : failed;
    }

    file(file&& other) noexcept : descriptor_(std::exchange(other.descriptor_, -1)) {}
    file& operator=(file&& other) noexcept {
        if (this != &other) {
            close();
            descriptor_ = std::exchange(other.descriptor_, -1);
        }
        return *this;
    }
    file(const file&) = delete;
    file& operator=(const file&) = delete;
    ~file() { close(); }

    /**
     * Reads until the buffer is full, or, with a limit of 0, once. See `norv_iorw_block`, `norv_iorw_timeout` and
     * `norv_iorw_nonblock`. Only the latter returns at the end of a file (quirk 8).
     */
    transferred read(std::span<std::byte> buffer, timeout limit) {
        return transfers().receive(buffer, limit);
    }
    /** Writes all bytes, or, with a limit of 0, once. */
    transferred write(std::span<const std::byte> data, timeout limit) {
        return transfers().send(data, limit);
    }

    /**
     * Writes a text and a NUL after it, with one write(2). See `norv_write_string`. A text with a NUL in it, or
     * of more than 2^31 - 2 characters, is an invalid argument.
     */
    status write_string(std::string_view text) {
        if (descriptor_ < 0 || text.size() >= INT32_MAX || text.find('\0') != std::string_view::npos) {
            return status(NORV_STATUS_INVALID_ARG);
        }
        const auto size = static_cast<int32_t>(text.size());
        return status(norv_write_string(descriptor_, static_cast<uint32_t>(size) + 1, "%.*s", size,
                                        size != 0 ? text.data() : ""));
    }

    /** The descriptor; -1 after a move. */
    int32_t descriptor() const noexcept { return descriptor_; }

  private:
    explicit file(int32_t descriptor) noexcept : descriptor_(descriptor) {}

    detail::descriptor_transfers transfers() const noexcept {
        return detail::descriptor_transfers(descriptor_);
    }
    void close() noexcept {
        if (descriptor_ >= 0) {
            ::close(std::exchange(descriptor_, -1));
        }
    }

    int32_t descriptor_;
};

/** Reads a file once, and returns how many bytes are in the buffer. See `norv_read_device`. */
inline result<size_t> read_file(std::string_view path, std::span<std::byte> buffer) {
    auto length = static_cast<uint32_t>(std::min<size_t>(buffer.size(), UINT32_MAX));
    const status read = detail::with_path(
        path, [&](const char* name) { return norv_read_device(buffer.data(), &length, "%s", name); });
    return read.ok() ? result<size_t>(length) : result<size_t>(read);
}

/** Reads a text as `read_file` does, and returns what is in the buffer, a newline included. */
inline result<std::string_view> read_text(std::string_view path, std::span<char> buffer) {
    const result<size_t> length = read_file(path, std::as_writable_bytes(buffer));
    return length ? result<std::string_view>(std::string_view(buffer.data(), *length))
                  : result<std::string_view>(length.status());
}

/** Writes a file once, and returns how many bytes were written. See `norv_write_device`. */
inline result<size_t> write_file(std::string_view path, std::span<const std::byte> data) {
    auto length = static_cast<uint32_t>(std::min<size_t>(data.size(), UINT32_MAX));
    const status written = detail::with_path(
        path, [&](const char* name) { return norv_write_device(data.data(), &length, "%s", name); });
    return written.ok() ? result<size_t>(length) : result<size_t>(written);
}

/** Writes a text as `write_file` does, without a NUL after it. */
inline result<size_t> write_text(std::string_view path, std::string_view text) {
    return write_file(path, std::as_bytes(std::span(text)));
}

/** See `norv_file_access`. A path of 256 characters or more cannot be accessed. */
inline bool can_access(std::string_view path, int mode = F_OK) {
    bool can = false;
    return detail::with_path(path,
                             [&](const char* name) {
                                 can = norv_file_access(static_cast<uint32_t>(mode), "%s", name);
                                 return NORV_STATUS_OK;
                             })
               .ok() &&
           can;
}

/**
 * See `norv_file_mark`. The file has exactly this name (quirk 10 is made good); each `%` in the path counts as
 * two characters.
 */
inline status mark_file(std::string_view path) {
    char twice[256];
    size_t size = 0;
    for (const char character : path) {
        for (int count = character == '%' ? 2 : 1; count > 0; --count) {
            if (size == sizeof twice) {
                return status(NORV_STATUS_INVALID_ARG);
            }
            twice[size++] = character;
        }
    }
    return detail::with_path({twice, size}, [](const char* name) { return norv_file_mark("%s", name); });
}

/** See `norv_file_unmark`. */
inline status unmark_file(std::string_view path) {
    return detail::with_path(path, [](const char* name) { return norv_file_unmark("%s", name); });
}

/**
 * The transfers of a descriptor, for tasks: one may read while another one writes. The descriptor should be
 * non-blocking (O_NONBLOCK), or the loop waits with the task; it must stay open for as long as this object exists.
 */
class file_stream {
  public:
    /** Of any descriptor. */
    explicit file_stream(int32_t descriptor) : transfers_(descriptor), ready_(descriptor) {}
    /** Of a file, which must outlive it; it may move. */
    explicit file_stream(const file& of) : file_stream(of.descriptor()) {}

    /**
     * Waits until there are bytes to read; `co_await` returns a `result<size_t>`, how many are in the buffer: 0
     * at the end.
     */
    auto read_some(std::span<std::byte> buffer) {
        return ready_.repeat(EPOLLIN,
                             detail::receiving<const detail::descriptor_transfers>{transfers_, buffer});
    }

    /** Writes all bytes; `co_await` returns `transferred`, with how many were written where that failed. */
    auto write_all(std::span<const std::byte> data) {
        return ready_.repeat(EPOLLOUT, detail::sending<const detail::descriptor_transfers>{transfers_, data});
    }

  private:
    const detail::descriptor_transfers transfers_;
    readiness ready_;
};

}  // namespace norv
