// SPDX-License-Identifier: MIT
// The kernel double's inside: what the interposed calls share with it.
#pragma once

#include <dirent.h>

#include <array>
#include <atomic>
#include <ctime>
#include <map>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <tuple>
#include <vector>

#include "support/hidden_mutex.hpp"
#include "support/kernel_double.hpp"

namespace norv::test {

// What is below these is the board's.
constexpr std::array<std::string_view, 4> redirected = {"/sys/", "/proc/", "/dev/", "/lib/firmware/"};

struct open_file {
    std::string path;
    std::shared_ptr<device> model;  // null: a file of the scratch tree, or a descriptor of the real kernel
    off_t offset = 0;
};

// What an open directory of the scratch tree lists, entry by entry.
struct listing {
    std::vector<dirent> entries;
    size_t next = 0;
};

struct kernel_double::state {
    mutable hidden_mutex mutex;
    std::string root;
    std::map<std::string, std::shared_ptr<device>> models;
    std::map<std::string, write_reaction> reactions;
    std::map<int, socket_factory> socket_families;
    std::map<std::string, directory_reaction> directory_reactions;  // by the parent's path
    lock_reaction on_lock = [](bool) {};
    std::map<int, open_file> descriptors;
    std::map<std::string, size_t> making_order;  // the paths that the test made, numbered in that order
    std::map<DIR*, listing> listings;
    std::map<void*, size_t> mappings;
    std::set<void*> allocations;
    std::map<int, uint32_t> errno_statuses;
    std::map<std::string, long> answers;
    std::optional<timespec> clock;
    std::optional<long> uptime;
    std::vector<call> calls;
    std::optional<fault> planned;
    int met = 0;  // calls that the planned fault means
    std::map<std::tuple<std::string, std::string, unsigned long>, int> made_since_planned;
    std::optional<strike> struck;
    size_t accepted_descriptors = 0;
    size_t accepted_allocations = 0;

    // Where a path of the board is in the scratch tree; other paths are returned unchanged.
    std::string place_of(const std::string& path) const;
    // The reverse, for what the real kernel reports.
    std::string name_of(const std::string& place) const;
    // What fills the directory when it is made, null when nothing does.
    const directory_reaction* reaction_to_directory(const std::string& path) const;
    // Whether the planned fault strikes this call; errno is then set.
    bool strikes(const call& made);
    // The same for a call that fails only for a test that names it.
    bool strikes_by_name(const call& made);
    // The size of this read or write, one byte less when the planned fault is a short count that strikes it.
    size_t shortened(const call& made, size_t size);
    bool meets_fault(const call& made, fault::kind how);
    // Remembers when a path and the directories above it were made.
    void note_made(const std::string& path);
    // Whether the allocation fails, and that it was made.
    bool refuses_allocation(const char* name);
    void allocated(void* memory);
    void record(call made) { calls.push_back(std::move(made)); }
    void opened(int descriptor, const std::string& path, std::shared_ptr<device> model = nullptr);
    open_file* find(int descriptor);
    // The path of an open descriptor, empty when the double does not know it.
    std::string path_of(int descriptor);
};

// An allocation that can fail, and is watched; an ordinary one where there is no double. The memory is
// obtained without the lock, so that the thread sanitizer sees who obtained it.
template <typename allocation>
void* watched_allocation(kernel_double::state* kernel, const char* name, allocation obtain) {
    if (kernel == nullptr) {
        return obtain();
    }
    void* memory = kernel->refuses_allocation(name) ? nullptr : obtain();
    if (memory != nullptr) {
        kernel->allocated(memory);
    }
    return memory;
}

// The active double, null when there is none or when the double itself, a model or the thread sanitizer's report is
// calling.
kernel_double::state* active_kernel();
bool activate(kernel_double::state* kernel);  // false where another one is active
void deactivate();

// Finds out where the library under test is in memory. Not left to the first allocation: that may be made by
// a thread that is only just starting, where the thread sanitizer does not allow it.
void locate_tested_library();

// While one lives, this thread's calls go straight to the C library.
class outside_the_double {
  public:
    outside_the_double();
    ~outside_the_double();
    outside_the_double(const outside_the_double&) = delete;
    outside_the_double& operator=(const outside_the_double&) = delete;
};

// The same for a call that the double makes while it holds its lock, of a model or of the real kernel: the
// thread sanitizer sees how it synchronises.
class calling_out {
  public:
    calling_out();
    ~calling_out();
    calling_out(const calling_out&) = delete;
    calling_out& operator=(const calling_out&) = delete;

  private:
    const outside_the_double outside_;
};

}  // namespace norv::test
