// SPDX-License-Identifier: MIT
// Circular doubly linked lists. A link is a structure whose members `next` and `prev` point to links. So is
// the head of a list, which points to itself if the list is empty.
#pragma once

namespace norv {

template <typename link>
void list_init(link& head) {
    head = {&head, &head};
}

template <typename link>
bool list_empty(const link& head) {
    return head.next == &head;
}

template <typename link>
void list_add_tail(link& head, link& added) {
    added = {&head, head.prev};
    head.prev->next = &added;
    head.prev = &added;
}

template <typename link>
void list_add(link& head, link& added) {
    list_add_tail(*head.next, added);
}

// The removed link itself is not changed.
template <typename link>
void list_del(link& removed) {
    removed.prev->next = removed.next;
    removed.next->prev = removed.prev;
}

}  // namespace norv
