// SPDX-License-Identifier: MIT
// UMCB devices: discovery, mapping, registers, the identity of those on PCI, and the interrupt sources.
#include "norv_umcb.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/mman.h>
#include <unistd.h>

#include <array>
#include <cstring>
#include <memory>
#include <string>
#include <thread>

#include "mapped/umcb_devices.hpp"
#include "support/failure_sweep.hpp"
#include "support/status.hpp"

namespace {

using norv::test::add_mapped_device;
using norv::test::add_pci_umcb;
using norv::test::add_umcb;
using norv::test::at_descriptor_0;
using norv::test::bytes_of;
using norv::test::ends_uevent_file;
using norv::test::errno_status;
using norv::test::fault;
using norv::test::hides_identity;
using norv::test::kernel_double;
using norv::test::opened_node;
using norv::test::strike;
using norv::test::umcb_node;
using norv::test::umcb_request;
using norv::test::unmapping;
using norv::test::words_of;
using testing::ElementsAre;
using testing::Field;
using testing::IsEmpty;

constexpr char new_id[] = "/sys/bus/pci/drivers/umcb_pci_generic/new_id";
constexpr char uevent[] = "/sys/class/umcb/umcb2/device/uevent";

class Umcb : public testing::Test {
  protected:
    kernel_double kernel;
    norv_umcb_t* device = nullptr;
    norv_uio_info_t info = {9, 9, 9, 9, 9, 9, 9};
};

// umcb3, which is not on PCI, opened without a mode.
class OpenUmcb : public Umcb {
  protected:
    OpenUmcb() {
        EXPECT_EQ(norv_umcb_open_by_idx(3, -1, &device), 0U);
        kernel.forget_calls();
    }
    ~OpenUmcb() override { norv_umcb_close(&device); }

    std::shared_ptr<umcb_node> node = add_umcb(kernel, "umcb3", "control");
};

// umcb2, a PCI device, opened.
class OpenUmcbPci : public Umcb {
  protected:
    OpenUmcbPci() {
        EXPECT_EQ(norv_umcb_open_by_idx(2, -1, &device), 0U);
        kernel.forget_calls();
    }
    ~OpenUmcbPci() override { norv_umcb_close(&device); }

    std::shared_ptr<umcb_node> node = add_pci_umcb(kernel, "umcb2");
};

// Source 7 of umcb3, registered.
class UmcbSource : public OpenUmcb {
  protected:
    UmcbSource() {
        EXPECT_EQ(norv_umcb_irq_register(&device, 7, &source), 0U);
        kernel.forget_calls();
    }
    ~UmcbSource() override { close(source); }

    int32_t source = -1;
    norv::test::umcb_source& driver = *node->source;
};

// ---- the highest index

// quirk 162
TEST_F(Umcb, AnEntryUmcb0DoesNotCountForTheHighestIndex) {
    add_umcb(kernel, "umcb0", "control");
    int32_t index = 7;
    EXPECT_EQ(norv_umcb_get_max_idx(&index), NORV_STATUS_NOT_FOUND);
    EXPECT_EQ(index, -1);
    EXPECT_THAT(kernel.calls("scandir"), ElementsAre(Field(&norv::test::call::path, "/sys/class/umcb")));
}

// quirk 162
TEST_F(Umcb, EntriesNamedUioCountForTheHighestIndex) {
    for (const char* entry : {"uio0", "uio12", "uio3", "uio99x", "uio", "umcb50"}) {
        kernel.add_directory(std::string("/sys/class/umcb/") + entry);
    }
    int32_t index = 7;
    EXPECT_EQ(norv_umcb_get_max_idx(&index), 0U);
    EXPECT_EQ(index, 12);
}

TEST_F(Umcb, AnEmptyClassHasNoHighestIndex) {
    kernel.add_directory("/sys/class/umcb");
    int32_t index = 7;
    EXPECT_EQ(norv_umcb_get_max_idx(&index), NORV_STATUS_NOT_FOUND);
    EXPECT_EQ(index, -1);
}

TEST_F(Umcb, AMissingClassIsNotFoundAndLeavesTheIndexUnchanged) {
    kernel.add_directory("/sys/class/uio/uio4");
    int32_t index = 7;
    EXPECT_EQ(norv_umcb_get_max_idx(&index), errno_status(ENOENT));
    EXPECT_EQ(index, 7);
}

// ---- opening by index

TEST_F(Umcb, TheNodeIsOpenedReadWriteWithCloseOnExec) {
    add_umcb(kernel, "umcb3", "control");
    EXPECT_EQ(norv_umcb_open_by_idx(3, -1, &device), 0U);
    ASSERT_NE(device, nullptr);
    EXPECT_THAT(kernel.open_flags("/dev/umcb3"), ElementsAre(O_RDWR | O_CLOEXEC));
    EXPECT_THAT(kernel.open_flags("/sys/class/umcb/umcb3/name"), ElementsAre(O_RDONLY | O_CLOEXEC));
    norv_umcb_close(&device);
}

TEST_F(Umcb, OpeningMapsRegionZeroReadWriteAndShared) {
    const auto node = add_umcb(kernel, "umcb3", "control");
    EXPECT_EQ(norv_umcb_open_by_idx(3, -1, &device), 0U);
    EXPECT_EQ(norv_umcb_get_map(&device), node->registers.data());
    EXPECT_EQ(node->mapped_size, 0x1000U);
    EXPECT_EQ(node->protection, PROT_READ | PROT_WRITE);
    EXPECT_EQ(node->flags, MAP_SHARED);
    EXPECT_EQ(node->offset, 0);
    norv_umcb_close(&device);
}

TEST_F(Umcb, TheMapSizeMayBeHexadecimalDecimalOrOctal) {
    const auto node = add_umcb(kernel, "umcb3", "control");
    for (const char* size : {"0x2000\n", "8192\n", "020000\n"}) {
        kernel.add_file("/sys/class/umcb/umcb3/maps/map0/size", size);
        EXPECT_EQ(norv_umcb_open_by_idx(3, -1, &device), 0U);
        EXPECT_EQ(node->mapped_size, 0x2000U);
        norv_umcb_close(&device);
        EXPECT_EQ(kernel.calls("munmap").back().as<unmapping>().size, 0x2000U);
    }
}

TEST_F(Umcb, ALargeRegionIsMappedAndUnmappedWhole) {
    const auto node = add_umcb(kernel, "umcb3", "control");
    kernel.add_file("/sys/class/umcb/umcb3/maps/map0/size", std::string(norv::test::large_size) + "\n");
    EXPECT_EQ(norv_umcb_open_by_idx(3, -1, &device), 0U);
    EXPECT_EQ(node->mapped_size, norv::test::large_size_read);
    norv_umcb_close(&device);
    EXPECT_EQ(kernel.calls("munmap").back().as<unmapping>().size, norv::test::large_size_read);
}

TEST_F(Umcb, TheMapSizeIsReadUpTo23BytesAndTheLastIsDropped) {
    const auto node = add_umcb(kernel, "umcb3", "control");
    kernel.add_file("/sys/class/umcb/umcb3/maps/map0/size", "0x0000000000000000200034\n");
    EXPECT_EQ(norv_umcb_open_by_idx(3, -1, &device), 0U);
    EXPECT_EQ(node->mapped_size, 0x2000U);
    norv_umcb_close(&device);
}

TEST_F(Umcb, ANegativeModeIsNotSet) {
    const auto node = add_umcb(kernel, "umcb3", "control");
    for (const int32_t mode : {-1, INT32_MIN}) {
        EXPECT_EQ(norv_umcb_open_by_idx(3, mode, &device), 0U);
        norv_umcb_close(&device);
    }
    EXPECT_THAT(node->requests, IsEmpty());
}

TEST_F(Umcb, AnyOtherModeIsSet) {
    const auto node = add_umcb(kernel, "umcb3", "control");
    for (const int32_t mode : {0, 5, INT32_MAX}) {
        EXPECT_EQ(norv_umcb_open_by_idx(3, mode, &device), 0U);
        norv_umcb_close(&device);
    }
    EXPECT_THAT(node->requests,
                ElementsAre(umcb_request{0x40046D00, bytes_of({0})}, umcb_request{0x40046D00, bytes_of({5})},
                            umcb_request{0x40046D00, bytes_of({INT32_MAX})}));
}

TEST_F(Umcb, TheModeIsSetBetweenOpeningAndMapping) {
    add_umcb(kernel, "umcb3", "control");
    EXPECT_EQ(norv_umcb_open_by_idx(3, 1, &device), 0U);
    std::vector<std::string> steps;
    for (const auto& made : kernel.calls()) {
        if (made.name == "open" || made.name == "ioctl") {
            steps.push_back(made.name + " " + made.path);
        }
    }
    EXPECT_THAT(steps, ElementsAre("open /sys/class/umcb/umcb3/name", "open /dev/umcb3", "ioctl /dev/umcb3",
                                   "open /sys/class/umcb/umcb3/maps/map0/size"));
    norv_umcb_close(&device);
}

TEST_F(Umcb, ARefusedModeReturnsTheErrnoStatusAndMapsNothing) {
    const auto node = add_umcb(kernel, "umcb3", "control");
    kernel.fail("ioctl", EBUSY);
    EXPECT_EQ(norv_umcb_open_by_idx(3, 0, &device), errno_status(EBUSY));
    EXPECT_EQ(device, nullptr);
    EXPECT_EQ(kernel.open_descriptors(), 0U);
    EXPECT_EQ(node->mapped_size, 0U);
    EXPECT_THAT(kernel.open_flags("/sys/class/umcb/umcb3/maps/map0/size"), IsEmpty());
}

TEST_F(Umcb, ARefusedModeWithStatusZeroIsIgnored) {
    add_umcb(kernel, "umcb3", "control");
    kernel.map_errno(EBUSY, 0);
    kernel.fail("ioctl", EBUSY);
    EXPECT_EQ(norv_umcb_open_by_idx(3, 0, &device), 0U);
    norv_umcb_close(&device);
}

// quirk 2
TEST_F(Umcb, TheIndexIsPrintedSigned) {
    EXPECT_EQ(norv_umcb_open_by_idx(0xFFFFFFFF, -1, &device), NORV_STATUS_NOT_FOUND);
    EXPECT_EQ(kernel.calls("open").back().path, "/sys/class/umcb/umcb-1/name");
}

TEST_F(Umcb, EveryFileOfTheDeviceHasTheSignedIndex) {
    add_pci_umcb(kernel, "umcb-65537");
    EXPECT_EQ(norv_umcb_open_by_idx(static_cast<uint32_t>(-65537), 0, &device), 0U);
    EXPECT_EQ(norv_umcb_get_info(&device, &info), 0U);
    EXPECT_EQ(info.vendor, 0x1234U);
    norv_umcb_close(&device);
}

TEST_F(Umcb, ADeviceThatDoesNotExistIsNotFoundAndTheHandleStaysNull) {
    EXPECT_EQ(norv_umcb_open_by_idx(3, 0, &device), NORV_STATUS_NOT_FOUND);
    EXPECT_EQ(device, nullptr);
    EXPECT_EQ(opened_node(kernel), "none");
}

TEST_F(Umcb, ANodeThatCannotBeOpenedReturnsTheErrnoStatus) {
    const auto node = add_umcb(kernel, "umcb3", "control");
    kernel.fail({.call = "open", .path = "/dev/umcb3", .error = EACCES});
    EXPECT_EQ(norv_umcb_open_by_idx(3, 0, &device), errno_status(EACCES));
    EXPECT_EQ(device, nullptr);
    EXPECT_THAT(node->requests, IsEmpty());
}

TEST_F(Umcb, AMapSizeThatCannotBeReadReturnsTheErrnoStatus) {
    add_umcb(kernel, "umcb3", "control");
    kernel.remove("/sys/class/umcb/umcb3/maps/map0/size");
    EXPECT_EQ(norv_umcb_open_by_idx(3, -1, &device), NORV_STATUS_NOT_FOUND);
    EXPECT_EQ(device, nullptr);
    EXPECT_EQ(kernel.open_descriptors(), 0U);
}

TEST_F(Umcb, ARefusedMappingReturnsTheErrnoStatusAndIsNotUndone) {
    add_umcb(kernel, "umcb3", "control");
    kernel.fail("mmap", EINVAL);
    EXPECT_EQ(norv_umcb_open_by_idx(3, -1, &device), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(device, nullptr);
    EXPECT_EQ(kernel.open_descriptors(), 0U);
    EXPECT_THAT(kernel.calls("munmap"), IsEmpty());
}

// quirk 1
TEST_F(Umcb, ARefusedMappingWithStatusZeroIsMapFailedAndNotUndone) {
    add_umcb(kernel, "umcb3", "control");
    kernel.map_errno(EINVAL, 0);
    kernel.fail("mmap", EINVAL);
    EXPECT_EQ(norv_umcb_open_by_idx(3, -1, &device), 0U);
    EXPECT_EQ(norv_umcb_get_map(&device), MAP_FAILED);
    norv_umcb_close(&device);
    EXPECT_THAT(kernel.calls("munmap"), IsEmpty());
}

TEST_F(Umcb, WithoutMemoryForTheHandleNothingIsOpened) {
    add_umcb(kernel, "umcb3", "control");
    kernel.fail("norv_zalloc", ENOMEM);
    EXPECT_EQ(norv_umcb_open_by_idx(3, 0, &device), NORV_STATUS_NO_MEMORY);
    EXPECT_EQ(device, nullptr);
    EXPECT_THAT(kernel.calls("open"), IsEmpty());
}

// quirk 157
TEST_F(OpenUmcb, WithoutMemoryForAHandleTheOldOneIsClosed) {
    kernel.fail("norv_zalloc", ENOMEM);
    EXPECT_EQ(norv_umcb_open_by_idx(3, -1, &device), NORV_STATUS_NO_MEMORY);
    EXPECT_EQ(device, nullptr);
    EXPECT_EQ(kernel.open_descriptors(), 0U);
    EXPECT_EQ(kernel.mappings(), 0U);
}

// ---- the kind

TEST_F(Umcb, OnlyTheExactNameMakesAPciDevice) {
    uint32_t index = 0;
    for (const char* name : {"umcb_pci_mmap2", "umcb_pci_mma", "uio_pci_mmap", "umcb_pci_generic", "x"}) {
        add_umcb(kernel, "umcb" + std::to_string(index), name);
        EXPECT_EQ(norv_umcb_open_by_idx(index++, -1, &device), 0U) << name;
        EXPECT_EQ(norv_umcb_get_info(&device, &info), 0U);
        EXPECT_EQ(info.kind, 0U) << name;
        norv_umcb_close(&device);
    }
    add_pci_umcb(kernel, "umcb9");
    EXPECT_EQ(norv_umcb_open_by_idx(9, -1, &device), 0U);
    EXPECT_EQ(norv_umcb_get_info(&device, &info), 0U);
    EXPECT_EQ(info.kind, 1U);
    norv_umcb_close(&device);
}

TEST_F(OpenUmcb, TheInfoOfADeviceThatIsNotOnPciIsItsKindAlone) {
    EXPECT_EQ(norv_umcb_get_info(&device, &info), 0U);
    EXPECT_THAT(words_of(info), ElementsAre(0, 9, 9, 9, 9, 9, 9));
    EXPECT_THAT(kernel.calls(), IsEmpty());
}

// ---- opening by name

// quirk 163
TEST_F(Umcb, OpeningByNameOpensDevice0WhicheverHasTheName) {
    add_umcb(kernel, "umcb0", "first");
    add_umcb(kernel, "umcb2", "second");
    EXPECT_EQ(norv_umcb_open_by_name("second", -1, &device), 0U);
    EXPECT_EQ(opened_node(kernel), "/dev/umcb0");
    EXPECT_EQ(kernel.calls("scandir").back().path, "/sys/class/umcb/");
    norv_umcb_close(&device);
}

// quirk 163
TEST_F(Umcb, TheNumberFollowsTheThirdCharacterOfAnyEntry) {
    add_umcb(kernel, "umc0x1f", "strange");
    EXPECT_EQ(norv_umcb_open_by_name("strange", -1, &device), NORV_STATUS_NOT_FOUND);
    EXPECT_EQ(kernel.calls("open").back().path, "/sys/class/umcb/umcb31/name");
}

TEST_F(Umcb, OpeningByNameSetsAModeThatIsNotNegative) {
    const auto node = add_umcb(kernel, "umcb0", "control");
    EXPECT_EQ(norv_umcb_open_by_name("control", 6, &device), 0U);
    norv_umcb_close(&device);
    EXPECT_EQ(norv_umcb_open_by_name("control", -1, &device), 0U);
    norv_umcb_close(&device);
    EXPECT_THAT(node->requests, ElementsAre(umcb_request{0x40046D00, bytes_of({6})}));
}

TEST_F(Umcb, ANameMustMatchCompletely) {
    add_umcb(kernel, "umcb0", "control");
    for (const char* name : {"contro", "control2", "CONTROL", "control\n", ""}) {
        EXPECT_EQ(norv_umcb_open_by_name(name, -1, &device), NORV_STATUS_NOT_FOUND) << name;
        EXPECT_EQ(device, nullptr);
    }
}

TEST_F(Umcb, ANameIsReadUpTo127BytesAndTheLastIsDropped) {
    add_umcb(kernel, "umcb0", std::string(200, 'n'));
    EXPECT_EQ(norv_umcb_open_by_name(std::string(126, 'n').c_str(), -1, &device), 0U);
    norv_umcb_close(&device);
    EXPECT_EQ(norv_umcb_open_by_name(std::string(127, 'n').c_str(), -1, &device), NORV_STATUS_NOT_FOUND);
}

TEST_F(Umcb, AnEntryThatIsNotALinkIsIgnored) {
    kernel.add_file("/sys/class/umcb/umcb0/name", "control\n");
    EXPECT_EQ(norv_umcb_open_by_name("control", -1, &device), NORV_STATUS_NOT_FOUND);
    EXPECT_THAT(kernel.calls("open"), IsEmpty());
}

TEST_F(Umcb, AfterAMatchNoOtherNameIsRead) {
    add_umcb(kernel, "umcb0", "twin");
    add_umcb(kernel, "umcb1", "twin");
    EXPECT_EQ(norv_umcb_open_by_name("twin", -1, &device), 0U);
    EXPECT_THAT(kernel.open_flags("/sys/class/umcb/umcb1/name"), IsEmpty());
    norv_umcb_close(&device);
}

TEST_F(Umcb, AnUnreadableClassReturnsTheErrnoStatus) {
    EXPECT_EQ(norv_umcb_open_by_name("control", -1, &device), errno_status(ENOENT));
    EXPECT_EQ(norv_umcb_open_by_pci_id(0x1234, 0x11E8, -1, &device), errno_status(ENOENT));
    EXPECT_EQ(device, nullptr);
}

// quirk 1
TEST_F(Umcb, AnUnreadableClassWithStatusZeroOpensDeviceZeroWithTheMode) {
    const auto node = add_umcb(kernel, "umcb0", "another");
    kernel.map_errno(EACCES, 0);
    kernel.fail("scandir", EACCES);
    EXPECT_EQ(norv_umcb_open_by_name("control", 3, &device), 0U);
    EXPECT_EQ(opened_node(kernel), "/dev/umcb0");
    norv_umcb_close(&device);
    kernel.fail("scandir", EACCES);
    EXPECT_EQ(norv_umcb_open_by_pci_id(0x1234, 0x11E8, 4, &device), 0U);
    norv_umcb_close(&device);
    EXPECT_THAT(node->requests, ElementsAre(umcb_request{0x40046D00, bytes_of({3})},
                                            umcb_request{0x40046D00, bytes_of({4})}));
}

TEST_F(Umcb, AnEmptyClassHasNoDevice) {
    kernel.add_directory("/sys/class/umcb");
    EXPECT_EQ(norv_umcb_open_by_name("control", -1, &device), NORV_STATUS_NOT_FOUND);
    EXPECT_EQ(norv_umcb_open_by_pci_id(0x1234, 0x11E8, -1, &device), NORV_STATUS_NOT_FOUND);
}

// ---- PCI: binding and opening by identity

TEST_F(Umcb, BindingWritesTheIdentityInLowerCaseWithoutNewlineOrNul) {
    kernel.add_file(new_id);
    EXPECT_EQ(norv_umcb_load_pci(0x1234, 0xABCD), 0U);
    EXPECT_EQ(norv_umcb_load_pci(0x1, 0), 0U);
    EXPECT_THAT(kernel.writes(new_id), ElementsAre("1234 abcd", "0001 0000"));
}

TEST_F(Umcb, BindingIsNotAvailableWithoutItsOwnDriver) {
    kernel.add_file("/sys/bus/pci/drivers/uio_pci_mmap/new_id");
    kernel.add_file("/sys/bus/pci/drivers/uio_pci_generic/new_id");
    kernel.add_file("/sys/bus/pci/drivers/umcb_pci_mmap/new_id");
    EXPECT_EQ(norv_umcb_load_pci(0x1234, 0x11E8), NORV_STATUS_NOT_AVAILABLE);
    EXPECT_THAT(kernel.calls("open"), IsEmpty());
}

TEST_F(Umcb, ARefusedBindingReturnsTheErrnoStatus) {
    kernel.add_file(new_id);
    kernel.on_write(new_id, [](std::string_view) { return EEXIST; });
    EXPECT_EQ(norv_umcb_load_pci(0x1234, 0x11E8), errno_status(EEXIST));
}

// quirk 163
TEST_F(Umcb, OpeningByIdentityOpensDevice0WhicheverHasTheIdentity) {
    add_umcb(kernel, "umcb0", "control");
    add_pci_umcb(kernel, "umcb1", "0x8086", "0x11e8");
    add_pci_umcb(kernel, "umcb2", "0x1234", "0x0001");
    add_pci_umcb(kernel, "umcb3", "0x1234", "0x11e8");
    EXPECT_EQ(norv_umcb_open_by_pci_id(0x1234, 0x11E8, -1, &device), 0U);
    EXPECT_EQ(opened_node(kernel), "/dev/umcb0");
    EXPECT_EQ(kernel.calls("scandir").back().path, "/sys/class/umcb/");
    EXPECT_EQ(norv_umcb_get_info(&device, &info), 0U);
    EXPECT_EQ(info.kind, 0U);
    norv_umcb_close(&device);
}

TEST_F(Umcb, AnIdentityThatNoDeviceHasIsNotFound) {
    add_umcb(kernel, "umcb0", "control");
    add_pci_umcb(kernel, "umcb1", "0x8086", "0x11e8");
    add_pci_umcb(kernel, "umcb2", "0x1234", "0x0001");
    EXPECT_EQ(norv_umcb_open_by_pci_id(0x1234, 0x11E8, -1, &device), NORV_STATUS_NOT_FOUND);
    EXPECT_THAT(kernel.open_flags("/sys/class/umcb/umcb1/device/device"), IsEmpty());
    EXPECT_EQ(device, nullptr);
}

TEST_F(Umcb, OpeningByIdentitySetsAModeThatIsNotNegative) {
    const auto node = add_pci_umcb(kernel, "umcb0");
    EXPECT_EQ(norv_umcb_open_by_pci_id(0x1234, 0x11E8, 2, &device), 0U);
    norv_umcb_close(&device);
    EXPECT_EQ(norv_umcb_open_by_pci_id(0x1234, 0x11E8, -1, &device), 0U);
    norv_umcb_close(&device);
    EXPECT_THAT(node->requests, ElementsAre(umcb_request{0x40046D00, bytes_of({2})}));
}

// ---- PCI: the identity

TEST_F(OpenUmcbPci, TheIdentityComesFromTheUeventFile) {
    EXPECT_EQ(norv_umcb_get_info(&device, &info), 0U);
    EXPECT_THAT(words_of(info), ElementsAre(1, 0x1234, 0x11E8, 1, 2, 0x1F, 3));
    EXPECT_EQ(kernel.calls("fopen").back().path, uevent);
}

TEST_F(OpenUmcbPci, WithoutALineForTheSlotItsFieldsAreUnchanged) {
    kernel.add_file(uevent, "DRIVER=umcb_pci_generic\nPCI_ID=10EE:7024\n");
    EXPECT_EQ(norv_umcb_get_info(&device, &info), 0U);
    EXPECT_THAT(words_of(info), ElementsAre(1, 0x10EE, 0x7024, 9, 9, 9, 9));
}

TEST_F(OpenUmcbPci, WithoutALineForTheIdentityItsFieldsAreUnchanged) {
    kernel.add_file(uevent, "PCI_SLOT_NAME=0000:00:05.0\n");
    EXPECT_EQ(norv_umcb_get_info(&device, &info), 0U);
    EXPECT_THAT(words_of(info), ElementsAre(1, 9, 9, 0, 0, 5, 0));
}

TEST_F(OpenUmcbPci, AMissingUeventFileReturnsTheErrnoStatusAndTheKind) {
    kernel.remove(uevent);
    EXPECT_EQ(norv_umcb_get_info(&device, &info), NORV_STATUS_NOT_FOUND);
    EXPECT_THAT(words_of(info), ElementsAre(1, 9, 9, 9, 9, 9, 9));
}

// quirk 164
TEST_F(Umcb, ThePathOfTheUeventFileHasAtMost43Characters) {
    add_pci_umcb(kernel, "umcb999999999");
    add_pci_umcb(kernel, "umcb1234567890");
    EXPECT_EQ(norv_umcb_open_by_idx(999999999, -1, &device), 0U);
    EXPECT_EQ(norv_umcb_get_info(&device, &info), 0U);
    norv_umcb_close(&device);
    EXPECT_EQ(norv_umcb_open_by_idx(1234567890, -1, &device), 0U);
    EXPECT_EQ(norv_umcb_get_info(&device, &info), NORV_STATUS_NOT_FOUND);
    EXPECT_EQ(kernel.calls("fopen").back().path, "/sys/class/umcb/umcb1234567890/device/ueven");
    norv_umcb_close(&device);
}

TEST_F(OpenUmcbPci, TheTableHasNoHooksAndReportsTheIdentity) {
    const norv_umcb_ops_t* operations = norv_umcb_get_pci_ops();
    EXPECT_EQ(operations->open, nullptr);
    EXPECT_EQ(operations->close, nullptr);
    EXPECT_EQ(operations->get_info(&device, &info), 0U);
    EXPECT_THAT(words_of(info), ElementsAre(1, 0x1234, 0x11E8, 1, 2, 0x1F, 3));
    EXPECT_EQ(norv_umcb_get_pci_ops(), operations);
}

// Gives an open device another table of operations.
void set_operations(norv_umcb_t* device, const norv_umcb_ops_t* operations) {
    reinterpret_cast<norv::test::device_record<norv_umcb_ops_t>*>(device)->ops = operations;
}

TEST_F(OpenUmcbPci, ATableWithoutGetInfoFillsTheKindAlone) {
    static constexpr norv_umcb_ops_t empty_table = {nullptr, nullptr, nullptr};
    set_operations(device, &empty_table);
    EXPECT_EQ(norv_umcb_get_info(&device, &info), 0U);
    EXPECT_THAT(words_of(info), ElementsAre(1, 9, 9, 9, 9, 9, 9));
    EXPECT_THAT(kernel.calls(), IsEmpty());
}

TEST_F(OpenUmcb, TheTablesGetInfoIsUsedWhateverTheKind) {
    static constexpr norv_umcb_ops_t refusing_table = {nullptr, nullptr,
                                                       [](norv_umcb_t**, norv_uio_info_t*) { return 77U; }};
    set_operations(device, &refusing_table);
    EXPECT_EQ(norv_umcb_get_info(&device, &info), 77U);
    EXPECT_THAT(words_of(info), ElementsAre(9, 9, 9, 9, 9, 9, 9));
}

TEST_F(OpenUmcb, TheTablesCloseHookRunsFirst) {
    static void* mapped_in_hook = nullptr;
    constexpr norv_umcb_ops_t table = {
        nullptr, [](norv_umcb_t** closing) { mapped_in_hook = norv_umcb_get_map(closing); }, nullptr};
    set_operations(device, &table);
    norv_umcb_close(&device);
    EXPECT_EQ(mapped_in_hook, node->registers.data());
    EXPECT_EQ(device, nullptr);
}

TEST_F(Umcb, TheConfigurationSpaceIsNotAccessed) {
    add_pci_umcb(kernel, "umcb2");
    kernel.add_file("/sys/class/umcb/umcb2/device/config", "untouched");
    EXPECT_EQ(norv_umcb_open_by_idx(2, -1, &device), 0U);
    EXPECT_EQ(norv_umcb_irq_global_enable(&device), 0U);
    EXPECT_EQ(norv_umcb_irq_global_disable(&device), 0U);
    EXPECT_THAT(kernel.open_flags("/sys/class/umcb/umcb2/device/config"), IsEmpty());
    EXPECT_EQ(kernel.open_descriptors(), 1U);
    norv_umcb_close(&device);
}

// ---- closing, null pointers

TEST_F(OpenUmcb, ClosingUnmapsClosesReleasesAndMakesTheHandleNull) {
    norv_umcb_close(&device);
    EXPECT_EQ(device, nullptr);
    EXPECT_THAT(kernel.calls<unmapping>("munmap"), ElementsAre(Field(&unmapping::size, 0x1000U)));
    EXPECT_EQ(kernel.open_descriptors(), 0U);
    EXPECT_EQ(kernel.allocations(), 0U);
}

TEST_F(Umcb, ANodeWithDescriptor0IsNotClosed) {
    const auto node = std::make_shared<at_descriptor_0<umcb_node>>(kernel);
    add_mapped_device(kernel, "umcb", "umcb3", "control", node);
    EXPECT_EQ(norv_umcb_open_by_idx(3, -1, &device), 0U);
    kernel.forget_calls();
    norv_umcb_close(&device);
    EXPECT_EQ(device, nullptr);
    EXPECT_THAT(kernel.calls("close"), IsEmpty());
    EXPECT_EQ(kernel.open_descriptors(), 1U);
    close(0);
}

TEST_F(OpenUmcb, ClosingTwiceClosesNothingTheSecondTime) {
    norv_umcb_close(&device);
    kernel.forget_calls();
    norv_umcb_close(&device);
    EXPECT_THAT(kernel.calls(), IsEmpty());
}

TEST_F(Umcb, ANullHandleIsAnInvalidArgumentAndClosingAcceptsIt) {
    int32_t source = 7;
    norv_umcb_close(nullptr);
    norv_umcb_close(&device);
    EXPECT_EQ(norv_umcb_get_max_idx(nullptr), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(norv_umcb_open_by_idx(0, 0, nullptr), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(norv_umcb_open_by_name("x", 0, nullptr), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(norv_umcb_open_by_name(nullptr, 0, &device), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(norv_umcb_open_by_pci_id(1, 2, 0, nullptr), NORV_STATUS_INVALID_ARG);
    for (norv_umcb_t** none : {static_cast<norv_umcb_t**>(nullptr), &device}) {
        EXPECT_EQ(norv_umcb_get_info(none, &info), NORV_STATUS_INVALID_ARG);
        EXPECT_EQ(norv_umcb_irq_register(none, 0, &source), NORV_STATUS_INVALID_ARG);
        EXPECT_EQ(norv_umcb_irq_global_enable(none), NORV_STATUS_INVALID_ARG);
        EXPECT_EQ(norv_umcb_irq_global_disable(none), NORV_STATUS_INVALID_ARG);
        EXPECT_EQ(norv_umcb_irq_set_type(none, 0), NORV_STATUS_INVALID_ARG);
    }
    EXPECT_EQ(source, 7);
    EXPECT_THAT(kernel.calls(), IsEmpty());
}

TEST_F(OpenUmcb, ANullResultIsAnInvalidArgument) {
    EXPECT_EQ(norv_umcb_get_info(&device, nullptr), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(norv_umcb_irq_register(&device, 7, nullptr), NORV_STATUS_INVALID_ARG);
    EXPECT_THAT(kernel.calls(), IsEmpty());
}

// ---- registers

TEST_F(OpenUmcb, AWriteStoresOneRegisterAndNothingElse) {
    node->registers.fill(0xA5A5A5A5);
    norv_umcb_write_32(&device, 0x10, 0x12345678);
    EXPECT_EQ(node->registers[3], 0xA5A5A5A5);
    EXPECT_EQ(node->registers[4], 0x12345678U);
    EXPECT_EQ(node->registers[5], 0xA5A5A5A5);
}

TEST_F(OpenUmcb, AReadLoadsOneRegister) {
    node->registers[0] = 0xFFFFFFFF;
    node->registers[1023] = 0xDEADBEEF;
    EXPECT_EQ(norv_umcb_read_32(&device, 0), 0xFFFFFFFFU);
    EXPECT_EQ(norv_umcb_read_32(&device, 0xFFC), 0xDEADBEEFU);
}

TEST_F(OpenUmcb, RegisterAccessMakesNoSystemCall) {
    norv_umcb_write_32(&device, 4, norv_umcb_read_32(&device, 0));
    EXPECT_THAT(kernel.calls(), IsEmpty());
}

// ---- the register bus; register n is at address 4 n and holds 1000 + n

class UmcbBus : public OpenUmcb {
  protected:
    UmcbBus() {
        memset(&bus, 0xA5, sizeof bus);
        EXPECT_EQ(norv_umcb_open_mcb_bus(&device, &bus), 0U);
        for (uint32_t number = 0; number < node->registers.size(); ++number) {
            node->registers[number] = 1000 + number;
        }
    }
    ~UmcbBus() override { bus.close(&bus); }

    norv_mcb_bus_t bus;
    std::array<uint32_t, 4> values = {9, 9, 9, 9};
};

TEST_F(UmcbBus, OpeningClearsTheFlagsAndFillsEveryOperation) {
    EXPECT_EQ(bus.flags, 0U);
    EXPECT_EQ(bus.read_based, bus.read);
    EXPECT_EQ(bus.write_based, bus.write);
    EXPECT_EQ(bus.read_burst_based, bus.read_burst);
    EXPECT_EQ(bus.write_burst_based, bus.write_burst);
    EXPECT_NE(bus.context, nullptr);
}

TEST_F(UmcbBus, SinglesReadAndWriteOneRegister) {
    EXPECT_EQ(bus.read(&bus, 0x10, &values[1]), 0U);
    EXPECT_THAT(values, ElementsAre(9, 1004, 9, 9));
    EXPECT_EQ(bus.write(&bus, 0x10, 5), 0U);
    EXPECT_EQ(node->registers[3], 1003U);
    EXPECT_EQ(node->registers[4], 5U);
    EXPECT_EQ(node->registers[5], 1005U);
}

TEST_F(UmcbBus, PlainListsUseTheirAddressesUnchanged) {
    const uint32_t addresses[] = {0x20, 0x00};
    const norv_mcb_reg_value_t list[] = {{0x30, 1}, {0x34, 2}, {0x30, 3}};
    EXPECT_EQ(bus.read_list(&bus, addresses, values.data(), 2), 0U);
    EXPECT_THAT(values, ElementsAre(1008, 1000, 9, 9));
    EXPECT_EQ(bus.write_list(&bus, list, 3), 0U);
    EXPECT_EQ(node->registers[12], 3U);
    EXPECT_EQ(node->registers[13], 2U);
}

// quirk 166
TEST_F(UmcbBus, ABasedReadListAddsItsBaseToEveryAddress) {
    const uint32_t addresses[] = {0x10, 0x20};
    EXPECT_EQ(bus.read_list_based(&bus, 0x100, addresses, values.data(), 2), 0U);
    EXPECT_THAT(values, ElementsAre(1068, 1072, 9, 9));
}

// quirk 166
TEST_F(UmcbBus, ABasedWriteListAddsItsBaseToEveryAddress) {
    const norv_mcb_reg_value_t list[] = {{0x10, 5}, {0x20, 6}};
    EXPECT_EQ(bus.write_list_based(&bus, 0x100, list, 2), 0U);
    EXPECT_EQ(node->registers[0x110 / 4], 5U);
    EXPECT_EQ(node->registers[0x120 / 4], 6U);
    EXPECT_EQ(node->registers[0x10 / 4], 1004U);
    EXPECT_EQ(node->registers[0x20 / 4], 1008U);
}

// quirk 166
TEST_F(UmcbBus, TheSumOfBaseAndAddressWrapsAt32Bits) {
    const uint32_t addresses[] = {0x110};
    const norv_mcb_reg_value_t list[] = {{0xFFFFFF20, 5}};
    EXPECT_EQ(bus.read_list_based(&bus, 0xFFFFFF00, addresses, values.data(), 1), 0U);
    EXPECT_THAT(values, ElementsAre(1004, 9, 9, 9));
    EXPECT_EQ(bus.write_list_based(&bus, 0x100, list, 1), 0U);
    EXPECT_EQ(node->registers[8], 5U);
}

TEST_F(UmcbBus, BurstsGoUpDownOrNowhere) {
    const uint32_t written[] = {1, 2, 3};
    EXPECT_EQ(bus.read_burst(&bus, 0x100, values.data(), 3, NORV_MCB_BURST_UP), 0U);
    EXPECT_THAT(values, ElementsAre(1064, 1065, 1066, 9));
    EXPECT_EQ(bus.read_burst(&bus, 0x100, values.data(), 3, NORV_MCB_BURST_DOWN), 0U);
    EXPECT_THAT(values, ElementsAre(1064, 1063, 1062, 9));
    EXPECT_EQ(bus.read_burst(&bus, 0x100, values.data(), 3, NORV_MCB_BURST_FIXED), 0U);
    EXPECT_THAT(values, ElementsAre(1064, 1064, 1064, 9));
    EXPECT_EQ(bus.write_burst(&bus, 0x100, written, 3, NORV_MCB_BURST_DOWN), 0U);
    EXPECT_EQ(node->registers[0xF8 / 4], 3U);
}

TEST_F(UmcbBus, ACountOf0DoesNothing) {
    EXPECT_EQ(bus.read_list_based(&bus, 0x100, nullptr, nullptr, 0), 0U);
    EXPECT_EQ(bus.write_list_based(&bus, 0x100, nullptr, 0), 0U);
}

TEST_F(UmcbBus, ClosingReleasesTheContextAndLeavesTheDeviceOpen) {
    const size_t before = kernel.allocations();
    bus.close(&bus);
    EXPECT_EQ(bus.context, nullptr);
    EXPECT_EQ(kernel.allocations(), before - 1);
    EXPECT_EQ(norv_umcb_read_32(&device, 0), 1000U);
    bus.close(nullptr);
}

TEST_F(UmcbBus, ABusThatCannotBeOpenedIsZeroed) {
    norv_mcb_bus_t second;
    memset(&second, 0xA5, sizeof second);
    kernel.fail("norv_malloc", ENOMEM);
    EXPECT_EQ(norv_umcb_open_mcb_bus(&device, &second), NORV_STATUS_NO_MEMORY);
    EXPECT_EQ(second.read, nullptr);
    EXPECT_EQ(second.context, nullptr);
    EXPECT_EQ(norv_umcb_open_mcb_bus(nullptr, &second), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(norv_umcb_open_mcb_bus(&device, nullptr), NORV_STATUS_INVALID_ARG);
}

// ---- the device's interrupts

TEST_F(OpenUmcb, RegisteringReturnsTheDescriptorThatTheDriverOpened) {
    int32_t source = -1;
    EXPECT_EQ(norv_umcb_irq_register(&device, 7, &source), 0U);
    EXPECT_THAT(node->requests, ElementsAre(umcb_request{0xC0086D03, bytes_of({7, 0})}));
    EXPECT_EQ(norv_umcb_irq_enable(source), 0U);
    EXPECT_EQ(node->source->requests.size(), 1U);
    EXPECT_EQ(close(source), 0);
}

TEST_F(OpenUmcb, ARefusedRegistrationLeavesTheDescriptorUnchanged) {
    int32_t source = 7;
    kernel.fail("ioctl", EINVAL);
    EXPECT_EQ(norv_umcb_irq_register(&device, 99, &source), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(source, 7);
}

TEST_F(OpenUmcb, ARefusedRegistrationWithStatusZeroYieldsDescriptor0) {
    int32_t source = 7;
    kernel.map_errno(EBUSY, 0);
    kernel.fail("ioctl", EBUSY);
    EXPECT_EQ(norv_umcb_irq_register(&device, 7, &source), 0U);
    EXPECT_EQ(source, 0);
}

TEST_F(OpenUmcb, ClosingTheDeviceLeavesTheDescriptorOfASourceOpen) {
    int32_t source = -1;
    EXPECT_EQ(norv_umcb_irq_register(&device, 7, &source), 0U);
    norv_umcb_close(&device);
    EXPECT_EQ(kernel.open_descriptors(), 1U);
    EXPECT_EQ(norv_umcb_irq_enable(source), 0U);
    EXPECT_EQ(close(source), 0);
}

TEST_F(OpenUmcb, EnablingAndDisablingTheDeviceHaveNoArgument) {
    EXPECT_EQ(norv_umcb_irq_global_enable(&device), 0U);
    EXPECT_EQ(norv_umcb_irq_global_disable(&device), 0U);
    EXPECT_THAT(node->requests, ElementsAre(umcb_request{0x6D01, ""}, umcb_request{0x6D02, ""}));
}

TEST_F(OpenUmcb, TheTypeIsPassedToTheDriver) {
    EXPECT_EQ(norv_umcb_irq_set_type(&device, 0), 0U);
    EXPECT_EQ(norv_umcb_irq_set_type(&device, 0x80000001), 0U);
    EXPECT_THAT(node->requests, ElementsAre(umcb_request{0x40046D04, bytes_of({0})},
                                            umcb_request{0x40046D04, bytes_of({0x80000001})}));
}

TEST_F(OpenUmcb, ARefusedRequestOfTheDeviceReturnsTheErrnoStatus) {
    kernel.fail("ioctl", EIO);
    EXPECT_EQ(norv_umcb_irq_global_enable(&device), errno_status(EIO));
    kernel.fail("ioctl", EPERM);
    EXPECT_EQ(norv_umcb_irq_global_disable(&device), errno_status(EPERM));
    kernel.fail("ioctl", EINVAL);
    EXPECT_EQ(norv_umcb_irq_set_type(&device, 5), errno_status(EINVAL));
}

// ---- one source

TEST_F(UmcbSource, EnablingDisablingAndClearingHaveNoArgument) {
    EXPECT_EQ(norv_umcb_irq_enable(source), 0U);
    EXPECT_EQ(norv_umcb_irq_disable(source), 0U);
    EXPECT_EQ(norv_umcb_irq_clear_event(source), 0U);
    EXPECT_THAT(driver.requests,
                ElementsAre(umcb_request{0x7200, ""}, umcb_request{0x7201, ""}, umcb_request{0x7202, ""}));
}

TEST_F(UmcbSource, ARefusedRequestOfASourceReturnsTheErrnoStatus) {
    kernel.fail("ioctl", EIO);
    EXPECT_EQ(norv_umcb_irq_enable(source), errno_status(EIO));
    kernel.fail("ioctl", EPERM);
    EXPECT_EQ(norv_umcb_irq_disable(source), errno_status(EPERM));
    kernel.fail("ioctl", EINVAL);
    EXPECT_EQ(norv_umcb_irq_clear_event(source), errno_status(EINVAL));
}

TEST(UmcbSourceDescriptor, OneThatIsNotOpenReturnsTheErrnoStatus) {
    EXPECT_EQ(norv_umcb_irq_enable(-1), errno_status(EBADF));
    EXPECT_EQ(norv_umcb_irq_disable(-1), errno_status(EBADF));
    EXPECT_EQ(norv_umcb_irq_clear_event(-1), errno_status(EBADF));
}

TEST_F(UmcbSource, AnEventEndsTheWaitAndIsCleared) {
    driver.pending = 1;
    EXPECT_EQ(norv_umcb_irq_wait(source, 1000), 0U);
    EXPECT_EQ(driver.pending, 0U);
    EXPECT_THAT(driver.poll_events, ElementsAre(POLLPRI));
    EXPECT_THAT(driver.poll_timeouts, ElementsAre(1000));
    EXPECT_THAT(driver.requests, ElementsAre(umcb_request{0x7202, ""}));
}

TEST_F(UmcbSource, TheWaitReadsNothing) {
    driver.pending = 1;
    EXPECT_EQ(norv_umcb_irq_wait(source, 1000), 0U);
    EXPECT_THAT(kernel.calls("read"), IsEmpty());
}

TEST_F(UmcbSource, WithoutAnEventTheWaitTimesOutAndClearsNothing) {
    EXPECT_EQ(norv_umcb_irq_wait(source, 5), NORV_STATUS_TIMEOUT);
    EXPECT_EQ(norv_umcb_irq_wait(source, 0), NORV_STATUS_TIMEOUT);
    EXPECT_THAT(driver.poll_timeouts, ElementsAre(5, 0));
    EXPECT_THAT(driver.requests, IsEmpty());
}

TEST_F(UmcbSource, ATimeoutOf32BitsWaitsWithoutLimit) {
    driver.pending = 1;
    EXPECT_EQ(norv_umcb_irq_wait(source, 0xFFFFFFFF), 0U);
    EXPECT_THAT(driver.poll_timeouts, ElementsAre(-1));
}

// quirk 4
TEST_F(UmcbSource, AnInterruptedWaitRestartsWithTheWholeTimeout) {
    driver.pending = 1;
    driver.interruptions = 2;
    EXPECT_EQ(norv_umcb_irq_wait(source, 700), 0U);
    EXPECT_THAT(driver.poll_timeouts, ElementsAre(700, 700, 700));
}

TEST_F(UmcbSource, AFailedWaitReturnsTheErrnoStatusAndClearsNothing) {
    kernel.fail("poll", ENOMEM);
    EXPECT_EQ(norv_umcb_irq_wait(source, 5), NORV_STATUS_NO_MEMORY);
    EXPECT_THAT(driver.requests, IsEmpty());
}

TEST_F(UmcbSource, AFailedWaitWithStatusZeroClearsTheEvent) {
    driver.pending = 1;
    kernel.map_errno(ENOMEM, 0);
    kernel.fail("poll", ENOMEM);
    EXPECT_EQ(norv_umcb_irq_wait(source, 5), 0U);
    EXPECT_EQ(driver.pending, 0U);
}

TEST_F(UmcbSource, AThreadWaitsWhileAnotherAccessesRegisters) {
    std::thread waiting([this] {
        for (int round = 0; round < 100; ++round) {
            EXPECT_EQ(norv_umcb_irq_wait(source, 0), NORV_STATUS_TIMEOUT);
        }
    });
    for (uint32_t value = 0; value < 100; ++value) {
        norv_umcb_write_32(&device, 0x10, value);
        EXPECT_EQ(norv_umcb_read_32(&device, 0x10), value);
    }
    waiting.join();
}

// quirk 165
TEST_F(UmcbSource, AnErrorConditionEndsTheWaitAndClearsTheEvent) {
    driver.ready_events = POLLERR;
    EXPECT_EQ(norv_umcb_irq_wait(source, 5), 0U);
    EXPECT_THAT(driver.requests, ElementsAre(umcb_request{0x7202, ""}));
}

TEST_F(UmcbSource, AnEventThatCannotBeClearedReturnsTheErrnoStatus) {
    driver.pending = 1;
    kernel.fail("ioctl", EIO);
    EXPECT_EQ(norv_umcb_irq_wait(source, 5), errno_status(EIO));
}

// ---- failure sweep

// Takes an event of source 7, up to the first failure.
uint32_t use_source(norv_umcb_t** device) {
    int32_t source = -1;
    uint32_t status = norv_umcb_irq_register(device, 7, &source);
    if (status == 0) {
        status = norv_umcb_irq_enable(source);
    }
    if (status == 0) {
        status = norv_umcb_irq_wait(source, 5);
    }
    if (status == 0) {
        status = norv_umcb_irq_disable(source);
    }
    if (source > 0) {
        close(source);
    }
    return status;
}

// Everything that a device can do, up to the first failure.
uint32_t use_device() {
    norv_umcb_t* device = nullptr;
    norv_mcb_bus_t bus = {};
    norv_uio_info_t info = {};
    uint32_t status = norv_umcb_open_by_pci_id(0x1234, 0x11E8, 1, &device);
    EXPECT_EQ(device != nullptr, status == 0);
    if (status == 0) {
        status = norv_umcb_get_info(&device, &info);
    }
    if (status == 0) {
        status = norv_umcb_open_mcb_bus(&device, &bus);
    }
    if (status == 0) {
        bus.close(&bus);
        status = norv_umcb_irq_set_type(&device, 1);
    }
    if (status == 0) {
        status = norv_umcb_irq_global_enable(&device);
    }
    if (status == 0) {
        status = use_source(&device);
    }
    if (status == 0) {
        status = norv_umcb_irq_global_disable(&device);
    }
    norv_umcb_close(&device);
    EXPECT_EQ(device, nullptr);
    return status;
}

TEST(UmcbSweep, EveryFailingCallIsReportedAndLeavesNothingOpen) {
    norv::test::sweep_options options;
    options.expect = [](const strike& struck) {
        if (hides_identity(struck)) {
            return NORV_STATUS_NOT_FOUND;
        }
        const bool ignored = ends_uevent_file(struck) || (struck.name == "poll" && struck.error == EINTR);
        return ignored ? NORV_STATUS_OK : norv::test::status_of_fault(struck);
    };
    norv::test::failure_sweep(
        [](kernel_double& kernel) { add_pci_umcb(kernel, "umcb0")->source->pending = 1; }, use_device,
        options);
}

uint32_t search_and_bind() {
    int32_t index = -1;
    norv_umcb_t* device = nullptr;
    uint32_t status = norv_umcb_get_max_idx(&index);
    if (status == NORV_STATUS_NOT_FOUND) {
        status = norv_umcb_load_pci(0x1234, 0x11E8);
    }
    if (status == 0) {
        status = norv_umcb_open_by_name("control", -1, &device);
    }
    norv_umcb_close(&device);
    return status;
}

TEST(UmcbSearchSweep, EveryFailingCallIsReportedOrFindsNothing) {
    norv::test::sweep_options options;
    options.expect = [](const strike& struck) {
        if (struck.name == "access") {
            return NORV_STATUS_NOT_AVAILABLE;
        }
        // The name is read twice: to find the device, then to determine its kind. The former fails silently.
        const bool of_search = struck.path == "/sys/class/umcb/umcb0/name" && struck.nth == 1;
        const bool skipped = of_search && struck.how == fault::kind::error && struck.name != "close";
        return skipped ? NORV_STATUS_NOT_FOUND : norv::test::status_of_fault(struck);
    };
    norv::test::failure_sweep(
        [](kernel_double& kernel) {
            kernel.add_file(new_id);
            add_umcb(kernel, "umcb0", "control");
        },
        search_and_bind, options);
}

}  // namespace
