// SPDX-License-Identifier: MIT
// The owners of a UMCB device and of its interrupt sources, and their events in tasks.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "cpp/mapped_registers.hpp"
#include "cpp/owner_sweep.hpp"
#include "cpp/urgent_descriptor.hpp"
#include "cpp/waiting_task.hpp"
#include "mapped/umcb_devices.hpp"
#include "norv/umcb.hpp"

namespace {

using norv::status;
using norv::task;
using norv::uio_kind;
using norv::umcb;
using norv::umcb_events;
using norv::umcb_irq;
using norv::test::add_pci_umcb;
using norv::test::add_umcb;
using norv::test::at_descriptor_0;
using norv::test::bytes_of;
using norv::test::kernel_double;
using norv::test::umcb_node;
using norv::test::umcb_request;
using testing::ElementsAre;
using testing::IsEmpty;
using namespace std::chrono_literals;

constexpr char new_id[] = "/sys/bus/pci/drivers/umcb_pci_generic/new_id";

class CppUmcb : public testing::Test {
  protected:
    kernel_double kernel;
};

// umcb3, which is not on PCI.
class CppOpenUmcb : public CppUmcb {
  protected:
    CppOpenUmcb() { node->requests.clear(); }

    std::shared_ptr<umcb_node> node = add_umcb(kernel, "umcb3", "control");
    umcb device = umcb::open(3).value();
};

// ---- opening and closing

TEST_F(CppUmcb, AnOpenDeviceIsClosedWithItsOwner) {
    const auto node = add_umcb(kernel, "umcb3", "control");
    {
        const norv::result<umcb> device = umcb::open(3, 2);
        ASSERT_TRUE(device);
        EXPECT_EQ(device->map(), node->registers.data());
        EXPECT_THAT(node->requests, ElementsAre(umcb_request{0x40046D00, bytes_of({2})}));
        EXPECT_EQ(kernel.mappings(), 1U);
    }
    EXPECT_EQ(kernel.open_descriptors(), 0U);
    EXPECT_EQ(kernel.mappings(), 0U);
}

// quirk 163
TEST_F(CppUmcb, ADeviceThatIsFoundIsUmcb0) {
    const auto first = add_umcb(kernel, "umcb0", "other");
    const auto named = add_umcb(kernel, "umcb1", "control");
    const auto pci = add_pci_umcb(kernel, "umcb2");
    EXPECT_EQ(umcb::open_by_name("control", 5).value().map(), first->registers.data());
    EXPECT_EQ(umcb::open_by_pci_id(0x1234, 0x11E8, 6).value().map(), first->registers.data());
    EXPECT_THAT(first->requests, ElementsAre(umcb_request{0x40046D00, bytes_of({5})},
                                             umcb_request{0x40046D00, bytes_of({6})}));
    EXPECT_EQ(umcb::open_by_name("control").value().map_size(), 0U);
    EXPECT_EQ(first->requests.size(), 2U);
}

// quirk 162
TEST_F(CppUmcb, OnlyEntriesOfTheOtherClassAreCounted) {
    add_umcb(kernel, "umcb3", "control");
    EXPECT_EQ(umcb::max_index().status(), NORV_STATUS_NOT_FOUND);
    kernel.add_directory("/sys/class/umcb/uio5");
    EXPECT_EQ(umcb::max_index().value(), 5);
}

TEST_F(CppUmcb, AFailedOpenHasTheStatus) {
    EXPECT_EQ(umcb::open(7).status(), NORV_STATUS_NOT_FOUND);
    kernel.add_directory("/sys/class/umcb");
    EXPECT_EQ(umcb::open_by_name("none").status(), NORV_STATUS_NOT_FOUND);
    EXPECT_EQ(umcb::open_by_name(std::string(256, 'n')).status(), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(umcb::open_by_pci_id(1, 2).status(), NORV_STATUS_NOT_FOUND);
}

TEST_F(CppUmcb, AnIdentityIsWrittenToTheDriver) {
    EXPECT_EQ(umcb::load_pci(0x1234, 0x11E8), NORV_STATUS_NOT_AVAILABLE);
    kernel.add_file(new_id);
    EXPECT_EQ(umcb::load_pci(0x1234, 0x11E8), norv::ok);
    EXPECT_THAT(kernel.writes(new_id), ElementsAre("1234 11e8"));
}

TEST_F(CppUmcb, TheTableOfOperationsIsThatOfTheLibrary) {
    EXPECT_EQ(&umcb::pci_operations(), norv_umcb_get_pci_ops());
}

// ---- the device

TEST_F(CppOpenUmcb, RegistersAreReadAndWritten) {
    norv::test::expect_register_accesses(device, *node);
}

TEST_F(CppOpenUmcb, AllInterruptsAreControlledByTheDevice) {
    EXPECT_EQ(device.set_irq_type(3), norv::ok);
    EXPECT_EQ(device.enable_irqs(), norv::ok);
    EXPECT_EQ(device.disable_irqs(), norv::ok);
    EXPECT_THAT(node->requests, ElementsAre(umcb_request{0x40046D04, bytes_of({3})}, umcb_request{0x6D01, ""},
                                            umcb_request{0x6D02, ""}));
}

TEST_F(CppUmcb, APciDeviceHasAnIdentity) {
    const auto node = add_pci_umcb(kernel, "umcb2");
    const umcb device = umcb::open(2).value();
    const norv::uio_info info = device.get_info().value();
    EXPECT_EQ(info.kind, uio_kind::pci);
    EXPECT_EQ(info.vendor, 0x1234U);
    EXPECT_EQ(info.function, 3U);
    kernel.remove("/sys/devices/platform/umcb2/device/uevent");
    EXPECT_EQ(device.get_info().status(), NORV_STATUS_NOT_FOUND);
    EXPECT_EQ(device.get_kind().value(), uio_kind::pci);
}

// ---- interrupt sources

TEST_F(CppOpenUmcb, ASourceIsControlledAndClosedByItsOwner) {
    {
        umcb_irq source = device.register_irq(7).value();
        EXPECT_THAT(node->requests, ElementsAre(umcb_request{0xC0086D03, bytes_of({7, 0})}));
        EXPECT_EQ(kernel.open_descriptors(), 2U);
        EXPECT_EQ(source.enable(), norv::ok);
        EXPECT_EQ(source.wait(5ms), NORV_STATUS_TIMEOUT);
        node->source->pending = 1;
        EXPECT_EQ(source.wait(norv::no_limit), norv::ok);
        EXPECT_EQ(source.clear_event(), norv::ok);
        EXPECT_EQ(source.disable(), norv::ok);
        EXPECT_THAT(node->source->poll_timeouts, ElementsAre(5, -1));
        EXPECT_THAT(node->source->requests, ElementsAre(umcb_request{0x7200, ""}, umcb_request{0x7202, ""},
                                                        umcb_request{0x7202, ""}, umcb_request{0x7201, ""}));
    }
    EXPECT_EQ(kernel.open_descriptors(), 1U);
}

TEST_F(CppOpenUmcb, ASourceOutlivesTheDevice) {
    umcb_irq source = device.register_irq(7).value();
    { const umcb ended = std::move(device); }
    EXPECT_EQ(source.enable(), norv::ok);
}

TEST_F(CppOpenUmcb, ASourceThatCannotBeRegisteredHasTheStatus) {
    kernel.fail("ioctl", EBUSY);
    EXPECT_EQ(device.register_irq(7).status(), norv_get_status_by_errno(EBUSY));
}

// quirk 1, quirk 3
TEST_F(CppOpenUmcb, TheDescriptor0IsNeitherUsedNorClosed) {
    kernel.map_errno(EBUSY, 0);
    kernel.fail("ioctl", EBUSY);
    EXPECT_EQ(device.register_irq(7).status(), NORV_STATUS_BAD_STATE);
    EXPECT_THAT(kernel.calls("close").size(), kernel.calls("open").size() - 1);
}

// ---- moving

TEST_F(CppOpenUmcb, ADeviceThatWasMovedFromIsAnInvalidArgument) {
    const umcb other = std::move(device);
    kernel.forget_calls();
    EXPECT_EQ(device.set_irq_type(1), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(device.enable_irqs(), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(device.disable_irqs(), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(device.register_irq(1).status(), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(device.get_info().status(), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(device.get_kind().status(), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(device.map(), nullptr);
    EXPECT_EQ(device.get(), nullptr);
    EXPECT_THAT(kernel.calls(), IsEmpty());
    EXPECT_EQ(other.map(), node->registers.data());
}

TEST_F(CppOpenUmcb, ASourceThatWasMovedFromIsAnInvalidArgument) {
    umcb_irq source = device.register_irq(7).value();
    const umcb_irq other = std::move(source);
    kernel.forget_calls();
    EXPECT_EQ(source.enable(), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(source.disable(), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(source.clear_event(), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(source.wait(1s), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(source.descriptor(), -1);
    EXPECT_THAT(kernel.calls(), IsEmpty());
    EXPECT_GT(other.descriptor(), 0);
}

TEST_F(CppOpenUmcb, MovingIntoAnOpenOwnerClosesIt) {
    const auto second = add_umcb(kernel, "umcb1", "other");
    umcb_irq source = device.register_irq(7).value();
    source = device.register_irq(8).value();
    EXPECT_EQ(kernel.open_descriptors(), 2U);
    umcb_irq& same_source = source;
    source = std::move(same_source);
    EXPECT_GT(source.descriptor(), 0);
    device = umcb::open(1).value();
    EXPECT_EQ(kernel.open_descriptors(), 2U);
    EXPECT_EQ(kernel.mappings(), 1U);
    EXPECT_EQ(device.map(), second->registers.data());
}

// ---- events in tasks

class CppUmcbEvents : public CppOpenUmcb {
  protected:
    CppUmcbEvents() { kernel.forget_calls(); }

    static task<status> one(umcb_events& events) { co_return co_await events.next(); }

    umcb_irq source = device.register_irq(7).value();
    norv::test::urgent_descriptor urgent{source.descriptor()};
    norv::loop loop = norv::loop::open().value();
    umcb_events events{source};
};

TEST_F(CppUmcbEvents, ATaskWaitsForEachEvent) {
    for (size_t round = 1; round <= 2; ++round) {
        EXPECT_EQ(norv::test::run_until_ready(loop, one(events), [this] { urgent.raise(); }), norv::ok);
        urgent.lower();
        EXPECT_EQ(node->source->requests, std::vector(round, umcb_request{0x7202, ""}));
    }
}

TEST_F(CppUmcbEvents, AnEventThatCannotBeClearedHasTheStatus) {
    kernel.fail("ioctl", EIO);
    EXPECT_EQ(norv::test::run_until_ready(loop, one(events), [this] { urgent.raise(); }),
              NORV_STATUS_DEVICE_ERROR);
}

TEST_F(CppUmcbEvents, AStoppedTaskClearsNothing) {
    EXPECT_EQ(norv::test::stop_before_ready(loop, one(events), [this] { urgent.raise(); }),
              NORV_STATUS_TIMEOUT);
    EXPECT_THAT(node->source->requests, IsEmpty());
}

TEST_F(CppUmcbEvents, ATaskThatEndsWhileItWaitsLeavesNothing) {
    norv::test::end_before_ready(loop, one(events), [this] { urgent.raise(); });
    EXPECT_THAT(node->source->requests, IsEmpty());
}

// ---- failures

TEST(CppUmcbSweep, NothingLeaksThroughTheOwners) {
    for (const bool is_by_index : {false, true}) {
        norv::test::owner_sweep(
            [](kernel_double& kernel) { add_pci_umcb(kernel, "umcb0")->source->pending = 1; },
            [is_by_index] {
                norv::result<umcb> device =
                    is_by_index ? umcb::open(0, 1) : umcb::open_by_name("umcb_pci_mmap");
                if (!device) {
                    return device.status().number();
                }
                umcb moved = *std::move(device);
                norv::result<umcb_irq> source = moved.register_irq(7);
                if (!source) {
                    return source.status().number();
                }
                umcb_irq moved_source = *std::move(source);
                status done = moved_source.enable();
                done = done.ok() ? moved_source.wait(1ms) : done;
                return (done.ok() ? moved.get_info().status() : done).number();
            });
    }
}

}  // namespace
