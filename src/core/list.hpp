// Circular lists, doubly linked. A link is a structure whose members `next` and `prev` point to links; so is
// the list's head, which points to itself when the list is empty.
#pragma once

namespace norv {

template <typename link>
void make_empty(link& head) {
    head = {&head, &head};
}

template <typename link>
bool is_empty(const link& head) {
    return head.next == &head;
}

// Before the head is the end of the list.
template <typename link>
void insert_before(link& place, link& added) {
    added = {&place, place.prev};
    place.prev->next = &added;
    place.prev = &added;
}

// The link itself keeps what it points to.
template <typename link>
void take_out(link& taken) {
    taken.prev->next = taken.next;
    taken.next->prev = taken.prev;
}

}  // namespace norv
