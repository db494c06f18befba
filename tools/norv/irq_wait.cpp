// SPDX-License-Identifier: MIT
#include "irq_wait.hpp"

#include "text.hpp"

namespace norv::tool {

namespace {

// However the wait ends, the interrupt is disabled.
class disable_at_end {
  public:
    explicit disable_at_end(irq_source& source) : source_{source} {}
    ~disable_at_end() { source_.disable(); }
    disable_at_end(const disable_at_end&) = delete;
    disable_at_end& operator=(const disable_at_end&) = delete;

  private:
    irq_source& source_;
};

}  // namespace

void irq_wait::declare(CLI::App& command) {
    command.add_option("-n,--count", count_, "exit after this many interrupts; 0: at Ctrl-C")
        ->capture_default_str();
    patient_.declare(command, "one");
    out_.offer_json(command);
}

void irq_wait::run(irq_source& source) {
    const disable_at_end at_end{source};
    for (uint32_t seen = 0; count_ == 0 || seen < count_; ++seen) {
        source.enable();
        patient_.restart();
        if (!patient_.wait(source.title(), source.descriptor(), source.events())) {
            return;
        }
        source.take();
        show(source, seen + 1);
    }
}

// The time is that of CLOCK_MONOTONIC after the interrupt was noticed.
void irq_wait::show(const irq_source& source, uint32_t number) const {
    const double now = timestamp();
    json document{{"time", now}};
    document.update(source.description());
    document["interrupt"] = number;
    out_.show(text("%14.6f  %s  interrupt %u", now, source.title().c_str(), number), document);
}

}  // namespace norv::tool
