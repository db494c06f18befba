// SPDX-License-Identifier: MIT
#include "support/kernel_state.hpp"

#include <algorithm>
#include <cerrno>
#include <string_view>

#include "support/thread_sanitizer.hpp"

namespace norv::test {
namespace {

std::atomic<kernel_double::state*> active = nullptr;
thread_local int outside = 0;

}  // namespace

kernel_double::state* active_kernel() {
    kernel_double::state* kernel = outside > 0 ? nullptr : active.load();
    return kernel == nullptr || is_writing_report() ? nullptr : kernel;
}

bool activate(kernel_double::state* kernel) {
    kernel_double::state* none = nullptr;
    return active.compare_exchange_strong(none, kernel);
}

void deactivate() {
    active = nullptr;
}

outside_the_double::outside_the_double() {
    ++outside;
}
outside_the_double::~outside_the_double() {
    --outside;
}

calling_out::calling_out() {
    show_synchronisation();
}
calling_out::~calling_out() {
    hide_synchronisation();
}

std::string kernel_double::state::place_of(const std::string& path) const {
    const bool ours = std::any_of(redirected.begin(), redirected.end(),
                                  [&](std::string_view prefix) { return (path + "/").starts_with(prefix); });
    return ours ? root + path : path;
}

std::string kernel_double::state::name_of(const std::string& place) const {
    return place.starts_with(root) ? place.substr(root.size()) : place;
}

const kernel_double::directory_reaction* kernel_double::state::reaction_to_directory(
    const std::string& path) const {
    const auto found = directory_reactions.find(path.substr(0, path.rfind('/')));
    return found == directory_reactions.end() ? nullptr : &found->second;
}

bool kernel_double::state::meets_fault(const call& made, fault::kind how) {
    if (!planned || planned->how != how) {
        return false;
    }
    const auto* asked = std::get_if<control>(&made.details);
    const int nth = ++made_since_planned[{made.name, made.path, asked != nullptr ? asked->request : 0}];
    if (!planned->means(made) || ++met != planned->nth) {
        return false;
    }
    struck = strike{made, nth, planned->error, how};
    return true;
}

bool kernel_double::state::strikes(const call& made) {
    if (!meets_fault(made, fault::kind::error)) {
        return false;
    }
    errno = planned->error;
    return true;
}

bool kernel_double::state::strikes_by_name(const call& made) {
    return planned && planned->call == made.name && strikes(made);
}

size_t kernel_double::state::shortened(const call& made, size_t size) {
    return size > 0 && meets_fault(made, fault::kind::short_count) ? size - 1 : size;
}

bool kernel_double::state::refuses_allocation(const char* name) {
    const std::lock_guard lock(mutex);
    const outside_the_double guard;
    return strikes(call{name});
}

void kernel_double::state::allocated(void* memory) {
    const std::lock_guard lock(mutex);
    const outside_the_double guard;
    allocations.insert(memory);
}

void kernel_double::state::opened(int descriptor, const std::string& path, std::shared_ptr<device> model) {
    if (descriptor >= 0) {
        descriptors[descriptor] = {path, std::move(model), 0};
    }
}

void kernel_double::state::note_made(const std::string& path) {
    const size_t end = path.rfind('/');
    if (end != 0 && end != std::string::npos) {
        note_made(path.substr(0, end));
    }
    making_order.emplace(path, making_order.size());
}

open_file* kernel_double::state::find(int descriptor) {
    const auto found = descriptors.find(descriptor);
    return found == descriptors.end() ? nullptr : &found->second;
}

std::string kernel_double::state::path_of(int descriptor) {
    const open_file* file = find(descriptor);
    return file != nullptr ? file->path : "";
}

}  // namespace norv::test
