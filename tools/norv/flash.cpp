// SPDX-License-Identifier: MIT
// norv flash: the SPI flash (all its partitions concatenated) or an eMMC. Ctrl-C stops between two blocks, and the
// command that continues from there is printed.
#include "norv/flash.hpp"

#include <sys/ioctl.h>

#include <algorithm>
#include <filesystem>
#include <span>

#include "bytes.hpp"
#include "command.hpp"
#include "confirm.hpp"
#include "failure.hpp"
#include "interrupt.hpp"
#include "progress.hpp"
#include "report.hpp"
#include "text.hpp"

namespace norv::tool {

namespace {

// What the library writes to an eMMC at once; shorter areas than this are rounded.
constexpr uint64_t emmc_chunk = 128 * 1024;

const causes usual{
    {NORV_STATUS_NOT_FOUND, "no such device; is the flash driver loaded, and for an eMMC the path right?"},
    {NORV_STATUS_EMPTY, "there is no partition /dev/mtd0; is the flash driver loaded?"},
    {NORV_STATUS_RANGE, "outside the flash, or not at multiples of its erase block; see norv flash info"},
    {NORV_STATUS_EXHAUSTED, "too few good blocks before the end of the area; --end makes it longer"},
    {NORV_STATUS_VERIFY_FAILED, "what was read back differs; is the flash worn out or write-protected?"},
    {NORV_STATUS_DEVICE_ERROR, "the flash does not work there; is it worn out or write-protected?"},
    {status_of(ENOTTY), "not a block device"},
    {status_of(EACCES), "no permission, or a partition is read-only"}};

class flash {
  public:
    explicit flash(const std::string& emmc)
        : name_{emmc.empty() ? "SPI flash" : emmc},
          flash_{must(name_, emmc.empty() ? norv::flash::open_spi() : norv::flash::open_emmc(emmc), usual)} {
        const norv::result<norv::flash_info> info = flash_.get_info();
        if (!is_emmc() && info.status() == NORV_STATUS_NOT_FOUND) {
            throw failure{name_, NORV_STATUS_EMPTY, usual};
        }
        info_ = must(name_, info, usual);
    }

    const std::string& name() const { return name_; }
    const norv::flash_info& info() const { return info_; }
    norv::flash& get() { return flash_; }
    bool is_emmc() const { return flash_.get_kind() == norv::flash::kind::emmc; }

    // The partitions of the SPI flash; an eMMC has none.
    std::span<const norv_spi_flash_region_t> regions() const { return flash_.regions(); }

    // Where the erase block of an address ends.
    uint64_t block_end(uint64_t address) const {
        const uint64_t base = is_emmc() ? 0 : region_of(address).base;
        const uint64_t block = is_emmc() ? info_.erase_block_size : region_of(address).device.info.erasesize;
        return base + ((address - base) / block + 1) * block;
    }

    // How many bytes there are in the good blocks of the SPI flash between two addresses.
    uint64_t good_space(uint64_t address, uint64_t end) const {
        uint64_t space = 0;
        for (uint64_t next = address; address < std::min(end, info_.size); address = next) {
            next = block_end(address);
            space += is_bad(address) ? 0 : next - address;
        }
        return space;
    }

    // How many errors the error correction of each partition has not corrected so far, as the kernel counts.
    std::vector<uint32_t> uncorrected_errors() const {
        std::vector<uint32_t> counts;
        for (const norv_spi_flash_region_t& region : regions()) {
            mtd_ecc_stats statistics{};
            ioctl(region.device.descriptor, ECCGETSTATS, &statistics);
            counts.push_back(statistics.failed);
        }
        return counts;
    }

    // Fails where there are more of them than before: the kernel does not fail the reads that met them.
    void check_errors_since(const std::vector<uint32_t>& before) const {
        const std::vector<uint32_t> now = uncorrected_errors();
        std::string where;
        for (size_t index = 0; index < now.size(); ++index) {
            if (now[index] != before[index]) {
                where += text("%s%s: %u", where.empty() ? "" : ", ", partition_name(index).c_str(),
                              now[index] - before[index]);
            }
        }
        if (!where.empty()) {
            const std::string explanation =
                "uncorrectable errors (" + where + "); the data that was read is damaged";
            throw failure{name_, status_of(EBADMSG), {{status_of(EBADMSG), explanation.c_str()}}};
        }
    }

    // Refuses what does not lie in the flash.
    void check_area(uint64_t address, uint64_t length) const {
        if (address >= info_.size || length > info_.size - address) {
            throw failure{name_,
                          NORV_STATUS_RANGE,
                          {{NORV_STATUS_RANGE, "the area is not inside the flash; see norv flash info"}}};
        }
    }

  private:
    // The partition of an address of the SPI flash; after its end, the last one.
    const norv_spi_flash_region_t& region_of(uint64_t address) const {
        size_t index = regions().size() - 1;
        while (index > 0 && address < regions()[index].base) {
            --index;
        }
        return regions()[index];
    }

    bool is_bad(uint64_t address) const {
        const norv_spi_flash_region_t& region = region_of(address);
        uint8_t bad = 0;
        if (norv_linux_mtd_type_is_nand(&region.device)) {
            must(name_, norv::status{norv_linux_mtd_block_isbad(
                            &region.device, static_cast<uint32_t>(address - region.base), &bad)});
        }
        return bad != 0;
    }

    // The library does not keep the names: they are those of the open nodes.
    std::string partition_name(size_t region) const {
        const int descriptor = regions()[region].device.descriptor;
        return std::filesystem::read_symlink("/proc/self/fd/" + std::to_string(descriptor)).filename();
    }

    std::string name_;
    norv::flash flash_;
    norv::flash_info info_;
};

// One of the library's long operations, called after each step: its progress, and where it was when Ctrl-C came.
class operation {
  public:
    operation(const flash& on, const char* verb, uint64_t address, uint64_t total)
        : on_{on}, start_{address}, total_{total}, cursor_{address}, bar_{verb, total} {}

    // Blocks that are bad lie between: of the SPI flash the cursor is after the block of the last step.
    void operator()(const norv::flash_progress& step) {
        done_ = total_ - std::min<uint64_t>(step.remaining, total_);
        cursor_ = on_.is_emmc() ? start_ + done_ : on_.block_end(step.address);
        bar_.advance(done_);
    }

    uint64_t done() const { return done_; }
    uint64_t cursor() const { return cursor_; }

  private:
    const flash& on_;
    uint64_t start_;
    uint64_t total_;
    uint64_t done_ = 0;
    uint64_t cursor_;
    progress bar_;
};

// As a word of a shell's command line.
std::string quoted(const std::string& word) {
    const bool plain = std::all_of(word.begin(), word.end(), [](unsigned char c) {
        return std::isalnum(c) != 0 ||
               std::string_view{"/._-+=:,@"}.find(static_cast<char>(c)) != std::string_view::npos;
    });
    return plain && !word.empty() ? word : "'" + replaced(word, "'", "'\\''") + "'";
}

// The arguments that all commands have.
struct target {
    std::string emmc;

    void declare(CLI::App& command) {
        command
            .add_option("--emmc", emmc, "this eMMC, SD card or other block device in place of the SPI flash")
            ->type_name("DEVICE");
    }
    std::string words() const { return emmc.empty() ? "" : " --emmc " + quoted(emmc); }
};

void add_address(CLI::App& command, uint32_t& address) {
    command.add_option("-a,--address", address, "first byte [0]");
}

bool is_cancelled(norv::status ended) {
    return ended == NORV_STATUS_TIMEOUT && is_interrupted();
}

[[noreturn]] void report_cancelled(const std::string& what, const std::string& command) {
    throw failure{"cancelled", what + "; resume with:\n    norv flash " + command};
}

struct info {
    static constexpr auto name = "info";
    static constexpr auto help = "Show the geometry, and of the SPI flash its partitions";

    target on;
    report out;

    void declare(CLI::App& command) {
        on.declare(command);
        out.offer_json(command);
    }

    void run() {
        const flash opened{on.emmc};
        const norv::flash_info& of = opened.info();
        std::string lines =
            text("%s\nsize        %llu\nerase block %u\nwrite unit  %u", opened.name().c_str(),
                 static_cast<unsigned long long>(of.size), of.erase_block_size, of.write_unit_size);
        json document{{"flash", opened.name()},
                      {"size", of.size},
                      {"erase_block_size", of.erase_block_size},
                      {"write_unit_size", of.write_unit_size}};
        if (!opened.is_emmc()) {
            add_regions(opened.regions(), lines, document);
        }
        out.show(lines, document);
    }

  private:
    static void add_regions(std::span<const norv_spi_flash_region_t> regions, std::string& lines,
                            json& document) {
        document["partitions"] = json::array();
        for (const norv_spi_flash_region_t& region : regions) {
            lines +=
                text("\n0x%08llx  %10u bytes  erase block %u", static_cast<unsigned long long>(region.base),
                     region.device.info.size, region.device.info.erasesize);
            document["partitions"].push_back({{"address", region.base},
                                              {"size", region.device.info.size},
                                              {"erase_block_size", region.device.info.erasesize}});
        }
    }
};

struct read {
    static constexpr auto name = "read";
    static constexpr auto help = "Read an area into a file; bad blocks are skipped";

    target on;
    std::string file;
    uint32_t address = 0;
    uint32_t length = 0;
    bool append = false;

    void declare(CLI::App& command) {
        on.declare(command);
        command.add_option("FILE", file, "to write; - is standard output")->required();
        add_address(command, address);
        command.add_option("-l,--length", length, "bytes to read")->required()->check(CLI::PositiveNumber);
        command.add_flag("--append", append, "add to the file");
    }

    void run() {
        flash opened{on.emmc};
        opened.check_area(address, length);
        bytes data(length);
        operation reading{opened, "read", address, length};
        const std::vector<uint32_t> errors = opened.uncorrected_errors();
        const norv::transferred done = opened.get().continue_read(
            address, std::as_writable_bytes(std::span{data}), reading, is_interrupted);
        data.resize(done.count);
        store(file, data, append);
        opened.check_errors_since(errors);
        if (is_cancelled(done.status)) {
            report_cancelled(
                text("%llu of %u bytes are read", static_cast<unsigned long long>(reading.done()), length),
                resume(reading));
        }
        must(opened.name(), done.status, usual);
        if (reading.done() < length) {
            throw failure{
                opened.name(),
                NORV_STATUS_SHORT_READ,
                {{NORV_STATUS_SHORT_READ, "bad blocks: the flash ended before everything was read"}}};
        }
    }

  private:
    std::string resume(const operation& reading) const {
        return text("read%s %s --address 0x%llx --length %llu --append", on.words().c_str(),
                    quoted(file).c_str(), static_cast<unsigned long long>(reading.cursor()),
                    static_cast<unsigned long long>(length - reading.done()));
    }
};

struct erase {
    static constexpr auto name = "erase";
    static constexpr auto help = "Erase an area (an eMMC: write zeros); bad blocks are skipped";

    target on;
    uint32_t address = 0;
    uint32_t length = 0;
    confirmation confirm;

    void declare(CLI::App& command) {
        on.declare(command);
        add_address(command, address);
        command.add_option("-l,--length", length, "bytes to erase, a multiple of the erase block")
            ->required()
            ->check(CLI::PositiveNumber);
        confirm.offer_yes(command);
    }

    void run() {
        flash opened{on.emmc};
        opened.check_area(address, length);
        check_alignment(opened);
        confirm.ask(text("erase %u bytes from 0x%x to 0x%llx of the flash (%s)", length, address, end(),
                         opened.name().c_str()));
        operation erasing{opened, "erase", address, length};
        const norv::status erased =
            opened.is_emmc() ? erase_emmc(opened, erasing) : erase_spi(opened, erasing);
        if (is_cancelled(erased)) {
            report_cancelled(text("erased up to 0x%llx", static_cast<unsigned long long>(erasing.cursor())),
                             resume(erasing));
        }
        must(opened.name(), erased, usual);
    }

  private:
    unsigned long long end() const { return static_cast<unsigned long long>(address) + length; }

    // Before anybody is asked.
    void check_alignment(const flash& opened) const {
        const bool starts_block = address == 0 || opened.block_end(address - 1) == address;
        if (!starts_block || opened.block_end(end() - 1) != end()) {
            throw failure{opened.name(), NORV_STATUS_RANGE, usual};
        }
    }

    norv::status erase_spi(flash& opened, operation& erasing) const {
        return opened.get()
            .continue_erase(address, length, static_cast<uint32_t>(end()), erasing, is_interrupted)
            .status;
    }

    // Whole chunks step by step, and the rest of the area at once: the library would round it up to a chunk.
    norv::status erase_emmc(flash& opened, operation& erasing) const {
        const auto rest = static_cast<uint32_t>(length % emmc_chunk);
        const auto stop = static_cast<uint32_t>(end());
        const norv::flash_erased chunks =
            opened.get().continue_erase(address, length - rest, stop, erasing, is_interrupted);
        if (!chunks.status.ok() || rest == 0) {
            return chunks.status;
        }
        return opened.get().erase_first_valid_block(stop - rest, stop).status;
    }

    std::string resume(const operation& erasing) const {
        return text("erase%s --address 0x%llx --length %llu --yes", on.words().c_str(),
                    static_cast<unsigned long long>(erasing.cursor()), end() - erasing.cursor());
    }
};

struct write {
    static constexpr auto name = "write";
    static constexpr auto help = "Erase an area, write a file there and verify it; bad blocks are skipped";

    target on;
    std::string file;
    uint32_t address = 0;
    uint32_t offset = 0;
    uint32_t area_end = 0;
    confirmation confirm;

    void declare(CLI::App& command) {
        on.declare(command);
        command.add_option("FILE", file, "to read; - is standard input")->required();
        add_address(command, address);
        command.add_option("--offset", offset, "skip this many bytes of the file; used to resume");
        command.add_option(
            "--end", area_end,
            "end of the area, also for data that skips bad blocks [the end of the file without bad blocks]");
        confirm.offer_yes(command);
    }

    void run() {
        bytes data = load(file);
        if (offset >= data.size() || data.size() > UINT32_MAX) {
            throw usage_error{file + " has nothing to write after that offset"};
        }
        data.erase(data.begin(), data.begin() + offset);
        flash opened{on.emmc};
        opened.check_area(address, data.size());
        if (opened.is_emmc()) {
            write_emmc(opened, data);
        } else {
            write_spi(opened, data);
        }
    }

  private:
    void write_spi(flash& opened, const bytes& data) {
        if (area_end == 0) {
            area_end = static_cast<uint32_t>(opened.block_end(address + data.size() - 1));
        }
        check_space(opened, data.size());
        confirm.ask(text(
            "erase 0x%x to 0x%x of the SPI flash, as far as %zu bytes of %s need it, and write them there",
            address, area_end, data.size(), file.c_str()));
        const auto size = static_cast<uint32_t>(data.size());
        {
            operation erasing{opened, "erase", address, opened.block_end(address + size - 1) - address};
            const norv::flash_erased erased =
                opened.get().continue_erase(address, size, area_end, erasing, is_interrupted);
            check(opened, erased.status, nullptr);
        }
        transfer(opened, data, size);
    }

    // Before anything is erased.
    void check_space(const flash& opened, size_t size) const {
        const uint64_t space = opened.good_space(address, area_end);
        if (space < size) {
            const std::string explanation = text(
                "the good blocks from 0x%x to 0x%x hold only %llu of %zu bytes; --end makes the area longer",
                address, area_end, static_cast<unsigned long long>(space), size);
            throw failure{
                opened.name(), NORV_STATUS_EXHAUSTED, {{NORV_STATUS_EXHAUSTED, explanation.c_str()}}};
        }
    }

    // An eMMC needs no erasing. The library writes whole chunks: what is after the data is written back as
    // it is.
    void write_emmc(flash& opened, bytes& data) {
        const auto size = static_cast<uint32_t>(data.size());
        confirm.ask(text("write %u bytes of %s to 0x%x of %s", size, file.c_str(), address, on.emmc.c_str()));
        add_what_is_behind(opened, data);
        transfer(opened, data, size);
    }

    // Up to the border of a chunk, and a chunk at least: then the library adds nothing of its own.
    void add_what_is_behind(flash& opened, bytes& data) const {
        const uint64_t data_end = address + data.size();
        const uint64_t least = std::max(data_end, address + emmc_chunk);
        const uint64_t end = std::min((least + emmc_chunk - 1) / emmc_chunk * emmc_chunk, opened.info().size);
        const auto rest = static_cast<size_t>(end - data_end);
        if (rest > 0) {
            const size_t size = data.size();
            data.resize(size + rest);
            const norv::transferred done = opened.get().read(
                static_cast<uint32_t>(data_end), std::as_writable_bytes(std::span{data}.subspan(size)));
            must(opened.name(), done.status, usual);
            data.resize(size + done.count);
        }
    }

    void transfer(flash& opened, const bytes& data, uint32_t size) const {
        operation writing{opened, "write", address, data.size()};
        const norv::flash_written written = opened.get().continue_write_verify(
            address, 0, std::as_bytes(std::span{data}), area_end, writing, is_interrupted);
        check(opened, written.status, &writing, size);
    }

    void check(const flash& opened, norv::status ended, const operation* writing, uint32_t size = 0) const {
        if (is_cancelled(ended)) {
            const uint64_t done = writing == nullptr ? 0 : std::min<uint64_t>(writing->done(), size);
            report_cancelled(
                text("%llu bytes are written and verified", static_cast<unsigned long long>(offset + done)),
                resume(opened, writing == nullptr ? address : writing->cursor(), offset + done));
        }
        must(opened.name(), ended, usual);
    }

    std::string resume(const flash& opened, uint64_t cursor, uint64_t done) const {
        std::string words =
            text("write%s %s --address 0x%llx --offset %llu", on.words().c_str(), quoted(file).c_str(),
                 static_cast<unsigned long long>(cursor), static_cast<unsigned long long>(done));
        return words + (opened.is_emmc() ? "" : text(" --end 0x%x", area_end)) + " --yes";
    }
};

const group flash_group{"flash", "The SPI flash, or an eMMC", with_commands<info, read, write, erase>};

}  // namespace

}  // namespace norv::tool
