// SPDX-License-Identifier: MIT
// The intrusive heap: single cases, and random operations against a sorted model.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <random>
#include <set>
#include <vector>

#include "norv_base.h"

namespace {

// The heap sorts its recent nodes every 512 inserts, so tests of that need many more nodes.
constexpr size_t many = 5000;

struct record {
    uint32_t key = 0;
    norv_heap_node_t node{};
};

const record& record_of(const norv_heap_node_t* node) {
    return *reinterpret_cast<const record*>(reinterpret_cast<const char*>(node) - offsetof(record, node));
}

bool less(const norv_heap_node_t* first, const norv_heap_node_t* second) {
    return record_of(first).key < record_of(second).key;
}

// The order of counters that wrap around; it contradicts itself for values half the range apart.
bool less_by_difference(const norv_heap_node_t* first, const norv_heap_node_t* second) {
    return static_cast<int32_t>(record_of(first).key - record_of(second).key) < 0;
}

class Heap : public testing::Test {
  protected:
    void insert(record& subject) { norv_heap_insert(&heap, &subject.node, less); }
    void remove(record& subject) { norv_heap_remove(&heap, &subject.node, less); }

    uint32_t take_top() {
        const uint32_t key = record_of(heap.top).key;
        norv_heap_dequeue(&heap, less);
        return key;
    }

    std::vector<uint32_t> take_all() {
        std::vector<uint32_t> keys;
        while (heap.top != nullptr) {
            keys.push_back(take_top());
        }
        return keys;
    }

    norv_heap_t heap{};
};

std::vector<record> records_with(const std::vector<uint32_t>& keys) {
    std::vector<record> records(keys.size());
    for (size_t index = 0; index < keys.size(); ++index) {
        records[index].key = keys[index];
    }
    return records;
}

std::vector<uint32_t> ascending(size_t count) {
    std::vector<uint32_t> keys(count);
    for (size_t index = 0; index < count; ++index) {
        keys[index] = static_cast<uint32_t>(index);
    }
    return keys;
}

std::vector<uint32_t> shuffled(size_t count) {
    std::vector<uint32_t> keys = ascending(count);
    std::shuffle(keys.begin(), keys.end(), std::mt19937(1));
    return keys;
}

TEST(HeapRecords, BeginWithWhatCallersRead) {
    EXPECT_EQ(offsetof(norv_heap_t, top), 0U);
    EXPECT_EQ(offsetof(norv_heap_node_t, queued), 0U);
    EXPECT_EQ(sizeof(norv_heap_node_t::queued), 1U);
}

TEST_F(Heap, AZeroFilledHeapIsEmpty) {
    EXPECT_EQ(heap.top, nullptr);
}

TEST_F(Heap, AZeroFilledNodeIsNotQueued) {
    const record subject;
    EXPECT_EQ(subject.node.queued, 0);
}

TEST_F(Heap, AnInsertedNodeIsQueuedAndOnTop) {
    record subject{.key = 5};
    insert(subject);
    EXPECT_NE(subject.node.queued, 0);
    EXPECT_EQ(heap.top, &subject.node);
}

TEST_F(Heap, TheTopIsTheNodeThatMustLeaveFirst) {
    auto records = records_with({5, 3, 4});
    for (record& subject : records) {
        insert(subject);
    }
    EXPECT_EQ(heap.top, &records[1].node);
}

TEST_F(Heap, TheOldContentsOfANodeDoNotMatter) {
    record first{.key = 1};
    record second{.key = 2,
                  .node = {.queued = 9, .child = &first.node, .sibling = &first.node, .back = &first.node}};
    insert(second);
    insert(first);
    EXPECT_EQ(take_all(), (std::vector<uint32_t>{1, 2}));
}

TEST_F(Heap, ADequeuedNodeIsNoLongerQueued) {
    record subject{.key = 5};
    insert(subject);
    norv_heap_dequeue(&heap, less);
    EXPECT_EQ(subject.node.queued, 0);
    EXPECT_EQ(heap.top, nullptr);
}

TEST_F(Heap, DequeueOfAnEmptyHeapDoesNothing) {
    norv_heap_dequeue(&heap, less);
    EXPECT_EQ(heap.top, nullptr);
}

TEST_F(Heap, ARemovedNodeIsNoLongerQueuedAndNeverLeaves) {
    auto records = records_with({1, 2, 3});
    for (record& subject : records) {
        insert(subject);
    }
    remove(records[1]);
    EXPECT_EQ(records[1].node.queued, 0);
    EXPECT_EQ(take_all(), (std::vector<uint32_t>{1, 3}));
}

TEST_F(Heap, RemovingTheTopBringsUpTheNext) {
    auto records = records_with({1, 2, 3});
    for (record& subject : records) {
        insert(subject);
    }
    remove(records[0]);
    EXPECT_EQ(heap.top, &records[1].node);
}

TEST_F(Heap, RemovingANodeThatWasNeverQueuedDoesNothing) {
    record queued{.key = 1};
    record other{.key = 0};
    insert(queued);
    remove(other);
    EXPECT_EQ(heap.top, &queued.node);
    EXPECT_EQ(take_all(), (std::vector<uint32_t>{1}));
}

TEST_F(Heap, RemovingANodeTwiceDoesNothing) {
    auto records = records_with({1, 2, 3});
    for (record& subject : records) {
        insert(subject);
    }
    remove(records[2]);
    remove(records[2]);
    EXPECT_EQ(take_all(), (std::vector<uint32_t>{1, 2}));
}

TEST_F(Heap, RemovingADequeuedNodeDoesNothing) {
    auto records = records_with({1, 2});
    insert(records[0]);
    insert(records[1]);
    norv_heap_dequeue(&heap, less);
    remove(records[0]);
    EXPECT_EQ(take_all(), (std::vector<uint32_t>{2}));
}

TEST_F(Heap, RemovingTheOnlyNodeLeavesAnEmptyHeap) {
    record subject;
    insert(subject);
    remove(subject);
    EXPECT_EQ(heap.top, nullptr);
}

TEST_F(Heap, ANodeMayBeInsertedAgainWithAnotherKey) {
    auto records = records_with({1, 2});
    insert(records[0]);
    insert(records[1]);
    remove(records[0]);
    records[0].key = 3;
    insert(records[0]);
    EXPECT_EQ(take_all(), (std::vector<uint32_t>{2, 3}));
}

TEST_F(Heap, EqualKeysAllLeave) {
    auto records = records_with(std::vector<uint32_t>(many, 7));
    for (record& subject : records) {
        insert(subject);
    }
    EXPECT_EQ(take_all(), std::vector<uint32_t>(many, 7));
}

TEST_F(Heap, NodesLeaveInOrderHoweverTheyWereInserted) {
    auto rising = ascending(many);
    auto falling = rising;
    std::reverse(falling.begin(), falling.end());
    for (const auto& keys : {rising, falling, shuffled(many)}) {
        auto records = records_with(keys);
        for (record& subject : records) {
            insert(subject);
        }
        EXPECT_EQ(take_all(), rising);
    }
}

TEST_F(Heap, TheTopIsRightAfterEveryInsert) {
    auto records = records_with(shuffled(many));
    uint32_t least = records[0].key;
    for (record& subject : records) {
        insert(subject);
        least = std::min(least, subject.key);
        ASSERT_EQ(record_of(heap.top).key, least);
    }
}

TEST_F(Heap, AllNodesCanBeRemovedInTheOrderOfTheirInserts) {
    auto records = records_with(shuffled(many));
    for (record& subject : records) {
        insert(subject);
    }
    for (record& subject : records) {
        ASSERT_NE(heap.top, nullptr);
        remove(subject);
    }
    EXPECT_EQ(heap.top, nullptr);
}

TEST_F(Heap, InsertingAndRemovingANodeRepeatedlyKeepsTheOrder) {
    auto records = records_with({10, 30, 20});
    for (record& subject : records) {
        insert(subject);
    }
    record timer;
    for (uint32_t round = 0; round < many; ++round) {
        timer.key = round % 40;
        insert(timer);
        remove(timer);
    }
    EXPECT_EQ(take_all(), (std::vector<uint32_t>{10, 20, 30}));
}

TEST_F(Heap, AHeapThatBecameEmptyStillWorks) {
    auto records = records_with(shuffled(many));
    for (record& subject : records) {  // each alone, across every sorting of the recent nodes
        insert(subject);
        ASSERT_EQ(take_top(), subject.key);
        ASSERT_EQ(heap.top, nullptr);
    }
    for (record& subject : records) {
        insert(subject);
    }
    EXPECT_EQ(take_all(), ascending(many));
}

TEST_F(Heap, AHundredThousandNodesInOneChainDoNotOverrunTheStack) {
    constexpr size_t count = 100000;
    auto keys = ascending(count);
    auto records = records_with(keys);
    std::reverse(records.begin(), records.end());
    for (record& subject : records) {
        insert(subject);
    }
    EXPECT_EQ(take_all(), keys);
}

TEST_F(Heap, AContradictoryOrderLosesNoNode) {
    for (uint32_t seed = 0; seed < 200; ++seed) {
        std::mt19937 random(seed);
        std::vector<record> records(1500);
        std::vector<record*> left;
        for (record& subject : records) {
            subject.key = static_cast<uint32_t>(random());
            norv_heap_insert(&heap, &subject.node, less_by_difference);
            if (random() % 4 == 0) {
                norv_heap_dequeue(&heap, less_by_difference);
            }
        }
        for (record& subject : records) {
            if (random() % 4 == 0) {
                norv_heap_remove(&heap, &subject.node, less_by_difference);
            }
        }
        auto queued = std::count_if(records.begin(), records.end(),
                                    [](const record& subject) { return subject.node.queued != 0; });
        while (heap.top != nullptr) {
            norv_heap_dequeue(&heap, less_by_difference);
            --queued;
            ASSERT_GE(queued, 0) << "seed " << seed;
        }
        ASSERT_EQ(queued, 0) << "seed " << seed;
    }
}

// Random inserts, removals and dequeues, compared at every step with a sorted model.
class Comparison {
  public:
    Comparison(uint32_t seed, uint32_t first_key, uint32_t key_count)
        : random(seed), origin(first_key), spread(key_count), records(1000) {}

    void step() {
        record& subject = records[random() % records.size()];
        const uint32_t choice = static_cast<uint32_t>(random() % 8);
        if (choice == 0 && heap.top != nullptr) {
            dequeue();
        } else if (subject.node.queued == 0) {
            insert(subject);
        } else if (choice < 4) {
            remove(subject);
        }
        check();
    }

    void drain() {
        while (!model.empty() && !testing::Test::HasFatalFailure()) {
            dequeue();
            check();
        }
        for (const record& subject : records) {
            ASSERT_EQ(subject.node.queued, 0);
        }
    }

  private:
    // The model keeps distances from the first key, which do not wrap around.
    uint32_t distance(const record& subject) const { return subject.key - origin; }

    void insert(record& subject) {
        subject.key = origin + static_cast<uint32_t>(random() % spread);
        norv_heap_insert(&heap, &subject.node, less_by_difference);
        model.insert(distance(subject));
    }

    void remove(record& subject) {
        norv_heap_remove(&heap, &subject.node, less_by_difference);
        model.erase(model.find(distance(subject)));
        ASSERT_EQ(subject.node.queued, 0);
    }

    void dequeue() {
        const norv_heap_node_t* top = heap.top;
        norv_heap_dequeue(&heap, less_by_difference);
        model.erase(model.begin());
        ASSERT_EQ(top->queued, 0);
    }

    void check() const {
        ASSERT_EQ(heap.top == nullptr, model.empty());
        if (heap.top != nullptr) {
            ASSERT_NE(heap.top->queued, 0);
            ASSERT_EQ(distance(record_of(heap.top)), *model.begin());
        }
    }

    std::mt19937 random;
    uint32_t origin;
    uint32_t spread;
    norv_heap_t heap{};
    std::vector<record> records;
    std::multiset<uint32_t> model;
};

void compare_with_model(uint32_t first_key, uint32_t key_count) {
    for (uint32_t seed = 0; seed < 1000; ++seed) {
        SCOPED_TRACE("seed " + std::to_string(seed));
        Comparison comparison(seed, first_key, key_count);
        for (int operation = 0; operation < 1500; ++operation) {
            ASSERT_NO_FATAL_FAILURE(comparison.step());
        }
        ASSERT_NO_FATAL_FAILURE(comparison.drain());
    }
}

TEST(HeapAgainstModel, AgreesOnDifferentKeys) {
    compare_with_model(0, 0x7FFFFFFF);
}

TEST(HeapAgainstModel, AgreesOnManyEqualKeys) {
    compare_with_model(100, 4);
}

TEST(HeapAgainstModel, AgreesOnKeysThatWrapAround) {
    compare_with_model(0xFFFFFF00, 0x200);
}

}  // namespace
