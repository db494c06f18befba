// SPDX-License-Identifier: MIT
// The configfs side of device-tree overlays: creating a directory creates an overlay, writing its dtbo
// applies it.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "support/kernel_double.hpp"

namespace norv::test {

// The content of an overlay's file that the kernel applies.
constexpr std::string_view good_overlay("\xd0\x0d\xfe\xed overlay", 12);

// A file that does not begin like a device tree is accepted, but not applied.
class overlay_configfs {
  public:
    explicit overlay_configfs(kernel_double& kernel) : kernel_(kernel) {
        kernel.add_file(file, good_overlay);
        kernel.on_make_directory(overlays, [this](const std::string& path) { make_overlay(path); });
    }

    static constexpr const char* overlays = "/sys/kernel/config/device-tree/overlays";
    static constexpr const char* file = "/lib/firmware/camera.dtbo";

    // The status of an overlay that the kernel applies.
    std::string applied_text = "applied\n";

    void make_overlay(const std::string& path) {
        kernel_.add_file(path + "/dtbo");
        kernel_.add_file(path + "/status", "unapplied\n");
        kernel_.on_write(path + "/dtbo", [this, path](std::string_view bytes) {
            kernel_.add_file(path + "/status",
                             bytes.starts_with("\xd0\x0d\xfe\xed") ? applied_text : "unapplied\n");
            return 0;
        });
    }

  private:
    kernel_double& kernel_;
};

}  // namespace norv::test
