// SPDX-License-Identifier: MIT
// Waiting for the interrupts of a device.
#pragma once

#include <CLI/CLI.hpp>
#include <cstdint>
#include <string>

#include "patience.hpp"
#include "report.hpp"

namespace norv::tool {

// Where interrupts come from.
class irq_source {
  public:
    virtual ~irq_source() = default;

    // "uio 0".
    virtual std::string title() const = 0;

    virtual json description() const = 0;

    // What poll(2) is to wait for.
    virtual int descriptor() = 0;
    virtual short events() const = 0;

    // Before each interrupt, after each, and at the end, which does not fail.
    virtual void enable() = 0;
    virtual void take() = 0;
    virtual void disable() noexcept = 0;
};

// How long a command waits.
class irq_wait {
  public:
    // Adds --count, --timeout and --json.
    void declare(CLI::App& command);

    // Shows each interrupt that comes, until there were enough of them or Ctrl-C ends that. Throws a failure
    // when none came in time.
    void run(irq_source& source);

  private:
    void show(const irq_source& source, uint32_t number) const;

    uint32_t count_ = 1;
    patience patient_;
    report out_;
};

}  // namespace norv::tool
