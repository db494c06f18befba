// The hot-plug parser's look through sysfs: what is plugged in already.
#include <dirent.h>
#include <sys/stat.h>
#include <unistd.h>

#include <climits>
#include <cstdio>
#include <cstdlib>

#include "events/uevent_parse.hpp"

namespace norv {
namespace {

constexpr char usb_devices[] = "/sys/bus/usb/devices";

// The walked directory, which gets longer and shorter on the way.
struct walked_path {
    char text[PATH_MAX];
    size_t length;
};

// Enters a name behind the path for the time of a scope. A path that would be too long is left alone: cut, it
// would lead elsewhere.
class entered {
  public:
    entered(walked_path& path, const char* name) : path_(path), length_(path.length) {
        const size_t longer = length_ + 1 + norv_strlen(name);
        if (longer < sizeof path.text) {
            snprintf(path.text + length_, sizeof path.text - length_, "/%s", name);
            path.length = longer;
        }
    }
    ~entered() {
        path_.length = length_;
        path_.text[length_] = '\0';
    }
    entered(const entered&) = delete;
    entered& operator=(const entered&) = delete;

    bool fits() const { return path_.length != length_; }

  private:
    walked_path& path_;
    size_t length_;
};

// Every line, up to the end of what was read.
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

// The subsystem of a node by its name. Any other node has what its file says: the kernel writes none there.
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
    // A node of any kind, on purpose, where a message's node must be of a tracked subsystem.
    found.subsystem = subsystem_of(found);
    add_child(parser, found);
}

// Reads the "uevent" file of a directory into the receive buffer; tells whether it describes a node.
bool read_uevent_file(norv_uevent_parse& parser, const char* path, size_t& size) {
    const ssize_t count = read_file(path, parser.buffer, parser.buffer_size);
    if (count < 0) {
        return false;
    }
    size = static_cast<size_t>(count);
    parser.buffer[size] = '\0';
    // Nodes of the device tree are none of USB's.
    return norv_strstr(parser.buffer, "DEVNAME") != nullptr &&
           norv_strstr(parser.buffer, "OF_NAME") == nullptr;
}

bool is_regular_file(const char* path) {
    struct stat found;
    return lstat(path, &found) == 0 && S_ISREG(found.st_mode);
}

void take_uevent_file(norv_uevent_parse& parser, walked_path& directory) {
    size_t size = 0;
    {
        // Where there is no room for the name the path stays the directory's, which is no regular file.
        const entered file(directory, "uevent");
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
            const entered subdirectory(directory, entry->d_name);
            if (subdirectory.fits()) {
                walk(parser, directory);
            }
        } else if (is_word(entry->d_name, "uevent")) {
            take_uevent_file(parser, directory);
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
