// The intrusive heap: a pairing heap. Children hang on `child`, brothers on `sibling`; `back` points to the
// elder brother, or from the eldest to the parent.
#include "norv_base.h"

namespace {

norv_heap_node_t* meld(norv_heap_node_t* first, norv_heap_node_t* second, norv_heap_less_fn less) {
    if (first == nullptr) {
        return second;
    }
    if (second == nullptr) {
        return first;
    }
    norv_heap_node_t* parent = less(second, first) ? second : first;
    norv_heap_node_t* eldest = parent == first ? second : first;
    eldest->sibling = parent->child;
    eldest->back = parent;
    if (parent->child != nullptr) {
        parent->child->back = eldest;
    }
    parent->child = eldest;
    return parent;
}

// Melds brothers in pairs, and the pairs from the last to the first.
norv_heap_node_t* meld_all(norv_heap_node_t* eldest, norv_heap_less_fn less) {
    norv_heap_node_t* pairs = nullptr;
    while (eldest != nullptr) {
        norv_heap_node_t* first = eldest;
        norv_heap_node_t* second = first->sibling;
        eldest = second != nullptr ? second->sibling : nullptr;
        first->sibling = nullptr;
        if (second != nullptr) {
            second->sibling = nullptr;
        }
        norv_heap_node_t* pair = meld(first, second, less);
        pair->sibling = pairs;
        pairs = pair;
    }
    norv_heap_node_t* top = nullptr;
    while (pairs != nullptr) {
        norv_heap_node_t* next = pairs->sibling;
        pairs->sibling = nullptr;
        top = meld(top, pairs, less);
        pairs = next;
    }
    return top;
}

void cut(norv_heap_node_t* node) {
    if (node->back->child == node) {
        node->back->child = node->sibling;
    } else {
        node->back->sibling = node->sibling;
    }
    if (node->sibling != nullptr) {
        node->sibling->back = node->back;
    }
}

void leave(norv_heap_node_t* node) {
    node->queued = 0;
    node->child = nullptr;
    node->sibling = nullptr;
    node->back = nullptr;
}

}  // namespace

void norv_heap_insert(norv_heap_t* heap, norv_heap_node_t* node, norv_heap_less_fn less) {
    leave(node);
    node->queued = 1;
    heap->top = meld(heap->top, node, less);
}

void norv_heap_remove(norv_heap_t* heap, norv_heap_node_t* node, norv_heap_less_fn less) {
    if (node->queued == 0) {
        return;
    }
    norv_heap_node_t* children = meld_all(node->child, less);
    if (heap->top == node) {
        heap->top = children;
    } else {
        cut(node);
        heap->top = meld(heap->top, children, less);
    }
    leave(node);
}

void norv_heap_dequeue(norv_heap_t* heap, norv_heap_less_fn less) {
    if (heap->top != nullptr) {
        norv_heap_remove(heap, heap->top, less);
    }
}
