// SPDX-License-Identifier: MIT
// An event that is raised and handled, beside the bare system calls that this must make.
#include <norv_epoll.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include "support/expect.hpp"
#include "support/rows.hpp"

namespace {

// Raises the eventfd, waits for it, reads it and reads it once more to see that it is empty.
void raise_bare(benchmark::State& state) {
    const int epoll = epoll_create1(EPOLL_CLOEXEC);
    const int raised = eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC);
    epoll_event ready[NORV_EPOLL_MAX_EVENTS] = {};
    ready[0].events = EPOLLIN;
    bench::expect(epoll_ctl(epoll, EPOLL_CTL_ADD, raised, ready) == 0, "epoll_ctl");
    for (auto _ : state) {
        eventfd_t count = 0;
        bench::expect(eventfd_write(raised, 1) == 0, "eventfd_write");
        bench::expect(epoll_wait(epoll, ready, NORV_EPOLL_MAX_EVENTS, -1) == 1, "epoll_wait");
        bench::expect(eventfd_read(raised, &count) == 0, "eventfd_read");
        bench::expect(eventfd_read(raised, &count) == -1, "eventfd_read");
    }
    close(raised);
    close(epoll);
    state.SetItemsProcessed(state.iterations());
}

// An event whose callback raises it again, for as long as the benchmark runs.
struct raised_again {
    norv_epoll_event_fd_t event;
    benchmark::State* state;
};

void raise_again(norv_epoll_event_fd_t* event) {
    if (reinterpret_cast<raised_again*>(event)->state->KeepRunning()) {
        bench::expect(norv_epoll_event_fd_activate(event) == NORV_STATUS_OK, "norv_epoll_event_fd_activate");
    } else {
        norv_epoll_exit(event->registration.loop);
    }
}

void raise_ours(benchmark::State& state) {
    norv_epoll_t loop = {};
    raised_again record = {};
    record.event.callback = raise_again;
    record.state = &state;
    bench::expect(norv_epoll_open(&loop) == NORV_STATUS_OK, "norv_epoll_open");
    bench::expect(norv_epoll_event_fd_create(&loop, &record.event) == NORV_STATUS_OK,
                  "norv_epoll_event_fd_create");
    norv_epoll_event_fd_activate(&record.event);
    norv_epoll_loop_with_watchdog(&loop, nullptr, 0);
    norv_epoll_event_fd_destroy(&loop, &record.event);
    norv_epoll_close(&loop);
    state.SetItemsProcessed(state.iterations());
}

}  // namespace

int main(int argc, char** argv) {
    const bench::row row = {.name = "event raised and called back", .target = 1.05};
    bench::add_contender(row, "raw", raise_bare);
    bench::add_contender(row, "ours", raise_ours);
    return bench::run_rows(argc, argv);
}
