// SPDX-License-Identifier: MIT
// Private parts of the hot-plug parser: the context, a parsed message, and the steps that change the list.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <cstdint>

#include "norv_base.h"
#include "norv_uevent_parse.h"

struct norv_uevent_parse {
    norv_uevent_device_list_t* list;
    void* user;
    norv_uevent_parse_handler handler;
    int32_t descriptor;
    char* buffer;  // buffer_size bytes, and two NULs after the message
    uint32_t buffer_size;
    uint32_t filter;
    norv_mutex_t mutex;  // guards the list
    bool has_mutex;
};

namespace norv {

// The contents of a message or a "uevent" file; the pointers point into it.
struct parsed_event {
    int32_t action = NORV_UEVENT_ACTION_NONE;
    int32_t major = -1;
    int32_t minor = -1;
    int32_t connector = -1;
    const char* devpath = "";
    const char* subsystem = "";
    const char* devname = "";
    const char* devtype = "";
    const char* product = "";
};

// Returns whether a text is this word, to the end.
template <size_t size>
bool is_word(const char* text, const char (&word)[size]) {
    return norv_strncmp(text, word, size) == 0;
}

// Stores the value of one KEY=value in the event; any other text is ignored.
void parse_text(const char* text, parsed_event& event);

// Reads a file once: the number of bytes, or -1. No NUL is added.
ssize_t read_file(const char* path, char* buffer, size_t size);

// ---- the list

// Null if there is no memory.
norv_uevent_device_list_t* create_list();
// Releases the list, all its devices and their children.
void release_list(norv_uevent_parse& parser);

void add_device(norv_uevent_parse& parser, const parsed_event& event);
void add_child(norv_uevent_parse& parser, const parsed_event& node);
void remove_devices(norv_uevent_parse& parser, const char* devpath);
void report_display_change(norv_uevent_parse& parser, const parsed_event& event);

// ---- sysfs

// Adds the devices that are plugged in now, and their nodes.
void enumerate_devices(norv_uevent_parse& parser);

}  // namespace norv
