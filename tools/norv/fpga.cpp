// SPDX-License-Identifier: MIT
// norv fpga: programming FPGAs through the kernel's FPGA manager.
#include "norv/fpga.hpp"

#include "command.hpp"
#include "confirm.hpp"
#include "failure.hpp"
#include "names.hpp"
#include "norv/file.hpp"
#include "report.hpp"
#include "sysfs.hpp"
#include "text.hpp"

namespace norv::tool {

namespace {

const std::string managers = "/sys/class/fpga_manager/";
const std::string firmware_directory = "/lib/firmware/";

const causes no_fpga{{NORV_STATUS_NOT_FOUND,
                      "no /sys/class/fpga_manager; is the FPGA manager's driver loaded, and was the kernel "
                      "built with CONFIG_FPGA?",
                      "/sys/class/fpga_manager"},
                     {NORV_STATUS_NOT_FOUND, "no such FPGA; is the FPGA manager's driver loaded?"}};
const causes usual{
    {NORV_STATUS_NOT_FOUND, "no such file where the kernel looks for firmware, in /lib/firmware"},
    {NORV_STATUS_INVALID_ARG, "the driver refused the file; is it an image for this FPGA?"},
    {NORV_STATUS_DEVICE_ERROR, "the FPGA failed while it was programmed; see dmesg"},
    {NORV_STATUS_TIMEOUT, "the FPGA did not finish; is the image for this FPGA?"},
    {status_of(EBUSY), "a kernel driver uses the FPGA"}};

std::string title(uint32_t number) {
    return text("fpga %u", number);
}

std::string manager(uint32_t number) {
    return text("%sfpga%u", managers.c_str(), number);
}

bool is_operating(uint32_t number) {
    return must(title(number), norv::fpga::is_program_done(number), no_fpga);
}

struct status {
    static constexpr auto name = "status";
    static constexpr auto help = "Show the state of all FPGAs, or of one";

    int number = -1;
    report out;

    void declare(CLI::App& command) {
        command.add_option("FPGA", number, "N of fpgaN")->check(CLI::Range(0, INT32_MAX).description(""));
        out.offer_json(command);
    }

    void run() {
        std::string table = "FPGA  STATE              NAME";
        json document = json::array();
        for (const uint32_t one : wanted()) {
            const bool done = is_operating(one);
            const std::string state = attribute(title(one), manager(one) + "/state", no_fpga);
            const std::string driver = attribute_if_there(manager(one) + "/name").value_or("");
            table += text("\n%4u  %-17s  %s", one, state.c_str(), driver.c_str());
            document.push_back({{"fpga", one}, {"operating", done}, {"state", state}, {"name", driver}});
        }
        out.show(table, document);
    }

  private:
    std::vector<uint32_t> wanted() const {
        std::vector<uint32_t> numbers;
        if (number >= 0) {
            return {static_cast<uint32_t>(number)};
        }
        for (const std::string& entry : names_in(managers)) {
            if (const auto found = number_behind(entry, "fpga")) {
                numbers.push_back(*found);
            }
        }
        return numbers;
    }
};

struct program {
    static constexpr auto name = "program";
    static constexpr auto help = "Program an FPGA with a file from the kernel's firmware directory";

    std::string firmware;
    uint32_t number = 0;
    confirmation confirm;

    void declare(CLI::App& command) {
        command.add_option("FIRMWARE", firmware, "a file in /lib/firmware")->required();
        command.add_option("-f,--fpga", number, "N of fpgaN")->capture_default_str();
        confirm.offer_yes(command);
    }

    void run() {
        const std::string file = file_name();
        is_operating(number);
        if (!norv::can_access(manager(number) + "/firmware")) {
            throw failure{
                title(number),
                NORV_STATUS_NOT_FOUND,
                {{NORV_STATUS_NOT_FOUND,
                  "the FPGA manager has no attribute \"firmware\"; mainline kernels program through overlays "
                  "alone"}}};
        }
        confirm.ask(text("program fpga%u with %s; its current design stops", number, file.c_str()));
        must(title(number), norv::fpga::program(number, file), usual);
        if (!is_operating(number)) {
            throw failure{title(number), "programmed, but not operating; its state is \"" +
                                             attribute(title(number), manager(number) + "/state") + "\""};
        }
    }

  private:
    // The kernel takes a name below its directory, people have its path at hand.
    std::string file_name() const {
        const std::string file =
            firmware.starts_with(firmware_directory) ? firmware.substr(firmware_directory.size()) : firmware;
        if (file.empty() || file.starts_with("/") || file.starts_with(".") || leads_upwards(file)) {
            throw usage_error{"the kernel takes firmware from " + firmware_directory + " only; copy " +
                              firmware + " there and give its name"};
        }
        return file;
    }
};

const group fpga{"fpga", "FPGAs and their images", with_commands<status, program>};

}  // namespace

}  // namespace norv::tool
