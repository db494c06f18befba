// SPDX-License-Identifier: MIT
//
// Programmable logic, overlays, clocks and sensors:
//
//     soc dt_overlay FILE       loads an overlay, and unloads it
//     soc fpga INDEX FIRMWARE   programs an FPGA, and waits until it is operating
//     soc zynq CHANNEL          shows a temperature and a voltage, and sets a clock
#include <cerrno>
#include <chrono>
#include <thread>

#include "norv/dt.hpp"
#include "norv/fpga.hpp"
#include "norv/zynq.hpp"
#include "program.hpp"

using namespace std::chrono_literals;

namespace {

void show_dt_overlay(char** arguments) {
    // A failed load leaves a directory, which keeps the name in use. That of another load is not unloaded.
    const norv::status loaded = norv::dt::load_overlay("example", arguments[0]);
    if (!loaded.ok() && loaded != norv_get_status_by_errno(EEXIST)) {
        norv::dt::unload_overlay("example").ignore();
    }
    loaded.value();
    std::printf("  %s is %s\n", arguments[0],
                norv::dt::has_overlay("example").value() ? "applied" : "not applied");
    norv::dt::unload_overlay("example").value();
}

// Some drivers return from programming before the logic has started: wait for up to a second.
bool wait_until_operating(uint32_t fpga) {
    for (int attempt = 0; attempt < 100; ++attempt) {
        if (norv::fpga::is_program_done(fpga).value()) {
            return true;
        }
        std::this_thread::sleep_for(10ms);
    }
    return false;
}

void show_fpga(char** arguments) {
    const uint32_t fpga = number(arguments[0]);
    norv::fpga::program(fpga, arguments[1]).value();
    std::printf("  fpga%u is %s\n", fpga, wait_until_operating(fpga) ? "operating" : "not operating");
}

void show_zynq(char** arguments) {
    const int32_t temperature = norv::zynq::get_temperature().value();
    std::printf("  temperature %.2f C\n", temperature / 100.0);
    const int32_t millivolts =
        norv::zynq::get_voltage(arguments[0], norv::zynq::full_scale::three_volts).value();
    std::printf("  %s %.3f V\n", arguments[0], millivolts / 1000.0);

    // The clock changes while what it drives is held in reset.
    norv::zynq::set_fclk_reset(0, true).value();
    const uint32_t rate = norv::zynq::set_fclk_freq(0, 100000000).value();
    norv::zynq::set_fclk_reset(0, false).value();
    std::printf("  fclk0 %u Hz of 100 MHz\n", rate);
}

constexpr family families[] = {
    {"dt_overlay", 1, show_dt_overlay}, {"fpga", 2, show_fpga}, {"zynq", 1, show_zynq}};

}  // namespace

int main(int count, char** arguments) {
    return show_family(families, count, arguments);
}
