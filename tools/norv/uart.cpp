// SPDX-License-Identifier: MIT
// norv uart: serial ports.
#include "norv/uart.hpp"

#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <iostream>
#include <span>

#include "bytes.hpp"
#include "command.hpp"
#include "failure.hpp"
#include "interrupt.hpp"
#include "names.hpp"
#include "output.hpp"
#include "report.hpp"
#include "text.hpp"

namespace norv::tool {

namespace {

constexpr uint32_t chunk_size = 4096;
constexpr std::chrono::milliseconds look_for_interrupts{200};
constexpr std::chrono::milliseconds no_wait{0};
constexpr int look_for_sent_ms = 20;
constexpr uint8_t ctrl_right_bracket = 0x1D;
constexpr cc_t xon = 0x11;
constexpr cc_t xoff = 0x13;

const causes usual{
    {NORV_STATUS_NOT_FOUND, "no such port"},
    {status_of(ENOTTY), "not a serial port"},
    {NORV_STATUS_INVALID_ARG, "the port does not support these settings; is the speed a standard one?"},
    {NORV_STATUS_DEVICE_ERROR, "the port does not answer; was it hung up, or is there no chip?"}};

// The arguments that every command has: the port and how to program it.
struct port_arguments {
    std::string device;
    norv::uart::settings settings;

    void declare(CLI::App& command) {
        using norv::uart;
        const std::map<std::string, uart::stop_bits> stop_bits{{"1", uart::stop_bits::one},
                                                               {"2", uart::stop_bits::two}};
        const std::map<std::string, uart::parity> parities{{"none", uart::parity::none},
                                                           {"odd", uart::parity::odd},
                                                           {"even", uart::parity::even},
                                                           {"mark", uart::parity::mark},
                                                           {"space", uart::parity::space}};
        const std::map<std::string, uart::flow_control> flow_controls{
            {"none", uart::flow_control::none},
            {"software", uart::flow_control::software},
            {"hardware", uart::flow_control::hardware}};
        command.add_option("DEVICE", device, "for instance /dev/ttyS1")->required()->check(whole_path());
        command.add_option("-b,--baud", settings.baud, "bit/s")->capture_default_str();
        command.add_option("--data-bits", settings.data_bits, "5 to 8")
            ->check(CLI::Range(5, 8))
            ->capture_default_str();
        command.add_option("--stop-bits", settings.stop_bits, "1 or 2 [1]")
            ->type_name("N")
            ->transform(one_of(stop_bits));
        command.add_option("--parity", settings.parity, "none, odd, even, mark or space [none]")
            ->type_name("PARITY")
            ->transform(one_of(parities));
        command
            .add_option("--flow", settings.flow_control,
                        "none, software (XON/XOFF) or hardware (RTS/CTS) [none]")
            ->type_name("CONTROL")
            ->transform(one_of(flow_controls));
    }
};

class port {
  public:
    explicit port(const port_arguments& arguments)
        : name_{"uart " + arguments.device},
          uart_{must(name_, norv::uart::open(arguments.device, arguments.settings), usual)} {
        if (arguments.settings.flow_control == norv::uart::flow_control::software && !set_flow_characters()) {
            throw failure{name_, status_of(errno), usual};
        }
    }

    const std::string& name() const { return name_; }
    norv::uart& get() { return uart_; }
    int descriptor() const { return uart_.descriptor(); }

    // Until the driver has all bytes, or Ctrl-C.
    void send(const bytes& data) {
        size_t sent = 0;
        while (sent < data.size() && !is_interrupted()) {
            sent +=
                must_transfer(uart_.send(std::as_bytes(std::span{data}.subspan(sent)), look_for_interrupts),
                              NORV_STATUS_TIMEOUT);
        }
    }

    // What the driver takes without waiting leaves `data`.
    void send_some(bytes& data) {
        const size_t sent =
            must_transfer(uart_.send(std::as_bytes(std::span{data}), no_wait), NORV_STATUS_AGAIN);
        data.erase(data.begin(), data.begin() + static_cast<std::ptrdiff_t>(sent));
    }

    // Whether the driver has no bytes left, where it says so.
    bool has_sent_all() {
        int left = 0;
        return ioctl(descriptor(), TIOCOUTQ, &left) != 0 || left == 0;
    }

    // Closing puts the old settings back, which would spoil bytes that are still on their way.
    void drain() {
        if (is_interrupted() || tcdrain(descriptor()) != 0) {
            discard_output();
        }
    }

    void discard_output() { tcflush(descriptor(), TCOFLUSH); }

    // What has arrived, up to a maximum; nothing after a hang-up.
    bytes receive(uint32_t maximum) {
        bytes data(maximum);
        data.resize(must_transfer(uart_.receive(std::as_writable_bytes(std::span{data}), no_wait),
                                  NORV_STATUS_AGAIN));
        return data;
    }

    [[noreturn]] void report_hang_up() const { throw failure{name_, "the port was hung up"}; }

  private:
    // How many bytes were moved. `over` is the status of a transfer whose time is over: that is not a failure.
    size_t must_transfer(const norv::transferred& moved, uint32_t over) const {
        if (moved.status != over) {
            must(name_, moved.status, usual);
        }
        return moved.count;
    }

    // The library programs a port without control characters, and nothing stops or starts one without them.
    bool set_flow_characters() {
        termios settings{};
        if (tcgetattr(descriptor(), &settings) != 0) {
            return false;
        }
        settings.c_cc[VSTART] = xon;
        settings.c_cc[VSTOP] = xoff;
        return tcsetattr(descriptor(), TCSANOW, &settings) == 0;
    }

    std::string name_;
    norv::uart uart_;
};

void print_raw(const bytes& data) {
    print({reinterpret_cast<const char*>(data.data()), data.size()});
}

// The keyboard without echo and line editing, for as long as a console runs; does nothing to a pipe.
class raw_terminal {
  public:
    raw_terminal() : terminal_{isatty(STDIN_FILENO) != 0 && tcgetattr(STDIN_FILENO, &before_) == 0} {
        if (terminal_) {
            termios raw = before_;
            cfmakeraw(&raw);
            raw.c_oflag = before_.c_oflag;
            tcsetattr(STDIN_FILENO, TCSADRAIN, &raw);
        }
    }
    ~raw_terminal() {
        if (terminal_) {
            tcsetattr(STDIN_FILENO, TCSADRAIN, &before_);
        }
    }
    raw_terminal(const raw_terminal&) = delete;
    raw_terminal& operator=(const raw_terminal&) = delete;

  private:
    termios before_{};
    bool terminal_;
};

// What is typed goes to the port, and what arrives to the screen, until Ctrl-] or the end of standard input.
class conversation {
  public:
    // `silence` in milliseconds is what ends it after the end of standard input.
    conversation(port& with, int silence) : port_{with}, silence_{static_cast<uint64_t>(silence)} {}

    void run() {
        while (!is_over()) {
            std::vector<pollfd> sources{{port_.descriptor(), port_events(), 0}, {keyboard(), POLLIN, 0}};
            if (wait_for(sources, time_left()) == wake::interrupted) {
                break;
            }
            take_received(sources[0].revents);
            take_typed(sources[1].revents);
            send();
        }
        if (is_sent()) {
            port_.drain();
        } else {
            port_.discard_output();
        }
    }

  private:
    // Ctrl-] is looked for as long as there is less: what comes from a file waits for the port, and a person
    // does not type so much.
    static constexpr size_t most_unsent = 16 * chunk_size;

    // How long Ctrl-] waits for what was typed before it: flow control may have stopped the port.
    static constexpr uint64_t longest_leave_ms = 1000;

    enum class state { talking, input_ended, leaving };

    bool is_sent() { return unsent_.empty() && port_.has_sent_all(); }

    uint64_t waited() const { return norv_time_get_ms() - since_; }

    bool is_over() {
        if (state_ == state::talking) {
            return false;
        }
        const bool sent = is_sent();
        if (state_ == state::leaving) {
            return sent || waited() >= longest_leave_ms;
        }
        if (!sent) {
            since_ = norv_time_get_ms();
        }
        return waited() >= silence_;
    }

    // The driver does not wake anybody when its last byte goes out.
    int time_left() {
        if (state_ == state::talking) {
            return -1;
        }
        const uint64_t passed = waited();
        return is_sent() && passed < silence_ ? static_cast<int>(silence_ - passed) : look_for_sent_ms;
    }

    short port_events() const { return static_cast<short>(unsent_.empty() ? POLLIN : POLLIN | POLLOUT); }

    int keyboard() const {
        return state_ == state::talking && unsent_.size() < most_unsent ? STDIN_FILENO : -1;
    }

    void enter(state next) {
        state_ = next;
        since_ = norv_time_get_ms();
    }

    void take_received(short events) {
        if ((events & ~POLLOUT) == 0) {
            return;
        }
        const bytes received = port_.receive(chunk_size);
        if (received.empty() && (events & POLLHUP) != 0) {
            port_.report_hang_up();
        }
        print_raw(received);
        if (state_ == state::input_ended) {
            since_ = norv_time_get_ms();
        }
    }

    void take_typed(short events) {
        if (events == 0) {
            return;
        }
        bytes typed(chunk_size);
        const ssize_t count = read(STDIN_FILENO, typed.data(), typed.size());
        if (count < 0 && (errno == EAGAIN || errno == EINTR)) {
            return;
        }
        if (count <= 0) {
            enter(state::input_ended);
            return;
        }
        typed.resize(static_cast<size_t>(count));
        const auto end = std::find(typed.begin(), typed.end(), ctrl_right_bracket);
        if (end != typed.end()) {
            enter(state::leaving);
        }
        unsent_.insert(unsent_.end(), typed.begin(), end);
    }

    void send() {
        if (!unsent_.empty()) {
            port_.send_some(unsent_);
        }
    }

    port& port_;
    uint64_t silence_;
    state state_ = state::talking;
    uint64_t since_ = 0;  // Ctrl-], or the last sign of life after the end of standard input
    bytes unsent_;
};

struct console {
    static constexpr auto name = "console";
    static constexpr auto help =
        "Connect the terminal to the port, until Ctrl-] or the end of standard input";

    port_arguments to;
    int silence = 1000;

    void declare(CLI::App& command) {
        to.declare(command);
        command
            .add_option(
                "-t,--timeout", silence,
                "after the end of standard input, exit when everything is sent and nothing has arrived "
                "for this many milliseconds")
            ->type_name("MS")
            ->check(CLI::Range(0, 3600000).description(""))
            ->capture_default_str();
    }

    void run() {
        port opened{to};
        std::cerr << "Connected to " << printable(to.device) << "; Ctrl-] ends.\n";
        const raw_terminal terminal;
        conversation{opened, silence}.run();
    }
};

struct send {
    static constexpr auto name = "send";
    static constexpr auto help = "Send text, bytes or a file";

    port_arguments to;
    std::vector<std::string> words;
    std::string file;
    bool as_bytes = false;
    bool newline = false;

    void declare(CLI::App& command) {
        to.declare(command);
        command.add_option("TEXT", words, "words, joined by blanks; with --hex bytes");
        command.add_option("-f,--file", file, "a file to send; - is standard input")->excludes("TEXT");
        command.add_flag("-x,--hex", as_bytes, "TEXT is bytes like 0x0d 0x0a");
        command.add_flag("-l,--line", newline, "append a newline");
    }

    void run() {
        if (words.empty() && file.empty() && !newline) {
            throw usage_error{"nothing to send"};
        }
        bytes data = content();
        if (newline) {
            data.push_back('\n');
        }
        port opened{to};
        opened.send(data);
        opened.drain();
    }

  private:
    bytes content() const {
        if (!file.empty()) {
            return load(file);
        }
        if (as_bytes) {
            return parse_bytes(words);
        }
        const std::string line = joined(words);
        return {line.begin(), line.end()};
    }
};

struct recv {
    static constexpr auto name = "recv";
    static constexpr auto help = "Show what arrives, until Ctrl-C";

    port_arguments from;
    uint32_t count = 0;
    int timeout = -1;
    bool as_hex = false;
    report out;

    void declare(CLI::App& command) {
        from.declare(command);
        command.add_option("-n,--count", count, "exit after this many bytes");
        command.add_option("-t,--timeout", timeout,
                           "exit after this many milliseconds of silence; with --count this is a failure");
        command.add_flag("-x,--hex", as_hex, "show the bytes in hexadecimal, at the end");
        out.offer_json(command);
    }

    void run() {
        port opened{from};
        wake woken = wake::ready;
        while (woken == wake::ready && (count == 0 || received < count)) {
            std::vector<pollfd> source{{opened.descriptor(), POLLIN, 0}};
            woken = wait_for(source, timeout);
            if (woken == wake::ready) {
                take(opened, source[0]);
            }
        }
        show_all();
        if (woken == wake::timeout && count != 0) {
            throw failure{
                opened.name(),
                NORV_STATUS_TIMEOUT,
                {{NORV_STATUS_TIMEOUT, "fewer bytes arrived; is the speed right, and is RX connected?"}}};
        }
    }

  private:
    uint32_t received = 0;
    bytes all;  // unless it is shown at once

    bool is_shown_at_once() const { return !as_hex && !out.is_json(); }

    void take(port& opened, const pollfd& source) {
        const bytes data = opened.receive(count == 0 ? chunk_size : std::min(chunk_size, count - received));
        if (data.empty() && (source.revents & POLLHUP) != 0) {
            opened.report_hang_up();
        }
        received += static_cast<uint32_t>(data.size());
        if (is_shown_at_once()) {
            print_raw(data);
        } else {
            all.insert(all.end(), data.begin(), data.end());
        }
    }

    void show_all() const {
        if (!is_shown_at_once()) {
            out.show(hex(all),
                     {{"device", from.device}, {"data", all}, {"text", std::string{all.begin(), all.end()}}});
        }
    }
};

struct modem_lines {
    static constexpr auto name = "lines";
    static constexpr auto help = "Show CTS and DSR, after setting RTS and DTR if requested";

    port_arguments of;
    int rts = -1;
    int dtr = -1;
    bool watch = false;
    report out;

    void declare(CLI::App& command) {
        of.declare(command);
        command.add_option("--rts", rts, "1: raise RTS, 0: lower it")->check(CLI::Range(0, 1));
        command.add_option("--dtr", dtr, "1: raise DTR, 0: lower it")->check(CLI::Range(0, 1));
        command.add_flag("-w,--watch", watch,
                         "show every change until Ctrl-C, and hold RTS and DTR meanwhile");
        out.offer_json(command);
    }

    void run() {
        port opened{of};
        if (rts >= 0) {
            must(opened.name(), opened.get().set_rts(rts != 0), no_lines);
        }
        if (dtr >= 0) {
            must(opened.name(), opened.get().set_dtr(dtr != 0), no_lines);
        }
        std::string shown;
        do {
            show_change(opened, shown);
        } while (watch && sleep_for(static_cast<int>(look_for_interrupts.count())));
    }

  private:
    static const causes no_lines;

    void show_change(port& opened, std::string& shown) const {
        const uint32_t cts = must(opened.name(), opened.get().get_cts(), no_lines) ? 1 : 0;
        const uint32_t dsr = must(opened.name(), opened.get().get_dsr(), no_lines) ? 1 : 0;
        const std::string now = text("CTS %u  DSR %u", cts, dsr);
        if (now != shown) {
            out.show(now, {{"device", of.device}, {"cts", cts}, {"dsr", dsr}});
            shown = now;
        }
    }
};

const causes modem_lines::no_lines{{status_of(ENOTTY), "the port has no modem lines"}};

const group uart{"uart", "Serial ports", with_commands<console, send, recv, modem_lines>};

}  // namespace

}  // namespace norv::tool
