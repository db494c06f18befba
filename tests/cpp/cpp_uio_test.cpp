// SPDX-License-Identifier: MIT
// The owner of a UIO device, and its interrupts in tasks.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/eventfd.h>

#include <chrono>
#include <memory>
#include <string>
#include <utility>

#include "cpp/mapped_registers.hpp"
#include "cpp/owner_sweep.hpp"
#include "cpp/waiting_task.hpp"
#include "mapped/uio_devices.hpp"
#include "norv/uio.hpp"

namespace {

using norv::status;
using norv::task;
using norv::uio;
using norv::uio_interrupts;
using norv::uio_kind;
using norv::test::add_pci_uio;
using norv::test::add_uio;
using norv::test::kernel_double;
using norv::test::uio_node;
using testing::ElementsAre;
using testing::IsEmpty;
using namespace std::chrono_literals;

constexpr char new_id[] = "/sys/bus/pci/drivers/uio_pci_mmap/new_id";

class CppUio : public testing::Test {
  protected:
    kernel_double kernel;
};

// uio0, a platform device.
class CppOpenUio : public CppUio {
  protected:
    CppOpenUio() { kernel.forget_calls(); }

    std::shared_ptr<uio_node> node = add_uio(kernel, "uio0", "fpga-regs");
    uio device = uio::open(0).value();
};

// ---- opening and closing

TEST_F(CppUio, AnOpenDeviceIsClosedWithItsOwner) {
    const auto node = add_uio(kernel, "uio3", "fpga-regs");
    {
        const norv::result<uio> device = uio::open(3);
        ASSERT_TRUE(device);
        EXPECT_GE(device->descriptor(), 0);
        EXPECT_EQ(device->map(), node->registers.data());
        EXPECT_EQ(kernel.mappings(), 1U);
    }
    EXPECT_EQ(kernel.open_descriptors(), 0U);
    EXPECT_EQ(kernel.mappings(), 0U);
}

TEST_F(CppUio, ADeviceIsFoundByItsNameAndByItsIdentity) {
    const auto plain = add_uio(kernel, "uio1", "fpga-regs");
    const auto pci = add_pci_uio(kernel, "uio2");
    const std::string text = "fpga-regs and more";
    EXPECT_EQ(uio::open_by_name(std::string_view(text).substr(0, 9)).value().map(), plain->registers.data());
    EXPECT_EQ(uio::open_by_pci_id(0x1234, 0x11E8).value().map(), pci->registers.data());
    EXPECT_EQ(uio::max_index().value(), 2);
}

TEST_F(CppUio, AFailedOpenHasTheStatus) {
    EXPECT_EQ(uio::open(7).status(), NORV_STATUS_NOT_FOUND);
    kernel.add_directory("/sys/class/uio");
    EXPECT_EQ(uio::open_by_name("none").status(), NORV_STATUS_NOT_FOUND);
    EXPECT_EQ(uio::open_by_name(std::string(256, 'n')).status(), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(uio::open_by_pci_id(1, 2).status(), NORV_STATUS_NOT_FOUND);
    EXPECT_EQ(uio::max_index().status(), NORV_STATUS_NOT_FOUND);
}

TEST_F(CppUio, AnIdentityIsWrittenToTheDriver) {
    EXPECT_EQ(uio::load_pci(0x1234, 0x11E8), NORV_STATUS_NOT_AVAILABLE);
    kernel.add_file(new_id);
    EXPECT_EQ(uio::load_pci(0x1234, 0x11E8), norv::ok);
    EXPECT_THAT(kernel.writes(new_id), ElementsAre("1234 11e8"));
}

TEST_F(CppUio, TheTablesOfOperationsAreThoseOfTheLibrary) {
    EXPECT_EQ(&uio::generic_operations(), norv_uio_get_generic_ops());
    EXPECT_EQ(&uio::pci_operations(), norv_uio_get_pci_ops());
}

// ---- the device

TEST_F(CppOpenUio, RegistersAreReadAndWritten) {
    norv::test::expect_register_accesses(device, *node);
}

TEST_F(CppOpenUio, TheInterruptIsEnabledDisabledAndTaken) {
    EXPECT_EQ(device.enable_irq(), norv::ok);
    EXPECT_EQ(device.disable_irq(), norv::ok);
    EXPECT_THAT(node->control, ElementsAre(1, 0));
    EXPECT_EQ(device.wait_irq(5ms), NORV_STATUS_TIMEOUT);
    node->pending = 1;
    EXPECT_EQ(device.wait_irq(norv::no_limit), norv::ok);
    EXPECT_EQ(node->pending, 0U);
    EXPECT_THAT(node->poll_timeouts, ElementsAre(5, -1));
}

TEST_F(CppOpenUio, APlatformDeviceHasAKindAlone) {
    const norv::uio_info info = device.get_info().value();
    EXPECT_EQ(info.kind, uio_kind::plain);
    EXPECT_EQ(info.vendor, 0U);
}

TEST_F(CppUio, APciDeviceHasAnIdentity) {
    const auto node = add_pci_uio(kernel, "uio0");
    const uio device = uio::open(0).value();
    const norv::uio_info info = device.get_info().value();
    EXPECT_EQ(info.kind, uio_kind::pci);
    EXPECT_EQ(info.vendor, 0x1234U);
    EXPECT_EQ(info.device, 0x11E8U);
    EXPECT_EQ(info.domain, 1U);
    EXPECT_EQ(info.bus, 2U);
    EXPECT_EQ(info.slot, 0x1FU);
    EXPECT_EQ(info.function, 3U);
}

TEST_F(CppUio, TheKindIsKnownWithoutTheIdentity) {
    const auto node = add_pci_uio(kernel, "uio0");
    const uio device = uio::open(0).value();
    kernel.remove("/sys/devices/platform/uio0/device/uevent");
    EXPECT_EQ(device.get_info().status(), NORV_STATUS_NOT_FOUND);
    EXPECT_EQ(device.get_kind().value(), uio_kind::pci);
}

// ---- moving

TEST_F(CppOpenUio, ADeviceThatWasMovedFromIsAnInvalidArgument) {
    const uio other = std::move(device);
    kernel.forget_calls();
    EXPECT_EQ(device.enable_irq(), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(device.disable_irq(), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(device.wait_irq(1s), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(device.get_info().status(), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(device.get_kind().status(), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(device.descriptor(), -1);
    EXPECT_EQ(device.map(), nullptr);
    EXPECT_EQ(device.get(), nullptr);
    EXPECT_THAT(kernel.calls(), IsEmpty());
    EXPECT_EQ(other.map(), node->registers.data());
}

TEST_F(CppOpenUio, MovingIntoAnOpenDeviceClosesIt) {
    const auto second = add_uio(kernel, "uio1", "other");
    device = uio::open(1).value();
    EXPECT_EQ(kernel.open_descriptors(), 1U);
    EXPECT_EQ(kernel.mappings(), 1U);
    EXPECT_EQ(device.map(), second->registers.data());
    uio& same = device;
    device = std::move(same);
    EXPECT_EQ(device.map(), second->registers.data());
}

// ---- interrupts in tasks

class CppUioInterrupts : public CppOpenUio {
  protected:
    static task<status> one(uio_interrupts& interrupts) { co_return co_await interrupts.next(); }

    void raise() {
        node->pending = 1;
        eventfd_write(device.descriptor(), 1);
    }
    void lower() {
        eventfd_t count = 0;
        eventfd_read(device.descriptor(), &count);
    }

    norv::loop loop = norv::loop::open().value();
    uio_interrupts interrupts{device};
};

TEST_F(CppUioInterrupts, ATaskWaitsForEachInterrupt) {
    for (int round = 0; round < 2; ++round) {
        EXPECT_EQ(norv::test::run_until_ready(loop, one(interrupts), [this] { raise(); }), norv::ok);
        EXPECT_EQ(node->pending, 0U);
        lower();
    }
    EXPECT_THAT(node->read_sizes, ElementsAre(4, 4));
}

TEST_F(CppUioInterrupts, AWaitOutlastsAnInterruptThatSomebodyElseTook) {
    const norv::job<status> waiting(loop, one(interrupts));
    raise();
    node->pending = 0;
    norv::test::run_a_while(loop);
    EXPECT_FALSE(waiting.done());
    EXPECT_THAT(node->read_sizes, IsEmpty());
}

TEST_F(CppUioInterrupts, AnErrorOfTheDeviceEndsTheWait) {
    kernel.fail("read", EIO);
    EXPECT_EQ(norv::test::run_until_ready(loop, one(interrupts), [this] { raise(); }),
              NORV_STATUS_DEVICE_ERROR);
}

TEST_F(CppUioInterrupts, AStoppedTaskTakesNothing) {
    EXPECT_EQ(norv::test::stop_before_ready(loop, one(interrupts), [this] { raise(); }), NORV_STATUS_TIMEOUT);
    EXPECT_EQ(node->pending, 1U);
}

TEST_F(CppUioInterrupts, ATaskThatWasStoppedBeforeTakesNothing) {
    node->pending = 1;
    EXPECT_EQ(norv::test::stopped_before_waiting(loop, one(interrupts)), NORV_STATUS_TIMEOUT);
    EXPECT_EQ(node->pending, 1U);
}

TEST_F(CppUioInterrupts, ATaskThatEndsWhileItWaitsLeavesNothing) {
    norv::test::end_before_ready(loop, one(interrupts), [this] { raise(); });
    EXPECT_EQ(node->pending, 1U);
}

// ---- failures

TEST(CppUioSweep, NothingLeaksThroughTheOwner) {
    for (const bool is_pci : {false, true}) {
        norv::test::owner_sweep(
            [is_pci](kernel_double& kernel) {
                const auto node = is_pci ? add_pci_uio(kernel, "uio0", "0x1234", "0x11e8")
                                         : add_uio(kernel, "uio0", "fpga-regs");
                node->pending = 1;
                kernel.add_file("/sys/dev/char/0:0/maps/map0/size", "0x1000\n");
            },
            [is_pci] {
                norv::result<uio> device =
                    is_pci ? uio::open_by_pci_id(0x1234, 0x11E8) : uio::open_by_name("fpga-regs");
                if (!device) {
                    return device.status().number();
                }
                uio moved = *std::move(device);
                status done = moved.enable_irq();
                done = done.ok() ? moved.wait_irq(1ms) : done;
                return (done.ok() ? moved.get_info().status() : done).number();
            });
    }
}

}  // namespace
