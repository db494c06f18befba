// SPDX-License-Identifier: MIT
// A device's "uevent" file as the fuzzer likes it, found when the hot-plug parser is opened.
#include <dirent.h>
#include <dlfcn.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>

#include "norv_uevent_parse.h"
#include "support/kernel_file.hpp"

namespace {

namespace fs = std::filesystem;

constexpr char bus[] = "/sys/bus/usb/devices";
constexpr char hub[] = "/sys/devices/pci0/usb1";

// A bus with one root hub and one device, made once; what the files hold is up to the fuzzer.
class tree {
  public:
    tree() {
        char pattern[] = "/tmp/norv-fuzz-XXXXXX";
        root_ = mkdtemp(pattern);
        fs::create_directories(root_ + bus);
        fs::create_directories(root_ + hub + "/1-1");
        fs::create_directory_symlink("../../../devices/pci0/usb1", root_ + bus + "/usb1");
        std::ofstream(root_ + hub + "/uevent");
        std::ofstream(root_ + hub + "/1-1/uevent");
    }
    ~tree() { fs::remove_all(root_); }
    tree(const tree&) = delete;
    tree& operator=(const tree&) = delete;

    std::string place(const char* path) const { return strncmp(path, "/sys/", 5) == 0 ? root_ + path : path; }

  private:
    std::string root_;
};

const tree& sysfs() {
    static const tree made;
    return made;
}

template <typename function>
function* real(const char* name) {
    return reinterpret_cast<function*>(dlsym(RTLD_NEXT, name));
}

void check(const norv_uevent_device_t* device, void* user) {
    ++*static_cast<int*>(user);
    fuzz::require(device != nullptr);
}

}  // namespace

// In front of the C library's: paths of sysfs lead into the tree.
extern "C" {

DIR* opendir(const char* path) {
    static const auto real_opendir = real<DIR*(const char*)>("opendir");
    return real_opendir(sysfs().place(path).c_str());
}

int lstat(const char* path, struct stat* found) noexcept {
    static const auto real_lstat = real<int(const char*, struct stat*)>("lstat");
    return real_lstat(sysfs().place(path).c_str(), found);
}

char* realpath(const char*, char* resolved) noexcept {
    return strcpy(resolved, hub);
}

}  // extern "C"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    sysfs();
    const fuzz::kernel_file everything_opened(data, size);
    int calls = 0;
    const norv_uevent_parse_settings_t settings = {NORV_UEVENT_FILTER_USB, 512, check, &calls};
    norv_uevent_parse_t* parser = nullptr;
    const norv_uevent_device_list_t* list = nullptr;
    fuzz::require(norv_uevent_parse_open(&parser, &settings) == NORV_STATUS_OK);
    fuzz::require(norv_uevent_parse_get_device(&parser, &list) == NORV_STATUS_OK);
    // Both files say the same: two devices, a node each that belongs to none, or nothing.
    fuzz::require(list->count == 0 || list->count == 2);
    fuzz::require(calls == 0 || calls == 2);
    norv_uevent_parse_close(&parser);
    return 0;
}
