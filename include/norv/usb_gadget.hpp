// SPDX-License-Identifier: MIT
/**
 * @file norv/usb_gadget.hpp
 * The state of a USB device controller, closing itself, and what can be done to a controller by its name.
 * What the functions do, and their statuses, are those of norv_usb_gadget.h; after a move `get_state` returns
 * NORV_STATUS_INVALID_ARG.
 *
 *     norv::usb_gadget gadget = norv::usb_gadget::open("20980000.usb").value();
 *     if (gadget.get_state().value() == norv::usb_gadget::state::configured) {
 *         norv::usb_gadget::disconnect("20980000.usb").value();
 *     }
 *
 * A name of 4096 characters or more is an invalid argument.
 */
#pragma once

#include <cstdint>
#include <string_view>
#include <utility>

#include "norv/descriptor.hpp"
#include "norv/result.hpp"
#include "norv/text.hpp"
#include "norv_usb_gadget.h"

namespace norv {

/** The state of a controller. */
class usb_gadget {
  public:
    enum class state : uint32_t {
        not_attached = NORV_USB_GADGET_NOT_ATTACHED,
        default_state = NORV_USB_GADGET_DEFAULT, /**< reset by the host, without an address yet */
        configured = NORV_USB_GADGET_CONFIGURED,
        other = NORV_USB_GADGET_OTHER,
        addressed = NORV_USB_GADGET_ADDRESSED
    };

    /**
     * See `norv_usb_gadget_open`.
     *
     * @retval NORV_STATUS_BAD_STATE  the file has the descriptor 0, which counts as not open (quirk 3)
     */
    static result<usb_gadget> open(std::string_view name) {
        const detail::c_string<4096> controller(name);
        int32_t descriptor = -1;
        const status opened(norv_usb_gadget_open(controller.get(), &descriptor));
        if (!opened.ok()) {
            return opened;
        }
        if (descriptor <= 0) {
            return status(NORV_STATUS_BAD_STATE);
        }
        return usb_gadget(descriptor);
    }

    /** See `norv_usb_gadget_get_state`: `state::other` also if it cannot be read (quirk 91). */
    result<state> get_state() {
        if (!state_.is_open()) {
            return status(NORV_STATUS_INVALID_ARG);
        }
        uint32_t now = NORV_USB_GADGET_OTHER;
        const status read(norv_usb_gadget_get_state(state_.get(), &now));
        return read.ok() ? result<state>(static_cast<state>(now)) : result<state>(read);
    }

    /** The descriptor, for EPOLLPRI; -1 after a move. */
    int32_t descriptor() const noexcept { return state_.get(); }

    /** Connects the board to the host. See `norv_usb_gadget_connect`. */
    static status connect(std::string_view name) { return connect(name, 1); }
    /** Disconnects the board from the host. See `norv_usb_gadget_connect`. */
    static status disconnect(std::string_view name) { return connect(name, 0); }

    /** See `norv_usb_gadget_is_host_win`: false also if it cannot be read (quirk 91). */
    static result<bool> is_host_win(std::string_view name) {
        const detail::c_string<4096> controller(name);
        uint8_t is_win = 0;
        const status read(norv_usb_gadget_is_host_win(controller.get(), &is_win));
        return read.ok() ? result<bool>(is_win != 0) : result<bool>(read);
    }

  private:
    explicit usb_gadget(int32_t descriptor) noexcept : state_(descriptor) {}

    static status connect(std::string_view name, uint32_t connected) {
        const detail::c_string<4096> controller(name);
        return status(norv_usb_gadget_connect(controller.get(), connected));
    }

    detail::owned_descriptor<norv_usb_gadget_close> state_;
};

}  // namespace norv
