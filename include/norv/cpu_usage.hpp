// SPDX-License-Identifier: MIT
/**
 * @file norv/cpu_usage.hpp
 * A sampler of the CPU load that closes itself. What the functions do, and their statuses, are those of
 * norv_cpu_usage.h; after a move they return NORV_STATUS_INVALID_ARG.
 *
 *     norv::cpu_usage cpu = norv::cpu_usage::open().value();
 *     std::this_thread::sleep_for(1s);
 *     cpu.update().value();
 *     std::printf("%.2f %%\n", cpu.usage() / 100.0);
 */
#pragma once

#include <cstdint>
#include <utility>

#include "norv/owner.hpp"
#include "norv/result.hpp"
#include "norv_cpu_usage.h"

namespace norv {

/** An open sampler. */
class cpu_usage {
  public:
    /** See `norv_cpu_usage_open`. */
    static result<cpu_usage> open() {
        cpu_usage sampler;
        const status opened = sampler.sampler_.open(norv_cpu_usage_open);
        return opened.ok() ? result<cpu_usage>(std::move(sampler)) : result<cpu_usage>(opened);
    }

    /** See `norv_cpu_usage_update`. */
    status update() { return status(norv_cpu_usage_update(sampler_.get())); }

    /** The busy share in 0.01 %: 0 to 10000, but see quirk 97; 0 after a move. */
    uint32_t usage() const noexcept { return sampler_.is_open() ? sampler_.get()->usage : 0; }
    /** The record of the C interface; null after a move. */
    norv_cpu_usage_t* get() noexcept { return sampler_.get(); }

  private:
    cpu_usage() noexcept = default;

    detail::owned_record<norv_cpu_usage_t, norv_cpu_usage_close> sampler_;
};

}  // namespace norv
