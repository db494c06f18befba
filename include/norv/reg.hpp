// SPDX-License-Identifier: MIT
/**
 * @file norv/reg.hpp
 * Registers as typed values: where a register is, what type it has, and which of its bits form a field. The
 * owners of mapped devices, `norv::uio` and `norv::umcb`, and `norv::mcb_bus` read and write them.
 *
 *     enum class mode : uint32_t { idle, single, continuous };
 *     constexpr norv::reg control(0x10);
 *     constexpr norv::field<bool> enable(control, 0x00000001);
 *     constexpr norv::field<mode> run_mode(control, 0x0000000C);
 *     constexpr norv::reg<int32_t> temperature(0x14);
 *
 *     device.write(enable(true) | run_mode(mode::single));  // the other bits become 0
 *     device.modify(run_mode(mode::continuous));            // the other bits stay
 *     bool enabled = device.read(enable);
 *     int32_t degrees = device.read(temperature);
 *
 * Registers have 32 bits, in the processor's byte order. What can be checked is checked by assert(3): that an
 * offset is a multiple of 4 and lies within the mapped region, and that a value fits into its field. Where
 * `NDEBUG` is defined, nothing is checked.
 */
#pragma once

#include <bit>
#include <cassert>
#include <cstdint>
#include <type_traits>

namespace norv {

/** A register whose value has the type T, of 32 bits: a number, an enumeration, a record of bits. */
template <typename T = uint32_t>
class reg {
    static_assert(sizeof(T) == sizeof(uint32_t) && std::is_trivially_copyable_v<T>, "registers have 32 bits");

  public:
    using value_type = T;

    /** The register at an offset in bytes from the start of the region, a multiple of 4. */
    constexpr explicit reg(uint32_t offset) noexcept : offset_(offset) { assert(offset % 4 == 0); }

    /** Bytes from the start of the region. */
    constexpr uint32_t offset() const noexcept { return offset_; }

    /** The register with this index in a block of registers that begins with this one. */
    constexpr reg operator[](uint32_t index) const noexcept { return reg(offset_ + 4 * index); }

  private:
    uint32_t offset_;
};

reg(uint32_t)->reg<uint32_t>;

/** Values of fields of one register: what a field, or several joined with `|`, makes of its value. */
class field_values {
  public:
    constexpr field_values(uint32_t offset, uint32_t mask, uint32_t bits) noexcept
        : offset_(offset), mask_(mask), bits_(bits) {}

    /** The register. */
    constexpr reg<uint32_t> in() const noexcept { return reg<uint32_t>(offset_); }
    /** The bits of the fields. */
    constexpr uint32_t mask() const noexcept { return mask_; }
    /** Their values in place; all other bits are 0. */
    constexpr uint32_t bits() const noexcept { return bits_; }
    /** What becomes of a register's value when these fields are changed. */
    constexpr uint32_t applied_to(uint32_t word) const noexcept { return (word & ~mask_) | bits_; }

    /** Joins the values of different fields of the same register. */
    friend constexpr field_values operator|(field_values first, field_values second) noexcept {
        assert(first.offset_ == second.offset_);
        assert((first.mask_ & second.mask_) == 0);
        return {first.offset_, first.mask_ | second.mask_, first.bits_ | second.bits_};
    }

  private:
    uint32_t offset_;
    uint32_t mask_;
    uint32_t bits_;
};

/** Adjacent bits of a register, as a value of the type T: a bool, an unsigned number or an enumeration. */
template <typename T = uint32_t>
class field {
    static_assert(std::is_unsigned_v<T> || std::is_enum_v<T>, "a bool, an unsigned number or an enumeration");

  public:
    using value_type = T;

    /** The field that consists of the bits of a mask, which must be adjacent. */
    constexpr field(reg<uint32_t> in, uint32_t mask) noexcept : in_(in), mask_(mask) {
        assert(mask != 0 && (largest() & (largest() + 1)) == 0);
    }

    /** The register. */
    constexpr reg<uint32_t> in() const noexcept { return in_; }
    /** The bits of the field. */
    constexpr uint32_t mask() const noexcept { return mask_; }

    /** The value of the field in a value of its register. */
    constexpr T of(uint32_t word) const noexcept { return static_cast<T>((word & mask_) >> shift()); }

    /** A value to be written to the field. It must fit. */
    constexpr field_values operator()(T value) const noexcept {
        const auto number = static_cast<uint32_t>(value);
        assert(number <= largest());
        return {in_.offset(), mask_, (number << shift()) & mask_};
    }

  private:
    constexpr int shift() const noexcept { return std::countr_zero(mask_); }
    constexpr uint32_t largest() const noexcept { return mask_ >> shift(); }

    reg<uint32_t> in_;
    uint32_t mask_;
};

namespace detail {

// The typed accesses of an owner that has `read_32` and `write_32`.
template <typename owner>
class register_access {
  public:
    /** Reads a register. */
    template <typename T>
    T read(reg<T> from) const noexcept {
        return std::bit_cast<T>(self().read_32(from.offset()));
    }
    /** Reads a register, and returns the value of one field. */
    template <typename T>
    T read(field<T> from) const noexcept {
        return from.of(read(from.in()));
    }
    /** Writes a register. */
    template <typename T>
    void write(reg<T> to, std::type_identity_t<T> value) noexcept {
        static_cast<owner&>(*this).write_32(to.offset(), std::bit_cast<uint32_t>(value));
    }
    /** Writes a register without reading it: all other fields become 0. */
    void write(field_values values) noexcept { write(values.in(), values.bits()); }
    /** Reads a register, changes these fields and writes it: two accesses, between which it may change. */
    void modify(field_values values) noexcept { write(values.in(), values.applied_to(read(values.in()))); }

  private:
    const owner& self() const noexcept { return static_cast<const owner&>(*this); }
};

}  // namespace detail

}  // namespace norv
