// SPDX-License-Identifier: MIT
// The hot-plug parser's enumeration of sysfs: the devices that are plugged in already.
#include <dirent.h>
#include <sys/stat.h>
#include <unistd.h>

#include <climits>
#include <cstdio>
#include <cstdlib>

#include "hotplug/uevent_parse.hpp"

namespace norv {
namespace {

constexpr char usb_devices[] = "/sys/bus/usb/devices";

// The path of the directory that is being walked.
struct walked_path {
    char text[PATH_MAX];
    size_t length;
};

// Appends a name to the path until the end of the scope. A path that would be too long is left unchanged: a
// truncated one would lead elsewhere.
class appended_name {
  public:
    appended_name(walked_path& path, const char* name) : path_(path), length_(path.length) {
        const size_t longer = length_ + 1 + norv_strlen(name);
        if (longer < sizeof path.text) {
            snprintf(path.text + length_, sizeof path.text - length_, "/%s", name);
            path.length = longer;
        }
    }
    ~appended_name() {
        path_.length = length_;
        path_.text[length_] = '\0';
    }
    appended_name(const appended_name&) = delete;
    appended_name& operator=(const appended_name&) = delete;

    bool fits() const { return path_.length != length_; }

  private:
    walked_path& path_;
    size_t length_;
};

// Parses every line, up to the end of what was read.
void parse_lines(char* text, size_t size, parsed_event& event) {
    uint16_t consumed = 0;
    char* position = nullptr;
    const char* line = norv_strtok_r(text, "\n", &position);
    while (line != nullptr) {
        parse_text(line, event);
        consumed = static_cast<uint16_t>(consumed + norv_strlen(line) + 1);
        line = consumed < size ? norv_strtok_r(nullptr, "\n", &position) : nullptr;
    }
}

// The subsystem of a node by its name. quirk 111: any other node keeps that of its file, which the kernel
// leaves out.
const char* subsystem_of(const parsed_event& node) {
    if (norv_strstr(node.devname, "input") != nullptr) {
        return "input";
    }
    if (norv_strstr(node.devname, "video") != nullptr) {
        return "video4linux";
    }
    return norv_strstr(node.devname, "snd") != nullptr ? "sound" : node.subsystem;
}

void add_found(norv_uevent_parse& parser, parsed_event& found) {
    found.action = NORV_UEVENT_ACTION_NONE;
    if (is_word(found.devtype, "usb_device")) {
        found.subsystem = "usb";
        add_device(parser, found);
        return;
    }
    // quirk 111: a node of any kind, unlike that of a message.
    found.subsystem = subsystem_of(found);
    add_child(parser, found);
}

// Reads a "uevent" file into the receive buffer. Returns whether it describes a node.
bool read_uevent_file(norv_uevent_parse& parser, const char* path, size_t& size) {
    const ssize_t count = read_file(path, parser.buffer, parser.buffer_size);
    if (count < 0) {
        return false;
    }
    size = static_cast<size_t>(count);
    parser.buffer[size] = '\0';
    // quirk 112: not one of the device tree.
    return norv_strstr(parser.buffer, "DEVNAME") != nullptr &&
           norv_strstr(parser.buffer, "OF_NAME") == nullptr;
}

bool is_regular_file(const char* path) {
    struct stat found;
    return lstat(path, &found) == 0 && S_ISREG(found.st_mode);
}

void add_uevent_file(norv_uevent_parse& parser, walked_path& directory) {
    size_t size = 0;
    {
        // If the name does not fit, the path is still the directory's, which is not a regular file.
        const appended_name file(directory, "uevent");
        if (!is_regular_file(directory.text) || !read_uevent_file(parser, directory.text, size)) {
            return;
        }
    }
    parsed_event event;
    parse_lines(parser.buffer, size, event);
    event.devpath = norv_strstr(directory.text, "/devices");
    if (event.devpath != nullptr) {
        add_found(parser, event);
    }
}

bool is_subdirectory(const dirent& entry) {
    return entry.d_type == DT_DIR && !is_word(entry.d_name, ".") && !is_word(entry.d_name, "..");
}

// In the order in which the kernel lists the entries. Links are not followed: they lead out of the tree.
void walk(norv_uevent_parse& parser, walked_path& directory) {
    DIR* entries = opendir(directory.text);
    if (entries == nullptr) {
        return;
    }
    while (const dirent* entry = readdir(entries)) {
        if (is_subdirectory(*entry)) {
            const appended_name subdirectory(directory, entry->d_name);
            if (subdirectory.fits()) {
                walk(parser, directory);
            }
        } else if (is_word(entry->d_name, "uevent")) {
            add_uevent_file(parser, directory);
        }
    }
    closedir(entries);
}

// The directory that an entry of the bus, a link, leads to.
bool resolve(const char* entry, walked_path& directory) {
    char target[PATH_MAX];
    char path[sizeof usb_devices + sizeof target];
    snprintf(path, sizeof path, "%s/%s", usb_devices, entry);
    const ssize_t length = readlink(path, target, sizeof target - 1);
    target[length < 0 ? 0 : length] = '\0';
    snprintf(path, sizeof path, "%s/%s", usb_devices, target);
    if (realpath(path, directory.text) == nullptr) {
        return false;
    }
    directory.length = norv_strlen(directory.text);
    return true;
}

}  // namespace

void enumerate_devices(norv_uevent_parse& parser) {
    DIR* entries = opendir(usb_devices);
    if (entries == nullptr) {
        return;
    }
    while (const dirent* entry = readdir(entries)) {
        walked_path directory;
        if (norv_strstr(entry->d_name, "usb") != nullptr && resolve(entry->d_name, directory)) {
            walk(parser, directory);
        }
    }
    closedir(entries);
}

}  // namespace norv
