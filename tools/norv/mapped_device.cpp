// SPDX-License-Identifier: MIT
#include "mapped_device.hpp"

#include <algorithm>
#include <cinttypes>
#include <cstdlib>

#include "failure.hpp"
#include "sysfs.hpp"
#include "text.hpp"

namespace norv::tool {

namespace {

constexpr cause no_uio{
    NORV_STATUS_NOT_FOUND,
    "no /sys/class/uio; is the UIO driver loaded, and was the kernel built with CONFIG_UIO?",
    "/sys/class/uio"};
constexpr cause no_umcb{NORV_STATUS_NOT_FOUND, "no /sys/class/umcb; is the driver of UMCB devices loaded?",
                        "/sys/class/umcb"};

uint64_t number_in(const std::string& path) {
    return std::strtoull(attribute_if_there(path).value_or("0").c_str(), nullptr, 0);
}

std::optional<pci_identity> pci_identity_of(const std::string& parent) {
    if (!attribute_if_there(parent + "/vendor")) {
        return std::nullopt;
    }
    return pci_identity{static_cast<uint16_t>(number_in(parent + "/vendor")),
                        static_cast<uint16_t>(number_in(parent + "/device"))};
}

mapped_device describe(const std::string& kind, uint32_t number) {
    const std::string directory = text("/sys/class/%s/%s%u", kind.c_str(), kind.c_str(), number);
    return {kind, number, attribute_if_there(directory + "/name").value_or(""),
            number_in(directory + "/maps/map0/size"), pci_identity_of(directory + "/device")};
}

bool is_meant(const mapped_device& device, const std::string& designation) {
    const auto pci = parse_pci_identity(designation);
    return std::to_string(device.number) == designation || device.name == designation ||
           (pci && device.pci && device.pci->words() == pci->words());
}

json describe_as_json(const mapped_device& device) {
    return {{"device", device.number},
            {"name", device.name},
            {"size", device.size},
            {"pci", device.pci ? json(device.pci->words()) : json()}};
}

}  // namespace

std::string pci_identity::words() const {
    return text("%04x:%04x", vendor, device);
}

std::optional<pci_identity> parse_pci_identity(const std::string& words) {
    const size_t colon = words.find(':');
    const auto is_half = [](const std::string& digits) {
        return !digits.empty() && digits.size() <= 4 &&
               digits.find_first_not_of("0123456789abcdefABCDEF") == std::string::npos;
    };
    if (colon == std::string::npos || !is_half(words.substr(0, colon)) || !is_half(words.substr(colon + 1))) {
        return std::nullopt;
    }
    return pci_identity{static_cast<uint16_t>(std::strtoul(words.c_str(), nullptr, 16)),
                        static_cast<uint16_t>(std::strtoul(words.c_str() + colon + 1, nullptr, 16))};
}

pci_identity required_pci_identity(const std::string& words) {
    const auto parsed = parse_pci_identity(words);
    if (!parsed) {
        throw usage_error{"\"" + words + "\" is not a PCI identity like 1234:11e8"};
    }
    return *parsed;
}

std::string mapped_device::title() const {
    return text("%s %u", kind.c_str(), number);
}

std::vector<mapped_device> mapped_devices(const std::string& kind) {
    std::vector<mapped_device> devices;
    for (const std::string& name : names_in("/sys/class/" + kind)) {
        if (const auto number = number_behind(name, kind)) {
            devices.push_back(describe(kind, *number));
        }
    }
    return devices;
}

mapped_device find_mapped_device(const std::string& kind, const std::string& designation) {
    const auto devices = mapped_devices(kind);
    const auto found =
        std::ranges::find_if(devices, [&](const auto& device) { return is_meant(device, designation); });
    if (found == devices.end()) {
        throw failure{kind + " " + designation,
                      NORV_STATUS_NOT_FOUND,
                      {kind == "uio" ? no_uio : no_umcb,
                       {NORV_STATUS_NOT_FOUND, "no such device; is its driver loaded?"}}};
    }
    return *found;
}

void show_mapped_devices(const std::string& kind, const report& out) {
    std::string table = "DEVICE  SIZE        PCI        NAME";
    json document = json::array();
    for (const mapped_device& device : mapped_devices(kind)) {
        table += text("\n%6u  0x%08" PRIx64 "  %-9s  %s", device.number, device.size,
                      device.pci ? device.pci->words().c_str() : "-", device.name.c_str());
        document.push_back(describe_as_json(device));
    }
    out.show(table, document);
}

}  // namespace norv::tool
