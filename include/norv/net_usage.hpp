// SPDX-License-Identifier: MIT
/**
 * @file norv/net_usage.hpp
 * A sampler of the rates of a network interface that closes itself. What the functions do, and their statuses,
 * are those of norv_net_usage.h; after a move they return NORV_STATUS_INVALID_ARG.
 *
 *     norv::net_usage net = norv::net_usage::open("eth0").value();
 *     std::this_thread::sleep_for(1s);
 *     net.update().value();
 *     std::printf("%u kbit/s in, %u kbit/s out\n", net.rx_rate(), net.tx_rate());
 */
#pragma once

#include <cstdint>
#include <string_view>
#include <utility>

#include "norv/owner.hpp"
#include "norv/result.hpp"
#include "norv/text.hpp"
#include "norv_net_usage.h"

namespace norv {

/** An open sampler. */
class net_usage {
  public:
    /**
     * See `norv_net_usage_open`. A name of 32 characters or more is NORV_STATUS_EXHAUSTED; one that contains a
     * NUL is an invalid argument.
     */
    static result<net_usage> open(std::string_view interface) {
        net_usage sampler;
        if (interface.size() >= NORV_NET_USAGE_NAME_SIZE) {
            return status(NORV_STATUS_EXHAUSTED);
        }
        const detail::c_string<NORV_NET_USAGE_NAME_SIZE> name(interface);
        const status opened =
            sampler.sampler_.open([&](norv_net_usage_t* to) { return norv_net_usage_open(to, name.get()); });
        return opened.ok() ? result<net_usage>(std::move(sampler)) : result<net_usage>(opened);
    }

    /** See `norv_net_usage_update`. */
    status update() { return status(norv_net_usage_update(sampler_.get())); }

    /** What was received in the last interval, in kbit/s of 1000 bit/s; 0 after a move. */
    uint32_t rx_rate() const noexcept { return sampler_.is_open() ? sampler_.get()->rx_rate : 0; }
    /** What was transmitted in the last interval, in kbit/s of 1000 bit/s; 0 after a move. */
    uint32_t tx_rate() const noexcept { return sampler_.is_open() ? sampler_.get()->tx_rate : 0; }
    /** The record of the C interface; null after a move. */
    norv_net_usage_t* get() noexcept { return sampler_.get(); }

  private:
    net_usage() noexcept = default;

    detail::owned_record<norv_net_usage_t, norv_net_usage_close> sampler_;
};

}  // namespace norv
