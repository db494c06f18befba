// SPDX-License-Identifier: MIT
// norv overlay: device-tree overlays, which describe hardware to the kernel.
#include "norv/dt.hpp"

#include <unistd.h>

#include <filesystem>

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

const std::string overlays = "/sys/kernel/config/device-tree/overlays/";

constexpr cause no_overlays{
    NORV_STATUS_NOT_FOUND,
    "no /sys/kernel/config/device-tree/overlays; is configfs mounted, and was the kernel built with "
    "CONFIG_OF_OVERLAY and CONFIG_OF_CONFIGFS?",
    "/sys/kernel/config/device-tree/overlays"};
const causes usual{
    no_overlays,
    {NORV_STATUS_NOT_APPLIED, "the kernel refused it; does it fit the board's device tree? See dmesg"},
    {status_of(EEXIST), "the name is in use; unload it first"},
    {status_of(EFAULT), "the file is empty"}};

const CLI::Validator valid_name = name_of("an overlay");

std::string title(const std::string& name) {
    return "overlay " + name;
}

bool is_there(const std::string& name) {
    return norv::can_access(overlays + name);
}

void must_be_there(const std::string& name) {
    if (!is_there(name)) {
        throw failure{title(name),
                      NORV_STATUS_NOT_FOUND,
                      {no_overlays, {NORV_STATUS_NOT_FOUND, "no such overlay; see norv overlay status"}}};
    }
}

struct load_overlay {
    static constexpr auto name = "load";
    static constexpr auto help = "Load a compiled overlay; it is unloaded again if it is not applied";

    std::string file;
    std::string called;
    confirmation confirm;

    void declare(CLI::App& command) {
        command.add_option("FILE", file, "a .dtbo file")->required();
        command.add_option("-n,--name", called, "its name; default: the file's name without .dtbo")
            ->check(valid_name);
        confirm.offer_yes(command);
    }

    void run() {
        if (called.empty()) {
            called = std::filesystem::path{file}.stem().string();
        }
        const std::string fault = valid_name(called);
        if (!fault.empty()) {
            throw usage_error{fault};
        }
        must_be_readable();
        if (!is_there("")) {
            throw failure{title(called), NORV_STATUS_NOT_FOUND, usual};
        }
        if (is_there(called)) {
            throw failure{title(called), status_of(EEXIST), usual};
        }
        confirm.ask("load " + file + " as overlay \"" + called +
                    "\": the kernel adds its hardware and starts the drivers");
        load();
    }

  private:
    void must_be_readable() const {
        if (access(file.c_str(), R_OK) != 0) {
            throw failure{file, status_of(errno)};
        }
    }

    void load() const {
        const norv::status loaded = norv::dt::load_overlay(called, file);
        // The name was free: no other program's overlay would be removed.
        if (!loaded.ok() && loaded != status_of(EEXIST)) {
            norv::dt::unload_overlay(called).ignore();
        }
        must(title(called), loaded, usual);
    }
};

struct status {
    static constexpr auto name = "status";
    static constexpr auto help = "Show all overlays, or one, and whether they are applied";

    std::string which;
    report out;

    void declare(CLI::App& command) {
        command.add_option("NAME", which, "an overlay")->check(valid_name);
        out.offer_json(command);
    }

    void run() {
        std::string table = "APPLIED  NAME";
        json document = json::array();
        for (const std::string& overlay : wanted()) {
            const bool applied = must(title(overlay), norv::dt::has_overlay(overlay));
            table += text("\n%-7s  %s", applied ? "yes" : "no", overlay.c_str());
            document.push_back({{"name", overlay}, {"applied", applied}});
        }
        out.show(table, document);
    }

  private:
    std::vector<std::string> wanted() const {
        if (which.empty()) {
            return names_in(overlays);
        }
        must_be_there(which);
        return {which};
    }
};

struct unload {
    static constexpr auto name = "unload";
    static constexpr auto help = "Unload an overlay";

    std::string which;
    confirmation confirm;

    void declare(CLI::App& command) {
        command.add_option("NAME", which, "an overlay")->required()->check(valid_name);
        confirm.offer_yes(command);
    }

    void run() {
        must_be_there(which);
        confirm.ask("unload overlay \"" + which + "\": its hardware is removed, and the drivers release it");
        must(title(which), norv::dt::unload_overlay(which), usual);
    }
};

const group overlay{"overlay", "Device-tree overlays", with_commands<load_overlay, status, unload>};

}  // namespace

}  // namespace norv::tool
