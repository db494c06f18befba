// SPDX-License-Identifier: MIT
//
// The running system:
//
//     system cpu_usage              shows the CPU load of a second
//     system net_usage INTERFACE    shows the network rates of a second
//     system linux_thread CPU       prepares a thread: name, processor and priority
//     system shell COMMAND          runs a command, and shows what it prints
//     system system_info            shows memory, uptime and the size of a card
//     system uuid                   generates a UUID
#include <pthread.h>

#include <array>
#include <chrono>
#include <thread>

#include "norv/cpu_usage.hpp"
#include "norv/net_usage.hpp"
#include "norv/shell.hpp"
#include "norv/system_info.hpp"
#include "norv/thread.hpp"
#include "norv/uuid.hpp"
#include "program.hpp"

using namespace std::chrono_literals;

namespace {

void show_cpu_usage(char**) {
    norv::cpu_usage cpu = norv::cpu_usage::open().value();
    std::printf("  since the start %6.2f %%\n", cpu.usage() / 100.0);
    std::this_thread::sleep_for(1s);
    cpu.update().value();
    std::printf("  in this second  %6.2f %%\n", cpu.usage() / 100.0);
}

void show_net_usage(char** arguments) {
    norv::net_usage net = norv::net_usage::open(arguments[0]).value();
    std::this_thread::sleep_for(1s);
    net.update().value();
    std::printf("  %s: %u kbit/s in, %u kbit/s out\n", arguments[0], net.rx_rate(), net.tx_rate());
}

void show_priority(const char* wanted) {
    sched_param parameters{};
    int policy = SCHED_OTHER;
    pthread_getschedparam(pthread_self(), &policy, &parameters);
    std::printf("  wanted %-9s got %s, priority %d\n", wanted, policy == SCHED_FIFO ? "real time" : "normal",
                parameters.sched_priority);
}

void show_linux_thread(char** arguments) {
    norv::this_thread::set_name("control").value();
    norv::this_thread::set_cpu_affinity(static_cast<int32_t>(number(arguments[0]))).value();
    norv::this_thread::set_realtime_priority().value();
    show_priority("real time");
    norv::this_thread::set_normal_priority().value();
    show_priority("normal");
}

void show_shell(char** arguments) {
    std::array<char, 256> buffer;
    const std::string_view output = norv::run_shell(arguments[0], buffer).value();
    std::printf("  %.*s\n", static_cast<int>(output.size()), output.data());
}

void show_card(uint32_t card) {
    const norv::result<uint32_t> megabytes = norv::mmc_megabytes(card);
    if (megabytes.status() == NORV_STATUS_NOT_FOUND) {
        std::printf("  card %u     none\n", card);
        return;
    }
    std::printf("  card %u     %u MB\n", card, megabytes.value());
}

void show_system_info(char**) {
    const norv_mem_info_t memory = norv::memory_info().value();
    std::printf("  memory     %d of %d kB available\n", memory.available, memory.total);
    std::printf("  uptime     %lld s\n", static_cast<long long>(norv::uptime().value().count()));
    show_card(0);
}

void show_uuid(char**) {
    const norv::uuid uuid = norv::uuid::generate().value();
    std::printf("  %.*s\n", static_cast<int>(uuid.text().size()), uuid.text().data());
}

constexpr family families[] = {{"cpu_usage", 0, show_cpu_usage},       {"net_usage", 1, show_net_usage},
                               {"linux_thread", 1, show_linux_thread}, {"shell", 1, show_shell},
                               {"system_info", 0, show_system_info},   {"uuid", 0, show_uuid}};

}  // namespace

int main(int count, char** arguments) {
    return show_family(families, count, arguments);
}
