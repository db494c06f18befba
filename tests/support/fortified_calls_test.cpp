// SPDX-License-Identifier: MIT
// The fortified calls, which pass the size of the caller's buffer.
#include "support/fortified_calls.hpp"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdarg>
#include <cstdio>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "support/kernel_double.hpp"

namespace {

using namespace std::string_literals;
using norv::test::call;
using norv::test::device;
using norv::test::kernel_double;

struct fortified_call {
    std::string name;                           // its ordinary name, by which the double knows it
    std::function<bool(size_t room)> succeeds;  // makes the call with a buffer of this size
};

int fortified_format(char* text, size_t size, size_t room, const char* format, ...) {
    va_list values;
    va_start(values, format);
    const int length = __vsnprintf_chk(text, size, 1, room, format, values);
    va_end(values);
    return length;
}

class FortifiedCalls : public testing::Test {
  public:
    FortifiedCalls() {
        kernel_.add_file("/proc/text", "abcdef");
        kernel_.add_link("/proc/link", "/proc/text");
        descriptor_ = open("/proc/text", O_RDONLY);
        stream_ = fopen("/proc/text", "re");
        kernel_.forget_calls();
    }
    ~FortifiedCalls() override {
        fclose(stream_);
        close(descriptor_);
    }
    FortifiedCalls(const FortifiedCalls&) = delete;
    FortifiedCalls& operator=(const FortifiedCalls&) = delete;

  protected:
    kernel_double kernel_;
    int descriptor_ = -1;
    FILE* stream_ = nullptr;
    char buffer_[PATH_MAX] = "";
    pollfd request_ = {};
    const std::vector<fortified_call> calls_ = {
        {"read", [&](size_t room) { return __read_chk(descriptor_, buffer_, 2, room) == 2; }},
        {"pread", [&](size_t room) { return __pread_chk(descriptor_, buffer_, 2, 3, room) == 2; }},
        {"poll", [&](size_t room) { return __poll_chk(&request_, 1, 0, room) == 1; }},
        {"readlink", [&](size_t room) { return __readlink_chk("/proc/link", buffer_, 80, room) == 10; }},
        {"realpath", [&](size_t room) { return __realpath_chk("/proc/link", buffer_, room) == buffer_; }},
        {"fgets", [&](size_t room) { return __fgets_chk(buffer_, room, 3, stream_) == buffer_; }},
        {"fread", [&](size_t room) { return __fread_chk(buffer_, room, 1, 2, stream_) == 2; }},
        {"vsnprintf", [&](size_t room) { return fortified_format(buffer_, 4, room, "%s", "abc") == 3; }},
    };
};

TEST_F(FortifiedCalls, DoTheirWork) {
    request_ = {descriptor_, POLLIN, 0};
    for (const fortified_call& call : calls_) {
        EXPECT_TRUE(call.succeeds(sizeof buffer_)) << call.name;
    }
}

TEST_F(FortifiedCalls, FailWhereTheOrdinaryCallIsPlannedToFail) {
    for (const fortified_call& call : calls_) {
        kernel_.fail(call.name, EIO);
        EXPECT_FALSE(call.succeeds(sizeof buffer_)) << call.name;
        EXPECT_TRUE(kernel_.struck()) << call.name;
    }
}

TEST_F(FortifiedCalls, EndTheProgramWhereTheBufferIsTooSmall) {
    for (const fortified_call& call : calls_) {
        EXPECT_DEATH(call.succeeds(1), "buffer overflow detected") << call.name;
    }
}

// A socket on which a message is always waiting.
class sending_socket : public device {
  public:
    long receive(void* buffer, size_t size, int) override {
        return static_cast<long>("message"s.copy(static_cast<char*>(buffer), size));
    }
};

TEST_F(FortifiedCalls, OpenAndReceiveReachTheModels) {
    kernel_.add_socket_family(AF_CAN, [](int, int) { return std::make_shared<sending_socket>(); });
    const int file = __open_2("/proc/text", O_RDONLY);
    const int receiver = socket(AF_CAN, SOCK_RAW | SOCK_CLOEXEC, 1);
    EXPECT_EQ(kernel_.open_flags("/proc/text"), std::vector{O_RDONLY});
    EXPECT_EQ(__recv_chk(receiver, buffer_, 4, sizeof buffer_, 0), 4);
    EXPECT_STREQ(buffer_, "mess");
    EXPECT_DEATH(__recv_chk(receiver, buffer_, 4, 3, 0), "buffer overflow detected");
    EXPECT_DEATH(__open_2("/proc/new", O_CREAT), "buffer overflow detected");
    close(receiver);
    close(file);
}

}  // namespace
