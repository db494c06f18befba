// SPDX-License-Identifier: MIT
// norv dma: what memory the DMA driver has for devices, and whether it works.
#include <unistd.h>

#include <cinttypes>
#include <cstdlib>
#include <memory>

#include "bytes.hpp"
#include "command.hpp"
#include "failure.hpp"
#include "norv_linux_dma.h"
#include "report.hpp"
#include "text.hpp"

namespace norv::tool {

namespace {

const causes no_manager{{NORV_STATUS_NOT_FOUND, "no /dev/uio-dma; is the DMA driver loaded?"}};
const causes usual{{NORV_STATUS_NO_MEMORY, "the driver has no such memory left"},
                   {NORV_STATUS_INVALID_ARG, "the driver does not provide memory of this kind and size"},
                   {status_of(ENOTTY), "the driver does not support this request"}};

class manager {
  public:
    manager() { must("/dev/uio-dma", norv_linux_dma_create_mgr(&descriptor_), no_manager); }
    ~manager() { norv_linux_dma_destory_mgr(&descriptor_); }
    manager(const manager&) = delete;
    manager& operator=(const manager&) = delete;

    int32_t* get() { return &descriptor_; }

  private:
    int32_t descriptor_ = -1;
};

// The kinds of memory by their names. That of the process itself is made in another way.
using create_buffer = uint32_t (*)(int32_t* manager, uint64_t size, norv_linux_dma_t** buffer);

const std::map<std::string, create_buffer> kinds{{"default", norv_linux_dma_create_mem},
                                                 {"kmalloc", norv_linux_dma_create_by_kmalloc},
                                                 {"cma", norv_linux_dma_create_by_cma},
                                                 {"reserved", norv_linux_dma_create_by_reserved},
                                                 {"user", nullptr}};

struct releaser {
    void operator()(void* memory) const { std::free(memory); }
};
using process_memory = std::unique_ptr<void, releaser>;

// Whole pages, which drivers require. Null when there is no such memory.
process_memory pages(uint64_t size) {
    const auto page = static_cast<size_t>(sysconf(_SC_PAGESIZE));
    if (size > SIZE_MAX - page) {
        return nullptr;
    }
    return process_memory{std::aligned_alloc(page, (static_cast<size_t>(size) + page - 1) / page * page)};
}

class buffer {
  public:
    buffer(manager& of, const std::string& kind, uint64_t size) : title_{"dma " + kind}, size_{size} {
        must(title_, create(of, kinds.at(kind)), usual);
    }
    ~buffer() {
        norv_linux_dma_unmap_mem(&handle_);
        norv_linux_dma_destroy(&handle_);
    }
    buffer(const buffer&) = delete;
    buffer& operator=(const buffer&) = delete;

    // The pieces of memory that a device would get, as the driver describes them.
    std::vector<bytes> pieces() {
        void* entries = nullptr;
        uint64_t count = 0;
        std::vector<bytes> result;
        must(title_, norv_linux_dma_lock_mem(&handle_, &entries, &count), usual);
        for (uint64_t index = 0; index < count; ++index) {
            const auto* entry = static_cast<const uint8_t*>(entries) + index * NORV_LINUX_DMA_SG_ENTRY_SIZE;
            result.emplace_back(entry, entry + NORV_LINUX_DMA_SG_ENTRY_SIZE);
        }
        must(title_, norv_linux_dma_unlock_mem(&handle_), usual);
        return result;
    }

    // Writes a pattern as a program would do before a transfer, and reads it as one would do after.
    void check() {
        void* memory = nullptr;
        must(title_, norv_linux_dma_map_mem(&handle_, &memory), usual);
        auto* content = static_cast<uint8_t*>(memory);
        access([&] {
            for (uint64_t at = 0; at < size_; ++at) {
                content[at] = pattern(at);
            }
        });
        access([&] { must_match(content); });
    }

  private:
    uint32_t create(manager& of, create_buffer with) {
        if (with != nullptr) {
            return with(of.get(), size_, &handle_);
        }
        own_ = pages(size_);
        return norv_linux_dma_create_by_user_ptr(of.get(), own_.get(), size_, &handle_);
    }

    static uint8_t pattern(uint64_t at) { return static_cast<uint8_t>(at % 251); }

    template <typename Work>
    void access(Work work) {
        must(title_, norv_linux_dma_sync(&handle_, false), usual);
        work();
        must(title_, norv_linux_dma_sync(&handle_, true), usual);
    }

    void must_match(const uint8_t* content) const {
        for (uint64_t at = 0; at < size_; ++at) {
            if (content[at] != pattern(at)) {
                throw failure{title_, text("byte %" PRIu64 " is not what was written there", at)};
            }
        }
    }

    std::string title_;
    uint64_t size_;
    process_memory own_;
    norv_linux_dma_t* handle_ = nullptr;
};

// Makes a buffer, uses it as a program would, and returns its pieces.
std::vector<bytes> try_out(manager& of, const std::string& kind, uint64_t size) {
    buffer made{of, kind, size};
    made.check();
    return made.pieces();
}

void add_size(CLI::App& command, uint64_t& size) {
    command.add_option("SIZE", size, "in bytes, or with a unit: 64k")
        ->transform(CLI::AsSizeValue(false).description(""))
        ->type_name("SIZE")
        ->default_str("4096");
}

struct list_kinds {
    static constexpr auto name = "kinds";
    static constexpr auto help = "Try all kinds of memory, and show which the driver provides";

    uint64_t size = 4096;
    report out;

    void declare(CLI::App& command) {
        add_size(command, size);
        out.offer_json(command);
    }

    void run() {
        manager opened;
        std::string table = "KIND      PIECES  RESULT";
        json document = json::array();
        for (const auto& [kind, create] : kinds) {
            const auto [pieces, error] = outcome(opened, kind);
            table += text("\n%-8s  %6zu  %s", kind.c_str(), pieces, error.empty() ? "good" : error.c_str());
            document.push_back({{"kind", kind},
                                {"size", size},
                                {"pieces", pieces},
                                {"error", error.empty() ? json() : json(error)}});
        }
        out.show(table, document);
    }

  private:
    std::pair<size_t, std::string> outcome(manager& opened, const std::string& kind) const {
        try {
            return {try_out(opened, kind, size).size(), ""};
        } catch (const failure& failed) {
            return {0, failed.what()};
        }
    }
};

struct test {
    static constexpr auto name = "test";
    static constexpr auto help = "Write and read a buffer, and show the pieces that a device would get";

    std::string kind = "default";
    uint64_t size = 4096;
    report out;

    void declare(CLI::App& command) {
        command.add_option("KIND", kind, "cma, default, kmalloc, reserved or user")
            ->type_name("KIND")
            ->check(CLI::IsMember(kinds).description(""))
            ->capture_default_str();
        add_size(command, size);
        out.offer_json(command);
    }

    void run() {
        manager opened;
        std::string table;
        json entries = json::array();
        for (const bytes& piece : try_out(opened, kind, size)) {
            table += (table.empty() ? "" : "\n") + hex(piece);
            entries.push_back(piece);
        }
        out.show(table, {{"kind", kind}, {"size", size}, {"pieces", entries}});
    }
};

const group dma{"dma", "Memory that devices reach by DMA", with_commands<list_kinds, test>};

}  // namespace

}  // namespace norv::tool
