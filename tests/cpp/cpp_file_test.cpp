// SPDX-License-Identifier: MIT
// Files: the owner, transfers of whole files, marker files, and the stream of a descriptor.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <string>
#include <utility>

#include "cpp/owner_sweep.hpp"
#include "norv/file.hpp"
#include "norv_base.h"
#include "support/kernel_double.hpp"
#include "support/standard_input.hpp"

namespace {

using norv::file;
using norv::test::kernel_double;
using testing::ElementsAre;
using testing::IsEmpty;
using namespace std::chrono_literals;
using namespace std::string_literals;

constexpr const char* attribute = "/sys/class/leds/red/brightness";

std::span<const std::byte> bytes_of(std::string_view text) {
    return std::as_bytes(std::span(text));
}

class CppFile : public testing::Test {
  protected:
    CppFile() { kernel.add_file(attribute, "255\n"); }

    std::string first(size_t count) const { return {reinterpret_cast<const char*>(buffer.data()), count}; }

    kernel_double kernel;
    std::array<std::byte, 16> buffer{};
};

// ---- the owner

TEST_F(CppFile, AnOpenFileIsClosedWithItsOwner) {
    {
        const norv::result<file> opened = file::open(attribute, O_RDWR | O_CLOEXEC);
        ASSERT_TRUE(opened);
        EXPECT_GE(opened->descriptor(), 0);
        EXPECT_THAT(kernel.open_flags(attribute), ElementsAre(O_RDWR | O_CLOEXEC));
    }
    EXPECT_EQ(kernel.open_descriptors(), 0U);
}

TEST_F(CppFile, AFailedOpenHasTheStatus) {
    EXPECT_EQ(file::open("/sys/none", O_RDONLY).status(), NORV_STATUS_NOT_FOUND);
}

// quirk 1
TEST_F(CppFile, AFailureThatCountsAsASuccessOpensNothing) {
    kernel.map_errno(EACCES, NORV_STATUS_OK);
    kernel.fail("open", EACCES);
    EXPECT_EQ(file::open(attribute, O_RDONLY).status(), NORV_STATUS_BAD_STATE);
}

TEST_F(CppFile, AnAdoptedDescriptorIsClosedWithItsOwner) {
    const int descriptor = open(attribute, O_RDWR | O_CLOEXEC);
    {
        file adopted = file::adopt(descriptor).value();
        EXPECT_EQ(adopted.descriptor(), descriptor);
        EXPECT_EQ(adopted.write(bytes_of("1"), 0ms).count, 1U);
        EXPECT_EQ(kernel.open_descriptors(), 1U);
    }
    EXPECT_EQ(kernel.open_descriptors(), 0U);
}

TEST_F(CppFile, DescriptorZeroCanBeAdopted) {
    const norv::test::no_standard_input guard;
    const file adopted = file::adopt(open(attribute, O_RDONLY | O_CLOEXEC)).value();
    EXPECT_EQ(adopted.descriptor(), 0);
}

TEST_F(CppFile, AdoptingTheResultOfAFailedCallReturnsItsStatus) {
    kernel.fail("open", EMFILE);
    EXPECT_EQ(file::adopt(open(attribute, O_RDONLY | O_CLOEXEC)).status(), norv_get_status_by_errno(EMFILE));
    kernel.map_errno(ENFILE, NORV_STATUS_OK);
    kernel.fail("open", ENFILE);
    EXPECT_EQ(file::adopt(open(attribute, O_RDONLY | O_CLOEXEC)).status(), NORV_STATUS_BAD_STATE);
    EXPECT_EQ(kernel.open_descriptors(), 0U);
}

TEST_F(CppFile, ReadsAndWritesHaveALimit) {
    file opened = file::open(attribute, O_RDWR | O_CLOEXEC).value();
    const norv::transferred once = opened.read(buffer, 0ms);
    EXPECT_EQ(once.status, norv::ok);
    EXPECT_EQ(first(once.count), "255\n");
    EXPECT_EQ(opened.read(buffer, 0ms).count, 0U) << "the end of the file";
    const norv::transferred late = opened.read(buffer, 1ms);
    EXPECT_EQ(late.status, NORV_STATUS_TIMEOUT);
    EXPECT_EQ(late.count, 0U);
    EXPECT_EQ(opened.write(bytes_of("a"), 0ms).count, 1U);
    EXPECT_EQ(opened.write(bytes_of("bc"), norv::no_limit).count, 2U);
    EXPECT_EQ(opened.write(bytes_of("def"), 1h).count, 3U);
    EXPECT_THAT(kernel.writes(attribute), ElementsAre("a", "bc", "def"));
}

TEST_F(CppFile, AStringIsWrittenWithItsNul) {
    file opened = file::open(attribute, O_RDWR | O_CLOEXEC).value();
    EXPECT_EQ(opened.write_string(std::string_view("100%d", 5)), norv::ok);
    EXPECT_EQ(opened.write_string({}), norv::ok);
    EXPECT_EQ(opened.write_string("no NUL inside\0"s), NORV_STATUS_INVALID_ARG);
    EXPECT_THAT(kernel.writes(attribute), ElementsAre("100%d\0"s, "\0"s));
}

TEST_F(CppFile, AFileThatWasMovedFromIsAnInvalidArgument) {
    file opened = file::open(attribute, O_RDWR | O_CLOEXEC).value();
    const file other = std::move(opened);
    kernel.forget_calls();
    EXPECT_EQ(opened.read(buffer, 0ms).status, NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(opened.read(buffer, norv::no_limit).status, NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(opened.write(buffer, 1s).status, NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(opened.write_string("1"), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(opened.descriptor(), -1);
    EXPECT_THAT(kernel.calls(), IsEmpty());
    EXPECT_GE(other.descriptor(), 0);
}

TEST_F(CppFile, MovingIntoAnOpenFileClosesIt) {
    file opened = file::open(attribute, O_RDWR | O_CLOEXEC).value();
    opened = file::open(attribute, O_RDONLY | O_CLOEXEC).value();
    EXPECT_EQ(kernel.open_descriptors(), 1U);
}

TEST_F(CppFile, APathThatIsTooLongIsRefusedNotTruncated) {
    const std::string longest(255, 'x');
    const std::string longer = longest + "y";
    EXPECT_EQ(file::open(longest, O_RDONLY).status(), NORV_STATUS_NOT_FOUND);
    kernel.forget_calls();
    EXPECT_EQ(file::open(longer, O_RDONLY).status(), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(norv::read_file(longer, buffer).status(), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(norv::write_file(longer, buffer).status(), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(norv::mark_file(longer), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(norv::unmark_file(longer), NORV_STATUS_INVALID_ARG);
    EXPECT_FALSE(norv::can_access(longer));
    EXPECT_EQ(file::open("/sys\0/x"s, O_RDONLY).status(), NORV_STATUS_INVALID_ARG);
    EXPECT_THAT(kernel.calls(), IsEmpty());
}

// ---- whole files

TEST_F(CppFile, AWholeFileIsRead) {
    EXPECT_EQ(norv::read_file(attribute, buffer).value(), 4U);
    EXPECT_EQ(first(4), "255\n");
    std::array<char, 2> text;
    EXPECT_EQ(norv::read_text(attribute, text).value(), "25");
    EXPECT_EQ(norv::read_text("/sys/none", text).status(), NORV_STATUS_NOT_FOUND);
}

TEST_F(CppFile, AWholeFileIsWritten) {
    EXPECT_EQ(norv::write_file(attribute, bytes_of("ab")).value(), 2U);
    EXPECT_EQ(norv::write_text(attribute, "7").value(), 1U);
    EXPECT_EQ(norv::write_text("/sys/none", "7").status(), NORV_STATUS_NOT_FOUND);
    EXPECT_THAT(kernel.writes(attribute), ElementsAre("ab", "7"));
}

TEST_F(CppFile, AccessIsChecked) {
    EXPECT_TRUE(norv::can_access(attribute));
    EXPECT_TRUE(norv::can_access(attribute, R_OK | W_OK));
    EXPECT_FALSE(norv::can_access("/sys/none"));
}

// quirk 10
TEST_F(CppFile, AMarkerFileHasExactlyItsName) {
    kernel.add_directory("/dev/shm");
    EXPECT_EQ(norv::mark_file("/dev/shm/100%s%%"), norv::ok);
    EXPECT_TRUE(kernel.exists("/dev/shm/100%s%%"));
    EXPECT_EQ(norv::unmark_file("/dev/shm/100%s%%"), norv::ok);
    EXPECT_FALSE(kernel.exists("/dev/shm/100%s%%"));
    EXPECT_EQ(norv::mark_file(std::string(128, '%')), NORV_STATUS_INVALID_ARG);
}

TEST(CppFileSweep, NothingLeaksThroughTheOwner) {
    norv::test::owner_sweep([](kernel_double& kernel) { kernel.add_file(attribute, "255\n"); },
                            [] {
                                norv::result<file> opened = file::open(attribute, O_RDWR | O_CLOEXEC);
                                if (!opened) {
                                    return opened.status().number();
                                }
                                std::array<std::byte, 4> buffer;
                                opened->write_string("1").ignore();
                                file moved = std::move(*opened);
                                moved.read(buffer, 1ms).status.ignore();
                                norv::read_file(attribute, buffer).status().ignore();
                                norv::write_file(attribute, buffer).status().ignore();
                                norv::mark_file(attribute).ignore();
                                return norv::unmark_file(attribute).number();
                            });
}

// ---- the stream

// Two ends of a connection; the first is the stream's.
class CppFileStream : public testing::Test {
  protected:
    CppFileStream() {
        EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0, ends), 0);
    }
    ~CppFileStream() override {
        close(ends[0]);
        close(ends[1]);
    }

    norv::task<norv::result<size_t>> read_some(std::span<std::byte> into) {
        norv::file_stream stream(ends[0]);
        co_return co_await stream.read_some(into);
    }
    bool is_unregistered() {
        norv::watch watch([](uint32_t) {});
        return watch.start(loop, ends[0], EPOLLIN).ok();
    }

    kernel_double kernel;
    norv::loop loop = norv::loop::open().value();
    int ends[2];
    std::array<std::byte, 16> buffer{};
};

TEST_F(CppFileStream, WhatIsThereIsReadAtOnce) {
    ASSERT_EQ(write(ends[1], "abc", 3), 3);
    norv::job<norv::result<size_t>> job(loop, read_some(buffer));
    ASSERT_TRUE(job.done());
    EXPECT_EQ(job.take().value(), 3U);
}

TEST_F(CppFileStream, AReaderWaitsForBytes) {
    norv::timer later([&] { EXPECT_EQ(write(ends[1], "abc", 3), 3); });
    ASSERT_EQ(later.start(loop, 0ms), norv::ok);
    EXPECT_EQ(norv::run(loop, read_some(buffer)).value(), 3U);
    EXPECT_EQ(buffer[2], std::byte{'c'});
    EXPECT_TRUE(is_unregistered());
}

TEST_F(CppFileStream, AWriterWaitsForSpace) {
    const std::vector<std::byte> much(1 << 20);
    size_t taken = 0;
    norv::watch other([&](uint32_t) {
        std::array<std::byte, 65536> part;
        const ssize_t count = read(ends[1], part.data(), part.size());
        taken += count > 0 ? static_cast<size_t>(count) : 0;
    });
    ASSERT_EQ(other.start(loop, ends[1], EPOLLIN), norv::ok);
    const norv::transferred written =
        norv::run(loop, [](int end, std::span<const std::byte> data) -> norv::task<norv::transferred> {
            norv::file_stream stream(end);
            co_return co_await stream.write_all(data);
        }(ends[0], much));
    EXPECT_EQ(written.status, norv::ok);
    EXPECT_EQ(written.count, much.size());
    EXPECT_GT(taken, 0U);
}

TEST_F(CppFileStream, ATaskThatIsStoppedReturnsTimeout) {
    norv::job<norv::result<size_t>> job(loop, read_some(buffer));
    EXPECT_FALSE(job.done());
    job.stop();
    ASSERT_TRUE(job.done());
    EXPECT_EQ(job.take().status(), NORV_STATUS_TIMEOUT);
    EXPECT_TRUE(is_unregistered());
}

TEST_F(CppFileStream, ATaskThatEndsWhileItWaitsLeavesNothing) {
    {
        norv::job<norv::result<size_t>> job(loop, read_some(buffer));
        EXPECT_FALSE(job.done());
        EXPECT_FALSE(is_unregistered());
    }
    EXPECT_TRUE(is_unregistered());
}

TEST_F(CppFileStream, TheStreamOfAFileReadsIt) {
    kernel.add_file(attribute, "255\n");
    file opened = file::open(attribute, O_RDONLY | O_CLOEXEC).value();
    const auto read = [](const file& from, std::span<std::byte> into) -> norv::task<norv::result<size_t>> {
        norv::file_stream stream(from);
        co_return co_await stream.read_some(into);
    };
    EXPECT_EQ(norv::run(loop, read(opened, buffer)).value(), 4U);
    const file other = std::move(opened);
    EXPECT_EQ(norv::run(loop, read(opened, buffer)).status(), NORV_STATUS_INVALID_ARG);
}

}  // namespace
