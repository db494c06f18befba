// SPDX-License-Identifier: GPL-2.0
// Raw flash: NOR in blocks of 128 KiB, and 16 MiB of NAND in blocks of 16 KiB and pages of 512 + 16 bytes, in
// three partitions; the NAND is for kernels that are built without nandsim.
//
// Programming clears bits, and only an erase sets them again. NOR programs any number of bytes, and reports
// no failure when a bit that should become 1 stays 0: the kernel's drivers do not compare either. Of the
// NAND's blocks 3, 4, 255, 256 and 300 are bad, and block 7 does not erase. Page 32000 loses what is written
// to it, and so does every page that is programmed twice without an erase in between: their errors cannot be
// corrected.
#include <linux/bitmap.h>
#include <linux/module.h>
#include <linux/mtd/mtd.h>
#include <linux/mtd/partitions.h>
#include <linux/sizes.h>
#include <linux/vmalloc.h>

#define NOR_BLOCK SZ_128K
#define NOR_PAGE 256
#define NAND_SIZE SZ_16M
#define NAND_BLOCK SZ_16K
#define NAND_PAGE 512
#define NAND_SPARE 16
#define NAND_BLOCKS (NAND_SIZE / NAND_BLOCK)
#define PAGES_PER_BLOCK (NAND_BLOCK / NAND_PAGE)
#define NAND_PAGES (NAND_SIZE / NAND_PAGE)
#define WORN_OUT_BLOCK 7
#define GRAVE_PAGE 32000

static unsigned int nor_kib = 8192;
module_param(nor_kib, uint, 0444);
MODULE_PARM_DESC(nor_kib, "Size of the NOR in KiB (default 8192)");

static bool nand = true;
module_param(nand, bool, 0444);
MODULE_PARM_DESC(nand, "Whether there is NAND (default Y)");

static u8* nor_cells;
static u8* nand_cells;
static u8* nand_spare;
static DECLARE_BITMAP(bad_blocks, NAND_BLOCKS);
static DECLARE_BITMAP(programmed_pages, NAND_PAGES);
static DECLARE_BITMAP(damaged_pages, NAND_PAGES);
static const unsigned int bad_from_the_start[] = {3, 4, 255, 256, 300};

// Programming only ever clears bits.
static void program(u8* cells, const u8* bytes, size_t length) {
    size_t i;

    for (i = 0; i < length; i++) {
        cells[i] &= bytes[i];
    }
}

// ---- NOR ----

static int nor_erase(struct mtd_info* mtd, struct erase_info* erase) {
    if ((erase->addr | erase->len) & (NOR_BLOCK - 1)) {
        return -EINVAL;
    }
    memset(nor_cells + erase->addr, 0xFF, erase->len);
    return 0;
}

static int nor_read(struct mtd_info* mtd, loff_t from, size_t length, size_t* done, u_char* buffer) {
    memcpy(buffer, nor_cells + from, length);
    *done = length;
    return 0;
}

static int nor_write(struct mtd_info* mtd, loff_t to, size_t length, size_t* done, const u_char* buffer) {
    program(nor_cells + to, buffer, length);
    *done = length;
    return 0;
}

static struct mtd_info nor = {
    .name = "norv-board-nor",
    .owner = THIS_MODULE,
    .type = MTD_NORFLASH,
    .flags = MTD_CAP_NORFLASH,
    .erasesize = NOR_BLOCK,
    .writesize = 1,
    .writebufsize = NOR_PAGE,
    ._erase = nor_erase,
    ._read = nor_read,
    ._write = nor_write,
};

// ---- NAND ----

static void erase_block(unsigned int block) {
    memset(nand_cells + block * NAND_BLOCK, 0xFF, NAND_BLOCK);
    memset(nand_spare + block * PAGES_PER_BLOCK * NAND_SPARE, 0xFF, PAGES_PER_BLOCK * NAND_SPARE);
    bitmap_clear(programmed_pages, block * PAGES_PER_BLOCK, PAGES_PER_BLOCK);
    bitmap_clear(damaged_pages, block * PAGES_PER_BLOCK, PAGES_PER_BLOCK);
}

static int nand_erase(struct mtd_info* mtd, struct erase_info* erase) {
    u64 address;

    if ((erase->addr | erase->len) & (NAND_BLOCK - 1)) {
        return -EINVAL;
    }
    for (address = erase->addr; address < erase->addr + erase->len; address += NAND_BLOCK) {
        unsigned int block = address / NAND_BLOCK;

        if (test_bit(block, bad_blocks) || block == WORN_OUT_BLOCK) {
            erase->fail_addr = address;
            return -EIO;
        }
        erase_block(block);
    }
    return 0;
}

static u8* spare_of(loff_t address, const struct mtd_oob_ops* ops) {
    return nand_spare + (size_t)address / NAND_PAGE * NAND_SPARE + ops->ooboffs;
}

// The damaged pages of a range that was read have half of their bytes inverted, and are counted.
static int damage(struct mtd_info* mtd, u8* bytes, loff_t from, size_t length) {
    unsigned int page;
    int result = 0;

    for (page = (size_t)from / NAND_PAGE; (size_t)page * NAND_PAGE < from + length; page++) {
        size_t byte;

        if (!test_bit(page, damaged_pages)) {
            continue;
        }
        for (byte = max_t(size_t, from, (size_t)page * NAND_PAGE);
             byte < min_t(size_t, from + length, (size_t)(page + 1) * NAND_PAGE); byte += 2) {
            bytes[byte - from] ^= 0xFF;
        }
        mtd->ecc_stats.failed++;
        result = -EBADMSG;
    }
    return result;
}

static int nand_read(struct mtd_info* mtd, loff_t from, struct mtd_oob_ops* ops) {
    int result = 0;

    if (ops->datbuf) {
        memcpy(ops->datbuf, nand_cells + from, ops->len);
        ops->retlen = ops->len;
        result = damage(mtd, ops->datbuf, from, ops->len);
    }
    if (ops->oobbuf) {
        memcpy(ops->oobbuf, spare_of(from, ops), ops->ooblen);
        ops->oobretlen = ops->ooblen;
    }
    return result;
}

static void program_pages(loff_t to, const u8* bytes, size_t length) {
    unsigned int page;

    program(nand_cells + to, bytes, length);
    for (page = (size_t)to / NAND_PAGE; (size_t)page * NAND_PAGE < to + length; page++) {
        if (test_and_set_bit(page, programmed_pages) || page == GRAVE_PAGE) {
            set_bit(page, damaged_pages);
        }
    }
}

static int nand_write(struct mtd_info* mtd, loff_t to, struct mtd_oob_ops* ops) {
    if (ops->datbuf && (((size_t)to | ops->len) & (NAND_PAGE - 1))) {
        return -EINVAL;
    }
    if (ops->datbuf) {
        program_pages(to, ops->datbuf, ops->len);
        ops->retlen = ops->len;
    }
    if (ops->oobbuf) {
        program(spare_of(to, ops), ops->oobbuf, ops->ooblen);
        ops->oobretlen = ops->ooblen;
    }
    return 0;
}

static int nand_block_isbad(struct mtd_info* mtd, loff_t address) {
    return test_bit((size_t)address / NAND_BLOCK, bad_blocks);
}

static int nand_block_markbad(struct mtd_info* mtd, loff_t address) {
    set_bit((size_t)address / NAND_BLOCK, bad_blocks);
    return 0;
}

static struct mtd_info chip = {
    .name = "norv-board-nand",
    .owner = THIS_MODULE,
    .type = MTD_NANDFLASH,
    .flags = MTD_CAP_NANDFLASH,
    .size = NAND_SIZE,
    .erasesize = NAND_BLOCK,
    .writesize = NAND_PAGE,
    .writebufsize = NAND_PAGE,
    .oobsize = NAND_SPARE,
    ._erase = nand_erase,
    ._read_oob = nand_read,
    ._write_oob = nand_write,
    ._block_isbad = nand_block_isbad,
    ._block_markbad = nand_block_markbad,
};

static const struct mtd_partition partitions[] = {
    {.name = "norv-board-nand-1", .offset = 0, .size = SZ_4M},
    {.name = "norv-board-nand-2", .offset = MTDPART_OFS_APPEND, .size = SZ_8M},
    {.name = "norv-board-nand-3", .offset = MTDPART_OFS_APPEND, .size = MTDPART_SIZ_FULL},
};

// ---- both ----

static int add_nor(void) {
    nor.size = (u64)nor_kib * SZ_1K;
    nor_cells = vmalloc(nor.size);
    if (!nor_cells) {
        return -ENOMEM;
    }
    memset(nor_cells, 0xFF, nor.size);
    return mtd_device_register(&nor, NULL, 0);
}

static int add_nand(void) {
    unsigned int i;

    nand_cells = vmalloc(NAND_SIZE);
    nand_spare = vmalloc(NAND_SIZE / NAND_PAGE * NAND_SPARE);
    if (!nand_cells || !nand_spare) {
        return -ENOMEM;
    }
    for (i = 0; i < NAND_BLOCKS; i++) {
        erase_block(i);
    }
    for (i = 0; i < ARRAY_SIZE(bad_from_the_start); i++) {
        set_bit(bad_from_the_start[i], bad_blocks);
    }
    return mtd_device_register(&chip, partitions, ARRAY_SIZE(partitions));
}

static void release_cells(void) {
    vfree(nor_cells);
    vfree(nand_cells);
    vfree(nand_spare);
}

static int __init board_mtd_init(void) {
    int error = add_nor();

    if (error) {
        release_cells();
        return error;
    }
    error = nand ? add_nand() : 0;
    if (error) {
        mtd_device_unregister(&nor);
        release_cells();
    }
    return error;
}

static void __exit board_mtd_exit(void) {
    if (nand) {
        mtd_device_unregister(&chip);
    }
    mtd_device_unregister(&nor);
    release_cells();
}

module_init(board_mtd_init);
module_exit(board_mtd_exit);
MODULE_LICENSE("GPL");
MODULE_DESCRIPTION("Raw flash of the virtual board, with bad blocks");
