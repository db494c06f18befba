// The hot-plug parser's inside: the context, what a message says, and the steps that change the list.
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
    char* buffer;  // buffer_size bytes, and two NULs behind what was received
    uint32_t buffer_size;
    uint32_t filter;
    norv_mutex_t mutex;  // guards the list
    bool has_mutex;
};

namespace norv {

// What a message or a "uevent" file says. The texts stand in there.
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

// Tells whether a text is this word, to the end.
template <size_t size>
bool is_word(const char* text, const char (&word)[size]) {
    return norv_strncmp(text, word, size) == 0;
}

// Takes one KEY=value into the event; anything else is passed over.
void parse_text(const char* text, parsed_event& event);

// One read of a file: the count of bytes, or -1. No NUL is added.
ssize_t read_file(const char* path, char* buffer, size_t size);

// ---- the list

// Null without memory.
norv_uevent_device_list_t* create_list();
// Releases the list, all its devices and their children.
void release_list(norv_uevent_parse& parser);

void add_device(norv_uevent_parse& parser, const parsed_event& event);
void add_child(norv_uevent_parse& parser, const parsed_event& node);
void remove_devices(norv_uevent_parse& parser, const char* devpath);
void report_display_change(norv_uevent_parse& parser, const parsed_event& event);

// ---- sysfs

// Adds what is plugged in now.
void enumerate_devices(norv_uevent_parse& parser);

}  // namespace norv
