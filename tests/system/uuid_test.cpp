// SPDX-License-Identifier: MIT
// UUIDs: what is read from the kernel's file.
#include "norv_uuid.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <string>

#include "norv_base.h"
#include "support/failure_sweep.hpp"
#include "support/standard_input.hpp"

namespace {

using norv::test::byte_transfer_at;
using norv::test::failure_sweep;
using norv::test::kernel_double;
using norv::test::no_standard_input;
using norv::test::strike;
using testing::ElementsAre;
using testing::MatchesRegex;

constexpr const char* uuid_file = "/proc/sys/kernel/random/uuid";
constexpr const char* some_uuid = "01234567-89ab-4cde-8f01-23456789abcd";

// 40 bytes, so that a write past the UUID's 36 is seen.
struct uuid_buffer {
    std::string bytes = std::string(40, '#');

    uint32_t generate() { return norv_uuid_generate(bytes.data()); }
};

// quirk 124
TEST(Uuid, The36CharactersAreStoredWithoutATerminatingNul) {
    kernel_double kernel;
    kernel.add_file(uuid_file, std::string(some_uuid) + "\n");
    uuid_buffer uuid;
    EXPECT_EQ(uuid.generate(), NORV_STATUS_OK);
    EXPECT_EQ(uuid.bytes, std::string(some_uuid) + "####");
}

TEST(Uuid, TheKernelsFileIsOpenedForReadingAndNotInheritedByPrograms) {
    kernel_double kernel;
    kernel.add_file(uuid_file, some_uuid);
    uuid_buffer uuid;
    EXPECT_EQ(uuid.generate(), NORV_STATUS_OK);
    EXPECT_THAT(kernel.open_flags(uuid_file), ElementsAre(O_RDONLY | O_CLOEXEC));
}

TEST(Uuid, TheReadIsAtTheStartOfTheFile) {
    kernel_double kernel;
    kernel.add_file(uuid_file, some_uuid);
    uuid_buffer uuid;
    EXPECT_EQ(uuid.generate(), NORV_STATUS_OK);
    EXPECT_EQ(kernel.calls("pread").at(0).as<byte_transfer_at>().offset, 0);
}

TEST(Uuid, TheRealKernelGivesHexadecimalGroupsJoinedByHyphens) {
    uuid_buffer uuid;
    EXPECT_EQ(uuid.generate(), NORV_STATUS_OK);
    EXPECT_THAT(uuid.bytes.substr(0, 36),
                MatchesRegex("[0-9a-f]{8}-[0-9a-f]{4}-[0-9a-f]{4}-[0-9a-f]{4}-[0-9a-f]{12}"));
}

TEST(Uuid, TwoCallsGiveDifferentTexts) {
    uuid_buffer first;
    uuid_buffer second;
    EXPECT_EQ(first.generate(), NORV_STATUS_OK);
    EXPECT_EQ(second.generate(), NORV_STATUS_OK);
    EXPECT_NE(first.bytes, second.bytes);
}

TEST(Uuid, AMissingFileIsReportedAndLeavesTheBufferUnchanged) {
    const kernel_double kernel;
    uuid_buffer uuid;
    EXPECT_EQ(uuid.generate(), NORV_STATUS_NOT_FOUND);
    EXPECT_EQ(uuid.bytes, std::string(40, '#'));
}

TEST(Uuid, FewerThan36BytesAreAShortRead) {
    kernel_double kernel;
    kernel.add_file(uuid_file, std::string(some_uuid).substr(0, 35));
    uuid_buffer uuid;
    EXPECT_EQ(uuid.generate(), NORV_STATUS_SHORT_READ);
}

// quirk 124
TEST(Uuid, AFailedReadIsAShortReadToo) {
    kernel_double kernel;
    kernel.add_file(uuid_file, some_uuid);
    kernel.fail("pread", EIO);
    uuid_buffer uuid;
    EXPECT_EQ(uuid.generate(), NORV_STATUS_SHORT_READ);
}

TEST(Uuid, AFailedOpenWhoseErrnoMapsToZeroIsAShortRead) {
    kernel_double kernel;
    kernel.map_errno(ENOENT, 0);
    uuid_buffer uuid;
    EXPECT_EQ(uuid.generate(), NORV_STATUS_SHORT_READ);
}

// quirk 3
TEST(UuidWithoutStandardInput, AFileWithTheDescriptor0IsReadAndNotClosed) {
    const no_standard_input guard;
    kernel_double kernel;
    kernel.add_file(uuid_file, some_uuid);
    uuid_buffer uuid;
    EXPECT_EQ(uuid.generate(), NORV_STATUS_OK);
    EXPECT_EQ(kernel.open_descriptors(), 1U);
    close(0);
}

TEST(Uuid, ANullBufferIsAnInvalidArgument) {
    EXPECT_EQ(norv_uuid_generate(nullptr), NORV_STATUS_INVALID_ARG);
}

TEST(UuidSweep, AFailedReadIsAShortReadAndNothingLeaks) {
    norv::test::sweep_options options;
    options.expect = [](const strike& struck) {
        return struck.name == "pread" ? NORV_STATUS_SHORT_READ : norv::test::status_of_fault(struck);
    };
    failure_sweep([](kernel_double& kernel) { kernel.add_file(uuid_file, some_uuid); },
                  [] { return uuid_buffer().generate(); }, options);
}

}  // namespace
