// SPDX-License-Identifier: MIT
// norv uuid: random identities.
#include "norv/uuid.hpp"

#include "command.hpp"
#include "failure.hpp"
#include "report.hpp"

namespace norv::tool {

namespace {

const causes usual{{NORV_STATUS_NOT_FOUND, "no /proc/sys/kernel/random/uuid; is /proc mounted?"}};

struct uuid_command {
    uint32_t count = 1;
    report out;

    void declare(CLI::App& command) {
        command.add_option("-n,--count", count, "how many")->capture_default_str();
        out.offer_json(command);
    }

    void run() {
        for (uint32_t made = 0; made < count; ++made) {
            const std::string uuid{must("uuid", norv::uuid::generate(), usual).text()};
            out.show(uuid, {{"uuid", uuid}});
        }
    }
};

const group uuid{"uuid", "Generate random UUIDs", as_command<uuid_command>};

}  // namespace

}  // namespace norv::tool
