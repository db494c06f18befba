// SPDX-License-Identifier: MIT
// UIO devices on PCI: binding, finding, the configuration space, the identity.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <memory>
#include <string>
#include <vector>

#include "mapped/uio_devices.hpp"
#include "norv_uio.h"
#include "support/failure_sweep.hpp"
#include "support/status.hpp"

namespace {

using norv::test::add_pci_uio;
using norv::test::add_uio;
using norv::test::at_descriptor_0;
using norv::test::byte_transfer_at;
using norv::test::configuration_space;
using norv::test::ends_uevent_file;
using norv::test::errno_status;
using norv::test::fault;
using norv::test::hides_identity;
using norv::test::kernel_double;
using norv::test::stream_opening;
using norv::test::strike;
using norv::test::uio_node;
using norv::test::unmapping;
using norv::test::words_of;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr char mmap_new_id[] = "/sys/bus/pci/drivers/uio_pci_mmap/new_id";
constexpr char generic_new_id[] = "/sys/bus/pci/drivers/uio_pci_generic/new_id";
constexpr char configuration[] = "/sys/class/uio/uio2/device/config";
constexpr char uevent[] = "/sys/class/uio/uio2/device/uevent";

class UioPci : public testing::Test {
  protected:
    kernel_double kernel;
    norv_uio_t* device = nullptr;
};

// uio2, a PCI device, opened.
class OpenUioPci : public UioPci {
  protected:
    OpenUioPci() {
        EXPECT_EQ(norv_uio_open_by_idx(2, &device), 0U);
        kernel.forget_calls();
    }
    ~OpenUioPci() override { norv_uio_close(&device); }

    std::shared_ptr<uio_node> node = add_pci_uio(kernel, "uio2");
    norv_uio_info_t info = {9, 9, 9, 9, 9, 9, 9};
};

// ---- binding

TEST_F(UioPci, BindingWritesTheIdentityInLowerCaseWithoutNewlineOrNul) {
    kernel.add_file(mmap_new_id);
    EXPECT_EQ(norv_uio_load_pci(0x1234, 0xABCD), 0U);
    EXPECT_THAT(kernel.writes(mmap_new_id), ElementsAre("1234 abcd"));
    EXPECT_THAT(kernel.open_flags(mmap_new_id), ElementsAre(O_WRONLY | O_CLOEXEC));
}

TEST_F(UioPci, AnIdentityIsPaddedToFourDigits) {
    kernel.add_file(mmap_new_id);
    EXPECT_EQ(norv_uio_load_pci(0x1, 0), 0U);
    EXPECT_THAT(kernel.writes(mmap_new_id), ElementsAre("0001 0000"));
}

TEST_F(UioPci, OnlyTheLow16BitsOfAnIdentityCount) {
    kernel.add_file(mmap_new_id);
    EXPECT_EQ(norv_uio_load_pci(0x51234, -1), 0U);
    EXPECT_THAT(kernel.writes(mmap_new_id), ElementsAre("1234 ffff"));
}

TEST_F(UioPci, TheMappingDriverIsPreferredOverTheGenericOne) {
    kernel.add_file(mmap_new_id);
    kernel.add_file(generic_new_id);
    EXPECT_EQ(norv_uio_load_pci(0x1234, 0x11E8), 0U);
    EXPECT_THAT(kernel.writes(mmap_new_id), ElementsAre("1234 11e8"));
    EXPECT_THAT(kernel.writes(generic_new_id), IsEmpty());
}

TEST_F(UioPci, WithoutTheMappingDriverTheGenericOneGetsTheIdentity) {
    kernel.add_file(generic_new_id);
    EXPECT_EQ(norv_uio_load_pci(0x1234, 0x11E8), 0U);
    EXPECT_THAT(kernel.writes(generic_new_id), ElementsAre("1234 11e8"));
}

TEST_F(UioPci, WithoutEitherDriverBindingIsNotAvailable) {
    EXPECT_EQ(norv_uio_load_pci(0x1234, 0x11E8), NORV_STATUS_NOT_AVAILABLE);
    EXPECT_THAT(kernel.calls("open"), IsEmpty());
}

TEST_F(UioPci, ARefusedBindingReturnsTheErrnoStatus) {
    kernel.add_file(mmap_new_id);
    kernel.on_write(mmap_new_id, [](std::string_view) { return EEXIST; });
    EXPECT_EQ(norv_uio_load_pci(0x1234, 0x11E8), errno_status(EEXIST));
}

TEST(UioPciBindingSweep, EveryFailingCallIsReportedOrLeadsToTheOtherDriver) {
    norv::test::sweep_options options;
    options.expect = [](const strike& struck) {
        // The only driver that exists, but access(2) does not find it.
        return struck.name == "access" ? NORV_STATUS_NOT_AVAILABLE : norv::test::status_of_fault(struck);
    };
    norv::test::failure_sweep([](kernel_double& kernel) { kernel.add_file(mmap_new_id); },
                              [] { return norv_uio_load_pci(0x1234, 0x11E8); }, options);
}

// ---- opening by identity

TEST_F(UioPci, OpeningByIdentityOpensTheDeviceWhoseVendorAndDeviceMatch) {
    add_pci_uio(kernel, "uio0", "0x8086", "0x11e8");
    add_pci_uio(kernel, "uio1", "0x1234", "0x0001");
    add_pci_uio(kernel, "uio2", "0x1234", "0x11e8");
    EXPECT_EQ(norv_uio_open_by_pci_id(0x1234, 0x11E8, &device), 0U);
    EXPECT_THAT(kernel.open_flags("/dev/uio2"), ElementsAre(O_RDWR | O_CLOEXEC));
    EXPECT_EQ(kernel.calls("scandir").back().path, "/sys/class/uio/");
    norv_uio_close(&device);
}

TEST_F(UioPci, TheDeviceOfAnotherVendorIsNotRead) {
    add_pci_uio(kernel, "uio0", "0x8086", "0x11e8");
    EXPECT_EQ(norv_uio_open_by_pci_id(0x1234, 0x11E8, &device), NORV_STATUS_NOT_FOUND);
    EXPECT_THAT(kernel.open_flags("/sys/class/uio/uio0/device/device"), IsEmpty());
    EXPECT_EQ(device, nullptr);
}

TEST_F(UioPci, OnlyTheLow16BitsOfTheAttributesCount) {
    add_pci_uio(kernel, "uio2", "0x51234", "70120");  // 70120 is 0x111e8
    EXPECT_EQ(norv_uio_open_by_pci_id(0x1234, 0x11E8, &device), 0U);
    norv_uio_close(&device);
}

// quirk 77
TEST_F(UioPci, AnIdentityIsParsedAsALong) {
    add_pci_uio(kernel, "uio2", "0x300001234", "0x11e8");
    // Where a long has 32 bits, the vendor is that of 0x7FFFFFFF.
    const uint16_t vendor = sizeof(long) == 8 ? 0x1234 : 0xFFFF;
    EXPECT_EQ(norv_uio_open_by_pci_id(vendor, 0x11E8, &device), 0U);
    norv_uio_close(&device);
}

TEST_F(UioPci, AnIdentityIsReadUpTo15BytesAndTheLastIsDropped) {
    add_pci_uio(kernel, "uio2", "0x0000000012345", "0x11e8");
    EXPECT_EQ(norv_uio_open_by_pci_id(0x1234, 0x11E8, &device), 0U);
    norv_uio_close(&device);
}

TEST_F(UioPci, TheFirstOfTwoEqualDevicesInAlphabeticalOrderIsOpened) {
    add_pci_uio(kernel, "uio2");
    add_pci_uio(kernel, "uio10");
    EXPECT_EQ(norv_uio_open_by_pci_id(0x1234, 0x11E8, &device), 0U);
    EXPECT_THAT(kernel.open_flags("/dev/uio10"), ElementsAre(O_RDWR | O_CLOEXEC));
    EXPECT_THAT(kernel.open_flags("/sys/class/uio/uio2/device/vendor"), IsEmpty());
    norv_uio_close(&device);
}

TEST_F(UioPci, APlatformDeviceHasNoIdentityAndIsSkipped) {
    add_uio(kernel, "uio0", "fpga-regs");
    add_pci_uio(kernel, "uio2");
    EXPECT_EQ(norv_uio_open_by_pci_id(0x1234, 0x11E8, &device), 0U);
    norv_uio_close(&device);
}

TEST_F(UioPci, ADeviceOfAnotherPciDriverIsAPlatformDevice) {
    add_pci_uio(kernel, "uio2");
    kernel.add_file("/sys/class/uio/uio2/name", "uio_pci_generic\n");
    EXPECT_EQ(norv_uio_open_by_pci_id(0x1234, 0x11E8, &device), 0U);
    EXPECT_THAT(kernel.open_flags(configuration), IsEmpty());
    norv_uio_close(&device);
}

TEST_F(UioPci, AnEntryThatIsNotALinkIsIgnored) {
    kernel.add_file("/sys/class/uio/uio0/device/vendor", "0x1234\n");
    kernel.add_file("/sys/class/uio/uio0/device/device", "0x11e8\n");
    EXPECT_EQ(norv_uio_open_by_pci_id(0x1234, 0x11E8, &device), NORV_STATUS_NOT_FOUND);
    EXPECT_THAT(kernel.calls("open"), IsEmpty());
}

// quirk 158
TEST_F(UioPci, ALeadingZeroMakesTheNumberOfAnEntryOctal) {
    add_pci_uio(kernel, "uio010");
    EXPECT_EQ(norv_uio_open_by_pci_id(0x1234, 0x11E8, &device), NORV_STATUS_NOT_FOUND);
    EXPECT_EQ(kernel.calls("open").back().path, "/sys/class/uio/uio8/name");
}

TEST_F(UioPci, AnUnreadableClassReturnsTheErrnoStatus) {
    EXPECT_EQ(norv_uio_open_by_pci_id(0x1234, 0x11E8, &device), errno_status(ENOENT));
    EXPECT_EQ(device, nullptr);
}

// quirk 1
TEST_F(UioPci, AnUnreadableClassWithStatusZeroOpensDeviceZero) {
    add_uio(kernel, "uio0", "another");
    kernel.map_errno(EACCES, 0);
    kernel.fail("scandir", EACCES);
    EXPECT_EQ(norv_uio_open_by_pci_id(0x1234, 0x11E8, &device), 0U);
    EXPECT_THAT(kernel.open_flags("/dev/uio0"), ElementsAre(O_RDWR | O_CLOEXEC));
    norv_uio_close(&device);
}

TEST_F(UioPci, OpeningByIdentityWithoutAVariableIsAnInvalidArgument) {
    EXPECT_EQ(norv_uio_open_by_pci_id(0x1234, 0x11E8, nullptr), NORV_STATUS_INVALID_ARG);
    EXPECT_THAT(kernel.calls(), IsEmpty());
}

// ---- the configuration space

TEST_F(UioPci, TheConfigurationSpaceIsOpenedReadWriteWithCloseOnExec) {
    add_pci_uio(kernel, "uio2");
    EXPECT_EQ(norv_uio_open_by_idx(2, &device), 0U);
    EXPECT_THAT(kernel.open_flags(configuration), ElementsAre(O_RDWR | O_CLOEXEC));
    EXPECT_EQ(kernel.open_descriptors(), 2U);
    norv_uio_close(&device);
}

TEST_F(UioPci, OpeningMapsRegionZeroLikeThatOfAPlatformDevice) {
    const auto node = add_pci_uio(kernel, "uio2");
    EXPECT_EQ(norv_uio_open_by_idx(2, &device), 0U);
    EXPECT_EQ(norv_uio_get_map(&device), node->registers.data());
    EXPECT_EQ(node->mapped_size, 0x1000U);
    EXPECT_EQ(node->protection, PROT_READ | PROT_WRITE);
    EXPECT_EQ(node->flags, MAP_SHARED);
    norv_uio_close(&device);
}

TEST_F(OpenUioPci, ClosingUnmapsOnceAndClosesBothFiles) {
    norv_uio_close(&device);
    EXPECT_EQ(device, nullptr);
    EXPECT_THAT(kernel.calls<unmapping>("munmap"), ElementsAre(testing::Field(&unmapping::size, 0x1000U)));
    EXPECT_EQ(kernel.open_descriptors(), 0U);
    EXPECT_EQ(kernel.allocations(), 0U);
}

TEST_F(OpenUioPci, ClosingClosesTheConfigurationSpaceFirstAndTheNodeLast) {
    norv_uio_close(&device);
    std::vector<std::string> steps;
    for (const auto& made : kernel.calls()) {
        steps.push_back(made.name + " " + made.path);
    }
    EXPECT_THAT(steps, ElementsAre(std::string("close ") + configuration, "munmap ", "close /dev/uio2"));
}

TEST_F(UioPci, AConfigurationSpaceWithDescriptor0IsNotClosed) {
    add_pci_uio(kernel, "uio2");
    kernel.add_device(configuration, std::make_shared<at_descriptor_0<norv::test::device>>());
    EXPECT_EQ(norv_uio_open_by_idx(2, &device), 0U);
    kernel.forget_calls();
    norv_uio_close(&device);
    ASSERT_THAT(kernel.calls("close"), testing::SizeIs(1));
    EXPECT_EQ(kernel.calls("close")[0].path, "/dev/uio2");
    close(0);
}

TEST_F(UioPci, AFailedOpenOfTheConfigurationSpaceMakesTheHandleNull) {
    add_pci_uio(kernel, "uio2");
    kernel.fail({.call = "open", .path = configuration, .error = EACCES});
    EXPECT_EQ(norv_uio_open_by_idx(2, &device), errno_status(EACCES));
    EXPECT_EQ(device, nullptr);
    EXPECT_EQ(kernel.open_descriptors(), 0U);
}

TEST_F(UioPci, WithoutMemoryForTheConfigurationSpaceTheHandleIsNull) {
    add_pci_uio(kernel, "uio2");
    kernel.fail("norv_malloc", ENOMEM);
    EXPECT_EQ(norv_uio_open_by_idx(2, &device), NORV_STATUS_NO_MEMORY);
    EXPECT_EQ(device, nullptr);
    EXPECT_THAT(kernel.open_flags(configuration), IsEmpty());
}

TEST_F(UioPci, ARefusedMappingClosesTheConfigurationSpaceAndIsNotUndone) {
    add_pci_uio(kernel, "uio2");
    kernel.fail("mmap", EINVAL);
    EXPECT_EQ(norv_uio_open_by_idx(2, &device), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(device, nullptr);
    EXPECT_EQ(kernel.open_descriptors(), 0U);
    EXPECT_THAT(kernel.calls("munmap"), IsEmpty());
}

TEST_F(OpenUioPci, DisablingSetsTheInterruptDisableBitAndNothingElse) {
    kernel.add_file(configuration, configuration_space('\x03'));
    EXPECT_EQ(norv_uio_disable_irq(&device), 0U);
    EXPECT_EQ(kernel.content(configuration), configuration_space('\x07'));
    EXPECT_EQ(kernel.calls("pread").back().as<byte_transfer_at>().offset, 5);
    EXPECT_EQ(kernel.calls("pwrite").back().as<byte_transfer_at>().offset, 5);
    EXPECT_EQ(kernel.calls("pwrite").back().as<byte_transfer_at>().bytes, "\x07");
}

TEST_F(OpenUioPci, EnablingClearsTheInterruptDisableBitAndNothingElse) {
    kernel.add_file(configuration, configuration_space('\xFF'));
    EXPECT_EQ(norv_uio_enable_irq(&device), 0U);
    EXPECT_EQ(kernel.content(configuration), configuration_space('\xFB'));
}

TEST_F(OpenUioPci, TheInterruptIsNotControlledThroughTheNode) {
    norv_uio_enable_irq(&device);
    norv_uio_disable_irq(&device);
    EXPECT_THAT(node->control, IsEmpty());
}

TEST_F(OpenUioPci, AConfigurationSpaceThatCannotBeReadIsNotWritten) {
    kernel.fail("pread", EIO);
    EXPECT_EQ(norv_uio_enable_irq(&device), errno_status(EIO));
    EXPECT_THAT(kernel.calls("pwrite"), IsEmpty());
}

// quirk 1
TEST_F(OpenUioPci, AnUnreadableByteWithStatusZeroCountsAsZeroAndIsWritten) {
    kernel.add_file(configuration, configuration_space('\x03'));
    kernel.map_errno(EIO, 0);
    kernel.fail("pread", EIO);
    EXPECT_EQ(norv_uio_disable_irq(&device), 0U);
    EXPECT_EQ(kernel.content(configuration), configuration_space('\x04'));
}

TEST_F(OpenUioPci, AMissingByteIsADeviceErrorAndNothingIsWritten) {
    kernel.add_file(configuration, "abcd");
    for (const int left_over : {0, EACCES}) {
        errno = left_over;
        EXPECT_EQ(norv_uio_disable_irq(&device), NORV_STATUS_DEVICE_ERROR);
        errno = left_over;
        EXPECT_EQ(norv_uio_enable_irq(&device), NORV_STATUS_DEVICE_ERROR);
    }
    EXPECT_THAT(kernel.calls("pwrite"), IsEmpty());
    EXPECT_EQ(kernel.content(configuration), "abcd");
}

TEST_F(OpenUioPci, AMissingByteIsADeviceErrorEvenIfEioHasStatusZero) {
    kernel.add_file(configuration, "abcd");
    kernel.map_errno(EIO, 0);
    errno = EIO;
    EXPECT_EQ(norv_uio_disable_irq(&device), NORV_STATUS_DEVICE_ERROR);
    EXPECT_THAT(kernel.calls("pwrite"), IsEmpty());
}

TEST_F(OpenUioPci, AByteThatCannotBeWrittenReturnsTheErrnoStatus) {
    kernel.fail("pwrite", EPERM);
    EXPECT_EQ(norv_uio_disable_irq(&device), errno_status(EPERM));
}

TEST_F(OpenUioPci, AByteThatIsNotTakenIsADeviceError) {
    for (const int left_over : {0, EACCES}) {
        kernel.fail({.call = "pwrite", .how = fault::kind::short_count});
        errno = left_over;
        EXPECT_EQ(norv_uio_disable_irq(&device), NORV_STATUS_DEVICE_ERROR);
    }
}

TEST_F(OpenUioPci, AnUnwritableByteWithStatusZeroIsASuccess) {
    kernel.map_errno(EPERM, 0);
    kernel.fail("pwrite", EPERM);
    EXPECT_EQ(norv_uio_disable_irq(&device), 0U);
}

TEST_F(OpenUioPci, AnInterruptIsWaitedForOnTheNode) {
    node->pending = 1;
    EXPECT_EQ(norv_uio_wait_irq(&device, 5), 0U);
    EXPECT_EQ(node->pending, 0U);
}

// ---- the identity

TEST_F(OpenUioPci, TheIdentityComesFromTheUeventFile) {
    EXPECT_EQ(norv_uio_get_info(&device, &info), 0U);
    EXPECT_THAT(words_of(info), ElementsAre(1, 0x1234, 0x11E8, 1, 2, 0x1F, 3));
    EXPECT_EQ(kernel.calls("fopen").back().path, uevent);
    EXPECT_EQ(kernel.calls("fopen").back().as<stream_opening>().mode, "re");
}

// quirk 161
TEST_F(OpenUioPci, WithoutALineForTheSlotItsFieldsAreUnchanged) {
    kernel.add_file(uevent, "DRIVER=uio_pci_mmap\nPCI_ID=10EE:7024\n");
    EXPECT_EQ(norv_uio_get_info(&device, &info), 0U);
    EXPECT_THAT(words_of(info), ElementsAre(1, 0x10EE, 0x7024, 9, 9, 9, 9));
}

TEST_F(OpenUioPci, WithoutALineForTheIdentityItsFieldsAreUnchanged) {
    kernel.add_file(uevent, "PCI_SLOT_NAME=0000:00:05.0");
    EXPECT_EQ(norv_uio_get_info(&device, &info), 0U);
    EXPECT_THAT(words_of(info), ElementsAre(1, 9, 9, 0, 0, 5, 0));
}

TEST_F(OpenUioPci, AKeyThatIsNotAtTheStartOfItsLineIsIgnored) {
    kernel.add_file(uevent, "MY_PCI_ID=10EE:7024\nX=PCI_SLOT_NAME=0000:00:05.0\n");
    EXPECT_EQ(norv_uio_get_info(&device, &info), 0U);
    EXPECT_THAT(words_of(info), ElementsAre(1, 9, 9, 9, 9, 9, 9));
}

TEST_F(OpenUioPci, AnIncompleteLineFillsTheFieldsThatItHas) {
    kernel.add_file(uevent, "PCI_ID=10EE\nPCI_SLOT_NAME=0002:03:x\n");
    EXPECT_EQ(norv_uio_get_info(&device, &info), 0U);
    EXPECT_THAT(words_of(info), ElementsAre(1, 0x10EE, 9, 2, 3, 9, 9));
}

TEST_F(OpenUioPci, NumbersHaveTheWidthOfTheKernelsFormat) {
    kernel.add_file(uevent, "PCI_ID=123456:1\nPCI_SLOT_NAME=00021:03:05.6\n");
    EXPECT_EQ(norv_uio_get_info(&device, &info), 0U);
    EXPECT_THAT(words_of(info), ElementsAre(1, 0x1234, 9, 2, 9, 9, 9));
    kernel.add_file(uevent, "PCI_SLOT_NAME=0003:045:05.6\n");
    EXPECT_EQ(norv_uio_get_info(&device, &info), 0U);
    EXPECT_THAT(words_of(info), ElementsAre(1, 0x1234, 9, 3, 4, 9, 9));
    kernel.add_file(uevent, "PCI_SLOT_NAME=0003:04:056.6\n");
    EXPECT_EQ(norv_uio_get_info(&device, &info), 0U);
    EXPECT_THAT(words_of(info), ElementsAre(1, 0x1234, 9, 3, 4, 5, 9));
}

TEST_F(OpenUioPci, TheFunctionIsADecimalNumberAndTheOthersAreHexadecimal) {
    kernel.add_file(uevent, "PCI_SLOT_NAME=0010:10:1f.10\n");
    EXPECT_EQ(norv_uio_get_info(&device, &info), 0U);
    EXPECT_THAT(words_of(info), ElementsAre(1, 9, 9, 0x10, 0x10, 0x1F, 10));
}

TEST_F(OpenUioPci, AnotherLineOfAnyLengthIsSkipped) {
    kernel.add_file(uevent, "MODALIAS=" + std::string(5000, 'x') + "\nPCI_ID=10EE:7024\n");
    EXPECT_EQ(norv_uio_get_info(&device, &info), 0U);
    EXPECT_EQ(info.vendor, 0x10EEU);
    EXPECT_EQ(info.device, 0x7024U);
}

TEST_F(OpenUioPci, ALineWithBothKeysIsTakenForTheIdentity) {
    kernel.add_file(uevent, "PCI_SLOT_NAME=0000:00:05.0 PCI_ID\n");
    EXPECT_EQ(norv_uio_get_info(&device, &info), 0U);
    EXPECT_THAT(words_of(info), ElementsAre(1, 9, 9, 9, 9, 9, 9));
}

TEST_F(OpenUioPci, AMissingUeventFileReturnsTheErrnoStatusAndTheKind) {
    kernel.remove(uevent);
    EXPECT_EQ(norv_uio_get_info(&device, &info), NORV_STATUS_NOT_FOUND);
    EXPECT_THAT(words_of(info), ElementsAre(1, 9, 9, 9, 9, 9, 9));
}

TEST_F(OpenUioPci, AMissingUeventFileWithStatusZeroReportsTheKindAlone) {
    kernel.remove(uevent);
    kernel.map_errno(ENOENT, 0);
    EXPECT_EQ(norv_uio_get_info(&device, &info), 0U);
    EXPECT_THAT(words_of(info), ElementsAre(1, 9, 9, 9, 9, 9, 9));
}

TEST_F(UioPci, TheConfigurationSpaceAndUeventFileHaveTheSignedIndex) {
    add_pci_uio(kernel, "uio-65537");
    EXPECT_EQ(norv_uio_open_by_idx(static_cast<uint32_t>(-65537), &device), 0U);
    norv_uio_info_t info = {};
    EXPECT_EQ(norv_uio_get_info(&device, &info), 0U);
    EXPECT_EQ(info.vendor, 0x1234U);
    norv_uio_close(&device);
}

// quirk 160
TEST_F(UioPci, ThePathOfTheUeventFileHasAtMost41Characters) {
    add_pci_uio(kernel, "uio999999999");
    add_pci_uio(kernel, "uio1234567890");
    norv_uio_info_t info = {};
    EXPECT_EQ(norv_uio_open_by_idx(999999999, &device), 0U);
    EXPECT_EQ(norv_uio_get_info(&device, &info), 0U);
    norv_uio_close(&device);
    EXPECT_EQ(norv_uio_open_by_idx(1234567890, &device), 0U);
    EXPECT_EQ(norv_uio_get_info(&device, &info), NORV_STATUS_NOT_FOUND);
    EXPECT_EQ(kernel.calls("fopen").back().path, "/sys/class/uio/uio1234567890/device/ueven");
    norv_uio_close(&device);
}

// ---- the table of operations

TEST(UioPciOperations, PciDevicesHaveAllOperations) {
    const norv_uio_ops_t* operations = norv_uio_get_pci_ops();
    EXPECT_NE(operations, norv_uio_get_generic_ops());
    EXPECT_NE(operations->open, nullptr);
    EXPECT_NE(operations->close, nullptr);
    EXPECT_NE(operations->map, nullptr);
    EXPECT_NE(operations->unmap, nullptr);
    EXPECT_NE(operations->enable_irq, nullptr);
    EXPECT_NE(operations->disable_irq, nullptr);
    EXPECT_NE(operations->get_info, nullptr);
}

TEST_F(OpenUioPci, TheCloseHookClosesTheConfigurationSpaceAndUnmaps) {
    norv_uio_get_pci_ops()->close(&device);
    EXPECT_EQ(norv_uio_get_map(&device), nullptr);
    EXPECT_EQ(kernel.mappings(), 0U);
    EXPECT_EQ(kernel.open_descriptors(), 1U);
    norv_uio_get_pci_ops()->close(&device);
    EXPECT_EQ(kernel.open_descriptors(), 1U);
}

TEST_F(OpenUioPci, AFailedOpenHookKeepsNothing) {
    const size_t before = kernel.allocations();
    norv_uio_get_pci_ops()->close(&device);
    kernel.fail("open", EACCES);
    EXPECT_EQ(norv_uio_get_pci_ops()->open(&device), errno_status(EACCES));
    EXPECT_EQ(kernel.allocations(), before - 1);
    EXPECT_EQ(kernel.open_descriptors(), 1U);
}

TEST_F(OpenUioPci, TheTableUnmapsAndMapsAgain) {
    norv_uio_get_pci_ops()->unmap(&device);
    EXPECT_EQ(norv_uio_get_map(&device), nullptr);
    EXPECT_EQ(norv_uio_get_pci_ops()->map(&device), 0U);
    EXPECT_EQ(norv_uio_get_map(&device), node->registers.data());
}

// ---- failure sweep

// Everything that a PCI device can do, up to the first failure.
uint32_t use_device() {
    norv_uio_t* device = nullptr;
    norv_uio_info_t info = {};
    uint32_t status = norv_uio_open_by_pci_id(0x1234, 0x11E8, &device);
    EXPECT_EQ(device != nullptr, status == 0);
    if (status == 0) {
        status = norv_uio_get_info(&device, &info);
    }
    if (status == 0) {
        status = norv_uio_enable_irq(&device);
    }
    if (status == 0) {
        status = norv_uio_disable_irq(&device);
    }
    norv_uio_close(&device);
    EXPECT_EQ(device, nullptr);
    return status;
}

TEST(UioPciSweep, EveryFailingCallIsReportedAndLeavesNothingOpen) {
    norv::test::sweep_options options;
    options.expect = [](const strike& struck) {
        if (hides_identity(struck)) {
            return NORV_STATUS_NOT_FOUND;
        }
        // The byte of the command register that was not read or not written.
        const bool of_command = struck.name == "pread" || struck.name == "pwrite";
        if (of_command && struck.how == fault::kind::short_count) {
            return NORV_STATUS_DEVICE_ERROR;
        }
        return ends_uevent_file(struck) ? NORV_STATUS_OK : norv::test::status_of_fault(struck);
    };
    norv::test::failure_sweep([](kernel_double& kernel) { add_pci_uio(kernel, "uio2"); }, use_device,
                              options);
}

}  // namespace
