// SPDX-License-Identifier: MIT
// The hot-plug parser's list of devices and their children.
#include <cstdio>

#include "core/layout.hpp"
#include "core/list.hpp"
#include "hotplug/uevent_parse.hpp"

NORV_LAYOUT(norv_uevent_link_t, 2 * sizeof(void*), next, prev);
NORV_LAYOUT(norv_uevent_device_list_t, NORV_32_64(12, 24), count, devices);
NORV_LAYOUT(norv_uevent_device_t, NORV_32_64(3108, 3128), link, action, major, minor, connector, syspath,
            subsystem, devnode, devtype, product, product_name, child_count, children);
NORV_LAYOUT(norv_uevent_child_t, NORV_32_64(2064, 2072), link, major, minor, syspath, subsystem, devnode,
            parent_product_name);
NORV_LAYOUT(norv_uevent_parse_settings_t, NORV_32_64(16, 24), filter, buffer_size, handler, user);

namespace norv {
namespace {

using text_field = char[NORV_UEVENT_TEXT_SIZE];

constexpr size_t sys_length = 4;  // of "/sys"

// ---- records

// A record begins with its link.
norv_uevent_device_t& device_of(norv_uevent_link_t& link) {
    return reinterpret_cast<norv_uevent_device_t&>(link);
}

const char* devpath_of(const norv_uevent_device_t& device) {
    return device.syspath + sys_length;
}

void copy_text(text_field& field, const char* text) {
    norv_strncpy(field, text, sizeof field);
    field[sizeof field - 1] = '\0';
}

void join_text(text_field& field, const char* start, const char* end) {
    snprintf(field, sizeof field, "%s%s", start, end);
}

// Stays empty if the device reports no name.
void read_product_name(norv_uevent_device_t& device) {
    char path[sizeof device.syspath + sizeof "/product"];
    snprintf(path, sizeof path, "%s/product", device.syspath);
    text_field& name = device.product_name;
    read_file(path, name, sizeof name);
    name[sizeof name - 1] = '\0';
    char* newline = norv_strstr(name, "\n");
    if (newline != nullptr) {
        *newline = '\0';
    }
}

// Null if there is no memory.
norv_uevent_device_t* create_device(const parsed_event& event) {
    auto* device = static_cast<norv_uevent_device_t*>(norv_zalloc(sizeof(norv_uevent_device_t)));
    if (device == nullptr) {
        return nullptr;
    }
    device->action = event.action;
    device->major = event.major;
    device->minor = event.minor;
    device->connector = event.connector;
    join_text(device->syspath, "/sys", event.devpath);
    join_text(device->devnode, "/dev/", event.devname);
    copy_text(device->subsystem, event.subsystem);
    copy_text(device->devtype, event.devtype);
    copy_text(device->product, event.product);
    read_product_name(*device);
    list_init(device->children);
    return device;
}

void append_child(norv_uevent_device_t& parent, const parsed_event& node) {
    auto* child = static_cast<norv_uevent_child_t*>(norv_zalloc(sizeof(norv_uevent_child_t)));
    if (child == nullptr) {
        return;
    }
    child->major = static_cast<uint32_t>(node.major);
    child->minor = static_cast<uint32_t>(node.minor);
    join_text(child->syspath, "/sys", node.devpath);
    join_text(child->devnode, "/dev/", node.devname);
    copy_text(child->parent_product_name, parent.product_name);
    copy_text(child->subsystem, node.subsystem);
    list_add_tail(parent.children, child->link);
    ++parent.child_count;
}

void release_device(norv_uevent_device_t& device) {
    while (!list_empty(device.children)) {
        norv_uevent_link_t* child = device.children.next;
        list_del(*child);
        norv_free(child);
    }
    list_del(device.link);
    norv_free(&device);
}

// ---- the list

// Locks the list until the end of the scope. If locking fails, the list must not be changed.
class list_lock {
  public:
    explicit list_lock(norv_uevent_parse& parser) : mutex_(parser.mutex) {}
    ~list_lock() {
        if (held_) {
            norv_mutex_unlock(&mutex_);
        }
    }
    list_lock(const list_lock&) = delete;
    list_lock& operator=(const list_lock&) = delete;

    bool held() const { return held_; }

  private:
    norv_mutex_t& mutex_;
    const bool held_ = norv_mutex_lock(&mutex_) == NORV_STATUS_OK;
};

void notify(const norv_uevent_parse& parser, const norv_uevent_device_t* device) {
    if (parser.handler != nullptr) {
        parser.handler(device, parser.user);
    }
}

bool append_device(norv_uevent_parse& parser, norv_uevent_device_t& device) {
    const list_lock lock(parser);
    if (lock.held()) {
        ++parser.list->count;
        list_add_tail(parser.list->devices, device.link);
    }
    return lock.held();
}

// quirk 109: the first in the list, not the nearest, compared by characters.
norv_uevent_device_t* find_parent(norv_uevent_device_list_t& list, const char* devpath) {
    for (norv_uevent_link_t* link = list.devices.next; link != &list.devices; link = link->next) {
        norv_uevent_device_t& device = device_of(*link);
        const char* candidate = devpath_of(device);
        if (norv_strncmp(candidate, devpath, norv_strlen(candidate)) == 0) {
            return &device;
        }
    }
    return nullptr;
}

// A video node must be able to capture.
bool can_be_added(const parsed_event& node) {
    if (!is_word(node.subsystem, "video4linux")) {
        return true;
    }
    text_field path;
    join_text(path, "/dev/", node.devname);
    return _v4l2_check_valid(path) == NORV_STATUS_OK;
}

// Adds a node to its device. Returns what the handler is called with, null if it is not called.
const norv_uevent_device_t* append_to_parent(norv_uevent_parse& parser, const parsed_event& node) {
    const list_lock lock(parser);
    if (!lock.held()) {
        return nullptr;
    }
    norv_uevent_device_t* parent = find_parent(*parser.list, node.devpath);
    if (parent == nullptr) {
        // quirk 113: the head in place of a record; handlers compare its address.
        return &device_of(parser.list->devices);
    }
    // quirk 110: only the first node is kept.
    if (!list_empty(parent->children)) {
        return nullptr;
    }
    if (can_be_added(node)) {  // quirk 114: the parent is reported in any case
        append_child(*parent, node);
    }
    return parent;
}

}  // namespace

norv_uevent_device_list_t* create_list() {
    auto* list = static_cast<norv_uevent_device_list_t*>(norv_zalloc(sizeof(norv_uevent_device_list_t)));
    if (list != nullptr) {
        list_init(list->devices);
    }
    return list;
}

void release_list(norv_uevent_parse& parser) {
    if (!parser.has_mutex) {
        norv_free(parser.list);  // empty, and no other thread has it
        return;
    }
    const list_lock lock(parser);
    while (!list_empty(parser.list->devices)) {
        release_device(device_of(*parser.list->devices.next));
    }
    norv_free(parser.list);
}

void add_device(norv_uevent_parse& parser, const parsed_event& event) {
    norv_uevent_device_t* device = create_device(event);
    if (device == nullptr) {
        return;
    }
    if (append_device(parser, *device)) {  // quirk 117: even if its path is listed already
        notify(parser, device);
    } else {
        norv_free(device);
    }
}

void add_child(norv_uevent_parse& parser, const parsed_event& node) {
    const norv_uevent_device_t* reported = append_to_parent(parser, node);
    if (reported != nullptr) {
        notify(parser, reported);
    }
}

void remove_devices(norv_uevent_parse& parser, const char* devpath) {
    const list_lock lock(parser);
    if (!lock.held()) {
        return;
    }
    norv_uevent_link_t& head = parser.list->devices;
    for (norv_uevent_link_t *link = head.next, *next = nullptr; link != &head; link = next) {
        next = link->next;
        norv_uevent_device_t& device = device_of(*link);
        // quirk 115: contained anywhere in the path, so that the hubs on the way are removed too.
        if (norv_strstr(devpath, devpath_of(device)) != nullptr) {
            device.action = NORV_UEVENT_ACTION_REMOVE;
            notify(parser, &device);  // quirk 116: locked and listed
            --parser.list->count;
            release_device(device);
        }
    }
}

void report_display_change(norv_uevent_parse& parser, const parsed_event& event) {
    norv_uevent_device_t* connector = create_device(event);
    if (connector != nullptr) {
        notify(parser, connector);
        norv_free(connector);
    }
}

}  // namespace norv
