// SPDX-License-Identifier: MIT
// CAN channels of a real kernel: on a vxcan pair (vxcan0 and vxcan1 on one wire), on two emulated cards (can0
// and can1) on one bus, which a board may lack (see board/tests/CMakeLists.txt), and on two controllers, the
// last two interfaces, on a bus that requires acknowledgements and one bit rate.
#include "norv_linux_can.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <linux/can.h>
#include <linux/can/error.h>
#include <linux/can/raw.h>
#include <poll.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "../support/attribute.hpp"
#include "can_links.hpp"
#include "norv/file.hpp"
#include "norv_base.h"
#include "norv_epoll.h"

namespace {

using testing::ElementsAre;

constexpr int32_t plenty = 60000;  // ms, longer than any test below needs

uint32_t errno_status(int error) {
    return norv_get_status_by_errno(static_cast<uint32_t>(error));
}

can_frame frame_of(uint32_t identifier, uint64_t number = 0) {
    can_frame frame = {};
    frame.can_id = identifier;
    frame.len = sizeof number;
    memcpy(frame.data, &number, sizeof number);
    return frame;
}

uint64_t number_of(const can_frame& frame) {
    uint64_t number = 0;
    memcpy(&number, frame.data, sizeof number);
    return number;
}

const bool has_cards = if_nametoindex("can2") != 0;
const char* const controllers[] = {has_cards ? "can2" : "can0", has_cards ? "can3" : "can1"};

// Creates the interfaces once for all tests.
class CanInterfaces : public testing::Environment {
  public:
    void SetUp() override {
        ASSERT_EQ(norv::board::add_vxcan_pair("vxcan0", "vxcan1"), 0);
        for (const char* interface : {"can0", "can1", "can2", "can3"}) {
            if (if_nametoindex(interface) != 0) {
                ASSERT_EQ(norv::board::start_card(interface, 500000), 0);
            }
        }
    }
};

const testing::Environment* const interfaces = testing::AddGlobalTestEnvironment(new CanInterfaces);

// A context of one interface.
class context {
  public:
    explicit context(const char* interface) { EXPECT_EQ(norv_linux_can_open(interface, &can_), 0U); }
    ~context() { norv_linux_can_close(&can_); }
    context(const context&) = delete;
    context& operator=(const context&) = delete;

    norv_linux_can_t** get() { return &can_; }

    norv_linux_can_raw_t* add(uint32_t identifier) {
        norv_linux_can_raw_t* channel = nullptr;
        EXPECT_EQ(norv_linux_can_raw_add(&can_, 1, identifier, &channel), 0U);
        return channel;
    }

  private:
    norv_linux_can_t* can_ = nullptr;
};

// A raw socket of another process on an interface: receives everything, loops back.
class other_program {
  public:
    explicit other_program(const char* interface)
        : socket_(
              norv::file::adopt(socket(AF_CAN, SOCK_RAW | SOCK_CLOEXEC | SOCK_NONBLOCK, CAN_RAW)).value()) {
        sockaddr_can address = {};
        address.can_family = AF_CAN;
        address.can_ifindex = static_cast<int>(if_nametoindex(interface));
        EXPECT_EQ(bind(socket_.descriptor(), reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    }

    void send(const can_frame& frame) const {
        EXPECT_EQ(::write(socket_.descriptor(), &frame, sizeof frame), static_cast<ssize_t>(sizeof frame));
    }

    bool receives_something() const {
        can_frame frame = {};
        return ::read(socket_.descriptor(), &frame, sizeof frame) > 0;
    }

    // Waits for the next frame and reads it.
    void await_frame() const {
        pollfd request = {socket_.descriptor(), POLLIN, 0};
        EXPECT_EQ(poll(&request, 1, plenty), 1);
        EXPECT_TRUE(receives_something());
    }

  private:
    norv::file socket_;
};

void write(norv_linux_can_raw_t* channel, const can_frame& frame, int32_t timeout = plenty) {
    uint32_t length = sizeof frame;
    EXPECT_EQ(norv_linux_can_write(channel, &frame, &length, timeout), 0U);
    EXPECT_EQ(length, sizeof frame);
}

uint32_t read_status(norv_linux_can_raw_t* channel, int32_t timeout) {
    can_frame frame = {};
    uint32_t length = sizeof frame;
    return norv_linux_can_read(channel, &frame, &length, timeout);
}

can_frame read(norv_linux_can_raw_t* channel) {
    can_frame frame = {};
    uint32_t length = sizeof frame;
    EXPECT_EQ(norv_linux_can_read(channel, &frame, &length, plenty), 0U);
    EXPECT_EQ(length, sizeof frame);
    return frame;
}

// What a channel receives up to a frame that marks the end.
std::vector<uint32_t> identifiers_up_to(norv_linux_can_raw_t* channel, uint64_t last_number) {
    std::vector<uint32_t> identifiers;
    for (can_frame frame = read(channel); number_of(frame) != last_number; frame = read(channel)) {
        if (frame.len == 0) {
            ADD_FAILURE() << "the last frame did not come";
            break;
        }
        identifiers.push_back(frame.can_id);
    }
    return identifiers;
}

// Two interfaces on one wire, near and far end.
struct wire {
    const char* name;
    const char* near;
    const char* far;
};

class CanOnBoard : public testing::TestWithParam<wire> {
  protected:
    // One after the other, because a card's receive buffer holds five frames.
    void send_one_by_one(norv_linux_can_raw_t* sender, const std::vector<can_frame>& frames) const {
        const other_program witness(GetParam().far);
        for (const can_frame& frame : frames) {
            write(sender, frame);
            witness.await_frame();
        }
    }

    context near{GetParam().near};
    context far{GetParam().far};
};

INSTANTIATE_TEST_SUITE_P(On, CanOnBoard,
                         testing::Values(wire{"VxcanPair", "vxcan0", "vxcan1"}, wire{"Cards", "can0", "can1"},
                                         wire{"Controllers", controllers[0], controllers[1]}),
                         [](const auto& test) { return test.param.name; });

// ---- transfers

TEST_P(CanOnBoard, AFrameArrivesUnchangedAtTheOtherEnd) {
    norv_linux_can_raw_t* sender = near.add(0x001);
    norv_linux_can_raw_t* receiver = far.add(0x123);
    for (const int32_t timeout : {0, -1, plenty}) {
        can_frame sent = frame_of(0x123, 0x1122334455667788U);
        sent.len = 5;
        memset(sent.data + sent.len, 0, sizeof sent.data - sent.len);
        write(sender, sent, timeout);
        const can_frame received = read(receiver);
        EXPECT_EQ(memcmp(&received, &sent, sizeof sent), 0);
    }
}

TEST_P(CanOnBoard, FramesTravelInBothDirections) {
    norv_linux_can_raw_t* first = near.add(0x100);
    norv_linux_can_raw_t* second = far.add(0x200);
    write(first, frame_of(0x200, 1));
    EXPECT_EQ(number_of(read(second)), 1U);
    write(second, frame_of(0x100, 2));
    EXPECT_EQ(number_of(read(first)), 2U);
}

TEST_P(CanOnBoard, AReadWithoutLimitWaitsForTheFrame) {
    norv_linux_can_raw_t* receiver = far.add(0x123);
    std::thread sender([&] { write(near.add(0x001), frame_of(0x123, 7)); });
    can_frame frame = {};
    uint32_t length = sizeof frame;
    EXPECT_EQ(norv_linux_can_read(receiver, &frame, &length, -1), 0U);
    EXPECT_EQ(number_of(frame), 7U);
    sender.join();
}

TEST_P(CanOnBoard, AnIdleChannelHasNoFrameToRead) {
    norv_linux_can_raw_t* receiver = far.add(0x123);
    EXPECT_EQ(read_status(receiver, 0), NORV_STATUS_AGAIN);
    EXPECT_EQ(read_status(receiver, 20), NORV_STATUS_TIMEOUT);
}

TEST_P(CanOnBoard, ABufferOfSeveralFramesIsFilled) {
    norv_linux_can_raw_t* sender = near.add(0x001);
    norv_linux_can_raw_t* receiver = far.add(0x123);
    for (uint64_t number = 1; number <= 3; ++number) {
        write(sender, frame_of(0x123, number));
    }
    can_frame frames[3] = {};
    uint32_t length = sizeof frames;
    EXPECT_EQ(norv_linux_can_read(receiver, frames, &length, plenty), 0U);
    EXPECT_EQ(length, sizeof frames);
    EXPECT_EQ(number_of(frames[0]), 1U);
    EXPECT_EQ(number_of(frames[1]), 2U);
    EXPECT_EQ(number_of(frames[2]), 3U);
}

TEST_P(CanOnBoard, AWriteOfTwoFramesIsRefusedByTheKernel) {
    const can_frame frames[2] = {frame_of(0x123, 1), frame_of(0x123, 2)};
    for (const int32_t timeout : {0, -1}) {
        uint32_t length = sizeof frames;
        EXPECT_EQ(norv_linux_can_write(near.add(0x001), frames, &length, timeout), NORV_STATUS_INVALID_ARG);
        EXPECT_EQ(length, sizeof frames);
    }
}

// ---- filters

TEST_P(CanOnBoard, AChannelReceivesItsIdentifierAndNoOther) {
    norv_linux_can_raw_t* receiver = far.add(0x123);
    send_one_by_one(near.add(0x001),
                    {frame_of(0x000, 1), frame_of(0x122, 1), frame_of(0x123, 1), frame_of(0x124, 1),
                     frame_of(0x023, 1), frame_of(0x523, 1), frame_of(0x7FF, 1), frame_of(0x123, 2)});
    EXPECT_THAT(identifiers_up_to(receiver, 2), ElementsAre(0x123U));
}

TEST_P(CanOnBoard, AChannelWithTwoIdentifiersReceivesBothAndNoOther) {
    norv_linux_can_raw_t* receiver = nullptr;
    EXPECT_EQ(norv_linux_can_raw_add_with_alt_id(far.get(), 1, 0x100, 0x200, &receiver), 0U);
    send_one_by_one(near.add(0x001),
                    {frame_of(0x000, 1), frame_of(0x100, 1), frame_of(0x101, 1), frame_of(0x200, 1),
                     frame_of(0x201, 1), frame_of(0x300, 1), frame_of(0x200, 2)});
    EXPECT_THAT(identifiers_up_to(receiver, 2), ElementsAre(0x100U, 0x200U));
}

TEST_P(CanOnBoard, ExtendedFramesPassByTheirLow11Bits) {
    norv_linux_can_raw_t* receiver = far.add(0x123);
    send_one_by_one(near.add(0x001),
                    {frame_of(0x1FFFF923U | CAN_EFF_FLAG, 1), frame_of(0x1FFFF924U | CAN_EFF_FLAG, 1),
                     frame_of(0x00000123U | CAN_EFF_FLAG, 1), frame_of(0x123, 2)});
    EXPECT_THAT(identifiers_up_to(receiver, 2),
                ElementsAre(0x1FFFF923U | CAN_EFF_FLAG, 0x00000123U | CAN_EFF_FLAG));
}

TEST_P(CanOnBoard, ARemoteRequestPassesByItsIdentifier) {
    norv_linux_can_raw_t* receiver = far.add(0x123);
    can_frame request = {};
    request.can_id = 0x123 | CAN_RTR_FLAG;
    send_one_by_one(near.add(0x001), {request});
    EXPECT_EQ(read(receiver).can_id, 0x123U | CAN_RTR_FLAG);
}

TEST_P(CanOnBoard, AnInvertedIdentifierReceivesEverythingElse) {
    norv_linux_can_raw_t* receiver = far.add(0x123 | CAN_INV_FILTER);
    send_one_by_one(near.add(0x001), {frame_of(0x122, 1), frame_of(0x123, 1), frame_of(0x124, 2)});
    EXPECT_THAT(identifiers_up_to(receiver, 2), ElementsAre(0x122U));
}

// ---- loopback

TEST_P(CanOnBoard, AWrittenFrameReachesNoOtherSocketOnTheSameInterface) {
    const other_program other(GetParam().near);
    norv_linux_can_raw_t* sender = near.add(0x123);
    context second(GetParam().near);
    norv_linux_can_raw_t* neighbour = second.add(0x124);
    // When the last one has arrived, those before it would have been looped back long ago.
    send_one_by_one(sender, {frame_of(0x123), frame_of(0x124), frame_of(0x125)});
    EXPECT_FALSE(other.receives_something());
    EXPECT_EQ(read_status(neighbour, 0), NORV_STATUS_AGAIN);
    EXPECT_EQ(read_status(sender, 0), NORV_STATUS_AGAIN);
}

// What the test above would see with loopback on.
TEST_P(CanOnBoard, AFrameOfAnotherProgramIsLoopedBackToTheChannels) {
    const other_program other(GetParam().near);
    norv_linux_can_raw_t* neighbour = near.add(0x123);
    other.send(frame_of(0x123, 5));
    EXPECT_EQ(number_of(read(neighbour)), 5U);
}

// ---- channels

TEST_P(CanOnBoard, AddingAnIdentifierTwiceGivesOneChannel) {
    norv_linux_can_raw_t* first = near.add(0x123);
    EXPECT_EQ(near.add(0x123), first);
    EXPECT_EQ(norv_linux_can_remove(first), 0U);
}

TEST_P(CanOnBoard, RemovingAChannelClosesItsSocketAndKeepsTheOthers) {
    norv_linux_can_raw_t* sender = near.add(0x001);
    norv_linux_can_raw_t* removed = far.add(0x123);
    norv_linux_can_raw_t* kept = far.add(0x124);
    const int descriptor = norv_linux_can_get_fd(removed);
    EXPECT_EQ(norv_linux_can_remove(removed), 0U);
    EXPECT_EQ(fcntl(descriptor, F_GETFD), -1);
    EXPECT_EQ(errno, EBADF);
    write(sender, frame_of(0x124, 3));
    EXPECT_EQ(number_of(read(kept)), 3U);
}

TEST_P(CanOnBoard, TheSocketIsClosedOnExecAndNonBlockingIfRequested) {
    norv_linux_can_raw_t* blocking = nullptr;
    EXPECT_EQ(norv_linux_can_raw_add(near.get(), 0, 0x100, &blocking), 0U);
    const int descriptor = norv_linux_can_get_fd(near.add(0x200));
    EXPECT_EQ(fcntl(descriptor, F_GETFD) & FD_CLOEXEC, FD_CLOEXEC);
    EXPECT_EQ(fcntl(descriptor, F_GETFL) & O_NONBLOCK, O_NONBLOCK);
    EXPECT_EQ(fcntl(norv_linux_can_get_fd(blocking), F_GETFL) & O_NONBLOCK, 0);
}

// A handler that reads one frame and ends the loop.
struct receiver_record {
    norv_epoll_fd_t record;
    norv_epoll_t* loop;
    norv_linux_can_raw_t* channel;
    can_frame frame;
};

void receive_in_the_loop(norv_epoll_fd_t* record, uint32_t) {
    auto& self = *reinterpret_cast<receiver_record*>(record);
    uint32_t length = sizeof self.frame;
    EXPECT_EQ(norv_linux_can_read(self.channel, &self.frame, &length, 0), 0U);
    norv_epoll_exit(self.loop);
}

TEST_P(CanOnBoard, TheEventLoopServesAChannel) {
    static norv_epoll_t loop;
    receiver_record receiver = {};
    receiver.loop = &loop;
    receiver.channel = far.add(0x123);
    receiver.record.descriptor = norv_linux_can_get_fd(receiver.channel);
    receiver.record.handler = receive_in_the_loop;
    ASSERT_EQ(norv_epoll_open(&loop), 0U);
    ASSERT_EQ(norv_epoll_fd_add(&loop, &receiver.record, EPOLLIN), 0U);
    write(near.add(0x001), frame_of(0x123, 42));
    norv_epoll_loop_with_watchdog(&loop, nullptr, 0);
    EXPECT_EQ(number_of(receiver.frame), 42U);
    norv_epoll_fd_remove(&loop, &receiver.record);
    norv_epoll_close(&loop);
}

// ---- many frames

// Keeps the calling thread on the processor that it runs on.
class pinned_thread {
  public:
    pinned_thread() {
        cpu_set_t here;
        CPU_ZERO(&here);
        CPU_SET(static_cast<size_t>(sched_getcpu()), &here);
        EXPECT_EQ(sched_getaffinity(0, sizeof before_, &before_), 0);
        EXPECT_EQ(sched_setaffinity(0, sizeof here, &here), 0);
    }
    ~pinned_thread() { EXPECT_EQ(sched_setaffinity(0, sizeof before_, &before_), 0); }
    pinned_thread(const pinned_thread&) = delete;
    pinned_thread& operator=(const pinned_thread&) = delete;

  private:
    cpu_set_t before_;
};

// Sends numbered frames from one thread, never more than `window` ahead of the reader on another, and counts
// those that arrive in order.
uint64_t frames_in_place(norv_linux_can_raw_t* sender, norv_linux_can_raw_t* receiver, uint64_t count,
                         uint64_t window) {
    std::atomic<uint64_t> received = 0;
    std::atomic<bool> lost = false;
    std::thread reader([&] {
        while (received < count && !lost) {
            const can_frame frame = read(receiver);
            lost = frame.can_id != 0x123 || number_of(frame) != received;
            received += lost ? 0 : 1;
        }
    });
    // A frame waits in a queue of the processor that sent it, so frames sent on two processors may overtake
    // each other.
    const pinned_thread one_queue;
    for (uint64_t number = 0; number < count && !lost; ++number) {
        while (number >= received + window && !lost) {
            std::this_thread::yield();
        }
        write(sender, frame_of(0x123, number), 0);
    }
    reader.join();
    return received;
}

TEST(ManyCanFramesOnBoard, HundredThousandOnAVxcanPairArriveInOrderWithoutLoss) {
    context near("vxcan0");
    context far("vxcan1");
    EXPECT_EQ(frames_in_place(near.add(0x001), far.add(0x123), 100000, 64), 100000U);
}

TEST(ManyCanFramesOnBoard, ThousandsBetweenTwoCardsArriveInOrderWithoutLoss) {
    context near("can0");
    context far("can1");
    EXPECT_EQ(frames_in_place(near.add(0x001), far.add(0x123), 5000, 4), 5000U);
}

// ---- the rules of a bus

// Receives the error frames of an interface.
class error_listener {
  public:
    explicit error_listener(const char* interface)
        : socket_(norv::file::adopt(socket(AF_CAN, SOCK_RAW | SOCK_CLOEXEC, CAN_RAW)).value()) {
        const int descriptor = socket_.descriptor();
        const can_err_mask_t errors = CAN_ERR_MASK;
        EXPECT_EQ(setsockopt(descriptor, SOL_CAN_RAW, CAN_RAW_FILTER, nullptr, 0), 0);
        EXPECT_EQ(setsockopt(descriptor, SOL_CAN_RAW, CAN_RAW_ERR_FILTER, &errors, sizeof errors), 0);
        sockaddr_can address = {};
        address.can_family = AF_CAN;
        address.can_ifindex = static_cast<int>(if_nametoindex(interface));
        EXPECT_EQ(bind(descriptor, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    }

    // Waits for an error frame that has one of these flags: of its identifier, or of its second byte.
    bool receives(canid_t kind, uint8_t detail) const {
        pollfd request = {socket_.descriptor(), POLLIN, 0};
        can_frame frame = {};
        while (poll(&request, 1, plenty) == 1 && ::read(request.fd, &frame, sizeof frame) > 0) {
            if ((frame.can_id & kind) != 0 && (detail == 0 || (frame.data[1] & detail) != 0)) {
                return true;
            }
        }
        return false;
    }

  private:
    norv::file socket_;
};

class CanBusOnBoard : public testing::Test {
  protected:
    ~CanBusOnBoard() override {
        for (const char* interface : controllers) {
            restart(interface, 500000);
        }
    }

    static void restart(const char* interface, uint32_t bits_per_second) {
        EXPECT_EQ(norv::board::set_up(interface, false), 0);
        EXPECT_EQ(norv::board::start_card(interface, bits_per_second), 0);
    }
    static std::string sent_frames() {
        return norv::board::attribute(std::string("/sys/class/net/") + controllers[0] +
                                      "/statistics/tx_packets");
    }
    static uint32_t write_status(norv_linux_can_raw_t* channel) {
        const can_frame frame = frame_of(0x123);
        uint32_t length = sizeof frame;
        return norv_linux_can_write(channel, &frame, &length, 0);
    }
};

TEST_F(CanBusOnBoard, AFrameOfALoneNodeIsSentOnceAnotherNodeAcknowledgesIt) {
    const error_listener errors(controllers[0]);
    ASSERT_EQ(norv::board::set_up(controllers[1], false), 0);
    const std::string sent_before = sent_frames();
    context near(controllers[0]);
    write(near.add(0x001), frame_of(0x123, 7));
    EXPECT_TRUE(errors.receives(CAN_ERR_CRTL, CAN_ERR_CRTL_TX_PASSIVE));
    EXPECT_EQ(sent_frames(), sent_before);
    context far(controllers[1]);
    norv_linux_can_raw_t* receiver = far.add(0x123);
    EXPECT_EQ(read_status(receiver, 0), errno_status(ENETDOWN));
    ASSERT_EQ(norv::board::start_card(controllers[1], 500000), 0);
    EXPECT_EQ(number_of(read(receiver)), 7U);
    EXPECT_NE(sent_frames(), sent_before);
}

TEST_F(CanBusOnBoard, UnacknowledgedFramesFillTheQueue) {
    ASSERT_EQ(norv::board::set_up(controllers[1], false), 0);
    context near(controllers[0]);
    norv_linux_can_raw_t* channel = near.add(0x001);
    uint32_t status = 0;
    for (int frame = 0; frame < 1000 && status == 0; ++frame) {
        status = write_status(channel);
    }
    EXPECT_EQ(status, errno_status(ENOBUFS));
}

TEST_F(CanBusOnBoard, ANodeWithAnotherBitRateTakesTheSenderOffTheBus) {
    const error_listener errors(controllers[0]);
    restart(controllers[1], 250000);
    const std::string sent_before = sent_frames();
    context near(controllers[0]);
    context far(controllers[1]);
    norv_linux_can_raw_t* receiver = far.add(0x123);
    write(near.add(0x001), frame_of(0x123));
    EXPECT_TRUE(errors.receives(CAN_ERR_BUSOFF, 0));
    EXPECT_EQ(sent_frames(), sent_before);
    EXPECT_EQ(read_status(receiver, 0), NORV_STATUS_AGAIN);
    EXPECT_EQ(norv::board::attribute(std::string("/sys/class/net/") + controllers[0] + "/carrier"), "0");
}

// ---- failures

TEST(CanFailuresOnBoard, AnUnknownInterfaceGivesTheStatusOfEnodev) {
    context unknown("can77");
    norv_linux_can_raw_t* channel = nullptr;
    EXPECT_EQ(norv_linux_can_raw_add(unknown.get(), 0, 0x123, &channel), errno_status(ENODEV));
    ASSERT_NE(channel, nullptr);
    EXPECT_EQ(norv_linux_can_remove(channel), 0U);
}

TEST(CanFailuresOnBoard, AChannelOfAFailedAddIsRemovedAfterItsContextWasClosed) {
    norv_linux_can_t* can = nullptr;
    norv_linux_can_raw_t* channel = nullptr;
    EXPECT_EQ(norv_linux_can_open("can77", &can), 0U);
    EXPECT_EQ(norv_linux_can_raw_add(&can, 0, 0x123, &channel), errno_status(ENODEV));
    norv_linux_can_close(&can);
    EXPECT_EQ(norv_linux_can_remove(channel), 0U);
}

TEST(CanFailuresOnBoard, AnInterfaceWithoutCanGivesTheStatusOfEperm) {
    context loop_back("lo");  // bind fails with ENODEV
    norv_linux_can_raw_t* channel = nullptr;
    EXPECT_EQ(norv_linux_can_raw_add(loop_back.get(), 0, 0x123, &channel), errno_status(EPERM));
    EXPECT_EQ(norv_linux_can_remove(channel), 0U);
}

// A channel on vxcan0, which was just set up. The kernel starts the queues of the pair a moment later, and
// drops frames sent before: the frame is sent until it arrives.
void expect_to_receive_again(norv_linux_can_raw_t* channel) {
    context far("vxcan1");
    norv_linux_can_raw_t* sender = far.add(0x001);
    uint32_t status = NORV_STATUS_TIMEOUT;
    for (int attempt = 0; attempt < 100 && status == NORV_STATUS_TIMEOUT; ++attempt) {
        write(sender, frame_of(0x123));
        status = read_status(channel, 100);
    }
    EXPECT_EQ(status, 0U);
}

TEST(CanFailuresOnBoard, AnInterfaceThatGoesDownIsReportedByReadAndWrite) {
    context near("vxcan0");
    norv_linux_can_raw_t* channel = near.add(0x123);
    ASSERT_EQ(norv::board::set_up("vxcan0", false), 0);
    EXPECT_EQ(read_status(channel, plenty), errno_status(ENETDOWN));
    EXPECT_EQ(read_status(channel, 0), NORV_STATUS_AGAIN) << "the socket reports it once";
    const can_frame frame = frame_of(0x123);
    uint32_t length = sizeof frame;
    EXPECT_EQ(norv_linux_can_write(channel, &frame, &length, 0), errno_status(ENETDOWN));
    ASSERT_EQ(norv::board::set_up("vxcan0"), 0);
    write(channel, frame);
    expect_to_receive_again(channel);
}

TEST(CanFailuresOnBoard, AChannelReportsThatItsInterfaceIsDownOnceAndRecovers) {
    ASSERT_EQ(norv::board::set_up("vxcan0", false), 0);
    context near("vxcan0");
    norv_linux_can_raw_t* channel = near.add(0x123);
    EXPECT_EQ(read_status(channel, 0), errno_status(ENETDOWN));
    EXPECT_EQ(read_status(channel, 0), NORV_STATUS_AGAIN);
    ASSERT_EQ(norv::board::set_up("vxcan0"), 0);
    expect_to_receive_again(channel);
}

// A separate pair, which is deleted at the end.
class DeletedCanInterface : public testing::Test {
  protected:
    DeletedCanInterface() { EXPECT_EQ(norv::board::add_vxcan_pair("vxcan2", "vxcan3"), 0); }
    ~DeletedCanInterface() override { EXPECT_EQ(norv::board::delete_link("vxcan2"), 0); }

    // Deletes the pair and creates it again.
    static void replace_interface() {
        ASSERT_EQ(norv::board::delete_link("vxcan2"), 0);
        ASSERT_EQ(norv::board::add_vxcan_pair("vxcan2", "vxcan3"), 0);
    }
    static uint32_t write_status(norv_linux_can_raw_t* channel, int32_t timeout) {
        const can_frame frame = frame_of(0x123);
        uint32_t length = sizeof frame;
        return norv_linux_can_write(channel, &frame, &length, timeout);
    }

    context near{"vxcan2"};
};

// quirk 64
TEST_F(DeletedCanInterface, ItsChannelReportsEnodevOnceAndNoFrameAfterwards) {
    norv_linux_can_raw_t* channel = near.add(0x123);
    replace_interface();
    context far("vxcan3");
    write(far.add(0x001), frame_of(0x123, 9));
    EXPECT_EQ(read_status(channel, plenty), errno_status(ENODEV));
    EXPECT_EQ(read_status(channel, 0), NORV_STATUS_AGAIN);
    EXPECT_EQ(read_status(channel, 20), NORV_STATUS_TIMEOUT);
    for (const int32_t timeout : {0, -1, plenty}) {
        EXPECT_EQ(write_status(channel, timeout), errno_status(ENXIO));
    }
}

// quirk 64
TEST_F(DeletedCanInterface, AddingReturnsTheDeadChannelUntilItIsRemoved) {
    norv_linux_can_raw_t* dead = near.add(0x123);
    replace_interface();
    EXPECT_EQ(near.add(0x123), dead);
    EXPECT_EQ(norv_linux_can_remove(dead), 0U);
    context far("vxcan3");
    norv_linux_can_raw_t* channel = near.add(0x123);
    write(far.add(0x001), frame_of(0x123, 9));
    EXPECT_EQ(number_of(read(channel)), 9U);
}

}  // namespace
