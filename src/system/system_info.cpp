// SPDX-License-Identifier: MIT
// USB connection, memory, uptime and card size.
#include "norv_system_info.h"

#include <strings.h>
#include <sys/sysinfo.h>

#include <cstddef>
#include <cstdio>

#include "core/attribute.hpp"
#include "core/layout.hpp"
#include "core/status.hpp"
#include "system/proc_file.hpp"

NORV_LAYOUT(norv_mem_info_t, 20, total, free, available, buffers, cached);

namespace {

// Reads a word. quirk 103: 15 bytes of text.
uint32_t read_word(const norv::file_path& path, char (&word)[16]) {
    return norv::read_text(path, word, norv::last_byte::dropped);
}

uint32_t state_of_speed(const char* speed) {
    if (strcasecmp(speed, "high-speed") == 0) {
        return NORV_USB_PERIPH_HIGH_SPEED;
    }
    return strcasecmp(speed, "super-speed") == 0 ? NORV_USB_PERIPH_SUPER_SPEED : NORV_USB_PERIPH_CONFIGURED;
}

// A figure of /proc/meminfo, and where it goes.
struct figure {
    const char* format;
    int32_t norv_mem_info_t::*field;
};

constexpr figure figures[] = {
    {"MemTotal: %d kB", &norv_mem_info_t::total},         {"MemFree: %d kB", &norv_mem_info_t::free},
    {"MemAvailable: %d kB", &norv_mem_info_t::available}, {"Buffers: %d kB", &norv_mem_info_t::buffers},
    {"Cached: %d kB", &norv_mem_info_t::cached},
};
constexpr uint32_t figure_count = sizeof figures / sizeof figures[0];
constexpr uint32_t all_figures = (1U << figure_count) - 1;

// Stores the figures of a line that were not found before; `found` has one bit for each.
void store_figures(const char* line, norv_mem_info_t* info, uint32_t& found) {
    for (uint32_t index = 0; index < figure_count; ++index) {
        const uint32_t bit = 1U << index;
        if ((found & bit) == 0 && sscanf(line, figures[index].format, &(info->*figures[index].field)) == 1) {
            found |= bit;
        }
    }
}

// Returns whether all figures were found. quirk 105: the others stay. A failed read counts as the end of the
// file, and so does a null file: the errno of the failed open has the status 0.
bool read_figures(FILE* file, norv_mem_info_t* info) {
    char line[norv::line_size];
    uint32_t found = 0;
    while (file != nullptr && found != all_figures && fgets(line, sizeof line, file) != nullptr) {
        store_figures(line, info, found);
    }
    return found == all_figures;
}

}  // namespace

uint32_t norv_get_usb_periph_state(const char* name, uint32_t* state) {
    if (name == nullptr || state == nullptr) {
        return NORV_STATUS_INVALID_ARG;
    }
    char word[16];
    // quirk 94: the name is not checked.
    NORV_TRY(read_word({"/sys/class/udc/%s/state", name}, word));
    if (strcasecmp(word, "configured") != 0) {
        *state = NORV_USB_PERIPH_NOT_CONFIGURED;
        return NORV_STATUS_OK;
    }
    NORV_TRY(read_word({"/sys/class/udc/%s/current_speed", name}, word));
    *state = state_of_speed(word);
    return NORV_STATUS_OK;
}

uint32_t norv_get_mem_info(norv_mem_info_t* info) {
    if (info == nullptr) {
        return NORV_STATUS_INVALID_ARG;
    }
    FILE* file = nullptr;
    NORV_TRY(norv::open_stream(file, "/proc/meminfo"));
    const bool complete = read_figures(file, info);
    norv::close_stream(file);
    return complete ? NORV_STATUS_OK : NORV_STATUS_PARSE_ERROR;
}

uint32_t norv_get_uptime(uint32_t* seconds) {
    if (seconds == nullptr) {
        return NORV_STATUS_INVALID_ARG;
    }
    struct sysinfo information = {};
    NORV_TRY(norv::status_of(sysinfo(&information)));
    *seconds = static_cast<uint32_t>(information.uptime);
    return NORV_STATUS_OK;
}

uint32_t norv_get_mmc_size(uint32_t index, uint32_t* megabytes) {
    if (megabytes == nullptr) {
        return NORV_STATUS_INVALID_ARG;
    }
    long sectors;
    NORV_TRY(
        norv::read_number({"/sys/class/block/mmcblk%d/size", index}, norv::number_base::decimal, &sectors));
    // quirk 104: an int, so 2^31 sectors or more are negative, or 2^31 - 1 where a long has 32 bits.
    *megabytes = static_cast<uint32_t>(int64_t{static_cast<int32_t>(sectors)} * 512 / 1000000);
    return NORV_STATUS_OK;
}
