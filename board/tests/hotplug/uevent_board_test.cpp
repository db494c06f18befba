// SPDX-License-Identifier: MIT
// Messages of a real kernel. Writing to a device's "uevent" attribute requests another message about that
// device; the loopback network device always exists.
#include "norv_uevent.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "norv_base.h"
#include "norv_epoll.h"
#include "norv_file.h"

namespace {

using namespace std::string_literals;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::StartsWith;

void announce(const std::string& action) {
    auto length = static_cast<uint32_t>(action.size());
    ASSERT_EQ(norv_write_device(const_cast<char*>(action.data()), &length, "/sys/class/net/lo/uevent"), 0U);
}

// Keeps the messages about the loopback device: other devices may be added or removed meanwhile.
void keep(const uint8_t* message, int64_t length, void* user) {
    const std::string text(reinterpret_cast<const char*>(message), static_cast<size_t>(length));
    if (text.find("@/devices/virtual/net/lo") != std::string::npos) {
        static_cast<std::vector<std::string>*>(user)->push_back(text);
    }
}

class UeventOnBoard : public testing::Test {
  protected:
    void open(uint64_t buffer_size) {
        uevent.buffer_size = buffer_size;
        ASSERT_EQ(norv_uevent_open(&uevent), 0U);
        ASSERT_GT(uevent.fd, 0);
    }
    ~UeventOnBoard() override { norv_uevent_close(&uevent); }

    uint32_t poll() { return norv_uevent_poll(&uevent, keep, &messages); }
    bool is_readable() const {
        pollfd request = {uevent.fd, POLLIN, 0};
        return ::poll(&request, 1, 0) == 1;
    }

    norv_uevent_t uevent = {};
    std::vector<std::string> messages;
};

TEST_F(UeventOnBoard, ARequestedEventArrivesWithItsKeys) {
    open(8192);
    announce("change");
    ASSERT_EQ(poll(), 0U);
    ASSERT_EQ(messages.size(), 1U);
    EXPECT_THAT(messages[0], StartsWith("change@/devices/virtual/net/lo\0"s));
    EXPECT_THAT(messages[0], HasSubstr("\0ACTION=change\0"s));
    EXPECT_THAT(messages[0], HasSubstr("\0DEVPATH=/devices/virtual/net/lo\0"s));
    EXPECT_THAT(messages[0], HasSubstr("\0SUBSYSTEM=net\0"s));
    EXPECT_THAT(messages[0], EndsWith("\0"s));
}

TEST_F(UeventOnBoard, TheTablesKeysAreThoseThatTheKernelWrites) {
    open(8192);
    announce("change");
    ASSERT_EQ(poll(), 0U);
    ASSERT_EQ(messages.size(), 1U);
    for (const int common : {0, 3, 8}) {
        EXPECT_THAT(messages[0], HasSubstr("\0"s + p_uevent_key[common]));
    }
}

TEST_F(UeventOnBoard, ThreeEventsAreThreeMessagesOfOnePollInOrder) {
    open(8192);
    announce("add");
    announce("change");
    announce("remove");
    EXPECT_TRUE(is_readable());
    ASSERT_EQ(poll(), 0U);
    EXPECT_THAT(messages, ElementsAre(StartsWith("add@"), StartsWith("change@"), StartsWith("remove@")));
}

TEST_F(UeventOnBoard, AMessageLongerThanTheBufferIsTruncated) {
    open(40);
    announce("add");
    announce("change");
    ASSERT_EQ(poll(), 0U);
    ASSERT_EQ(messages.size(), 2U);
    EXPECT_EQ(messages[0].size(), 40U);
    EXPECT_EQ(messages[1].size(), 40U);
    EXPECT_THAT(messages[1], StartsWith("change@"));
}

TEST_F(UeventOnBoard, NothingIsReadableAfterAPoll) {
    open(8192);
    announce("change");
    ASSERT_EQ(poll(), 0U);
    ASSERT_EQ(poll(), 0U);
    EXPECT_EQ(messages.size(), 1U);
}

TEST_F(UeventOnBoard, TheReceiveBufferIsLargerThanTheSystemsLimit) {
    open(8192);
    int size = 0;
    socklen_t length = sizeof size;
    ASSERT_EQ(getsockopt(uevent.fd, SOL_SOCKET, SO_RCVBUF, &size, &length), 0);
    EXPECT_EQ(size, 2 * 65536);  // the kernel doubles it for its own accounting
}

TEST_F(UeventOnBoard, TheSocketIsNonBlockingAndIsNotInherited) {
    open(8192);
    EXPECT_NE(fcntl(uevent.fd, F_GETFL) & O_NONBLOCK, 0);
    EXPECT_NE(fcntl(uevent.fd, F_GETFD) & FD_CLOEXEC, 0);
}

TEST_F(UeventOnBoard, AnOverrunIsReportedOnceAndLeavesTheSocketUsable) {
    open(8192);
    for (int number = 0; number < 10'000; ++number) {
        announce("change");
    }
    EXPECT_EQ(poll(), norv_get_status_by_errno(ENOBUFS));
    ASSERT_EQ(poll(), 0U);
    EXPECT_GT(messages.size(), 0U);
    EXPECT_LT(messages.size(), 10'000U);
    messages.clear();
    announce("add");
    ASSERT_EQ(poll(), 0U);
    EXPECT_THAT(messages, ElementsAre(StartsWith("add@")));
}

struct watcher {
    norv_epoll_fd_t record;
    norv_uevent_t* uevent;
    std::vector<std::string> messages;
};

TEST_F(UeventOnBoard, TheEventLoopServesTheSocket) {
    open(8192);
    norv_epoll_t loop = {};
    ASSERT_EQ(norv_epoll_open(&loop), 0U);
    watcher watching = {{nullptr, uevent.fd,
                         [](norv_epoll_fd_t* record, uint32_t) {
                             auto* self = reinterpret_cast<watcher*>(record);
                             EXPECT_EQ(norv_uevent_poll(self->uevent, keep, &self->messages), 0U);
                             if (!self->messages.empty()) {
                                 norv_epoll_exit(record->loop);
                             }
                         }},
                        &uevent,
                        {}};
    ASSERT_EQ(norv_epoll_fd_add(&loop, &watching.record, EPOLLIN), 0U);
    announce("change");
    norv_epoll_loop_with_watchdog(&loop, nullptr, 0);
    EXPECT_EQ(watching.messages.size(), 1U);
    norv_epoll_fd_remove(&loop, &watching.record);
    norv_epoll_close(&loop);
}

}  // namespace
