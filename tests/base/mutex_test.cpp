// SPDX-License-Identifier: MIT
// The mutex in its owner's record.
#include <gtest/gtest.h>

#include <cerrno>
#include <thread>
#include <vector>

#include "norv_base.h"

namespace {

TEST(Mutex, EveryCallSucceedsInOrdinaryUse) {
    norv_mutex_t mutex;
    EXPECT_EQ(norv_mutex_init(&mutex), NORV_STATUS_OK);
    EXPECT_EQ(norv_mutex_lock(&mutex), NORV_STATUS_OK);
    EXPECT_EQ(norv_mutex_unlock(&mutex), NORV_STATUS_OK);
    EXPECT_EQ(norv_mutex_destroy(&mutex), NORV_STATUS_OK);
}

TEST(Mutex, LetsOneThreadInAtATime) {
    norv_mutex_t mutex;
    ASSERT_EQ(norv_mutex_init(&mutex), NORV_STATUS_OK);
    int counter = 0;  // deliberately not atomic
    std::vector<std::thread> threads;
    for (int thread = 0; thread < 4; ++thread) {
        threads.emplace_back([&] {
            for (int round = 0; round < 10000; ++round) {
                norv_mutex_lock(&mutex);
                ++counter;
                norv_mutex_unlock(&mutex);
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(counter, 40000);
    norv_mutex_destroy(&mutex);
}

TEST(Mutex, AFailedLockGivesItsErrnoStatus) {
    norv_mutex_t mutex;
    pthread_mutexattr_t attributes;
    pthread_mutexattr_init(&attributes);
    pthread_mutexattr_settype(&attributes, PTHREAD_MUTEX_ERRORCHECK);
    ASSERT_EQ(pthread_mutex_init(&mutex.mutex, &attributes), 0);
    ASSERT_EQ(norv_mutex_lock(&mutex), NORV_STATUS_OK);

    const uint32_t status = norv_mutex_lock(&mutex);

    EXPECT_EQ(status, norv_get_status_by_errno(EDEADLK));
    norv_mutex_unlock(&mutex);
    norv_mutex_destroy(&mutex);
    pthread_mutexattr_destroy(&attributes);
}

}  // namespace
