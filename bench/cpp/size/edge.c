// SPDX-License-Identifier: MIT
// Prints the level of GPIO line 17 at each edge, with a handler. `edge.cpp` does the same with a coroutine.
#include <norv_epoll.h>
#include <norv_linux_gpio.h>
#include <stdio.h>
#include <sys/epoll.h>

typedef struct {
    norv_epoll_fd_t registration;  // first, so that its address is that of the whole
    norv_linux_gpio_t line;
    uint32_t status;
} edges_t;

static void on_edge(norv_epoll_fd_t* registration, uint32_t events) {
    edges_t* edges = (edges_t*)registration;
    uint8_t level = 0;
    (void)events;
    edges->status = norv_linux_gpio_get_value(&edges->line, &level);
    if (edges->status != NORV_STATUS_OK) {
        norv_epoll_exit(registration->loop);
        return;
    }
    printf("%d\n", level);
}

static uint32_t print_edges(norv_epoll_t* loop, edges_t* edges) {
    uint32_t status = norv_linux_gpio_set_irq(&edges->line, NORV_LINUX_GPIO_EDGE_BOTH);
    if (status != NORV_STATUS_OK) {
        return status;
    }
    edges->registration.descriptor = norv_linux_gpio_get_fd(&edges->line);
    edges->registration.handler = on_edge;
    status = norv_epoll_fd_add(loop, &edges->registration, EPOLLPRI);
    if (status != NORV_STATUS_OK) {
        return status;
    }
    norv_epoll_loop_with_watchdog(loop, NULL, 0);
    norv_epoll_fd_remove(loop, &edges->registration);
    return edges->status;
}

int main(void) {
    norv_epoll_t loop = {0};
    edges_t edges = {0};
    uint32_t status = norv_epoll_open(&loop);
    if (status == NORV_STATUS_OK) {
        status = norv_linux_gpio_open(17, &edges.line);
        if (status == NORV_STATUS_OK) {
            status = print_edges(&loop, &edges);
            norv_linux_gpio_close(&edges.line);
        }
        norv_epoll_close(&loop);
    }
    fprintf(stderr, "%s\n", norv_status_text(status));
    return status != NORV_STATUS_OK;
}
