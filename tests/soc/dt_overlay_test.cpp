// SPDX-License-Identifier: MIT
// Device-tree overlays.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <memory>
#include <string>

#include "norv_dt.h"
#include "soc/dt_overlay_configfs.hpp"
#include "support/failure_sweep.hpp"
#include "support/status.hpp"

namespace {

using namespace std::string_literals;
using norv::test::byte_transfer;
using norv::test::directory_making;
using norv::test::errno_status;
using norv::test::failure_sweep;
using norv::test::fault;
using norv::test::good_overlay;
using norv::test::kernel_double;
using norv::test::overlay_configfs;
using norv::test::strike;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr const char* camera = "/sys/kernel/config/device-tree/overlays/camera";
constexpr const char* camera_dtbo = "/sys/kernel/config/device-tree/overlays/camera/dtbo";
constexpr const char* camera_status = "/sys/kernel/config/device-tree/overlays/camera/status";

class Overlay : public testing::Test {
  protected:
    uint32_t load() { return norv_dt_load_overlay("camera", overlay_configfs::file); }
    // What is reported for an overlay whose status is this text.
    bool has_with_status(const std::string& text) {
        kernel.add_file(camera_status, text);
        bool applied = !text.starts_with("applied");
        EXPECT_EQ(norv_dt_has_overlay("camera", &applied), 0U);
        return applied;
    }
    // The result of loading an overlay whose status is this text afterwards.
    uint32_t load_with_status(const std::string& text) {
        configfs.applied_text = text;
        const uint32_t status = load();
        EXPECT_EQ(norv_dt_unload_overlay("camera"), 0U);
        return status;
    }

    kernel_double kernel;
    overlay_configfs configfs{kernel};
};

// ---- loading

TEST_F(Overlay, LoadingCreatesTheDirectoryAndWritesTheWholeFile) {
    EXPECT_EQ(load(), 0U);
    EXPECT_TRUE(kernel.exists(camera));
    EXPECT_THAT(kernel.writes(camera_dtbo), ElementsAre(good_overlay));
}

TEST_F(Overlay, TheDirectoryIsCreatedForAllUsers) {
    EXPECT_EQ(load(), 0U);
    ASSERT_EQ(kernel.calls("mkdir").size(), 1U);
    EXPECT_EQ(kernel.calls("mkdir").front().path, camera);
    EXPECT_EQ(kernel.calls("mkdir").front().as<directory_making>().mode, 0777U);
}

TEST_F(Overlay, FilesAreOpenedWithCloseOnExec) {
    EXPECT_EQ(load(), 0U);
    EXPECT_THAT(kernel.open_flags(overlay_configfs::file), ElementsAre(O_RDONLY | O_CLOEXEC));
    EXPECT_THAT(kernel.open_flags(camera_dtbo), ElementsAre(O_WRONLY | O_CLOEXEC));
    EXPECT_THAT(kernel.open_flags(camera_status), ElementsAre(O_RDONLY | O_CLOEXEC));
}

TEST_F(Overlay, TheFileIsReadInOneCallAndClosedBeforeItIsWritten) {
    EXPECT_EQ(load(), 0U);
    std::vector<std::string> made;
    for (const auto& call : kernel.calls()) {
        made.push_back(call.name + " " + call.path);
    }
    EXPECT_THAT(made,
                ElementsAre("mkdir "s + camera, "open /lib/firmware/camera.dtbo",
                            "read /lib/firmware/camera.dtbo", "close /lib/firmware/camera.dtbo",
                            "open "s + camera_dtbo, "write "s + camera_dtbo, "close "s + camera_dtbo,
                            "open "s + camera_status, "read "s + camera_status, "close "s + camera_status));
}

TEST_F(Overlay, ALargeFileIsWrittenWhole) {
    std::string large(300000, 'x');
    large.replace(0, 4, "\xd0\x0d\xfe\xed");
    kernel.add_file(overlay_configfs::file, large);
    EXPECT_EQ(load(), 0U);
    EXPECT_THAT(kernel.writes(camera_dtbo), ElementsAre(large));
}

TEST_F(Overlay, OnlyTheBytesReadFromAShortFileAreWritten) {
    kernel.fail({.call = "read", .how = fault::kind::short_count});
    EXPECT_EQ(load(), 0U);
    EXPECT_THAT(kernel.writes(camera_dtbo), ElementsAre(good_overlay.substr(0, good_overlay.size() - 1)));
}

TEST_F(Overlay, AnEmptyFileIsWrittenAndNotApplied) {
    kernel.add_file(overlay_configfs::file, "");
    EXPECT_EQ(load(), NORV_STATUS_NOT_APPLIED);
    EXPECT_THAT(kernel.writes(camera_dtbo), ElementsAre(""));
}

// quirk 72
TEST_F(Overlay, AFileThatTheKernelDoesNotApplyLeavesTheDirectory) {
    kernel.add_file(overlay_configfs::file, "no device tree");
    EXPECT_EQ(load(), NORV_STATUS_NOT_APPLIED);
    EXPECT_TRUE(kernel.exists(camera));
    EXPECT_EQ(kernel.content(camera_status), "unapplied\n");
}

TEST_F(Overlay, OnlyTheWholeWordAppliedCounts) {
    EXPECT_EQ(load_with_status("applied\n"), 0U);
    for (const char* text : {"applied2\n", "unapplied\n", "Applied\n", "applied \n", "\n"}) {
        EXPECT_EQ(load_with_status(text), NORV_STATUS_NOT_APPLIED) << text;
    }
}

// quirk 73
TEST_F(Overlay, LoadingANameThatIsInUseFailsAndWritesNothing) {
    EXPECT_EQ(load(), 0U);
    kernel.forget_calls();
    EXPECT_EQ(load(), errno_status(EEXIST));
    EXPECT_THAT(kernel.calls("open"), IsEmpty());
    EXPECT_THAT(kernel.calls("write"), IsEmpty());
}

// quirk 73
TEST_F(Overlay, ANameInUseWithStatusZeroIsWrittenAgain) {
    EXPECT_EQ(load(), 0U);
    kernel.map_errno(EEXIST, 0);
    EXPECT_EQ(load(), 0U);
    EXPECT_EQ(kernel.writes(camera_dtbo).size(), 2U);
}

TEST_F(Overlay, AKernelWithoutOverlaysReturnsTheStatusOfMkdir) {
    kernel.remove("/sys/kernel/config");
    EXPECT_EQ(load(), NORV_STATUS_NOT_FOUND);
}

// quirk 72
TEST_F(Overlay, AMissingFileReturnsTheErrnoStatusAndLeavesTheDirectory) {
    EXPECT_EQ(norv_dt_load_overlay("camera", "/lib/firmware/missing.dtbo"), NORV_STATUS_NOT_FOUND);
    EXPECT_TRUE(kernel.exists(camera));
    EXPECT_THAT(kernel.calls("write"), IsEmpty());
}

TEST_F(Overlay, AFileWhoseSizeIsUnknownReturnsTheErrnoStatus) {
    kernel.fail("fstat", EOVERFLOW);
    EXPECT_EQ(load(), errno_status(EOVERFLOW));
    EXPECT_EQ(kernel.open_descriptors(), 0U);
    EXPECT_TRUE(kernel.exists(camera));
}

TEST_F(Overlay, WithoutMemoryForTheFileNothingIsWritten) {
    kernel.fail("norv_malloc", 0);
    EXPECT_EQ(load(), NORV_STATUS_NO_MEMORY);
    EXPECT_EQ(kernel.open_descriptors(), 0U);
    EXPECT_THAT(kernel.calls("write"), IsEmpty());
    EXPECT_TRUE(kernel.exists(camera));
}

TEST_F(Overlay, AFileThatCannotBeReadReturnsTheErrnoStatus) {
    kernel.fail("read", EIO);
    EXPECT_EQ(load(), errno_status(EIO));
    EXPECT_THAT(kernel.calls("write"), IsEmpty());
    EXPECT_TRUE(kernel.exists(camera));
}

TEST_F(Overlay, AFailedReadWithStatusZeroWritesNothing) {
    kernel.map_errno(EIO, 0);
    kernel.fail("read", EIO);
    EXPECT_EQ(load(), NORV_STATUS_NOT_APPLIED);
    EXPECT_THAT(kernel.writes(camera_dtbo), ElementsAre(""));
}

TEST_F(Overlay, ARefusedWriteReturnsTheErrnoStatusAndLeavesTheDirectory) {
    kernel.on_make_directory(overlay_configfs::overlays, [this](const std::string& path) {
        configfs.make_overlay(path);
        kernel.on_write(path + "/dtbo", [](std::string_view) { return EPERM; });
    });
    EXPECT_EQ(load(), errno_status(EPERM));
    EXPECT_TRUE(kernel.exists(camera));
    EXPECT_THAT(kernel.open_flags(camera_status), IsEmpty());
}

TEST_F(Overlay, AnUnreadableStatusReturnsTheErrnoStatusAndLeavesTheDirectory) {
    kernel.fail({.call = "read", .path = camera_status, .error = EIO});
    EXPECT_EQ(load(), errno_status(EIO));
    EXPECT_TRUE(kernel.exists(camera));
}

TEST_F(Overlay, AnUnreadableStatusWithStatusZeroIsNotApplied) {
    kernel.map_errno(EIO, 0);
    kernel.fail({.call = "read", .path = camera_status, .error = EIO});
    EXPECT_EQ(load(), NORV_STATUS_NOT_APPLIED);
}

TEST_F(Overlay, AShortWriteOfTheFileIsNotChecked) {
    kernel.fail({.call = "write", .how = fault::kind::short_count});
    EXPECT_EQ(load(), 0U);
}

// ---- names and paths

TEST_F(Overlay, ANameThatCannotBeFormattedIsAnInvalidArgument) {
    kernel.fail("vsnprintf", EOVERFLOW);
    EXPECT_EQ(load(), NORV_STATUS_INVALID_ARG);
    kernel.fail("vsnprintf", EOVERFLOW);
    EXPECT_EQ(norv_dt_unload_overlay("camera"), NORV_STATUS_INVALID_ARG);
    EXPECT_THAT(kernel.calls(), IsEmpty());
}

TEST_F(Overlay, NamesAndPathsAreNotFormats) {
    kernel.add_file("/lib/firmware/100%d.dtbo", good_overlay);
    EXPECT_EQ(norv_dt_load_overlay("50%s", "/lib/firmware/100%d.dtbo"), 0U);
    bool applied = false;
    EXPECT_EQ(norv_dt_has_overlay("50%s", &applied), 0U);
    EXPECT_TRUE(applied);
    EXPECT_EQ(norv_dt_unload_overlay("50%s"), 0U);
}

TEST_F(Overlay, ANameOf208CharactersIsTheLongestThatWorks) {
    EXPECT_EQ(norv_dt_load_overlay(std::string(208, 'n').c_str(), overlay_configfs::file), 0U);
    EXPECT_EQ(norv_dt_load_overlay(std::string(209, 'n').c_str(), overlay_configfs::file),
              NORV_STATUS_NOT_FOUND);
}

// quirk 6
TEST_F(Overlay, TheDirectoryOfALongNameIsTruncatedSilently) {
    const std::string made = overlay_configfs::overlays + "/"s + std::string(215, 'n');
    EXPECT_EQ(norv_dt_load_overlay(std::string(230, 'n').c_str(), overlay_configfs::file),
              errno_status(EISDIR));
    EXPECT_TRUE(kernel.exists(made));
    EXPECT_EQ(norv_dt_unload_overlay(std::string(230, 'n').c_str()), 0U);
    EXPECT_FALSE(kernel.exists(made));
}

TEST_F(Overlay, APathMayBeLongerThan255Characters) {
    const std::string path = "/lib/firmware/" + std::string(150, 'a') + "/" + std::string(150, 'b');
    kernel.add_file(path, good_overlay);
    EXPECT_EQ(norv_dt_load_overlay("camera", path.c_str()), 0U);
}

TEST_F(Overlay, ANameWithDotsLeadsToADirectoryElsewhere) {
    const std::string elsewhere = "/sys/kernel/config/elsewhere";
    EXPECT_EQ(norv_dt_load_overlay("../../elsewhere", overlay_configfs::file), errno_status(ENOENT));
    EXPECT_TRUE(kernel.exists(elsewhere));
    EXPECT_EQ(norv_dt_unload_overlay("../../elsewhere"), 0U);
    EXPECT_FALSE(kernel.exists(elsewhere));
}

// ---- asking

TEST_F(Overlay, AnAppliedOverlayIsReported) {
    EXPECT_EQ(load(), 0U);
    bool applied = false;
    EXPECT_EQ(norv_dt_has_overlay("camera", &applied), 0U);
    EXPECT_TRUE(applied);
}

TEST_F(Overlay, OnlyTheWholeWordAppliedIsReported) {
    EXPECT_TRUE(has_with_status("applied\n"));
    for (const char* text : {"applied2\n", "unapplied\n", "Applied\n", "applied \n", "\n", ""}) {
        EXPECT_FALSE(has_with_status(text)) << text;
    }
}

// quirk 5
TEST_F(Overlay, TheLastByteOfAStatusIsDroppedWhateverItIs) {
    EXPECT_FALSE(has_with_status("applied"));
    EXPECT_TRUE(has_with_status("applied!"));
}

TEST_F(Overlay, AStatusIsReadUpTo255Bytes) {
    kernel.add_file(camera_status, std::string(300, 'x'));
    bool applied = true;
    EXPECT_EQ(norv_dt_has_overlay("camera", &applied), 0U);
    EXPECT_FALSE(applied);
    EXPECT_EQ(kernel.calls("read").front().as<byte_transfer>().bytes.size(), 255U);
}

TEST_F(Overlay, AMissingOverlayIsNotAppliedAndNotAFailure) {
    bool applied = true;
    EXPECT_EQ(norv_dt_has_overlay("nothing", &applied), 0U);
    EXPECT_FALSE(applied);
}

// quirk 74
TEST_F(Overlay, AnUnreadableStatusIsNotAppliedAndNotAFailure) {
    EXPECT_EQ(load(), 0U);
    for (const int error : {EIO, EINTR, EACCES}) {
        kernel.fail("read", error);
        bool applied = true;
        EXPECT_EQ(norv_dt_has_overlay("camera", &applied), 0U);
        EXPECT_FALSE(applied);
    }
}

// ---- unloading

TEST_F(Overlay, UnloadingRemovesTheDirectory) {
    EXPECT_EQ(load(), 0U);
    EXPECT_EQ(norv_dt_unload_overlay("camera"), 0U);
    EXPECT_FALSE(kernel.exists(camera));
    EXPECT_EQ(load(), 0U);
}

TEST_F(Overlay, UnloadingCleansUpAfterAFailedLoad) {
    norv_dt_load_overlay("camera", "/lib/firmware/missing.dtbo");
    EXPECT_EQ(norv_dt_unload_overlay("camera"), 0U);
    EXPECT_FALSE(kernel.exists(camera));
}

TEST_F(Overlay, UnloadingANameThatDoesNotExistReturnsTheErrnoStatus) {
    EXPECT_EQ(norv_dt_unload_overlay("nothing"), NORV_STATUS_NOT_FOUND);
}

TEST_F(Overlay, ANullPointerIsAnInvalidArgument) {
    bool applied = true;
    EXPECT_EQ(norv_dt_load_overlay(nullptr, overlay_configfs::file), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(norv_dt_load_overlay("camera", nullptr), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(norv_dt_has_overlay(nullptr, &applied), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(norv_dt_has_overlay("camera", nullptr), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(norv_dt_unload_overlay(nullptr), NORV_STATUS_INVALID_ARG);
    EXPECT_THAT(kernel.calls(), IsEmpty());
}

// ---- failure sweep

class OverlaySweep : public testing::Test {
  protected:
    // The board of one run; built again for each.
    void build(kernel_double& kernel) { configfs = std::make_unique<overlay_configfs>(kernel); }

    std::unique_ptr<overlay_configfs> configfs;
};

TEST_F(OverlaySweep, EveryFailureOfLoadingIsReportedAndLeavesNothingOpen) {
    failure_sweep([this](kernel_double& kernel) { build(kernel); },
                  [] { return norv_dt_load_overlay("camera", overlay_configfs::file); });
}

TEST_F(OverlaySweep, EveryFailureOfUnloadingIsReported) {
    failure_sweep(
        [this](kernel_double& kernel) {
            build(kernel);
            EXPECT_EQ(norv_dt_load_overlay("camera", overlay_configfs::file), 0U);
        },
        [] { return norv_dt_unload_overlay("camera"); });
}

TEST_F(OverlaySweep, NoFailureOfReadingTheStatusIsReported) {
    norv::test::sweep_options options;
    options.expect = [](const strike&) { return uint32_t{0}; };
    failure_sweep([this](kernel_double& kernel) { build(kernel); },
                  [] {
                      bool applied = true;
                      return norv_dt_has_overlay("camera", &applied);
                  },
                  options);
}

}  // namespace
