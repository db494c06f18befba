// SPDX-License-Identifier: MIT
// Statuses of the base library: the status of an errno, and statuses in words.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>
#include <map>
#include <string>
#include <vector>

#include "norv_base.h"

namespace {

constexpr uint32_t kernel_errno_end = 4096;

struct listed_status {
    uint32_t status;
    const char* name;
    uint32_t value;
    const char* text;
};

#define LISTED(name, value, text) {NORV_STATUS_##name, #name, value, text},
const std::vector<listed_status> listed = {NORV_STATUS_LIST(LISTED)};
#undef LISTED

TEST(Status, TheCodesNeverChange) {
    EXPECT_EQ(NORV_STATUS_OK, 0U);
    EXPECT_EQ(NORV_STATUS_TIMEOUT, 2U);
    EXPECT_EQ(NORV_STATUS_AGAIN, 3U);
    EXPECT_EQ(NORV_STATUS_INTERRUPTED, 4U);
    EXPECT_EQ(NORV_STATUS_NOT_APPLIED, 6U);
    EXPECT_EQ(NORV_STATUS_INVALID_ARG, 7U);
    EXPECT_EQ(NORV_STATUS_NO_MEMORY, 8U);
    EXPECT_EQ(NORV_STATUS_NOT_AVAILABLE, 9U);
    EXPECT_EQ(NORV_STATUS_EMPTY, 12U);
    EXPECT_EQ(NORV_STATUS_DEVICE_ERROR, 13U);
    EXPECT_EQ(NORV_STATUS_PARSE_ERROR, 14U);
    EXPECT_EQ(NORV_STATUS_NOT_FOUND, 16U);
    EXPECT_EQ(NORV_STATUS_EXHAUSTED, 29U);
    EXPECT_EQ(NORV_STATUS_RANGE, 32U);
    EXPECT_EQ(NORV_STATUS_BAD_STATE, 35U);
    EXPECT_EQ(NORV_STATUS_VERIFY_FAILED, 40U);
    EXPECT_EQ(NORV_STATUS_SHORT_READ, 49U);
    EXPECT_EQ(NORV_STATUS_WAKE_FAILED, 0xFFFFFFFFU);
    EXPECT_EQ(listed.size(), 17U);
}

TEST(Status, EveryListedStatusHasItsNameAndItsText) {
    for (const listed_status& status : listed) {
        EXPECT_STREQ(norv_status_name(status.value), status.name);
        EXPECT_STREQ(norv_status_text(status.value), status.text);
    }
}

TEST(Status, ListedStatusesDifferInNumberNameAndText) {
    std::map<uint32_t, int> values;
    std::map<std::string, int> names;
    std::map<std::string, int> texts;
    for (const listed_status& status : listed) {
        EXPECT_EQ(++values[status.value], 1) << status.name;
        EXPECT_EQ(++names[status.name], 1) << status.name;
        EXPECT_EQ(++texts[status.text], 1) << status.name;
    }
}

TEST(Status, TheFailedWakeUpHasANameAndAText) {
    EXPECT_STREQ(norv_status_name(NORV_STATUS_WAKE_FAILED), "WAKE_FAILED");
    EXPECT_STREQ(norv_status_text(NORV_STATUS_WAKE_FAILED), "the loop thread could not be woken");
}

TEST(StatusByErrno, NoErrorIsSuccess) {
    EXPECT_EQ(norv_get_status_by_errno(0), NORV_STATUS_OK);
}

TEST(StatusByErrno, TransientErrnosHaveStatusesOfTheirOwn) {
    EXPECT_EQ(norv_get_status_by_errno(EAGAIN), NORV_STATUS_AGAIN);
    EXPECT_EQ(norv_get_status_by_errno(EWOULDBLOCK), NORV_STATUS_AGAIN);
    EXPECT_EQ(norv_get_status_by_errno(EINTR), NORV_STATUS_INTERRUPTED);
}

TEST(StatusByErrno, ErrnosWithTheMeaningOfAListedStatusGiveIt) {
    EXPECT_EQ(norv_get_status_by_errno(ETIMEDOUT), NORV_STATUS_TIMEOUT);
    EXPECT_EQ(norv_get_status_by_errno(EINVAL), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(norv_get_status_by_errno(ENOMEM), NORV_STATUS_NO_MEMORY);
    EXPECT_EQ(norv_get_status_by_errno(EOPNOTSUPP), NORV_STATUS_NOT_AVAILABLE);
    EXPECT_EQ(norv_get_status_by_errno(EIO), NORV_STATUS_DEVICE_ERROR);
    EXPECT_EQ(norv_get_status_by_errno(ENOENT), NORV_STATUS_NOT_FOUND);
    EXPECT_EQ(norv_get_status_by_errno(ENOSPC), NORV_STATUS_EXHAUSTED);
    EXPECT_EQ(norv_get_status_by_errno(ERANGE), NORV_STATUS_RANGE);
    EXPECT_EQ(norv_get_status_by_errno(EBADFD), NORV_STATUS_BAD_STATE);
}

TEST(StatusByErrno, EveryOtherErrnoKeepsItsNumber) {
    EXPECT_EQ(norv_get_status_by_errno(EPERM), NORV_STATUS_ERRNO_BASE + EPERM);
    EXPECT_EQ(norv_get_status_by_errno(ENODEV), NORV_STATUS_ERRNO_BASE + ENODEV);
    EXPECT_EQ(norv_get_status_by_errno(4095), NORV_STATUS_ERRNO_BASE + 4095);
}

TEST(StatusByErrno, NoTwoErrnosShareAStatus) {
    std::map<uint32_t, uint32_t> errno_of_status;
    for (uint32_t error_number = 0; error_number < kernel_errno_end; ++error_number) {
        const auto [place, added] =
            errno_of_status.try_emplace(norv_get_status_by_errno(error_number), error_number);
        EXPECT_TRUE(added) << "errno " << error_number << " and " << place->second;
    }
}

TEST(StatusByErrno, OnlyNoErrorIsSuccess) {
    for (uint32_t error_number = 1; error_number < kernel_errno_end; ++error_number) {
        EXPECT_NE(norv_get_status_by_errno(error_number), NORV_STATUS_OK);
    }
}

TEST(StatusByErrno, ANumberThatIsNotAnErrnoGivesNoOtherStatus) {
    constexpr uint32_t wraps_to_success = 0xFFFF0000;
    constexpr uint32_t wraps_to_timeout = 0xFFFF0002;
    constexpr uint32_t would_be_wake_failed = 0xFFFEFFFF;
    for (const uint32_t number : {wraps_to_success, wraps_to_timeout, would_be_wake_failed, 0x10000U}) {
        EXPECT_EQ(norv_get_status_by_errno(number), NORV_STATUS_ERRNO_BASE + 0xFFFF);
    }
}

TEST(StatusWords, TheStatusOfAnErrnoHasTheNameAndTextOfThatErrno) {
    EXPECT_STREQ(norv_status_name(norv_get_status_by_errno(EPIPE)), "EPIPE");
    EXPECT_STREQ(norv_status_text(norv_get_status_by_errno(EPIPE)), "Broken pipe");
    EXPECT_STREQ(norv_status_name(norv_get_status_by_errno(ENODEV)), "ENODEV");
}

TEST(StatusWords, EveryKnownErrnoHasANameOfItsOwn) {
    std::map<std::string, uint32_t> errno_of_name;
    for (uint32_t error_number = 0; error_number < kernel_errno_end; ++error_number) {
        if (strerrordesc_np(static_cast<int>(error_number)) != nullptr) {
            const std::string name = norv_status_name(norv_get_status_by_errno(error_number));
            EXPECT_NE(name, "UNKNOWN") << error_number;
            EXPECT_TRUE(errno_of_name.try_emplace(name, error_number).second) << name;
        }
    }
}

TEST(StatusWords, NumbersThatAreNotStatusesAreUnknown) {
    for (const uint32_t number :
         {1U, 5U, 48U, 50U, NORV_STATUS_ERRNO_BASE - 1, NORV_STATUS_ERRNO_BASE, NORV_STATUS_ERRNO_BASE + 4095,
          2 * NORV_STATUS_ERRNO_BASE, 2 * NORV_STATUS_ERRNO_BASE + EPIPE, 0x80000000U, 0xFFFFFFFEU}) {
        EXPECT_STREQ(norv_status_name(number), "UNKNOWN") << number;
        EXPECT_STREQ(norv_status_text(number), "no such status") << number;
    }
}

TEST(StatusWords, AreNeverNull) {
    for (uint32_t number = 0; number < 3 * NORV_STATUS_ERRNO_BASE; ++number) {
        ASSERT_NE(norv_status_name(number), nullptr) << number;
        ASSERT_NE(norv_status_text(number), nullptr) << number;
    }
}

}  // namespace
