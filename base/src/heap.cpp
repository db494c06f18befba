// SPDX-License-Identifier: MIT
// The intrusive heap: two pairing heaps, one for recent nodes and one for settled nodes.
//
// A new node is added to the small heap of recent nodes. After 512 inserts, that heap is emptied in order
// into a chain, in which each node is the only child of the one before; the chain joins the settled heap as a
// single tree. A new node that is already in order is chained to the one before at once, at almost no cost.
//
// The next settled node is then chosen among the heads of the chains: a few hundred, where a plain pairing
// heap compares all nodes with each other, at the first expiry all at once. Cost as a multiple of a four-way
// array heap that caches its keys: firing 1e4 timers 1.0, firing 1e6 timers 1.2 (a plain pairing heap: 1.5
// and 6.4); the first ten expiries after 1e5 starts take 3 us (1.5 ms). See docs/heap.md.
#include "norv_base.h"

namespace {

using node = norv_heap_node_t;

constexpr uint32_t recent_limit = 512;

// Prefetches a node that will be compared soon, and the fields of its record before it, which hold the key.
void prefetch(const node* soon) {
    // Computed as a number, because there may be no such object, and no node at all.
    // NOLINTNEXTLINE(performance-no-int-to-ptr)
    __builtin_prefetch(reinterpret_cast<const void*>(reinterpret_cast<uintptr_t>(soon) - sizeof(node)));
    __builtin_prefetch(soon);
}

void add_child(node* parent, node* child) {
    child->back = parent;
    child->sibling = parent->child;
    if (child->sibling != nullptr) {
        child->sibling->back = child;
    }
    parent->child = child;
}

// Makes one of two tops the child of the other.
node* meld(node* first, node* second, norv_heap_less_fn less) {
    // Which one wins cannot be predicted: looking it up in a table costs less than a mispredicted branch.
    node* const tops[2] = {first, second};
    const bool second_wins = less(second, first);
    add_child(tops[second_wins], tops[!second_wins]);
    return tops[second_wins];
}

// Melds siblings in pairs. The winners come back linked, the last pair first.
node* meld_pairs(node* siblings, norv_heap_less_fn less) {
    node* winners = nullptr;
    while (siblings != nullptr) {
        node* winner = siblings;
        node* second = siblings->sibling;
        siblings = nullptr;
        prefetch(winner->child);
        if (second != nullptr) {
            prefetch(second->child);
            siblings = second->sibling;
            winner = meld(winner, second, less);
        }
        winner->sibling = winners;
        winners = winner;
    }
    return winners;
}

// Melds two or more siblings into one tree.
node* meld_siblings(node* siblings, norv_heap_less_fn less) {
    node* top = meld_pairs(siblings, less);
    node* rest = top->sibling;
    while (rest != nullptr) {
        node* next = rest->sibling;
        top = meld(top, rest, less);
        rest = next;
    }
    top->sibling = nullptr;
    top->back = nullptr;
    return top;
}

// Makes one tree of the children of a node that leaves; null if there are none.
node* tree_of(node* children, norv_heap_less_fn less) {
    if (children == nullptr) {
        return nullptr;
    }
    if (children->sibling != nullptr) {
        return meld_siblings(children, less);
    }
    children->back = nullptr;
    return children;
}

// Turns a tree into a chain in the order of leaving.
void make_chain(node* tail, norv_heap_less_fn less) {
    while (node* next = tree_of(tail->child, less)) {
        tail->child = next;
        next->back = tail;
        tail = next;
    }
}

void settle_recent(norv_heap_t* heap, norv_heap_less_fn less) {
    node* chain = heap->recent;
    heap->recent = nullptr;
    heap->last = nullptr;
    heap->recent_count = 0;
    if (chain != nullptr) {
        make_chain(chain, less);
        heap->settled = heap->settled == nullptr ? chain : meld(heap->settled, chain, less);
        heap->top = heap->settled;
    }
}

node* first_of(node* first, node* second, norv_heap_less_fn less) {
    if (first == nullptr || second == nullptr) {
        return first != nullptr ? first : second;
    }
    return less(second, first) ? second : first;
}

// True if the node that was queued last is still there, and this one does not leave before it.
bool comes_in_order(const norv_heap_t* heap, const node* inserted, norv_heap_less_fn less) {
    return heap->last != nullptr && !less(inserted, heap->last);
}

void add_recent(norv_heap_t* heap, node* inserted, norv_heap_less_fn less) {
    heap->recent = heap->recent == nullptr ? inserted : meld(heap->recent, inserted, less);
    if (heap->recent == inserted) {
        heap->top = first_of(heap->settled, inserted, less);
    }
}

// Replaces a node that has a parent with a tree or with nothing. Nothing is compared: what was below the node
// may be below its parent.
void replace(node* leaving, node* tree) {
    node* successor = leaving->sibling;
    if (tree != nullptr) {
        tree->sibling = successor;
        if (successor != nullptr) {
            successor->back = tree;
        }
        successor = tree;
    }
    if (successor != nullptr) {
        successor->back = leaving->back;
    }
    node* before = leaving->back;
    (before->child == leaving ? before->child : before->sibling) = successor;
}

// Other threads may read the flag at any time.
void reset(node* subject, uint8_t queued) {
    __atomic_store_n(&subject->queued, queued, __ATOMIC_RELAXED);
    subject->child = nullptr;
    subject->sibling = nullptr;
    subject->back = nullptr;
}

}  // namespace

void norv_heap_insert(norv_heap_t* heap, norv_heap_node_t* inserted, norv_heap_less_fn less) {
    if (heap->recent_count == recent_limit) {
        settle_recent(heap, less);
    }
    heap->recent_count += 1;
    reset(inserted, 1);
    if (comes_in_order(heap, inserted, less)) {
        add_child(heap->last, inserted);
    } else {
        add_recent(heap, inserted, less);
    }
    heap->last = inserted;
}

void norv_heap_remove(norv_heap_t* heap, norv_heap_node_t* removed, norv_heap_less_fn less) {
    if (removed->queued == 0) {
        return;
    }
    if (removed == heap->last) {
        heap->last = nullptr;
    }
    node* tree = tree_of(removed->child, less);
    if (removed->back != nullptr) {
        replace(removed, tree);
    } else {
        (removed == heap->recent ? heap->recent : heap->settled) = tree;
        heap->top = first_of(heap->settled, heap->recent, less);
    }
    reset(removed, 0);
}

void norv_heap_dequeue(norv_heap_t* heap, norv_heap_less_fn less) {
    if (heap->top != nullptr) {
        norv_heap_remove(heap, heap->top, less);
    }
}
