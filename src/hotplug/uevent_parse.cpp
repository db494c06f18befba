// SPDX-License-Identifier: MIT
// The hot-plug parser: its context, and how the kernel's messages are parsed and applied.
#include "hotplug/uevent_parse.hpp"

#include <fcntl.h>
#include <linux/videodev2.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>

#include "core/descriptor.hpp"
#include "core/handle.hpp"
#include "core/status.hpp"
#include "hotplug/uevent_socket.hpp"
#include "norv_uevent.h"

namespace norv {
namespace {

// Where the value of a key is stored: one of the two for each entry of p_uevent_key, neither for ACTION.
struct destination {
    int32_t parsed_event::*number;
    const char* parsed_event::*text;
};

constexpr destination destinations[NORV_UEVENT_KEY_COUNT] = {
    {nullptr, nullptr},                   // ACTION
    {&parsed_event::connector, nullptr},  // CONNECTOR
    {nullptr, &parsed_event::devname},    // DEVNAME
    {nullptr, &parsed_event::devpath},    // DEVPATH
    {nullptr, &parsed_event::devtype},    // DEVTYPE
    {&parsed_event::major, nullptr},      // MAJOR
    {&parsed_event::minor, nullptr},      // MINOR
    {nullptr, &parsed_event::product},    // PRODUCT
    {nullptr, &parsed_event::subsystem},  // SUBSYSTEM
};

constexpr const char* actions[] = {"add", "remove", "change"};

// Compares a word with the beginning of a text: only as many characters as the word has. A message takes
// about thirty comparisons, for which a loop is faster than a call.
int compare_start(const char* word, const char* text) {
    while (*word != '\0' && *word == *text) {
        ++word;
        ++text;
    }
    return *word == '\0' ? 0 : static_cast<unsigned char>(*word) - static_cast<unsigned char>(*text);
}

// Returns the index of a text's key in the table, -1 if it has none.
int find_key(const char* text) {
    int low = 0;
    int high = NORV_UEVENT_KEY_COUNT - 1;
    while (low <= high) {
        const int middle = low + (high - low) / 2;
        const int order = compare_start(p_uevent_key[middle], text);
        if (order == 0) {
            return middle;
        }
        if (order < 0) {
            low = middle + 1;
        } else {
            high = middle - 1;
        }
    }
    return -1;
}

// Any other action leaves the event's unchanged. quirk 118: only the length of the word is compared.
void parse_action(const char* value, parsed_event& event) {
    for (int32_t action = NORV_UEVENT_ACTION_ADD; action <= NORV_UEVENT_ACTION_CHANGE; ++action) {
        if (compare_start(actions[action], value) == 0) {
            event.action = action;
        }
    }
}

// Parses up to the first empty text.
void parse_message(const char* text, parsed_event& event) {
    for (; *text != '\0'; text += norv_strlen(text) + 1) {
        parse_text(text, event);
    }
}

bool is_tracked_subsystem(const char* subsystem) {
    return is_word(subsystem, "input") || is_word(subsystem, "video4linux") || is_word(subsystem, "sound");
}

void apply_arrival(norv_uevent_parse& parser, const parsed_event& event) {
    if (is_word(event.devtype, "usb_device")) {
        add_device(parser, event);
    }
    if (*event.devname != '\0' && is_tracked_subsystem(event.subsystem)) {
        add_child(parser, event);
    }
}

void apply(norv_uevent_parse& parser, const parsed_event& event) {
    // Read once for each message, because another thread may replace the filter at any time.
    const uint32_t filter = __atomic_load_n(&parser.filter, __ATOMIC_RELAXED);
    if ((filter & NORV_UEVENT_FILTER_DISPLAY) != 0 && event.action == NORV_UEVENT_ACTION_CHANGE &&
        is_word(event.devtype, "drm_minor")) {
        report_display_change(parser, event);
    }
    if ((filter & NORV_UEVENT_FILTER_USB) == 0) {
        return;
    }
    if (event.action == NORV_UEVENT_ACTION_ADD) {
        apply_arrival(parser, event);
    } else if (event.action == NORV_UEVENT_ACTION_REMOVE && is_word(event.devtype, "usb_device")) {
        remove_devices(parser, event.devpath);
    }
}

// ---- the context

// A size that this processor cannot address must fail, not be truncated.
char* allocate_buffer(uint32_t size) {
    const uint64_t with_nuls = uint64_t{size} + 2;
    return static_cast<char*>(norv_malloc(static_cast<size_t>(std::min<uint64_t>(with_nuls, SIZE_MAX))));
}

uint32_t prepare(norv_uevent_parse& parser, const norv_uevent_parse_settings_t& settings) {
    parser.buffer_size = settings.buffer_size;
    NORV_TRY(open_uevent_socket(parser.descriptor));
    parser.buffer = allocate_buffer(settings.buffer_size);
    parser.list = parser.buffer == nullptr ? nullptr : create_list();
    if (parser.list == nullptr) {
        return NORV_STATUS_NO_MEMORY;
    }
    const uint32_t status = norv_mutex_init(&parser.mutex);
    parser.has_mutex = status == NORV_STATUS_OK;
    parser.handler = settings.handler;
    parser.user = settings.user;
    parser.filter = settings.filter;
    return status;
}

}  // namespace

void parse_text(const char* text, parsed_event& event) {
    const int key = find_key(text);
    if (key < 0) {
        return;
    }
    const char* value = text + norv_strlen(p_uevent_key[key]);
    const destination& into = destinations[key];
    if (into.text != nullptr) {
        event.*into.text = value;
    } else if (into.number != nullptr) {
        event.*into.number = static_cast<int32_t>(strtol(value, nullptr, 10));
    } else {
        parse_action(value, event);
    }
}

ssize_t read_file(const char* path, char* buffer, size_t size) {
    const int descriptor = open(path, O_RDONLY | O_CLOEXEC);
    if (descriptor < 0) {
        return -1;
    }
    const ssize_t count = read(descriptor, buffer, size);
    close(descriptor);
    return count;
}

}  // namespace norv

uint32_t norv_uevent_parse_open(norv_uevent_parse_t** context, const norv_uevent_parse_settings_t* settings) {
    if (context == nullptr) {
        return NORV_STATUS_INVALID_ARG;
    }
    *context = nullptr;
    if (settings == nullptr) {
        return NORV_STATUS_INVALID_ARG;
    }
    // Stored before the enumeration, because the handler that it calls uses the variable.
    NORV_TRY(norv::allocate_record(*context));
    const uint32_t status = norv::prepare(**context, *settings);
    if (status != NORV_STATUS_OK) {
        norv_uevent_parse_close(context);
        return status;
    }
    if ((settings->filter & NORV_UEVENT_FILTER_USB) != 0) {
        norv::enumerate_devices(**context);
    }
    return NORV_STATUS_OK;
}

void norv_uevent_parse_close(norv_uevent_parse_t** context) {
    norv_uevent_parse_t* parser = norv::record_of(context);
    if (parser == nullptr) {
        return;
    }
    norv::close_descriptor(parser->descriptor);
    norv_free(parser->buffer);
    norv::release_list(*parser);
    if (parser->has_mutex) {
        norv_mutex_destroy(&parser->mutex);
    }
    norv_free(parser);
    *context = nullptr;
}

uint32_t norv_uevent_parse_poll(norv_uevent_parse_t** context) {
    norv_uevent_parse_t* parser = norv::record_of(context);
    if (parser == nullptr) {
        return NORV_STATUS_INVALID_ARG;
    }
    ssize_t length = 0;
    while ((length = recv(parser->descriptor, parser->buffer, parser->buffer_size, 0)) > 0) {
        parser->buffer[length] = '\0';
        parser->buffer[length + 1] = '\0';
        norv::parsed_event event;
        norv::parse_message(parser->buffer, event);
        norv::apply(*parser, event);
    }
    return NORV_STATUS_OK;  // quirk 119: whatever recv(2) failed with
}

norv_uevent_parse_t* norv_uevent_parse_set_filter(norv_uevent_parse_t** context, uint32_t filter) {
    norv_uevent_parse_t* parser = norv::record_of(context);
    if (parser != nullptr) {
        __atomic_store_n(&parser->filter, filter, __ATOMIC_RELAXED);
    }
    return parser;
}

uint32_t norv_uevent_parse_get_device(norv_uevent_parse_t** context, const norv_uevent_device_list_t** list) {
    norv_uevent_parse_t* parser = norv::record_of(context);
    if (parser == nullptr || list == nullptr) {
        return NORV_STATUS_INVALID_ARG;
    }
    NORV_TRY(norv_mutex_lock(&parser->mutex));
    *list = parser->list;
    norv_mutex_unlock(&parser->mutex);
    return NORV_STATUS_OK;
}

int32_t norv_uevent_parse_get_fd(norv_uevent_parse_t** context) {
    const norv_uevent_parse_t* parser = norv::record_of(context);
    return parser == nullptr ? -1 : parser->descriptor;
}

uint32_t _v4l2_check_valid(const char* path) {
    if (path == nullptr) {
        return NORV_STATUS_INVALID_ARG;
    }
    const int descriptor = open(path, O_RDWR | O_NONBLOCK);  // quirk 120: no O_CLOEXEC
    if (descriptor < 0) {
        return NORV_STATUS_DEVICE_ERROR;
    }
    v4l2_fmtdesc format = {};
    format.index = 0;
    format.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
    const int result = ioctl(descriptor, VIDIOC_ENUM_FMT, &format);
    close(descriptor);
    // quirk 120: the status of the result, not of errno, by which callers recognise a node that cannot
    // capture.
    return norv_get_status_by_errno(static_cast<uint32_t>(result));
}
