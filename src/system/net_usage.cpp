// SPDX-License-Identifier: MIT
// Rates of a network interface from /proc/net/dev.
#include "norv_net_usage.h"

#include <cstring>

#include "core/layout.hpp"
#include "core/status.hpp"
#include "norv_base.h"
#include "system/proc_file.hpp"

NORV_LAYOUT(norv_net_usage_t, NORV_32_64(60, 64), file, last_ms, ifname, started, tx_rate, rx_rate, last_tx,
            last_rx);

namespace {

// Eight of reception, eight of transmission; each half begins with the bytes.
constexpr uint32_t counter_count = 16;
constexpr uint32_t received_index = 0;
constexpr uint32_t transmitted_index = 8;

constexpr uint32_t shortest_interval = 11;  // milliseconds

struct byte_counts {
    uint32_t received;
    uint32_t transmitted;
};

// Returns the counters of the interface's line, null for any other line. quirk 101: a longer name that
// contains the interface's matches too.
const char* counters_of(char* line, const char* ifname) {
    char* colon = strchr(line, ':');
    if (colon == nullptr) {
        return nullptr;
    }
    *colon = '\0';
    return strstr(line, ifname) != nullptr ? colon + 1 : nullptr;
}

// Finds the interface's line; `counters` points into `line`.
uint32_t find_interface(const norv_net_usage_t* net, char (&line)[norv::line_size], const char*& counters) {
    norv::rewind_stream(net->file);  // quirk 100: a failure is not reported
    while (true) {
        NORV_TRY(norv::read_line(net->file, line));  // quirk 99: truncated
        if (line[0] == '\0') {
            return NORV_STATUS_NOT_FOUND;
        }
        counters = counters_of(line, net->ifname);
        if (counters != nullptr) {
            return NORV_STATUS_OK;
        }
    }
}

uint32_t read_counts(const norv_net_usage_t* net, byte_counts& counts) {
    char line[norv::line_size];
    const char* text = nullptr;
    NORV_TRY(find_interface(net, line, text));
    uint32_t counters[counter_count];
    if (norv::scan_numbers(text, counters, counter_count) < counter_count) {
        return NORV_STATUS_PARSE_ERROR;
    }
    counts = {counters[received_index], counters[transmitted_index]};
    return NORV_STATUS_OK;
}

// In kbit/s. quirk 98: the differences passed in have wrapped at 32 bits; the products do not.
uint32_t rate_of(uint32_t bytes, uint32_t milliseconds) {
    return static_cast<uint32_t>(uint64_t{bytes} * 8000 / (uint64_t{milliseconds} * 1000));
}

void store_sample(norv_net_usage_t* net, const byte_counts& counts, uint32_t now) {
    net->last_ms = now;
    net->last_tx = counts.transmitted;
    net->last_rx = counts.received;
}

void start(norv_net_usage_t* net, const byte_counts& counts, uint32_t now) {
    store_sample(net, counts, now);
    net->tx_rate = 0;
    net->rx_rate = 0;
    net->started = 1;
}

void update_rates(norv_net_usage_t* net, const byte_counts& counts, uint32_t now) {
    const uint32_t interval = now - net->last_ms;
    if (interval < shortest_interval) {  // quirk 102
        return;
    }
    net->tx_rate = rate_of(counts.transmitted - net->last_tx, interval);
    net->rx_rate = rate_of(counts.received - net->last_rx, interval);
    store_sample(net, counts, now);
}

// A name that does not fit with its NUL is refused.
uint32_t copy_name(norv_net_usage_t* net, const char* ifname) {
    const size_t length = strnlen(ifname, sizeof net->ifname);
    if (length == sizeof net->ifname) {
        return NORV_STATUS_EXHAUSTED;
    }
    memcpy(net->ifname, ifname, length + 1);
    return NORV_STATUS_OK;
}

uint32_t open_and_update(norv_net_usage_t* net, const char* ifname) {
    NORV_TRY(norv::open_stream(net->file, "/proc/net/dev"));
    NORV_TRY(copy_name(net, ifname));
    return norv_net_usage_update(net);
}

}  // namespace

uint32_t norv_net_usage_open(norv_net_usage_t* net, const char* ifname) {
    if (net == nullptr) {
        return NORV_STATUS_INVALID_ARG;
    }
    net->file = nullptr;
    net->started = 0;
    if (ifname == nullptr) {
        return NORV_STATUS_INVALID_ARG;
    }
    const uint32_t status = open_and_update(net, ifname);
    if (status != NORV_STATUS_OK) {
        norv_net_usage_close(net);
    }
    return status;
}

uint32_t norv_net_usage_update(norv_net_usage_t* net) {
    if (net == nullptr) {
        return NORV_STATUS_INVALID_ARG;
    }
    if (net->file == nullptr) {
        return NORV_STATUS_BAD_STATE;
    }
    byte_counts counts = {};
    NORV_TRY(read_counts(net, counts));
    const auto now = static_cast<uint32_t>(norv_time_get_ms());
    if (net->started == 0) {
        start(net, counts, now);
    } else {
        update_rates(net, counts, now);
    }
    return NORV_STATUS_OK;
}

void norv_net_usage_close(norv_net_usage_t* net) {
    if (net == nullptr) {
        return;
    }
    norv::close_stream(net->file);
    net->started = 0;
}
