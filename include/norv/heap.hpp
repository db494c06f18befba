// SPDX-License-Identifier: MIT
/**
 * @file norv/heap.hpp
 * The intrusive heap of norv_base.h, for objects of one type: nothing is allocated.
 *
 *     struct order : norv::heap_node {
 *         int priority = 0;
 *     };
 *     struct more_urgent {
 *         bool operator()(const order& first, const order& second) const noexcept {
 *             return first.priority < second.priority;
 *         }
 *     };
 *     norv::heap<order, more_urgent> orders;
 *     order first;
 *     orders.insert(first);
 *     order* next = orders.top();
 *     orders.dequeue();
 */
#pragma once

#include <cassert>
#include <type_traits>

#include "norv_base.h"

namespace norv {

template <typename T, typename order>
class heap;

/** The base of what a heap queues. It neither moves nor is copied, and must not end while it is queued. */
class heap_node : private norv_heap_node_t {
  public:
    heap_node() noexcept : norv_heap_node_t{} {}
    heap_node(const heap_node&) = delete;
    heap_node& operator=(const heap_node&) = delete;
    ~heap_node() { assert(queued == 0); }

    /** Whether it is in a heap. */
    bool is_queued() const noexcept { return queued != 0; }

  private:
    template <typename T, typename order>
    friend class heap;
};

/**
 * A heap of objects of type T, derived from `heap_node`. `order` is a type without state whose objects return
 * whether the first of two objects must leave before the second; it must be noexcept.
 */
template <typename T, typename order>
class heap {
    static_assert(std::is_base_of_v<heap_node, T>);
    static_assert(std::is_nothrow_invocable_r_v<bool, order, const T&, const T&>,
                  "the order is called from C code, which no exception may leave");

  public:
    heap() noexcept = default;
    heap(const heap&) = delete;
    heap& operator=(const heap&) = delete;
    /** Removes what is still queued. */
    ~heap() { clear(); }

    /** See `norv_heap_insert`. Does nothing if the object is queued already. */
    void insert(T& object) noexcept {
        if (!object.is_queued()) {
            norv_heap_insert(&heap_, node_of(object), less);
        }
    }
    /** See `norv_heap_remove`. */
    void remove(T& object) noexcept { norv_heap_remove(&heap_, node_of(object), less); }
    /** See `norv_heap_dequeue`. */
    void dequeue() noexcept { norv_heap_dequeue(&heap_, less); }
    /** Removes all objects. */
    void clear() noexcept {
        while (!empty()) {
            dequeue();
        }
    }

    /** The object that leaves next; null if there is none. */
    T* top() const noexcept { return empty() ? nullptr : &object_of(heap_.top); }
    /** Whether nothing is queued. */
    bool empty() const noexcept { return heap_.top == nullptr; }

  private:
    static norv_heap_node_t* node_of(heap_node& object) noexcept { return &object; }
    static T& object_of(norv_heap_node_t* node) noexcept {
        return static_cast<T&>(static_cast<heap_node&>(*node));
    }
    static bool less(const norv_heap_node_t* first, const norv_heap_node_t* second) {
        const auto object = [](const norv_heap_node_t* node) -> const T& {
            return static_cast<const T&>(static_cast<const heap_node&>(*node));
        };
        return order{}(object(first), object(second));
    }

    norv_heap_t heap_{};
};

}  // namespace norv
