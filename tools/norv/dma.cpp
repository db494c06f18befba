// SPDX-License-Identifier: MIT
// norv dma: what memory the DMA driver has for devices, and whether it works.
#include "norv/dma.hpp"

#include <unistd.h>

#include <cstdlib>
#include <memory>
#include <optional>
#include <span>

#include "bytes.hpp"
#include "command.hpp"
#include "failure.hpp"
#include "report.hpp"
#include "text.hpp"

namespace norv::tool {

namespace {

const causes no_manager{{NORV_STATUS_NOT_FOUND, "no /dev/uio-dma; is the DMA driver loaded?"}};
const causes usual{{NORV_STATUS_NO_MEMORY, "the driver has no such memory left"},
                   {NORV_STATUS_INVALID_ARG, "the driver does not provide memory of this kind and size"},
                   {status_of(ENOTTY), "the driver does not support this request"}};

norv::dma_manager open_manager() {
    return must("/dev/uio-dma", norv::dma_manager::open(), no_manager);
}

// The kinds of memory by their names. That of the process itself is made in another way.
using memory_kind = norv::dma_buffer::memory;

const std::map<std::string, std::optional<memory_kind>> kinds{{"default", memory_kind::driver_default},
                                                              {"kmalloc", memory_kind::kmalloc},
                                                              {"cma", memory_kind::cma},
                                                              {"reserved", memory_kind::reserved},
                                                              {"user", std::nullopt}};

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

// A buffer, and what is tried with it.
class trial {
  public:
    trial(const norv::dma_manager& manager, const std::string& kind, uint64_t size)
        : title_{"dma " + kind}, buffer_{must(title_, create(manager, kinds.at(kind), size), usual)} {}

    // The pieces of memory that a device would get, as the driver describes them.
    std::vector<bytes> pieces() {
        std::vector<bytes> result;
        for (const norv::dma_buffer::entry& entry : must(title_, buffer_.lock(), usual)) {
            const auto* first = reinterpret_cast<const uint8_t*>(entry.data());
            result.emplace_back(first, first + entry.size());
        }
        must(title_, buffer_.unlock(), usual);
        return result;
    }

    // Writes a pattern as a program would do before a transfer, and reads it as one would do after.
    void check() {
        const std::span<std::byte> content = must(title_, buffer_.map(), usual);
        access([&] {
            for (size_t at = 0; at < content.size(); ++at) {
                content[at] = pattern(at);
            }
        });
        access([&] { must_match(content); });
    }

  private:
    norv::result<norv::dma_buffer> create(const norv::dma_manager& manager, std::optional<memory_kind> from,
                                          uint64_t size) {
        if (from) {
            return norv::dma_buffer::create(manager, size, *from);
        }
        own_ = pages(size);
        return norv::dma_buffer::create_of(manager,
                                           {static_cast<std::byte*>(own_.get()), static_cast<size_t>(size)});
    }

    static std::byte pattern(size_t at) { return static_cast<std::byte>(at % 251); }

    template <typename Work>
    void access(Work work) {
        must(title_, buffer_.start_access(), usual);
        work();
        must(title_, buffer_.end_access(), usual);
    }

    void must_match(std::span<const std::byte> content) const {
        for (size_t at = 0; at < content.size(); ++at) {
            if (content[at] != pattern(at)) {
                throw failure{title_, text("byte %zu is not what was written there", at)};
            }
        }
    }

    std::string title_;
    process_memory own_;
    norv::dma_buffer buffer_;
};

// Makes a buffer, uses it as a program would, and returns its pieces.
std::vector<bytes> try_out(const norv::dma_manager& manager, const std::string& kind, uint64_t size) {
    trial made{manager, kind, size};
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
        const norv::dma_manager opened = open_manager();
        std::string table = "KIND      PIECES  RESULT";
        json document = json::array();
        for (const auto& [kind, from] : kinds) {
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
    std::pair<size_t, std::string> outcome(const norv::dma_manager& opened, const std::string& kind) const {
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
        const norv::dma_manager opened = open_manager();
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
