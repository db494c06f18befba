// SPDX-License-Identifier: MIT
// Registers and fields as typed values. What assert(3) checks is tested in optimised builds, too.
#undef NDEBUG

#include "norv/reg.hpp"

#include <gtest/gtest.h>
#include <sys/sysmacros.h>

#include <array>
#include <cstdint>
#include <memory>
#include <utility>

#include "mapped/uio_devices.hpp"
#include "mapped/umcb_devices.hpp"
#include "norv/uio.hpp"
#include "norv/umcb.hpp"

namespace {

using norv::field;
using norv::field_values;
using norv::reg;
using norv::test::add_uio;
using norv::test::add_umcb;
using norv::test::kernel_double;

enum class mode : uint32_t { idle, single, continuous };

constexpr reg control(0x10);
constexpr field<bool> enable(control, 0x00000001);
constexpr field<mode> run_mode(control, 0x0000000C);
constexpr field<uint8_t> level(control, 0xFF000000);

// Registers in memory; counts the accesses.
class board : public norv::detail::register_access<board> {
  public:
    uint32_t read_32(uint32_t offset) const noexcept {
        ++reads;
        return words[offset / 4];
    }
    void write_32(uint32_t offset, uint32_t value) noexcept {
        ++writes;
        words[offset / 4] = value;
    }

    std::array<uint32_t, 16> words = {};
    mutable int reads = 0;
    int writes = 0;
};

// ---- what is known when the program is compiled

static_assert(control.offset() == 0x10 && control[3].offset() == 0x1C);
static_assert(enable(true).bits() == 1 && enable(false).bits() == 0 && enable(false).mask() == 1);
static_assert(run_mode(mode::continuous).bits() == 8);
static_assert(run_mode.of(0xFFFFFFF7) == mode::single);
static_assert(level.of(0xA5000000) == 0xA5 && level(0xA5).bits() == 0xA5000000);
static_assert((enable(true) | level(2)).bits() == 0x02000001 &&
              (enable(true) | level(2)).mask() == 0xFF000001);
static_assert(run_mode(mode::idle).applied_to(0xFFFFFFFF) == 0xFFFFFFF3);
static_assert(field<>(control, 0xFFFFFFFF).of(0x12345678) == 0x12345678);

// ---- accesses

TEST(Reg, ARegisterIsReadAndWrittenAsItsType) {
    constexpr reg<int32_t> temperature(0x14);
    constexpr reg<float> gain(0x18);
    constexpr reg<mode> state(0x1C);
    board device;
    device.write(temperature, -3);
    device.write(gain, 0.5F);
    device.write(state, mode::continuous);
    EXPECT_EQ(device.words[5], 0xFFFFFFFD);
    EXPECT_EQ(device.words[6], 0x3F000000U);
    EXPECT_EQ(device.words[7], 2U);
    EXPECT_EQ(device.read(temperature), -3);
    EXPECT_EQ(device.read(gain), 0.5F);
    EXPECT_EQ(device.read(state), mode::continuous);
}

TEST(Reg, WritingFieldsClearsTheOtherBitsAndDoesNotRead) {
    board device;
    device.words[4] = 0xFFFFFFFF;
    device.write(run_mode(mode::single) | level(7));
    EXPECT_EQ(device.words[4], 0x07000004U);
    EXPECT_EQ(device.reads, 0);
    EXPECT_EQ(device.writes, 1);
}

TEST(Reg, ModifyingFieldsKeepsTheOtherBits) {
    board device;
    device.words[4] = 0xFFFFFFFF;
    device.modify(run_mode(mode::single) | enable(false));
    EXPECT_EQ(device.words[4], 0xFFFFFFF6U);
    EXPECT_EQ(device.reads, 1);
    EXPECT_EQ(device.writes, 1);
}

TEST(Reg, AFieldIsReadAsItsType) {
    board device;
    device.words[4] = 0x80000009;
    EXPECT_TRUE(device.read(enable));
    EXPECT_EQ(device.read(run_mode), mode::continuous);
    EXPECT_EQ(device.read(level), 0x80);
}

// ---- what is checked

TEST(RegDeathTest, AnOffsetThatIsNotAMultipleOf4IsNotAccepted) {
    EXPECT_DEATH(reg(2), "offset % 4");
}

TEST(RegDeathTest, TheBitsOfAFieldAreAdjacent) {
    EXPECT_DEATH(field<>(control, 0), "mask");
    EXPECT_DEATH(field<>(control, 0x5), "mask");
}

TEST(RegDeathTest, AValueThatDoesNotFitIntoItsFieldIsNotAccepted) {
    EXPECT_DEATH(static_cast<void>(run_mode(static_cast<mode>(4))), "largest");
}

TEST(RegDeathTest, OnlyDifferentFieldsOfOneRegisterAreJoined) {
    constexpr field<> elsewhere(reg(0x20), 0x100);
    EXPECT_DEATH(static_cast<void>(enable(true) | elsewhere(1)), "offset");
    EXPECT_DEATH(static_cast<void>(enable(true) | field<>(control, 0x3)(2)), "mask");
}

// An open device with a region of a page.
class RegDeviceDeathTest : public testing::Test {
  protected:
    RegDeviceDeathTest() { kernel.add_file("/sys/dev/char/0:0/maps/map0/size", "0x1000\n"); }

    kernel_double kernel;
};

TEST_F(RegDeviceDeathTest, AnAccessOfAUioDeviceIsWithinTheRegion) {
    const auto node = add_uio(kernel, "uio0", "fpga-regs");
    norv::uio device = norv::uio::open(0).value();
    EXPECT_EQ(device.map_size(), 0x1000U);
    device.write(reg(0xFFC), 1);
    EXPECT_EQ(node->registers[0x3FF], 1U);
    EXPECT_DEATH(static_cast<void>(device.read(reg(0x1000))), "contains");
    EXPECT_DEATH(device.write_32(0xFFE, 1), "contains");
    EXPECT_DEATH(device.write_32(2, 1), "contains");
    EXPECT_DEATH(static_cast<void>(device.read_32(0xFFFFFFFC)), "contains");
}

TEST_F(RegDeviceDeathTest, AnAccessOfAUmcbDeviceIsWithinTheRegion) {
    const auto node = add_umcb(kernel, "umcb1", "control");
    norv::umcb device = norv::umcb::open(1).value();
    EXPECT_EQ(device.map_size(), 0x1000U);
    device.write(reg(0xFFC), 1);
    EXPECT_EQ(node->registers[0x3FF], 1U);
    EXPECT_DEATH(static_cast<void>(device.read(reg(0x1000))), "contains");
    EXPECT_DEATH(device.write_32(0x1000, 1), "contains");
}

TEST_F(RegDeviceDeathTest, ADeviceThatWasMovedFromIsNotAccessed) {
    const auto uio_registers = add_uio(kernel, "uio0", "fpga-regs");
    const auto umcb_registers = add_umcb(kernel, "umcb1", "control");
    norv::uio plain = norv::uio::open(0).value();
    norv::umcb control_device = norv::umcb::open(1).value();
    const norv::uio plain_now = std::move(plain);
    const norv::umcb control_now = std::move(control_device);
    EXPECT_DEATH(static_cast<void>(plain.read_32(0)), "contains");
    EXPECT_DEATH(static_cast<void>(control_device.read_32(0)), "contains");
    EXPECT_EQ(plain_now.read_32(0), 0U);
    EXPECT_EQ(control_now.read_32(0), 0U);
}

TEST(RegRegion, WithoutASizeEveryAlignedOffsetIsAccepted) {
    kernel_double kernel;
    const auto node = add_uio(kernel, "uio0", "fpga-regs");
    node->registers[5] = 9;
    const norv::uio device = norv::uio::open(0).value();
    EXPECT_EQ(device.map_size(), 0U);
    EXPECT_EQ(device.read_32(20), 9U);
}

TEST(RegRegion, ARegionEndsWithAPage) {
    const auto page = static_cast<uint32_t>(getpagesize());
    const norv::detail::register_region region(&page, page + 4);
    EXPECT_EQ(region.size(), 2 * page);
    EXPECT_TRUE(region.contains(2 * page - 4));
    EXPECT_FALSE(region.contains(2 * page));
}

TEST(RegRegion, ARegionThatIsNotMappedHasNoRegisters) {
    EXPECT_FALSE(norv::detail::register_region(MAP_FAILED, 0x1000).contains(0));
    EXPECT_FALSE(norv::detail::register_region(nullptr, 0x1000).contains(0));
}

TEST(RegRegion, TheNumbersOfANodeAreThoseOfTheCLibrary) {
    for (const uint64_t node : {uint64_t{0x103}, uint64_t{0x0123456789ABCDEF}, UINT64_MAX}) {
        EXPECT_EQ(norv::detail::major_number(node), gnu_dev_major(node));
        EXPECT_EQ(norv::detail::minor_number(node), gnu_dev_minor(node));
    }
}

}  // namespace
