// SPDX-License-Identifier: MIT
#include "support/kernel_double.hpp"

#include <gtest/gtest.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "support/kernel_state.hpp"

namespace norv::test {
namespace {

namespace fs = std::filesystem;

}  // namespace

kernel_double::kernel_double() : state_(std::make_unique<state>()) {
    locate_tested_library();
    std::string pattern = fs::temp_directory_path() / "norv-board-XXXXXX";
    state_->root = mkdtemp(pattern.data());
    for (const std::string_view prefix : redirected) {
        add_directory(std::string(prefix));
    }
    if (!activate(state_.get())) {
        ADD_FAILURE() << "only one kernel double at a time";
    }
}

kernel_double::~kernel_double() {
    deactivate();
    EXPECT_EQ(open_descriptors(), state_->accepted_descriptors) << "descriptors left open";
    for (const auto& [descriptor, file] : state_->descriptors) {
        if (state_->accepted_descriptors == 0) {
            ADD_FAILURE() << "descriptor " << descriptor << " of " << file.path << " was left open";
        }
        ::close(descriptor);
    }
    EXPECT_EQ(mappings(), 0U) << "mappings left behind";
    EXPECT_EQ(allocations(), state_->accepted_allocations) << "memory left allocated";
    for (void* memory : state_->allocations) {
        free(memory);
    }
    fs::remove_all(state_->root);
}

void kernel_double::add_directory(const std::string& path) {
    const std::lock_guard lock(state_->mutex);
    const outside_the_double guard;
    state_->note_made(path);
    fs::create_directories(state_->place_of(path));
}

void kernel_double::add_file(const std::string& path, std::string_view content) {
    const std::lock_guard lock(state_->mutex);
    const outside_the_double guard;
    state_->note_made(path);
    const fs::path place = state_->place_of(path);
    fs::create_directories(place.parent_path());
    std::ofstream(place, std::ios::binary) << content;
}

void kernel_double::add_link(const std::string& path, const std::string& target) {
    const std::lock_guard lock(state_->mutex);
    const outside_the_double guard;
    state_->note_made(path);
    const fs::path place = state_->place_of(path);
    fs::create_directories(place.parent_path());
    fs::create_symlink(state_->place_of(target), place);
}

void kernel_double::add_device(const std::string& path, std::shared_ptr<device> model) {
    add_file(path);
    const std::lock_guard lock(state_->mutex);
    state_->models[path] = std::move(model);
}

void kernel_double::remove(const std::string& path) {
    const std::lock_guard lock(state_->mutex);
    const outside_the_double guard;
    fs::remove_all(state_->place_of(path));
    state_->models.erase(path);
}

int kernel_double::hand_out(const std::string& path, std::shared_ptr<device> model) {
    const std::lock_guard lock(state_->mutex);
    const outside_the_double guard;
    const int descriptor = eventfd(0, EFD_CLOEXEC);
    state_->opened(descriptor, path, std::move(model));
    return descriptor;
}

void kernel_double::on_write(const std::string& path, write_reaction reaction) {
    const std::lock_guard lock(state_->mutex);
    state_->reactions[path] = std::move(reaction);
}

void kernel_double::add_socket_family(int family, socket_factory create) {
    const std::lock_guard lock(state_->mutex);
    state_->socket_families[family] = std::move(create);
}

void kernel_double::on_make_directory(const std::string& parent, directory_reaction reaction) {
    add_directory(parent);
    const std::lock_guard lock(state_->mutex);
    state_->directory_reactions[parent] = std::move(reaction);
}

void kernel_double::on_lock(lock_reaction reaction) {
    const std::lock_guard lock(state_->mutex);
    state_->on_lock = std::move(reaction);
}

std::string kernel_double::content(const std::string& path) const {
    const outside_the_double guard;
    std::ostringstream content;
    content << std::ifstream(state_->place_of(path), std::ios::binary).rdbuf();
    return content.str();
}

bool kernel_double::exists(const std::string& path) const {
    const outside_the_double guard;
    return fs::exists(fs::symlink_status(state_->place_of(path)));
}

const std::vector<call>& kernel_double::calls() const {
    return state_->calls;
}

std::vector<call> kernel_double::calls(std::string_view name) const {
    const std::lock_guard lock(state_->mutex);
    std::vector<call> found;
    std::copy_if(state_->calls.begin(), state_->calls.end(), std::back_inserter(found),
                 [&](const call& made) { return made.name == name; });
    return found;
}

std::vector<std::string> kernel_double::writes(const std::string& path) const {
    const std::lock_guard lock(state_->mutex);
    std::vector<std::string> found;
    for (const call& made : state_->calls) {
        if (made.name == "write" && made.path == path) {
            found.push_back(made.as<byte_transfer>().bytes);
        }
    }
    return found;
}

std::vector<int> kernel_double::open_flags(const std::string& path) const {
    const std::lock_guard lock(state_->mutex);
    std::vector<int> found;
    for (const call& made : state_->calls) {
        if (made.name == "open" && made.path == path) {
            found.push_back(made.as<opening>().flags);
        }
    }
    return found;
}

void kernel_double::forget_calls() {
    const std::lock_guard lock(state_->mutex);
    state_->calls.clear();
}

void kernel_double::fail(const fault& planned) {
    const std::lock_guard lock(state_->mutex);
    state_->planned = planned;
    state_->met = 0;
    state_->made_since_planned.clear();
    state_->struck.reset();
}

void kernel_double::fail_nothing() {
    const std::lock_guard lock(state_->mutex);
    state_->planned.reset();
}

std::optional<strike> kernel_double::struck() const {
    const std::lock_guard lock(state_->mutex);
    return state_->struck;
}

void kernel_double::answer(const std::string& name, long result) {
    const std::lock_guard lock(state_->mutex);
    state_->answers[name] = result;
}

void kernel_double::set_clock(time_t seconds, long nanoseconds) {
    const std::lock_guard lock(state_->mutex);
    state_->clock = timespec{seconds, nanoseconds};
}

void kernel_double::set_uptime(long seconds) {
    const std::lock_guard lock(state_->mutex);
    state_->uptime = seconds;
}

void kernel_double::map_errno(int error, uint32_t status) {
    const std::lock_guard lock(state_->mutex);
    state_->errno_statuses[error] = status;
}

size_t kernel_double::open_descriptors() const {
    const std::lock_guard lock(state_->mutex);
    return state_->descriptors.size();
}
size_t kernel_double::mappings() const {
    const std::lock_guard lock(state_->mutex);
    return state_->mappings.size();
}
size_t kernel_double::allocations() const {
    const std::lock_guard lock(state_->mutex);
    return state_->allocations.size();
}

void kernel_double::accept_leaked_descriptors(size_t count) {
    state_->accepted_descriptors = count;
}
void kernel_double::accept_leaked_allocations(size_t count) {
    state_->accepted_allocations = count;
}

}  // namespace norv::test
