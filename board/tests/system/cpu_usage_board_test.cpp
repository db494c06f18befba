// SPDX-License-Identifier: MIT
// CPU load of a real kernel with two processors, under known loads. Other processes may run too, so a load is
// never less than what the test makes, and seldom more.
#include "norv_cpu_usage.h"

#include <gtest/gtest.h>
#include <sched.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

namespace {

// Keeps one thread on each of the first processors busy while it lives.
class load {
  public:
    explicit load(int processors) {
        for (int processor = 0; processor < processors; ++processor) {
            threads_.emplace_back([this, processor] {
                cpu_set_t set;
                CPU_ZERO(&set);
                CPU_SET(processor, &set);
                sched_setaffinity(0, sizeof set, &set);
                while (!ended_) {
                }
            });
        }
    }
    ~load() {
        ended_ = true;
        for (std::thread& thread : threads_) {
            thread.join();
        }
    }
    load(const load&) = delete;
    load& operator=(const load&) = delete;

  private:
    std::atomic<bool> ended_ = false;
    std::vector<std::thread> threads_;
};

struct kernels_times {
    double idle = 0;
    double total = 0;
};

// The times of the whole system's line, with guest times counted twice.
kernels_times read_times() {
    std::ifstream file("/proc/stat");
    std::string label;
    kernels_times times;
    file >> label;
    for (int index = 0; index < 10; ++index) {
        double time = 0;
        file >> time;
        times.total += time;
        times.idle += index == 3 ? time : 0;
    }
    return times;
}

// The usage of a second under a load. It must agree with the kernel's own figures before and after it, except
// for the ticks between two reads.
uint32_t usage_under(int busy_processors) {
    norv_cpu_usage_t cpu = {};
    const load busy(busy_processors);
    const kernels_times before = read_times();
    EXPECT_EQ(norv_cpu_usage_open(&cpu), 0U);
    std::this_thread::sleep_for(std::chrono::seconds(1));
    EXPECT_EQ(norv_cpu_usage_update(&cpu), 0U);
    const kernels_times after = read_times();
    const uint32_t usage = cpu.usage;
    norv_cpu_usage_close(&cpu);
    EXPECT_NEAR(usage, 10000 - 10000 * (after.idle - before.idle) / (after.total - before.total), 500);
    return usage;
}

// How much of a second the busy processors get depends on the host, so only the order is certain.
TEST(CpuUsageOnBoard, TheUsageFollowsTheNumberOfBusyProcessors) {
    const uint32_t idle = usage_under(0);
    const uint32_t one = usage_under(1);
    const uint32_t both = usage_under(2);
    std::printf("    usage: idle %u, one processor busy %u, both %u\n", idle, one, both);
    EXPECT_LT(idle, one);
    EXPECT_LT(one, both);
    EXPECT_LT(one, 8000U);
    EXPECT_GT(both, 9000U);
    EXPECT_LE(both, 10000U);
}

TEST(CpuUsageOnBoard, WithoutATickInBetweenTheUsageIsZero) {
    norv_cpu_usage_t cpu = {};
    ASSERT_EQ(norv_cpu_usage_open(&cpu), 0U);
    uint32_t last_total = 0;
    // Two samples within one tick need a few tries.
    do {
        last_total = cpu.last_total;
        ASSERT_EQ(norv_cpu_usage_update(&cpu), 0U);
    } while (cpu.last_total != last_total);
    EXPECT_EQ(cpu.usage, 0U);
    norv_cpu_usage_close(&cpu);
}

TEST(CpuUsageOnBoard, TheFirstUsageIsTheShareSinceTheStart) {
    norv_cpu_usage_t cpu = {};
    ASSERT_EQ(norv_cpu_usage_open(&cpu), 0U);
    EXPECT_GT(cpu.usage, 0U);
    EXPECT_LT(cpu.usage, 10000U);
    norv_cpu_usage_close(&cpu);
}

}  // namespace
