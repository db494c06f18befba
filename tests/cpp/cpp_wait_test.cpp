// SPDX-License-Identifier: MIT
// A failure at every call that a task makes while it waits, for each thing that it can wait for.
#include <gtest/gtest.h>
#include <sys/eventfd.h>

#include <array>
#include <chrono>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <thread>
#include <utility>
#include <variant>

#include "bus/can_network.hpp"
#include "bus/serial_port.hpp"
#include "cpp/urgent_descriptor.hpp"
#include "cpp/wait_sweep.hpp"
#include "hotplug/uevent_socket.hpp"
#include "hotplug/usb_bus.hpp"
#include "mapped/uio_devices.hpp"
#include "mapped/umcb_devices.hpp"
#include "norv/can.hpp"
#include "norv/gpio.hpp"
#include "norv/uart.hpp"
#include "norv/uevent.hpp"
#include "norv/uevent_parse.hpp"
#include "norv/uio.hpp"
#include "norv/umcb.hpp"
#include "sysfs/gpio_chip.hpp"

namespace {

using norv::loop;
using norv::result;
using norv::status;
using norv::task;
using norv::test::kernel_double;
using norv::test::urgent_connection;
using norv::test::wait_once;
using norv::test::wait_sweep;
using namespace std::chrono_literals;

// Makes the descriptor of a model readable.
void make_readable(int descriptor) {
    const uint64_t one = 1;
    syscall(SYS_write, descriptor, &one, sizeof one);
}

// Waits in a task that has the awaitable itself, so that both end together.
template <typename waiting, typename owner, typename function>
task<status> wait_in_task(owner& of, function wait) {
    waiting awaited(of);
    co_return co_await wait(awaited);
}

task<status> sleep_for(std::chrono::milliseconds time) {
    co_return co_await norv::sleep(time);
}

task<status> sleep_within(std::chrono::milliseconds limit, std::chrono::milliseconds time) {
    co_return co_await norv::with_timeout(limit, sleep_for(time));
}

TEST(WaitSweep, ATime) {
    wait_sweep([](kernel_double&) {},
               [](loop& on) {
                   return wait_once(
                       on, [] { return sleep_for(1ms); }, [] {});
               });
}

TEST(WaitSweep, ATaskWithinALimit) {
    struct row {
        std::chrono::milliseconds limit;
        std::chrono::milliseconds time;
    };
    for (const row& each : {row{1ms, 1h}, row{1h, 1ms}}) {
        wait_sweep([](kernel_double&) {},
                   [&](loop& on) {
                       return wait_once(
                           on, [&] { return sleep_within(each.limit, each.time); }, [] {});
                   });
    }
}

TEST(WaitSweep, SeveralTasks) {
    wait_sweep([](kernel_double&) {},
               [](loop& on) {
                   return wait_once(
                       on,
                       []() -> task<status> {
                           const auto [first, second] =
                               co_await norv::when_all(sleep_for(0ms), sleep_for(1ms));
                           const auto any = co_await norv::when_any(sleep_for(1ms), sleep_for(1h));
                           const auto itself = [](status one) { return one; };
                           co_return first.ok() && second.ok() ? std::visit(itself, any) : first;
                       },
                       [] {});
               });
}

TEST(WaitSweep, AValueOfAnotherThread) {
    wait_sweep([](kernel_double&) {},
               [](loop& on) {
                   norv::completion<int> answer(on);
                   const status waited = wait_once(
                       on, [&]() -> task<status> { co_return (co_await answer).status(); },
                       [&] { std::thread([&] { answer.set(1).ignore(); }).join(); });
                   return waited;
               });
}

TEST(WaitSweep, AGpioEdge) {
    std::optional<norv::test::gpio_chip> chip;
    std::unique_ptr<urgent_connection> edge;
    wait_sweep(
        [&](kernel_double& kernel) {
            chip.emplace(kernel);
            edge = std::make_unique<urgent_connection>();
        },
        [&](loop& on) {
            result<norv::gpio> line = norv::gpio::open(17);
            if (!line) {
                return line.status();
            }
            edge->replace(line->descriptor());
            return wait_once(
                on,
                [&] {
                    return wait_in_task<norv::gpio_edges>(*line, [](norv::gpio_edges& edges) -> task<status> {
                        co_return (co_await edges.next()).status();
                    });
                },
                [&] { edge->raise(); });
        },
        [&] { edge.reset(); });
}

TEST(WaitSweep, BytesOfASerialPort) {
    std::shared_ptr<norv::test::serial_port> port;
    wait_sweep(
        [&](kernel_double& kernel) {
            port = std::make_shared<norv::test::serial_port>();
            kernel.add_device("/dev/ttyS1", port);
        },
        [&](loop& on) {
            result<norv::uart> line = norv::uart::open("/dev/ttyS1", {});
            if (!line) {
                return line.status();
            }
            return wait_once(
                on,
                [&] {
                    return wait_in_task<norv::uart_stream>(
                        *line, [](norv::uart_stream& stream) -> task<status> {
                            std::array<std::byte, 8> buffer{};
                            const result<size_t> received = co_await stream.receive_some(buffer);
                            if (!received) {
                                co_return received.status();
                            }
                            co_return (co_await stream.send_all(std::span(buffer).first(*received))).status;
                        });
                },
                [&] {
                    port->received = "in";
                    make_readable(line->descriptor());
                });
        });
}

TEST(WaitSweep, ACanFrame) {
    norv::test::can_network network;
    wait_sweep([&](kernel_double& kernel) { network.add_to(kernel); },
               [&](loop& on) {
                   result<norv::can> channel = norv::can::open("can0", 0x123);
                   if (!channel) {
                       return channel.status();
                   }
                   return wait_once(
                       on,
                       [&] {
                           return wait_in_task<norv::can_stream>(
                               *channel, [](norv::can_stream& stream) -> task<status> {
                                   const result<can_frame> frame = co_await stream.read();
                                   co_return frame ? co_await stream.write(*frame) : frame.status();
                               });
                       },
                       [&] {
                           can_frame frame = {};
                           frame.can_id = 0x123;
                           network.arrive("can0", frame);
                           make_readable(channel->descriptor());
                       });
               });
}

TEST(WaitSweep, AUioInterrupt) {
    std::shared_ptr<norv::test::uio_node> node;
    wait_sweep([&](kernel_double& kernel) { node = norv::test::add_uio(kernel, "uio0", "fpga-regs"); },
               [&](loop& on) {
                   result<norv::uio> device = norv::uio::open(0);
                   if (!device) {
                       return device.status();
                   }
                   return wait_once(
                       on,
                       [&] {
                           return wait_in_task<norv::uio_interrupts>(
                               *device, [](norv::uio_interrupts& interrupts) -> task<status> {
                                   co_return co_await interrupts.next();
                               });
                       },
                       [&] {
                           node->pending = 1;
                           make_readable(device->descriptor());
                       });
               });
}

TEST(WaitSweep, AUmcbEvent) {
    std::unique_ptr<urgent_connection> event;
    wait_sweep(
        [&](kernel_double& kernel) {
            norv::test::add_umcb(kernel, "umcb0", "fpga");
            event = std::make_unique<urgent_connection>();
        },
        [&](loop& on) {
            result<norv::umcb> device = norv::umcb::open(0);
            if (!device) {
                return device.status();
            }
            result<norv::umcb_irq> source = device->register_irq(7);
            if (!source) {
                return source.status();
            }
            event->replace(source->descriptor());
            return wait_once(
                on,
                [&] {
                    return wait_in_task<norv::umcb_events>(
                        *source,
                        [](norv::umcb_events& events) -> task<status> { co_return co_await events.next(); });
                },
                [&] { event->raise(); });
        },
        [&] { event.reset(); });
}

TEST(WaitSweep, AUevent) {
    std::optional<norv::test::uevent_socket> socket;
    wait_sweep([&](kernel_double& kernel) { socket.emplace(kernel); },
               [&](loop& on) {
                   result<norv::uevent> events = norv::uevent::open(128);
                   if (!events) {
                       return events.status();
                   }
                   return wait_once(
                       on,
                       [&] {
                           return wait_in_task<norv::uevent_messages>(
                               *events, [](norv::uevent_messages& messages) -> task<status> {
                                   co_return co_await messages.poll([](std::string_view) {});
                               });
                       },
                       [&] {
                           socket->send("message");
                           make_readable(events->descriptor());
                       });
               });
}

TEST(WaitSweep, AHotPlugChange) {
    std::optional<norv::test::uevent_socket> socket;
    std::optional<norv::test::usb_bus> bus;
    wait_sweep(
        [&](kernel_double& kernel) {
            socket.emplace(kernel);
            bus.emplace(kernel).add_root_hub();
        },
        [&](loop& on) {
            result<norv::uevent_parse> parser =
                norv::uevent_parse::open(norv::uevent_parse::filter::usb, 4096);
            if (!parser) {
                return parser.status();
            }
            return wait_once(
                on,
                [&] {
                    return wait_in_task<norv::uevent_parse_changes>(
                        *parser, [](norv::uevent_parse_changes& changes) -> task<status> {
                            co_return co_await changes.poll([](const norv_uevent_device_t*) {});
                        });
                },
                [&] {
                    socket->send(norv::test::uevent_message("add", "/devices/one",
                                                            {"SUBSYSTEM=usb", "DEVTYPE=usb_device"}));
                    make_readable(parser->descriptor());
                });
        });
}

}  // namespace
