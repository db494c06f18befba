// SPDX-License-Identifier: MIT
// All contending loops besides raw. libevent comes before libev in the link: libev brings an emulation of
// libevent's functions under the same names.
#pragma once

#include "support/libev.hpp"
#include "support/libevent.hpp"
#include "support/libuv.hpp"
#include "support/loop.hpp"
#include "support/ours.hpp"
#include "support/raw.hpp"
#include "support/rows.hpp"
#include "support/sd_event.hpp"
