// SPDX-License-Identifier: MIT
// The raw reference for timers: a four-way heap in an array of (key, item). An item keeps its place in
// `index`, so that it can be moved and removed.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace bench {

template <class item_type>
class four_way_heap {
  public:
    bool empty() const { return entries_.empty(); }
    uint64_t first_key() const { return entries_.front().key; }
    item_type* first() const { return entries_.front().item; }

    void insert(item_type* item, uint64_t key) {
        entries_.push_back({key, item});
        rise(entries_.size() - 1, {key, item});
    }

    void remove(item_type* item) {
        const entry last = entries_.back();
        entries_.pop_back();
        if (last.item != item) {
            settle(item->index, last);
        }
    }

    void change(item_type* item, uint64_t key) { settle(item->index, {key, item}); }

  private:
    struct entry {
        uint64_t key;
        item_type* item;
    };

    void put(size_t place, entry moved) {
        entries_[place] = moved;
        moved.item->index = place;
    }

    void settle(size_t place, entry moved) {
        if (place > 0 && moved.key < entries_[(place - 1) / 4].key) {
            rise(place, moved);
        } else {
            sink(place, moved);
        }
    }

    void rise(size_t place, entry moved) {
        while (place > 0) {
            const size_t parent = (place - 1) / 4;
            if (entries_[parent].key <= moved.key) {
                break;
            }
            put(place, entries_[parent]);
            place = parent;
        }
        put(place, moved);
    }

    void sink(size_t place, entry moved) {
        while (4 * place + 1 < entries_.size()) {
            const size_t child = smallest_child(place);
            if (moved.key <= entries_[child].key) {
                break;
            }
            put(place, entries_[child]);
            place = child;
        }
        put(place, moved);
    }

    size_t smallest_child(size_t place) const {
        const size_t first = 4 * place + 1;
        const size_t end = first + 4 < entries_.size() ? first + 4 : entries_.size();
        size_t smallest = first;
        for (size_t child = first + 1; child < end; ++child) {
            if (entries_[child].key < entries_[smallest].key) {
                smallest = child;
            }
        }
        return smallest;
    }

    std::vector<entry> entries_;
};

}  // namespace bench
