// SPDX-License-Identifier: MIT
// The intrusive heap beside the hand-written array heap: what is left of a timer without its clock.
#include <norv_base.h>

#include <string>
#include <vector>

#include "support/four_way_heap.hpp"
#include "support/random.hpp"
#include "support/rows.hpp"

namespace {

struct array_item {
    size_t index = 0;
};

struct array_queue {
    using item = array_item;
    static constexpr const char* name = "raw";

    void insert(item& added, uint32_t key) { heap.insert(&added, key); }
    void remove(item& removed) { heap.remove(&removed); }

    bench::four_way_heap<item> heap;
};

struct linked_item {
    norv_heap_node_t node;  // first, so that a node's address is its item's
    uint32_t key;
};

bool before(const norv_heap_node_t* first, const norv_heap_node_t* second) {
    return static_cast<int32_t>(reinterpret_cast<const linked_item*>(first)->key -
                                reinterpret_cast<const linked_item*>(second)->key) < 0;
}

struct linked_queue {
    using item = linked_item;
    static constexpr const char* name = "ours";

    void insert(item& added, uint32_t key) {
        added.key = key;
        norv_heap_insert(&heap, &added.node, before);
    }
    void remove(item& removed) { norv_heap_remove(&heap, &removed.node, before); }

    norv_heap_t heap{};
};

template <class queue>
void insert_and_remove(benchmark::State& state, uint32_t queued) {
    std::vector<typename queue::item> items(queued);
    typename queue::item item{};
    queue owner;
    bench::random_numbers numbers;
    for (auto& each : items) {
        owner.insert(each, numbers.below(3600000));
    }
    for (auto _ : state) {
        owner.insert(item, numbers.below(3600000));
        owner.remove(item);
    }
    state.SetItemsProcessed(state.iterations());
}

}  // namespace

int main(int argc, char** argv) {
    using queues = bench::contenders<array_queue, linked_queue>;
    for (const uint32_t queued : {1000u, 100000u}) {
        bench::add_row({.name = "heap insert and remove, " + std::to_string(queued) + " queued",
                        .target = queued == 1000 ? 2.0 : 2.5},
                       queues(), [queued]<class queue>(benchmark::State& state) {
                           insert_and_remove<queue>(state, queued);
                       });
    }
    return bench::run_rows(argc, argv);
}
