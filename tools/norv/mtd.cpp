// SPDX-License-Identifier: MIT
// norv mtd: partitions of raw flash. Nothing here changes one.
#include "norv_linux_mtd.h"

#include "command.hpp"
#include "failure.hpp"
#include "report.hpp"
#include "sysfs.hpp"
#include "text.hpp"

namespace norv::tool {

namespace {

const std::string mtd_class = "/sys/class/mtd";

// "/dev/mtd3", "mtd3" and "3" are the same partition.
std::string partition_name(const std::string& word) {
    const std::string name = word.starts_with("/dev/") ? word.substr(5) : word;
    return number_behind("mtd" + name, "mtd") ? "mtd" + name : name;
}

class partition {
  public:
    explicit partition(const std::string& word) : name_{partition_name(word)} {
        if (!number_behind(name_, "mtd")) {
            throw usage_error{"\"" + word + "\" is not a partition like mtd0"};
        }
        must(name_, norv_linux_mtd_open(("/dev/" + name_).c_str(), &mtd_),
             {{NORV_STATUS_NOT_FOUND,
               "no /sys/class/mtd; is the flash driver loaded, and was the kernel built with CONFIG_MTD?",
               "/sys/class/mtd"},
              {NORV_STATUS_NOT_FOUND, "no such partition; see norv mtd list"},
              {status_of(EACCES), "no permission, or the partition is read-only"}});
    }
    ~partition() { norv_linux_mtd_close(&mtd_); }
    partition(const partition&) = delete;
    partition& operator=(const partition&) = delete;

    const std::string& name() const { return name_; }
    const mtd_info_user& info() const { return mtd_.info; }
    bool is_nand() const { return norv_linux_mtd_type_is_nand(&mtd_); }

    bool is_bad(uint32_t offset) const {
        uint8_t bad = 0;
        must(text("%s at 0x%x", name_.c_str(), offset), norv_linux_mtd_block_isbad(&mtd_, offset, &bad));
        return bad != 0;
    }

    // Flash other than NAND has none, whatever its driver says when it is asked.
    std::vector<uint32_t> bad_blocks() const {
        std::vector<uint32_t> bad;
        for (uint64_t offset = 0; is_nand() && offset < mtd_.info.size; offset += mtd_.info.erasesize) {
            if (is_bad(static_cast<uint32_t>(offset))) {
                bad.push_back(static_cast<uint32_t>(offset));
            }
        }
        return bad;
    }

  private:
    std::string name_;
    norv_mtd_t mtd_{};
};

void add_partition(CLI::App& command, std::string& word) {
    command.add_option("PARTITION", word, "/dev/mtd0, mtd0 or 0")->required();
}

uint64_t number(const std::string& name, const char* attribute_name) {
    return std::stoull(attribute(name, mtd_class + "/" + name + "/" + attribute_name));
}

struct list {
    static constexpr auto name = "list";
    static constexpr auto help = "List the partitions: size, erase block, type and name";

    report out;

    void declare(CLI::App& command) { out.offer_json(command); }

    void run() {
        std::string lines;
        json document = json::array();
        for (const std::string& entry : names_in(mtd_class)) {
            if (number_behind(entry, "mtd")) {
                lines += (lines.empty() ? "" : "\n") + show(entry, document);
            }
        }
        out.show(lines, document);
    }

  private:
    static std::string show(const std::string& entry, json& document) {
        const uint64_t size = number(entry, "size");
        const uint64_t erase = number(entry, "erasesize");
        const std::string type = attribute(entry, mtd_class + "/" + entry + "/type");
        const std::string label = attribute(entry, mtd_class + "/" + entry + "/name");
        document.push_back(
            {{"partition", entry}, {"size", size}, {"erase_size", erase}, {"type", type}, {"name", label}});
        return text("%-6s %10llu bytes  erase %8llu  %-8s \"%s\"", entry.c_str(),
                    static_cast<unsigned long long>(size), static_cast<unsigned long long>(erase),
                    type.c_str(), label.c_str());
    }
};

struct info {
    static constexpr auto name = "info";
    static constexpr auto help = "Show the geometry of a partition";

    std::string word;
    report out;

    void declare(CLI::App& command) {
        add_partition(command, word);
        out.offer_json(command);
    }

    void run() {
        const partition opened{word};
        const mtd_info_user& of = opened.info();
        const bool writeable = (of.flags & MTD_WRITEABLE) != 0;
        out.show(text("size        %u\nerase block %u\nwrite unit  %u\nout of band %u\nNAND        "
                      "%s\nwriteable   %s",
                      of.size, of.erasesize, of.writesize, of.oobsize, opened.is_nand() ? "yes" : "no",
                      writeable ? "yes" : "no"),
                 {{"partition", opened.name()},
                  {"size", of.size},
                  {"erase_size", of.erasesize},
                  {"write_size", of.writesize},
                  {"oob_size", of.oobsize},
                  {"nand", opened.is_nand()},
                  {"writeable", writeable}});
    }
};

struct badblocks {
    static constexpr auto name = "badblocks";
    static constexpr auto help = "List the bad blocks of a partition";

    std::string word;
    report out;

    void declare(CLI::App& command) {
        add_partition(command, word);
        out.offer_json(command);
    }

    void run() {
        const partition opened{word};
        const std::vector<uint32_t> bad = opened.bad_blocks();
        std::string lines;
        for (const uint32_t offset : bad) {
            lines += text("0x%08x  block %u\n", offset, offset / opened.info().erasesize);
        }
        lines += text("%zu bad of %u blocks", bad.size(), opened.info().size / opened.info().erasesize);
        out.show(lines, {{"partition", opened.name()},
                         {"blocks", opened.info().size / opened.info().erasesize},
                         {"bad", bad}});
    }
};

const group mtd{"mtd", "Partitions of raw flash", with_commands<list, info, badblocks>};

}  // namespace

}  // namespace norv::tool
