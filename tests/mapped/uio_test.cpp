// SPDX-License-Identifier: MIT
// UIO devices: discovery, mapping, registers and the interrupt of platform devices.
#include "norv_uio.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/mman.h>
#include <unistd.h>

#include <memory>
#include <string>
#include <thread>

#include "mapped/uio_devices.hpp"
#include "support/failure_sweep.hpp"
#include "support/status.hpp"

namespace {

using norv::test::add_mapped_device;
using norv::test::add_pci_uio;
using norv::test::add_uio;
using norv::test::at_descriptor_0;
using norv::test::byte_transfer;
using norv::test::errno_status;
using norv::test::fault;
using norv::test::kernel_double;
using norv::test::opened_node;
using norv::test::strike;
using norv::test::uio_node;
using norv::test::unmapping;
using testing::Contains;
using testing::ElementsAre;
using testing::Field;
using testing::IsEmpty;
using testing::Not;
using testing::SizeIs;

class Uio : public testing::Test {
  protected:
    kernel_double kernel;
    norv_uio_t* device = nullptr;
};

// uio3, a platform device, opened.
class OpenUio : public Uio {
  protected:
    OpenUio() {
        EXPECT_EQ(norv_uio_open_by_idx(3, &device), 0U);
        kernel.forget_calls();
    }
    ~OpenUio() override { norv_uio_close(&device); }

    std::shared_ptr<uio_node> node = add_uio(kernel, "uio3", "fpga-regs");
};

// ---- the highest index

class UioIndex : public testing::TestWithParam<const char*> {};

TEST_F(Uio, TheHighestIndexIsTheLargestNumberInAnyOrder) {
    for (const char* entry : {"uio0", "uio12", "uio3"}) {
        kernel.add_directory(std::string("/sys/class/uio/") + entry);
    }
    int32_t index = 7;
    EXPECT_EQ(norv_uio_get_max_idx(&index), 0U);
    EXPECT_EQ(index, 12);
    EXPECT_THAT(kernel.calls("scandir"), ElementsAre(Field(&norv::test::call::path, "/sys/class/uio")));
}

TEST_F(Uio, TheOnlyDeviceMayHaveTheIndex0) {
    kernel.add_directory("/sys/class/uio/uio0");
    int32_t index = 7;
    EXPECT_EQ(norv_uio_get_max_idx(&index), 0U);
    EXPECT_EQ(index, 0);
}

TEST_F(Uio, AnEntryNeedNotBeALinkToCountForTheHighestIndex) {
    kernel.add_file("/sys/class/uio/uio5");
    int32_t index = 7;
    EXPECT_EQ(norv_uio_get_max_idx(&index), 0U);
    EXPECT_EQ(index, 5);
}

TEST_P(UioIndex, AnEntryThatIsNotUioAndDigitsDoesNotCount) {
    kernel_double kernel;
    kernel.add_directory(std::string("/sys/class/uio/") + GetParam());
    int32_t index = 7;
    EXPECT_EQ(norv_uio_get_max_idx(&index), NORV_STATUS_NOT_FOUND);
    EXPECT_EQ(index, -1);
}

INSTANTIATE_TEST_SUITE_P(Names, UioIndex,
                         testing::Values("uio", "uioX", "uio1x", "uio1.2", "uio-1", "uio 1", "xio1", "uxo1",
                                         "uix1", "u", "ui", "Uio1", "xuio1", "1", "uuio1", "uio/"));

// quirk 158
TEST_F(Uio, LeadingZerosCountAsDecimalDigits) {
    kernel.add_directory("/sys/class/uio/uio012");
    int32_t index = 7;
    EXPECT_EQ(norv_uio_get_max_idx(&index), 0U);
    EXPECT_EQ(index, 12);
}

TEST_F(Uio, ANumberBeyond32BitsCountsAsTheLargestNumber) {
    kernel.add_directory("/sys/class/uio/uio99999999999999999999999");
    int32_t index = 7;
    EXPECT_EQ(norv_uio_get_max_idx(&index), 0U);
    EXPECT_EQ(index, INT32_MAX);
}

TEST_F(Uio, AnEmptyClassHasNoHighestIndex) {
    kernel.add_directory("/sys/class/uio");
    int32_t index = 7;
    EXPECT_EQ(norv_uio_get_max_idx(&index), NORV_STATUS_NOT_FOUND);
    EXPECT_EQ(index, -1);
}

TEST_F(Uio, AMissingClassIsNotFoundAndLeavesTheIndexUnchanged) {
    int32_t index = 7;
    EXPECT_EQ(norv_uio_get_max_idx(&index), errno_status(ENOENT));
    EXPECT_EQ(index, 7);
}

TEST_F(Uio, AnUnreadableClassWithStatusZeroHasNoHighestIndex) {
    kernel.map_errno(ENOENT, 0);
    int32_t index = 7;
    EXPECT_EQ(norv_uio_get_max_idx(&index), NORV_STATUS_NOT_FOUND);
    EXPECT_EQ(index, -1);
}

// ---- opening by index

TEST_F(Uio, TheNodeIsOpenedReadWriteWithCloseOnExec) {
    add_uio(kernel, "uio3", "fpga-regs");
    EXPECT_EQ(norv_uio_open_by_idx(3, &device), 0U);
    ASSERT_NE(device, nullptr);
    EXPECT_GT(norv_uio_get_fd(&device), 0);
    EXPECT_THAT(kernel.open_flags("/dev/uio3"), ElementsAre(O_RDWR | O_CLOEXEC));
    EXPECT_THAT(kernel.open_flags("/sys/class/uio/uio3/name"), ElementsAre(O_RDONLY | O_CLOEXEC));
    norv_uio_close(&device);
}

TEST_F(Uio, OpeningMapsRegionZeroReadWriteAndShared) {
    const auto node = add_uio(kernel, "uio3", "fpga-regs");
    EXPECT_EQ(norv_uio_open_by_idx(3, &device), 0U);
    EXPECT_EQ(norv_uio_get_map(&device), node->registers.data());
    EXPECT_EQ(node->mapped_size, 0x1000U);
    EXPECT_EQ(node->protection, PROT_READ | PROT_WRITE);
    EXPECT_EQ(node->flags, MAP_SHARED);
    EXPECT_EQ(node->offset, 0);
    norv_uio_close(&device);
}

TEST_F(Uio, TheMapSizeMayBeHexadecimalDecimalOrOctal) {
    const auto node = add_uio(kernel, "uio3", "fpga-regs");
    for (const char* size : {"0x2000\n", "8192\n", "020000\n"}) {
        kernel.add_file("/sys/class/uio/uio3/maps/map0/size", size);
        EXPECT_EQ(norv_uio_open_by_idx(3, &device), 0U);
        EXPECT_EQ(node->mapped_size, 0x2000U);
        norv_uio_close(&device);
        EXPECT_EQ(kernel.calls("munmap").back().as<unmapping>().size, 0x2000U);
    }
}

TEST_F(Uio, ALargeRegionIsMappedAndUnmappedWhole) {
    const auto node = add_uio(kernel, "uio3", "fpga-regs");
    kernel.add_file("/sys/class/uio/uio3/maps/map0/size", std::string(norv::test::large_size) + "\n");
    EXPECT_EQ(norv_uio_open_by_idx(3, &device), 0U);
    EXPECT_EQ(node->mapped_size, norv::test::large_size_read);
    norv_uio_close(&device);
    EXPECT_EQ(kernel.calls("munmap").back().as<unmapping>().size, norv::test::large_size_read);
}

TEST_F(Uio, TheMapSizeIsReadUpTo23BytesAndTheLastIsDropped) {
    const auto node = add_uio(kernel, "uio3", "fpga-regs");
    kernel.add_file("/sys/class/uio/uio3/maps/map0/size", "0x0000000000000000200034\n");
    EXPECT_EQ(norv_uio_open_by_idx(3, &device), 0U);
    EXPECT_EQ(node->mapped_size, 0x2000U);
    norv_uio_close(&device);
}

TEST_F(Uio, ASingleCharacterIsTheNewlineAndDropped) {
    add_uio(kernel, "uio3", "");
    EXPECT_EQ(norv_uio_open_by_name("", &device), 0U);
    norv_uio_close(&device);
}

TEST_F(Uio, AnEmptyNameAttributeIsTheEmptyName) {
    add_uio(kernel, "uio3", "x");
    kernel.add_file("/sys/class/uio/uio3/name", "");
    EXPECT_EQ(norv_uio_open_by_name("", &device), 0U);
    norv_uio_close(&device);
}

TEST_F(Uio, AnUnreadableNameAttributeIsNotTheEmptyName) {
    add_uio(kernel, "uio3", "x");
    kernel.fail("read", EIO);
    EXPECT_EQ(norv_uio_open_by_name("", &device), NORV_STATUS_NOT_FOUND);
}

// quirk 2
TEST_F(Uio, TheIndexIsPrintedSigned) {
    EXPECT_EQ(norv_uio_open_by_idx(0xFFFFFFFF, &device), NORV_STATUS_NOT_FOUND);
    EXPECT_EQ(kernel.calls("open").back().path, "/sys/class/uio/uio-1/name");
}

TEST_F(Uio, EveryFileOfTheDeviceHasTheSignedIndex) {
    add_uio(kernel, "uio-2147483648", "fpga-regs");
    EXPECT_EQ(norv_uio_open_by_idx(0x80000000, &device), 0U);
    EXPECT_EQ(opened_node(kernel), "/dev/uio-2147483648");
    norv_uio_close(&device);
}

TEST_F(Uio, ADeviceThatDoesNotExistIsNotFoundAndTheHandleStaysNull) {
    EXPECT_EQ(norv_uio_open_by_idx(3, &device), NORV_STATUS_NOT_FOUND);
    EXPECT_EQ(device, nullptr);
    EXPECT_EQ(opened_node(kernel), "none");
}

TEST_F(Uio, ANodeThatCannotBeOpenedReturnsTheErrnoStatus) {
    add_uio(kernel, "uio3", "fpga-regs");
    kernel.fail({.call = "open", .path = "/dev/uio3", .error = EACCES});
    EXPECT_EQ(norv_uio_open_by_idx(3, &device), errno_status(EACCES));
    EXPECT_EQ(device, nullptr);
}

TEST_F(Uio, AMapSizeThatCannotBeReadReturnsTheErrnoStatus) {
    add_uio(kernel, "uio3", "fpga-regs");
    kernel.remove("/sys/class/uio/uio3/maps/map0/size");
    EXPECT_EQ(norv_uio_open_by_idx(3, &device), NORV_STATUS_NOT_FOUND);
    EXPECT_EQ(device, nullptr);
    EXPECT_EQ(kernel.open_descriptors(), 0U);
}

TEST_F(Uio, ARefusedMappingReturnsTheErrnoStatusAndIsNotUndone) {
    add_uio(kernel, "uio3", "fpga-regs");
    kernel.fail("mmap", EINVAL);
    EXPECT_EQ(norv_uio_open_by_idx(3, &device), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(device, nullptr);
    EXPECT_EQ(kernel.open_descriptors(), 0U);
    EXPECT_THAT(kernel.calls("munmap"), IsEmpty());
}

// quirk 1
TEST_F(Uio, ARefusedMappingWithStatusZeroIsMapFailedAndNotUndone) {
    add_uio(kernel, "uio3", "fpga-regs");
    kernel.map_errno(EINVAL, 0);
    kernel.fail("mmap", EINVAL);
    EXPECT_EQ(norv_uio_open_by_idx(3, &device), 0U);
    EXPECT_EQ(norv_uio_get_map(&device), MAP_FAILED);
    norv_uio_close(&device);
    EXPECT_THAT(kernel.calls("munmap"), IsEmpty());
}

TEST_F(Uio, AnUnreadableNameWithStatusZeroMakesAPlatformDevice) {
    add_uio(kernel, "uio3", "fpga-regs");
    kernel.map_errno(EIO, 0);
    kernel.fail("read", EIO);
    EXPECT_EQ(norv_uio_open_by_idx(3, &device), 0U);
    norv_uio_info_t info = {9, 9, 9, 9, 9, 9, 9};
    EXPECT_EQ(norv_uio_get_info(&device, &info), 0U);
    EXPECT_EQ(info.kind, 0U);
    norv_uio_close(&device);
}

TEST_F(Uio, WithoutMemoryForTheHandleNothingIsOpened) {
    add_uio(kernel, "uio3", "fpga-regs");
    kernel.fail("norv_zalloc", ENOMEM);
    EXPECT_EQ(norv_uio_open_by_idx(3, &device), NORV_STATUS_NO_MEMORY);
    EXPECT_EQ(device, nullptr);
    EXPECT_THAT(kernel.calls("open"), IsEmpty());
}

// quirk 157
TEST_F(OpenUio, WithoutMemoryForAHandleTheOldOneIsClosed) {
    kernel.fail("norv_zalloc", ENOMEM);
    EXPECT_EQ(norv_uio_open_by_idx(3, &device), NORV_STATUS_NO_MEMORY);
    EXPECT_EQ(device, nullptr);
    EXPECT_EQ(kernel.open_descriptors(), 0U);
    EXPECT_EQ(kernel.mappings(), 0U);
}

TEST_F(OpenUio, AFailedOpenMakesTheHandleNullAndLosesTheOldOne) {
    norv_uio_t* old = device;
    EXPECT_EQ(norv_uio_open_by_idx(99, &device), NORV_STATUS_NOT_FOUND);
    EXPECT_EQ(device, nullptr);
    EXPECT_EQ(kernel.open_descriptors(), 1U);
    norv_uio_close(&old);
}

// ---- the kind

TEST_F(Uio, OnlyTheExactNameMakesAPciDevice) {
    norv_uio_info_t info = {9, 9, 9, 9, 9, 9, 9};
    uint32_t index = 0;
    for (const char* name : {"uio_pci_mmap2", "uio_pci_mma", "Uio_pci_mmap", "uio_pci_mmap ", "fpga"}) {
        add_uio(kernel, "uio" + std::to_string(index), name);
        EXPECT_EQ(norv_uio_open_by_idx(index++, &device), 0U) << name;
        EXPECT_EQ(norv_uio_get_info(&device, &info), 0U);
        EXPECT_EQ(info.kind, 0U) << name;
        norv_uio_close(&device);
    }
    add_pci_uio(kernel, "uio9");
    EXPECT_EQ(norv_uio_open_by_idx(9, &device), 0U);
    EXPECT_EQ(norv_uio_get_info(&device, &info), 0U);
    EXPECT_EQ(info.kind, 1U);
    norv_uio_close(&device);
}

TEST_F(OpenUio, TheInfoOfAPlatformDeviceIsItsKindAlone) {
    norv_uio_info_t info = {9, 9, 9, 9, 9, 9, 9};
    EXPECT_EQ(norv_uio_get_info(&device, &info), 0U);
    EXPECT_EQ(info.kind, 0U);
    EXPECT_EQ(info.vendor, 9U);
    EXPECT_EQ(info.device, 9U);
    EXPECT_EQ(info.domain, 9U);
    EXPECT_EQ(info.bus, 9U);
    EXPECT_EQ(info.slot, 9U);
    EXPECT_EQ(info.function, 9U);
    EXPECT_THAT(kernel.calls(), IsEmpty());
}

// ---- opening by name

TEST_F(Uio, OpeningByNameOpensTheDeviceWithThatName) {
    add_uio(kernel, "uio0", "dma");
    add_uio(kernel, "uio1", "fpga-regs");
    EXPECT_EQ(norv_uio_open_by_name("fpga-regs", &device), 0U);
    EXPECT_EQ(opened_node(kernel), "/dev/uio1");
    EXPECT_EQ(kernel.calls("scandir").back().path, "/sys/class/uio/");
    norv_uio_close(&device);
}

TEST_F(Uio, TheFirstOfTwoNamesakesInAlphabeticalOrderIsOpened) {
    add_uio(kernel, "uio2", "twin");
    add_uio(kernel, "uio10", "twin");
    EXPECT_EQ(norv_uio_open_by_name("twin", &device), 0U);
    EXPECT_EQ(opened_node(kernel), "/dev/uio10");
    norv_uio_close(&device);
}

TEST_F(Uio, AfterAMatchNoOtherNameIsRead) {
    add_uio(kernel, "uio0", "first");
    add_uio(kernel, "uio1", "second");
    EXPECT_EQ(norv_uio_open_by_name("first", &device), 0U);
    EXPECT_THAT(kernel.open_flags("/sys/class/uio/uio1/name"), IsEmpty());
    norv_uio_close(&device);
}

TEST_F(Uio, ANameMustMatchCompletely) {
    add_uio(kernel, "uio0", "fpga-regs");
    for (const char* name : {"fpga", "fpga-regs2", "FPGA-REGS", "fpga-regs\n", ""}) {
        EXPECT_EQ(norv_uio_open_by_name(name, &device), NORV_STATUS_NOT_FOUND) << name;
        EXPECT_EQ(device, nullptr);
    }
}

TEST_F(Uio, ANameIsReadUpTo127BytesAndTheLastIsDropped) {
    add_uio(kernel, "uio0", std::string(200, 'n'));
    EXPECT_EQ(norv_uio_open_by_name(std::string(126, 'n').c_str(), &device), 0U);
    norv_uio_close(&device);
    EXPECT_EQ(norv_uio_open_by_name(std::string(127, 'n').c_str(), &device), NORV_STATUS_NOT_FOUND);
}

TEST_F(Uio, OpeningReads127BytesOfTheNameForTheKind) {
    add_uio(kernel, "uio0", std::string(200, 'n'));
    EXPECT_EQ(norv_uio_open_by_idx(0, &device), 0U);
    EXPECT_EQ(kernel.calls("read").front().as<byte_transfer>().bytes.size(), 127U);
    norv_uio_close(&device);
}

TEST_F(Uio, AnEntryThatIsNotALinkIsIgnored) {
    kernel.add_file("/sys/class/uio/uio0/name", "fpga-regs\n");
    EXPECT_EQ(norv_uio_open_by_name("fpga-regs", &device), NORV_STATUS_NOT_FOUND);
    EXPECT_THAT(kernel.calls("open"), IsEmpty());
}

TEST_F(Uio, AnEntryWithoutANameIsSkipped) {
    kernel.add_link("/sys/class/uio/uio0", "/sys/devices/nothing");
    add_uio(kernel, "uio1", "fpga-regs");
    EXPECT_EQ(norv_uio_open_by_name("fpga-regs", &device), 0U);
    EXPECT_EQ(opened_node(kernel), "/dev/uio1");
    norv_uio_close(&device);
}

// quirk 158
TEST_F(Uio, ALeadingZeroMakesTheNumberOfAnEntryOctal) {
    add_uio(kernel, "uio010", "octal");
    EXPECT_EQ(norv_uio_open_by_name("octal", &device), NORV_STATUS_NOT_FOUND);
    EXPECT_EQ(kernel.calls("open").back().path, "/sys/class/uio/uio8/name");
}

// quirk 77
TEST_F(Uio, TheNumberOfAnEntryIsParsedAsALong) {
    add_uio(kernel, "uio3000000000", "large");
    EXPECT_EQ(norv_uio_open_by_name("large", &device), NORV_STATUS_NOT_FOUND);
    EXPECT_EQ(kernel.calls("open").back().path,
              sizeof(long) == 8 ? "/sys/class/uio/uio-1294967296/name" : "/sys/class/uio/uio2147483647/name");
    // More than any long can hold: its largest value, of which 32 bits count.
    add_uio(kernel, "uio9223372036854775808", "larger");
    EXPECT_EQ(norv_uio_open_by_name("larger", &device), NORV_STATUS_NOT_FOUND);
    EXPECT_EQ(kernel.calls("open").back().path,
              sizeof(long) == 8 ? "/sys/class/uio/uio-1/name" : "/sys/class/uio/uio2147483647/name");
}

TEST_F(Uio, TheNumberFollowsTheThirdCharacterOfAnyEntry) {
    add_uio(kernel, "abc0x1f", "strange");
    EXPECT_EQ(norv_uio_open_by_name("strange", &device), NORV_STATUS_NOT_FOUND);
    EXPECT_EQ(kernel.calls("open").back().path, "/sys/class/uio/uio31/name");
}

TEST_F(Uio, AnEntryOfOneCharacterHasNumberZero) {
    add_uio(kernel, "u", "short");
    EXPECT_EQ(norv_uio_open_by_name("short", &device), NORV_STATUS_NOT_FOUND);
    EXPECT_EQ(kernel.calls("open").back().path, "/sys/class/uio/uio0/name");
}

TEST_F(Uio, AnUnreadableClassReturnsTheErrnoStatus) {
    EXPECT_EQ(norv_uio_open_by_name("fpga-regs", &device), errno_status(ENOENT));
    EXPECT_EQ(device, nullptr);
}

// quirk 1
TEST_F(Uio, AnUnreadableClassWithStatusZeroOpensDeviceZero) {
    add_uio(kernel, "uio0", "another");
    kernel.map_errno(EACCES, 0);
    kernel.fail("scandir", EACCES);
    EXPECT_EQ(norv_uio_open_by_name("fpga-regs", &device), 0U);
    EXPECT_EQ(opened_node(kernel), "/dev/uio0");
    norv_uio_close(&device);
}

TEST_F(Uio, AnEmptyClassHasNoNamedDevice) {
    kernel.add_directory("/sys/class/uio");
    EXPECT_EQ(norv_uio_open_by_name("fpga-regs", &device), NORV_STATUS_NOT_FOUND);
}

TEST_F(Uio, AClassWithoutAnyEntryHasNoNamedDevice) {
    add_uio(kernel, "uio0", "another");
    kernel.answer("scandir", 0);
    EXPECT_EQ(norv_uio_open_by_name("fpga-regs", &device), NORV_STATUS_NOT_FOUND);
}

TEST_F(Uio, TheStatusOfOpeningTheNamedDeviceIsReturned) {
    add_uio(kernel, "uio0", "fpga-regs");
    kernel.remove("/dev/uio0");
    EXPECT_EQ(norv_uio_open_by_name("fpga-regs", &device), NORV_STATUS_NOT_FOUND);
    EXPECT_EQ(opened_node(kernel), "/dev/uio0");
    EXPECT_EQ(device, nullptr);
}

// ---- closing

TEST_F(OpenUio, ClosingUnmapsClosesReleasesAndMakesTheHandleNull) {
    norv_uio_close(&device);
    EXPECT_EQ(device, nullptr);
    EXPECT_THAT(kernel.calls<unmapping>("munmap"), ElementsAre(Field(&unmapping::size, 0x1000U)));
    EXPECT_EQ(kernel.open_descriptors(), 0U);
    EXPECT_EQ(kernel.allocations(), 0U);
}

TEST_F(Uio, ANodeWithDescriptor0IsNotClosed) {
    add_mapped_device(kernel, "uio", "uio3", "fpga-regs", std::make_shared<at_descriptor_0<uio_node>>());
    EXPECT_EQ(norv_uio_open_by_idx(3, &device), 0U);
    ASSERT_EQ(norv_uio_get_fd(&device), 0);
    kernel.forget_calls();
    norv_uio_close(&device);
    EXPECT_EQ(device, nullptr);
    EXPECT_THAT(kernel.calls("close"), IsEmpty());
    close(0);
}

TEST_F(OpenUio, ClosingTwiceClosesNothingTheSecondTime) {
    norv_uio_close(&device);
    kernel.forget_calls();
    norv_uio_close(&device);
    EXPECT_THAT(kernel.calls(), IsEmpty());
}

TEST_F(Uio, ANullHandleIsAnInvalidArgumentAndClosingAcceptsIt) {
    norv_uio_info_t info = {};
    norv_uio_close(nullptr);
    norv_uio_close(&device);
    EXPECT_EQ(norv_uio_get_max_idx(nullptr), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(norv_uio_open_by_idx(0, nullptr), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(norv_uio_open_by_name("x", nullptr), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(norv_uio_open_by_name(nullptr, &device), NORV_STATUS_INVALID_ARG);
    for (norv_uio_t** none : {static_cast<norv_uio_t**>(nullptr), &device}) {
        EXPECT_EQ(norv_uio_get_info(none, &info), NORV_STATUS_INVALID_ARG);
        EXPECT_EQ(norv_uio_enable_irq(none), NORV_STATUS_INVALID_ARG);
        EXPECT_EQ(norv_uio_disable_irq(none), NORV_STATUS_INVALID_ARG);
        EXPECT_EQ(norv_uio_wait_irq(none, 0), NORV_STATUS_INVALID_ARG);
    }
    EXPECT_THAT(kernel.calls(), IsEmpty());
}

TEST_F(OpenUio, ANullInfoRecordIsAnInvalidArgument) {
    EXPECT_EQ(norv_uio_get_info(&device, nullptr), NORV_STATUS_INVALID_ARG);
}

// ---- registers

TEST_F(OpenUio, AWriteStoresOneRegisterAndNothingElse) {
    node->registers.fill(0xA5A5A5A5);
    norv_uio_write_32(&device, 0x10, 0x12345678);
    EXPECT_EQ(node->registers[3], 0xA5A5A5A5);
    EXPECT_EQ(node->registers[4], 0x12345678U);
    EXPECT_EQ(node->registers[5], 0xA5A5A5A5);
}

TEST_F(OpenUio, AReadLoadsOneRegister) {
    node->registers[0] = 0xFFFFFFFF;
    node->registers[1023] = 0xDEADBEEF;
    EXPECT_EQ(norv_uio_read_32(&device, 0), 0xFFFFFFFFU);
    EXPECT_EQ(norv_uio_read_32(&device, 0xFFC), 0xDEADBEEFU);
}

TEST_F(OpenUio, RegisterAccessMakesNoSystemCall) {
    norv_uio_write_32(&device, 4, norv_uio_read_32(&device, 0));
    EXPECT_THAT(kernel.calls(), IsEmpty());
}

// ---- the interrupt

TEST_F(OpenUio, EnablingWritesTheWordOneAndDisablingTheWordZero) {
    EXPECT_EQ(norv_uio_enable_irq(&device), 0U);
    EXPECT_EQ(norv_uio_disable_irq(&device), 0U);
    EXPECT_THAT(node->control, ElementsAre(1U, 0U));
    EXPECT_THAT(kernel.calls<byte_transfer>("write"), testing::Each(Field(&byte_transfer::bytes, SizeIs(4))));
}

TEST_F(OpenUio, ARefusedControlWordReturnsTheErrnoStatus) {
    kernel.fail("write", EIO);
    EXPECT_EQ(norv_uio_enable_irq(&device), errno_status(EIO));
    kernel.fail("write", EIO);
    EXPECT_EQ(norv_uio_disable_irq(&device), errno_status(EIO));
}

TEST_F(OpenUio, ARefusedControlWordWithStatusZeroIsASuccess) {
    kernel.map_errno(EIO, 0);
    kernel.fail("write", EIO);
    EXPECT_EQ(norv_uio_enable_irq(&device), 0U);
}

TEST_F(OpenUio, AControlWordThatIsTakenPartlyIsADeviceError) {
    kernel.fail({.call = "write", .how = fault::kind::short_count});
    EXPECT_EQ(norv_uio_enable_irq(&device), NORV_STATUS_DEVICE_ERROR);
}

TEST_F(OpenUio, AControlWordThatIsNotTakenIsADeviceErrorWhateverErrnoHolds) {
    node->takes_control = false;
    errno = EACCES;
    EXPECT_EQ(norv_uio_disable_irq(&device), NORV_STATUS_DEVICE_ERROR);
}

TEST_F(OpenUio, AnInterruptEndsTheWaitAndIsTaken) {
    node->pending = 5;
    EXPECT_EQ(norv_uio_wait_irq(&device, 1000), 0U);
    EXPECT_EQ(node->pending, 0U);
    EXPECT_THAT(node->poll_events, ElementsAre(POLLIN));
    EXPECT_THAT(node->poll_timeouts, ElementsAre(1000));
    EXPECT_THAT(node->read_sizes, ElementsAre(4U));
}

TEST_F(OpenUio, TheWaitDoesNotEnableTheInterruptAgain) {
    node->pending = 1;
    norv_uio_wait_irq(&device, 1000);
    EXPECT_THAT(node->control, IsEmpty());
}

TEST_F(OpenUio, WithoutAnInterruptTheWaitTimesOutAndReadsNothing) {
    EXPECT_EQ(norv_uio_wait_irq(&device, 5), NORV_STATUS_TIMEOUT);
    EXPECT_EQ(norv_uio_wait_irq(&device, 0), NORV_STATUS_TIMEOUT);
    EXPECT_THAT(node->poll_timeouts, ElementsAre(5, 0));
    EXPECT_THAT(node->read_sizes, IsEmpty());
}

TEST_F(OpenUio, ATimeoutOf32BitsWaitsWithoutLimit) {
    node->pending = 1;
    EXPECT_EQ(norv_uio_wait_irq(&device, 0xFFFFFFFF), 0U);
    EXPECT_THAT(node->poll_timeouts, ElementsAre(-1));
}

// quirk 4
TEST_F(OpenUio, AnInterruptedWaitRestartsWithTheWholeTimeout) {
    node->pending = 1;
    node->interruptions = 2;
    EXPECT_EQ(norv_uio_wait_irq(&device, 700), 0U);
    EXPECT_THAT(node->poll_timeouts, ElementsAre(700, 700, 700));
}

TEST_F(OpenUio, AFailedWaitReturnsTheErrnoStatusAndReadsNothing) {
    kernel.fail("poll", ENOMEM);
    EXPECT_EQ(norv_uio_wait_irq(&device, 5), NORV_STATUS_NO_MEMORY);
    EXPECT_THAT(node->read_sizes, IsEmpty());
}

TEST_F(OpenUio, AFailedWaitWithStatusZeroTakesTheInterrupt) {
    node->pending = 1;
    kernel.map_errno(ENOMEM, 0);
    kernel.fail("poll", ENOMEM);
    EXPECT_EQ(norv_uio_wait_irq(&device, 5), 0U);
    EXPECT_EQ(node->pending, 0U);
}

TEST_F(OpenUio, AThreadWaitsWhileAnotherAccessesRegisters) {
    std::thread waiting([this] {
        for (int round = 0; round < 100; ++round) {
            EXPECT_EQ(norv_uio_wait_irq(&device, 0), NORV_STATUS_TIMEOUT);
        }
    });
    for (uint32_t value = 0; value < 100; ++value) {
        norv_uio_write_32(&device, 0x10, value);
        EXPECT_EQ(norv_uio_read_32(&device, 0x10), value);
    }
    waiting.join();
}

TEST_F(OpenUio, AnErrorConditionEndsTheWaitAndTheReadReportsIt) {
    node->ready_events = POLLERR;
    kernel.fail("read", EIO);
    EXPECT_EQ(norv_uio_wait_irq(&device, 5), errno_status(EIO));
}

// quirk 159
TEST_F(OpenUio, AShortReadOfTheCountIsASuccess) {
    node->pending = 1;
    kernel.fail({.call = "read", .how = fault::kind::short_count});
    EXPECT_EQ(norv_uio_wait_irq(&device, 5), 0U);
}

// ---- the table of operations

TEST(UioOperations, PlatformDevicesHaveAllOperationsButTheHooks) {
    const norv_uio_ops_t* operations = norv_uio_get_generic_ops();
    EXPECT_EQ(operations->open, nullptr);
    EXPECT_EQ(operations->close, nullptr);
    EXPECT_NE(operations->map, nullptr);
    EXPECT_NE(operations->unmap, nullptr);
    EXPECT_NE(operations->enable_irq, nullptr);
    EXPECT_NE(operations->disable_irq, nullptr);
    EXPECT_NE(operations->get_info, nullptr);
    EXPECT_EQ(norv_uio_get_generic_ops(), operations);
}

TEST_F(OpenUio, TheTableUnmapsAndMapsAgain) {
    const norv_uio_ops_t* operations = norv_uio_get_generic_ops();
    operations->unmap(&device);
    EXPECT_EQ(norv_uio_get_map(&device), nullptr);
    operations->unmap(&device);
    EXPECT_THAT(kernel.calls("munmap"), SizeIs(1));
    EXPECT_EQ(operations->map(&device), 0U);
    EXPECT_EQ(norv_uio_get_map(&device), node->registers.data());
}

TEST_F(OpenUio, TheTableReportsTheKindAndControlsTheInterrupt) {
    const norv_uio_ops_t* operations = norv_uio_get_generic_ops();
    norv_uio_info_t info = {9, 9, 9, 9, 9, 9, 9};
    EXPECT_EQ(operations->get_info(&device, &info), 0U);
    EXPECT_EQ(info.kind, 0U);
    EXPECT_EQ(operations->enable_irq(&device), 0U);
    EXPECT_EQ(operations->disable_irq(&device), 0U);
    EXPECT_THAT(node->control, ElementsAre(1U, 0U));
}

// ---- failure sweep

// Everything that a platform device can do, up to the first failure.
uint32_t use_device() {
    norv_uio_t* device = nullptr;
    int32_t index = -1;
    uint32_t status = norv_uio_get_max_idx(&index);
    if (status == 0) {
        status = norv_uio_open_by_name("fpga-regs", &device);
    }
    EXPECT_EQ(device != nullptr, status == 0);
    if (status == 0) {
        status = norv_uio_enable_irq(&device);
    }
    if (status == 0) {
        status = norv_uio_wait_irq(&device, 5);
    }
    if (status == 0) {
        status = norv_uio_disable_irq(&device);
    }
    norv_uio_close(&device);
    EXPECT_EQ(device, nullptr);
    return status;
}

uint32_t status_of_use(const strike& struck) {
    if (struck.name == "poll" && struck.error == EINTR) {
        return NORV_STATUS_OK;
    }
    if (struck.name == "write" && struck.how == fault::kind::short_count) {
        return NORV_STATUS_DEVICE_ERROR;
    }
    return norv::test::status_of_fault(struck);
}

TEST(UioSweep, EveryFailingCallIsReportedAndLeavesNothingOpen) {
    norv::test::sweep_options options;
    options.expect = [](const strike& struck) {
        // The search by name skips a device whose name cannot be read.
        const bool of_search = struck.path == "/sys/class/uio/uio3/name" && struck.nth == 1;
        const bool skipped = of_search && struck.how == fault::kind::error && struck.name != "close";
        return skipped ? NORV_STATUS_NOT_FOUND : status_of_use(struck);
    };
    norv::test::failure_sweep(
        [](kernel_double& kernel) { add_uio(kernel, "uio3", "fpga-regs")->pending = 1; }, use_device,
        options);
}

}  // namespace
