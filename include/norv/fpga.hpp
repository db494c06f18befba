// SPDX-License-Identifier: MIT
/**
 * @file norv/fpga.hpp
 * Programming an FPGA. What the functions do, and their statuses, are those of norv_fpga.h.
 *
 *     norv::fpga::program(0, "design.bit.bin").value();
 *     bool operating = norv::fpga::is_program_done(0).value();
 */
#pragma once

#include <cstdint>
#include <string_view>

#include "norv/result.hpp"
#include "norv/text.hpp"
#include "norv_fpga.h"

namespace norv::fpga {

/** See `norv_fpga_program`. A name of 4096 characters or more is an invalid argument. */
inline status program(uint32_t index, std::string_view firmware) {
    const detail::c_string<4096> name(firmware);
    return status(norv_fpga_program(index, name.get()));
}

/** See `norv_fpga_is_program_done`. */
inline result<bool> is_program_done(uint32_t index) {
    bool done = false;
    const status read(norv_fpga_is_program_done(index, &done));
    return read.ok() ? result<bool>(done) : result<bool>(read);
}

}  // namespace norv::fpga
