// SPDX-License-Identifier: MIT
// norv mtd: partitions of raw flash. Nothing here changes one.
#include "norv/mtd.hpp"

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

struct partition {
    std::string name;
    norv::mtd mtd;

    // Flash other than NAND has none, whatever its driver says when it is asked.
    std::vector<uint32_t> bad_blocks() const {
        const mtd_info_user info = mtd.info();
        std::vector<uint32_t> bad;
        for (uint64_t next = 0; mtd.is_nand() && next < info.size; next += info.erasesize) {
            const auto offset = static_cast<uint32_t>(next);
            if (must(text("%s at 0x%x", name.c_str(), offset), mtd.is_bad_block(offset))) {
                bad.push_back(offset);
            }
        }
        return bad;
    }
};

partition open_partition(const std::string& word) {
    const std::string name = partition_name(word);
    if (!number_behind(name, "mtd")) {
        throw usage_error{"\"" + word + "\" is not a partition like mtd0"};
    }
    return {name,
            must(name, norv::mtd::open("/dev/" + name),
                 {{NORV_STATUS_NOT_FOUND,
                   "no /sys/class/mtd; is the flash driver loaded, and was the kernel built with CONFIG_MTD?",
                   "/sys/class/mtd"},
                  {NORV_STATUS_NOT_FOUND, "no such partition; see norv mtd list"},
                  {status_of(EACCES), "no permission, or the partition is read-only"}})};
}

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
        const partition opened = open_partition(word);
        const mtd_info_user of = opened.mtd.info();
        const bool writeable = (of.flags & MTD_WRITEABLE) != 0;
        out.show(text("size        %u\nerase block %u\nwrite unit  %u\nout of band %u\nNAND        "
                      "%s\nwriteable   %s",
                      of.size, of.erasesize, of.writesize, of.oobsize, opened.mtd.is_nand() ? "yes" : "no",
                      writeable ? "yes" : "no"),
                 {{"partition", opened.name},
                  {"size", of.size},
                  {"erase_size", of.erasesize},
                  {"write_size", of.writesize},
                  {"oob_size", of.oobsize},
                  {"nand", opened.mtd.is_nand()},
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
        const partition opened = open_partition(word);
        const mtd_info_user of = opened.mtd.info();
        const std::vector<uint32_t> bad = opened.bad_blocks();
        std::string lines;
        for (const uint32_t offset : bad) {
            lines += text("0x%08x  block %u\n", offset, offset / of.erasesize);
        }
        lines += text("%zu bad of %u blocks", bad.size(), of.size / of.erasesize);
        out.show(lines, {{"partition", opened.name}, {"blocks", of.size / of.erasesize}, {"bad", bad}});
    }
};

const group mtd{"mtd", "Partitions of raw flash", with_commands<list, info, badblocks>};

}  // namespace

}  // namespace norv::tool
