// SPDX-License-Identifier: GPL-2.0
//
// Two CAN controllers of the virtual board, on one bus; their interfaces are can0 and can1 where no others
// are loaded before. They keep the rules of a bus that the emulated kvaser_pci cards do not have:
//
// A frame counts as sent when another node has acknowledged it: one that is up, not bus-off, and not
// listening only. A node alone repeats its frame until somebody is there. Its transmit error counter goes to
// 128, its state to ERROR-PASSIVE, and its queue fills: write(2) then fails with ENOBUFS. Nodes of different
// bit rates destroy each other's frames: the sender ends BUS-OFF, until it is restarted.
//
// Changes of the state are reported as error frames. The time that a frame takes is not simulated; it is
// repeated after one tick of the kernel.

#include <linux/can.h>
#include <linux/can/dev.h>
#include <linux/can/error.h>
#include <linux/can/skb.h>
#include <linux/module.h>
#include <linux/netdevice.h>
#include <linux/workqueue.h>

#include "kernel_versions.h"

#define NODE_COUNT 2
#define ERRORS_PER_FAILURE 8
#define WARNING_LIMIT 96
#define PASSIVE_LIMIT 128
#define BUS_OFF_LIMIT 256

enum outcome { SENT, NOT_ACKNOWLEDGED, DESTROYED };

struct can_node {
    struct can_priv can;  // first, as the kernel looks for it
    struct net_device* device;
    struct delayed_work sending;
    struct can_frame frame;  // that is being sent
    unsigned int transmit_errors;
    unsigned int receive_errors;
    bool is_up;
};

static DEFINE_SPINLOCK(bus);
static struct can_node* nodes[NODE_COUNT];

// That of an SJA1000 at 16 MHz.
static const struct can_bittiming_const bit_timing = {
    .name = "norv_board_can",
    .tseg1_min = 1,
    .tseg1_max = 16,
    .tseg2_min = 1,
    .tseg2_max = 8,
    .sjw_max = 4,
    .brp_min = 1,
    .brp_max = 64,
    .brp_inc = 1,
};

static bool is_on_bus(const struct can_node* node) {
    return node->is_up && node->can.state != CAN_STATE_BUS_OFF;
}

static bool listens_only(const struct can_node* node) {
    return node->can.ctrlmode & CAN_CTRLMODE_LISTENONLY;
}

// ---- error counters and states

static enum can_state state_of(unsigned int errors) {
    if (errors >= BUS_OFF_LIMIT) {
        return CAN_STATE_BUS_OFF;
    }
    if (errors >= PASSIVE_LIMIT) {
        return CAN_STATE_ERROR_PASSIVE;
    }
    return errors >= WARNING_LIMIT ? CAN_STATE_ERROR_WARNING : CAN_STATE_ERROR_ACTIVE;
}

static void follow_errors(struct can_node* node) {
    enum can_state transmit_state = state_of(node->transmit_errors);
    enum can_state receive_state = state_of(node->receive_errors);
    struct can_frame* frame = NULL;
    struct sk_buff* packet;

    if (max(transmit_state, receive_state) == node->can.state) {
        return;
    }
    packet = alloc_can_err_skb(node->device, &frame);
    can_change_state(node->device, frame, transmit_state, receive_state);
    if (node->can.state == CAN_STATE_BUS_OFF) {
        can_bus_off(node->device);
    }
    if (packet) {
        netif_rx(packet);
    }
}

static void count_transmit_error(struct can_node* node, enum outcome outcome) {
    // A node that is error-passive does not count a missing acknowledgement.
    if (outcome == DESTROYED || node->transmit_errors < PASSIVE_LIMIT) {
        node->transmit_errors += ERRORS_PER_FAILURE;
    }
    follow_errors(node);
}

static void count_receive_error(struct can_node* node) {
    node->receive_errors = min(node->receive_errors + 1, PASSIVE_LIMIT + 0U);
    follow_errors(node);
}

static void count_success(struct can_node* node, unsigned int* errors) {
    if (*errors > 0) {
        --*errors;
    }
    follow_errors(node);
}

// ---- sending

static enum outcome outcome_of(const struct can_node* sender) {
    enum outcome outcome = NOT_ACKNOWLEDGED;
    int index;

    for (index = 0; index < NODE_COUNT; index++) {
        const struct can_node* other = nodes[index];

        if (other == sender || !is_on_bus(other) || listens_only(other)) {
            continue;
        }
        if (other->can.bittiming.bitrate != sender->can.bittiming.bitrate) {
            return DESTROYED;
        }
        outcome = SENT;
    }
    return outcome;
}

static void receive_frame(struct can_node* node, const struct can_frame* sent) {
    struct can_frame* frame;
    struct sk_buff* packet = alloc_can_skb(node->device, &frame);

    count_success(node, &node->receive_errors);
    if (!packet) {
        node->device->stats.rx_dropped++;
        return;
    }
    frame->can_id = sent->can_id;
    board_can_length(frame) = board_can_length(sent);
    if (!(sent->can_id & CAN_RTR_FLAG)) {
        memcpy(frame->data, sent->data, board_can_length(sent));
        node->device->stats.rx_bytes += board_can_length(sent);
    }
    node->device->stats.rx_packets++;
    netif_rx(packet);
}

static void tell_the_others(const struct can_node* sender, enum outcome outcome) {
    int index;

    for (index = 0; index < NODE_COUNT; index++) {
        struct can_node* other = nodes[index];
        bool understands = other->can.bittiming.bitrate == sender->can.bittiming.bitrate;

        if (other == sender || !is_on_bus(other)) {
            continue;
        }
        if (outcome == SENT && understands) {
            receive_frame(other, &sender->frame);
        } else if (!understands) {
            count_receive_error(other);
        }
    }
}

// Returns whether the frame is to be repeated.
static bool try_to_send(struct can_node* node) {
    enum outcome outcome;

    if (!is_on_bus(node)) {
        return false;
    }
    outcome = outcome_of(node);
    tell_the_others(node, outcome);
    if (outcome != SENT) {
        count_transmit_error(node, outcome);
        return is_on_bus(node);
    }
    count_success(node, &node->transmit_errors);
    node->device->stats.tx_packets++;
    node->device->stats.tx_bytes += board_can_get_echo(node->device);
    netif_wake_queue(node->device);
    return false;
}

static void send_frame(struct work_struct* work) {
    struct can_node* node = container_of(to_delayed_work(work), struct can_node, sending);
    bool again;

    spin_lock_bh(&bus);
    again = try_to_send(node);
    spin_unlock_bh(&bus);
    if (again) {
        schedule_delayed_work(&node->sending, 1);
    }
}

static netdev_tx_t start_transmission(struct sk_buff* packet, struct net_device* device) {
    struct can_node* node = netdev_priv(device);

    if (can_dev_dropped_skb(device, packet)) {
        return NETDEV_TX_OK;
    }
    netif_stop_queue(device);
    node->frame = *(const struct can_frame*)packet->data;
    board_can_put_echo(packet, device);
    schedule_delayed_work(&node->sending, 0);
    return NETDEV_TX_OK;
}

// ---- the interfaces

static void start_node(struct can_node* node) {
    spin_lock_bh(&bus);
    node->transmit_errors = 0;
    node->receive_errors = 0;
    node->can.state = CAN_STATE_ERROR_ACTIVE;
    node->is_up = true;
    spin_unlock_bh(&bus);
}

static int open_node(struct net_device* device) {
    int error = open_candev(device);

    if (!error) {
        start_node(netdev_priv(device));
        netif_start_queue(device);
    }
    return error;
}

static int stop_node(struct net_device* device) {
    struct can_node* node = netdev_priv(device);

    netif_stop_queue(device);
    spin_lock_bh(&bus);
    node->is_up = false;
    node->can.state = CAN_STATE_STOPPED;
    spin_unlock_bh(&bus);
    cancel_delayed_work_sync(&node->sending);
    close_candev(device);
    return 0;
}

// A node that is bus-off starts again.
static int set_mode(struct net_device* device, enum can_mode mode) {
    if (mode != CAN_MODE_START) {
        return -EOPNOTSUPP;
    }
    start_node(netdev_priv(device));
    netif_wake_queue(device);
    return 0;
}

static int get_error_counters(const struct net_device* device, struct can_berr_counter* counters) {
    const struct can_node* node = netdev_priv(device);

    counters->txerr = node->transmit_errors;
    counters->rxerr = node->receive_errors;
    return 0;
}

static const struct net_device_ops device_operations = {
    BOARD_CAN_CHANGE_MTU.ndo_open = open_node,
    .ndo_stop = stop_node,
    .ndo_start_xmit = start_transmission,
};

static int allocate_node(int index) {
    struct net_device* device = alloc_candev(sizeof(struct can_node), 1);
    struct can_node* node;

    if (!device) {
        return -ENOMEM;
    }
    node = netdev_priv(device);
    node->device = device;
    node->can.clock.freq = 8000000;
    node->can.bittiming_const = &bit_timing;
    node->can.ctrlmode_supported = CAN_CTRLMODE_LISTENONLY;
    node->can.do_set_mode = set_mode;
    node->can.do_get_berr_counter = get_error_counters;
    INIT_DELAYED_WORK(&node->sending, send_frame);
    device->netdev_ops = &device_operations;
    device->flags |= IFF_ECHO;
    nodes[index] = node;
    return 0;
}

static void remove_nodes(int registered) {
    int index;

    for (index = 0; index < registered; index++) {
        unregister_candev(nodes[index]->device);
    }
    for (index = 0; index < NODE_COUNT && nodes[index]; index++) {
        free_candev(nodes[index]->device);
    }
}

// Each looks at all others, so that there are all before the first can be set up.
static int __init board_can_init(void) {
    int error = 0;
    int registered = 0;
    int index;

    for (index = 0; index < NODE_COUNT && !error; index++) {
        error = allocate_node(index);
    }
    while (registered < NODE_COUNT && !error) {
        error = register_candev(nodes[registered]->device);
        registered += error ? 0 : 1;
    }
    if (error) {
        remove_nodes(registered);
    }
    return error;
}

static void __exit board_can_exit(void) {
    remove_nodes(NODE_COUNT);
}

module_init(board_can_init);
module_exit(board_can_exit);
MODULE_LICENSE("GPL");
MODULE_DESCRIPTION("CAN controllers of the virtual board, on a bus with its rules");
