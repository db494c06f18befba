// SPDX-License-Identifier: MIT
// A camera at a USB port that the kernel simulates: its gadget side, which a program has to implement. It
// answers the requests that the host makes before it accepts the camera; it never sends a picture.
#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/usb/g_uvc.h>
#include <linux/usb/video.h>
#include <linux/videodev2.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <atomic>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>

namespace norv::board {

// The camera is plugged in while the object exists. Needs usb_f_uvc and norv_board_usb_gadget.
class uvc_camera {
  public:
    uvc_camera() {
        describe();
        put("UDC", "dummy_udc.0");
        node_ = open(gadget_node().c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC);
        EXPECT_GE(node_, 0);
        // The port is powered with the first subscription.
        subscribe(UVC_EVENT_DATA);
        subscribe(UVC_EVENT_SETUP);
        answering_ = std::thread([this] { answer(); });
    }
    ~uvc_camera() {
        stop_ = true;
        answering_.join();
        // Before the unbinding, which waits for it.
        close(node_);
        put("UDC", "\n");
        remove_description();
    }
    uvc_camera(const uvc_camera&) = delete;
    uvc_camera& operator=(const uvc_camera&) = delete;

    static constexpr const char* product_name = "Board Camera";

  private:
    static constexpr const char* gadget = "/sys/kernel/config/usb_gadget/camera/";
    static constexpr const char* control = "functions/uvc.0/control/";
    static constexpr const char* streaming = "functions/uvc.0/streaming/";

    static std::string at(const std::string& path) { return gadget + path; }

    static void put(const std::string& path, const std::string& value) {
        std::ofstream file(at(path));
        file << value << std::flush;
        EXPECT_TRUE(file) << path << " " << value;
    }
    static void make(const std::string& path) { std::filesystem::create_directories(at(path)); }
    static void link(const std::string& target, const std::string& path) {
        std::filesystem::create_directory_symlink(at(target), at(path));
    }

    static void describe() {
        make("strings/0x409");
        put("idVendor", "0x1d6b");
        put("idProduct", "0x0102");
        put("strings/0x409/product", product_name);
        make("configs/c.1");
        make(std::string(control) + "header/h");
        link(std::string(control) + "header/h", std::string(control) + "class/fs/h");
        link(std::string(control) + "header/h", std::string(control) + "class/ss/h");
        const std::string format = std::string(streaming) + "uncompressed/u";
        const std::string frame = format + "/small";
        make(frame);
        put(frame + "/wWidth", "160");
        put(frame + "/wHeight", "120");
        put(frame + "/dwMaxVideoFrameBufferSize", "38400");
        put(frame + "/dwDefaultFrameInterval", "333333");
        put(frame + "/dwFrameInterval", "333333\n");
        const std::string header = std::string(streaming) + "header/h";
        make(header);
        link(format, header + "/u");
        link(header, std::string(streaming) + "class/fs/h");
        link(header, std::string(streaming) + "class/hs/h");
        // Some kernels refuse a camera that is not described for all speeds.
        link(header, std::string(streaming) + "class/ss/h");
        link("functions/uvc.0", "configs/c.1/uvc.0");
    }

    static void remove_description() {
        const std::string format = std::string(streaming) + "uncompressed/u";
        const std::string header = std::string(streaming) + "header/h";
        for (const std::string& path :
             {std::string("configs/c.1/uvc.0"), std::string(streaming) + "class/ss/h",
              std::string(streaming) + "class/hs/h", std::string(streaming) + "class/fs/h", header + "/u",
              header, format + "/small", format, std::string(control) + "class/ss/h",
              std::string(control) + "class/fs/h", std::string(control) + "header/h",
              std::string("functions/uvc.0"), std::string("configs/c.1"), std::string("strings/0x409"),
              std::string("")}) {
            EXPECT_TRUE(std::filesystem::remove(at(path))) << path;
        }
    }

    // The node of the gadget side, among those of the host side and of other drivers.
    static std::string gadget_node() {
        for (const auto& entry : std::filesystem::directory_iterator("/sys/class/video4linux")) {
            if (std::filesystem::canonical(entry.path()).string().find("dummy_udc") != std::string::npos) {
                return "/dev/" + entry.path().filename().string();
            }
        }
        return "no node";
    }

    void subscribe(uint32_t type) const {
        v4l2_event_subscription subscription = {};
        subscription.type = type;
        EXPECT_EQ(ioctl(node_, VIDIOC_SUBSCRIBE_EVENT, &subscription), 0);
    }

    void answer() const {
        pollfd request = {node_, POLLPRI, 0};
        while (!stop_) {
            v4l2_event event = {};
            if (poll(&request, 1, 50) == 1 && ioctl(node_, VIDIOC_DQEVENT, &event) == 0 &&
                event.type == UVC_EVENT_SETUP) {
                uvc_event content;
                memcpy(&content, &event.u, sizeof content);
                answer(content.req);
            }
        }
    }

    void answer(const usb_ctrlrequest& request) const {
        uvc_request_data data = {};
        const bool of_probe = (request.wValue >> 8) == UVC_VS_PROBE_CONTROL && (request.wIndex & 0xFF) == 1;
        if (!of_probe) {
            data.length = -1;  // no such control
        } else if ((request.bRequestType & USB_DIR_IN) == 0) {
            data.length = request.wLength;  // takes what the host sets, and forgets it
        } else if (request.bRequest == UVC_GET_INFO) {
            data.length = 1;
            data.data[0] = UVC_CONTROL_CAP_GET | UVC_CONTROL_CAP_SET;
        } else {
            uvc_streaming_control settings = {};
            settings.bFormatIndex = 1;
            settings.bFrameIndex = 1;
            settings.dwFrameInterval = 333'333;
            settings.dwMaxVideoFrameSize = 38'400;
            settings.dwMaxPayloadTransferSize = 1024;
            data.length = std::min<int>(request.wLength, sizeof settings);
            memcpy(data.data, &settings, sizeof settings);
        }
        ioctl(node_, UVCIOC_SEND_RESPONSE, &data);
    }

    int node_ = -1;
    std::atomic<bool> stop_ = false;
    std::thread answering_;
};

}  // namespace norv::board
