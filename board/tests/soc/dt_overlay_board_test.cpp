// SPDX-License-Identifier: MIT
// Device-tree overlays of the board's kernel, in a real configfs.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

#include "../support/attribute.hpp"
#include "norv_base.h"
#include "norv_dt.h"

namespace {

using norv::board::attribute;

// Compiled overlays beside the test program.
const std::string axi_uart = NORV_BOARD_OVERLAYS "/axi_uart.dtbo";
const std::string root_leds = NORV_BOARD_OVERLAYS "/root_leds.dtbo";
const std::string nowhere = NORV_BOARD_OVERLAYS "/nowhere.dtbo";
const std::string labels = NORV_BOARD_OVERLAYS "/labels.dtbo";
const std::string unknown_label = NORV_BOARD_OVERLAYS "/unknown_label.dtbo";

bool exists(const std::string& name) {
    struct stat found {};
    return stat(("/sys/kernel/config/device-tree/overlays/" + name).c_str(), &found) == 0;
}

bool has(const char* name) {
    bool applied = true;
    EXPECT_EQ(norv_dt_has_overlay(name, &applied), 0U);
    return applied;
}

// The nodes that overlays have added to the board's tree.
std::string nodes() {
    return attribute("/sys/kernel/debug/norv_board_dt_overlay/nodes");
}

// Whether there is such a device, below this bus: PARENT/NAME, or NAME for any.
bool is_device(const std::string& path) {
    const std::filesystem::path link = "/sys/bus/platform/devices/" + path.substr(path.rfind('/') + 1);
    return std::filesystem::exists(link) && std::filesystem::canonical(link).string().ends_with("/" + path);
}

class OverlayOnBoard : public testing::Test {
  protected:
    ~OverlayOnBoard() override {
        norv_dt_unload_overlay("uart");
        norv_dt_unload_overlay("leds");
    }
    static std::string stored(const std::string& content) {
        std::ofstream("/tmp/overlay.dtbo", std::ios::binary) << content;
        return "/tmp/overlay.dtbo";
    }
};

TEST_F(OverlayOnBoard, LoadingAddsTheNodesAndUnloadingRemovesThem) {
    EXPECT_FALSE(has("uart"));
    EXPECT_EQ(norv_dt_load_overlay("uart", axi_uart.c_str()), 0U);
    EXPECT_TRUE(has("uart"));
    EXPECT_EQ(nodes(), "/axi/serial@a0000000");
    EXPECT_EQ(norv_dt_unload_overlay("uart"), 0U);
    EXPECT_FALSE(has("uart"));
    EXPECT_FALSE(exists("uart"));
    EXPECT_EQ(nodes(), "");
}

TEST_F(OverlayOnBoard, ANodeOnABusBecomesADeviceUntilTheOverlayIsUnloaded) {
    EXPECT_FALSE(is_device("axi/a0000000.serial"));
    EXPECT_EQ(norv_dt_load_overlay("uart", axi_uart.c_str()), 0U);
    EXPECT_EQ(norv_dt_load_overlay("leds", root_leds.c_str()), 0U);
    EXPECT_TRUE(is_device("axi/a0000000.serial"));
    EXPECT_TRUE(is_device("first-leds"));
    EXPECT_EQ(norv_dt_unload_overlay("uart"), 0U);
    EXPECT_FALSE(is_device("axi/a0000000.serial"));
    EXPECT_TRUE(is_device("first-leds"));
}

TEST_F(OverlayOnBoard, LabelsAreFoundAndADisabledNodeIsNotADevice) {
    EXPECT_EQ(norv_dt_load_overlay("uart", labels.c_str()), 0U);
    EXPECT_EQ(nodes(), "/axi/timer@a0010000\n/axi/dma@a0020000");
    EXPECT_TRUE(is_device("axi/a0010000.timer"));
    EXPECT_FALSE(is_device("axi/a0020000.dma"));
}

TEST_F(OverlayOnBoard, AnOverlayWithALabelThatTheTreeDoesNotHaveIsNotApplied) {
    EXPECT_EQ(norv_dt_load_overlay("uart", unknown_label.c_str()), NORV_STATUS_NOT_APPLIED);
    EXPECT_EQ(nodes(), "");
    EXPECT_FALSE(is_device("axi/axi:gpio-keys"));
}

TEST_F(OverlayOnBoard, TwoOverlaysAreIndependent) {
    EXPECT_EQ(norv_dt_load_overlay("uart", axi_uart.c_str()), 0U);
    EXPECT_EQ(norv_dt_load_overlay("leds", root_leds.c_str()), 0U);
    EXPECT_EQ(nodes(), "/axi/serial@a0000000\n/first-leds\n/second-leds");
    EXPECT_EQ(norv_dt_unload_overlay("uart"), 0U);
    EXPECT_EQ(nodes(), "/first-leds\n/second-leds");
    EXPECT_TRUE(has("leds"));
}

TEST_F(OverlayOnBoard, AnOverlayForAMissingNodeIsNotAppliedAndStays) {
    EXPECT_EQ(norv_dt_load_overlay("uart", nowhere.c_str()), NORV_STATUS_NOT_APPLIED);
    EXPECT_TRUE(exists("uart"));
    EXPECT_FALSE(has("uart"));
    EXPECT_EQ(nodes(), "");
    EXPECT_EQ(norv_dt_unload_overlay("uart"), 0U);
    EXPECT_EQ(norv_dt_load_overlay("uart", axi_uart.c_str()), 0U);
}

TEST_F(OverlayOnBoard, AFileThatIsNotAnOverlayIsNotApplied) {
    EXPECT_EQ(norv_dt_load_overlay("uart", stored("no device tree").c_str()), NORV_STATUS_NOT_APPLIED);
    EXPECT_FALSE(has("uart"));
}

// A write of no bytes to a binary attribute fails on Linux 6.1 and later; Linux 5.10 takes it.
TEST_F(OverlayOnBoard, AnEmptyFileIsNotAppliedWhereConfigfsTakesIt) {
    ASSERT_EQ(mkdir("/sys/kernel/config/device-tree/overlays/leds", 0777), 0);
    const int dtbo = open("/sys/kernel/config/device-tree/overlays/leds/dtbo", O_WRONLY | O_CLOEXEC);
    ASSERT_GE(dtbo, 0);
    const bool taken = write(dtbo, "", 0) == 0;
    close(dtbo);
    EXPECT_EQ(norv_dt_load_overlay("uart", stored("").c_str()),
              taken ? NORV_STATUS_NOT_APPLIED : norv_get_status_by_errno(EFAULT));
    EXPECT_FALSE(has("uart"));
}

TEST_F(OverlayOnBoard, ATruncatedOverlayIsNotApplied) {
    std::ostringstream content;
    content << std::ifstream(axi_uart, std::ios::binary).rdbuf();
    const std::string cut = content.str().substr(0, content.str().size() - 1);
    EXPECT_EQ(norv_dt_load_overlay("uart", stored(cut).c_str()), NORV_STATUS_NOT_APPLIED);
}

TEST_F(OverlayOnBoard, ANameInUseCannotBeLoadedAgainAndKeepsItsOverlay) {
    EXPECT_EQ(norv_dt_load_overlay("uart", axi_uart.c_str()), 0U);
    EXPECT_EQ(norv_dt_load_overlay("uart", root_leds.c_str()), norv_get_status_by_errno(EEXIST));
    EXPECT_TRUE(has("uart"));
    EXPECT_EQ(nodes(), "/axi/serial@a0000000");
}

TEST_F(OverlayOnBoard, AMissingFileIsNotFoundAndTheNameStaysInUse) {
    EXPECT_EQ(norv_dt_load_overlay("uart", "/tmp/missing.dtbo"), NORV_STATUS_NOT_FOUND);
    EXPECT_TRUE(exists("uart"));
    EXPECT_EQ(norv_dt_load_overlay("uart", axi_uart.c_str()), norv_get_status_by_errno(EEXIST));
    EXPECT_EQ(norv_dt_unload_overlay("uart"), 0U);
}

TEST_F(OverlayOnBoard, UnloadingWhatWasNeverLoadedIsNotFound) {
    EXPECT_EQ(norv_dt_unload_overlay("never"), NORV_STATUS_NOT_FOUND);
}

}  // namespace
