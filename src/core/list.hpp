// Circular doubly linked lists. A link is a structure whose members `next` and `prev` point to links. So is
// the head of a list, which points to itself if the list is empty.
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

// Inserting before the head appends to the list.
template <typename link>
void insert_before(link& place, link& added) {
    added = {&place, place.prev};
    place.prev->next = &added;
    place.prev = &added;
}

// The removed link itself is not changed.
template <typename link>
void take_out(link& taken) {
    taken.prev->next = taken.next;
    taken.next->prev = taken.prev;
}

}  // namespace norv
