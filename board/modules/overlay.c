// SPDX-License-Identifier: GPL-2.0
//
// Device-tree overlays of the virtual board: the configfs directory device-tree/overlays, in which every
// directory that is made is an overlay with the attributes "dtbo" and "status".
//
// The board's tree has the nodes / and /axi. A compiled overlay that is written to "dtbo" is applied when all
// its fragments name one of them as their target-path; then "status" reads "applied", and "unapplied" in any
// other case. As with every binary attribute of configfs, the file is looked at when it is closed, so a write
// never fails for what is in it. An overlay can be written once.
//
// /sys/kernel/debug/norv_board_overlay/nodes lists the nodes that the applied overlays have added.

#include <linux/configfs.h>
#include <linux/debugfs.h>
#include <linux/list.h>
#include <linux/module.h>
#include <linux/mutex.h>
#include <linux/seq_file.h>
#include <linux/sizes.h>
#include <linux/slab.h>

#define LARGEST_OVERLAY SZ_1M
#define NODES_SIZE 1024
#define DEEPEST_NODE 16

// The format of a flattened device tree; all its words are big-endian.
#define FDT_MAGIC 0xd00dfeed
#define FDT_BEGIN_NODE 1
#define FDT_END_NODE 2
#define FDT_PROP 3
#define FDT_NOP 4
#define FDT_END 9

struct fdt_header {
    __be32 magic;
    __be32 total_size;
    __be32 structure_offset;
    __be32 strings_offset;
    __be32 reservations_offset;
    __be32 version;
    __be32 last_compatible_version;
    __be32 boot_processor;
    __be32 strings_size;
    __be32 structure_size;
};

struct overlay {
    struct config_item item;
    struct list_head entry;
    bool written;
    bool applied;
    char nodes[NODES_SIZE];  // one line each
};

static DEFINE_MUTEX(lock);
static LIST_HEAD(overlays);
static struct dentry* directory;

static struct overlay* overlay_of(struct config_item* item) {
    return container_of(item, struct overlay, item);
}

// ---- reading a flattened tree

struct reader {
    const u8* at;
    const u8* end;
    const char* strings;
    const char* strings_end;
    int depth;
    const char* names[DEEPEST_NODE];
    const char* target;  // of the fragment that is being read
    int fragments;
};

static bool read_word(struct reader* reader, u32* word) {
    if (reader->end - reader->at < sizeof(*word)) {
        return false;
    }
    *word = be32_to_cpup((const __be32*)reader->at);
    reader->at += sizeof(*word);
    return true;
}

// Takes so many bytes and what fills them up to a whole word.
static const u8* take(struct reader* reader, u32 size) {
    const u8* taken = reader->at;

    if (size > LARGEST_OVERLAY || reader->end - reader->at < ALIGN(size, sizeof(u32))) {
        return NULL;
    }
    reader->at += ALIGN(size, sizeof(u32));
    return taken;
}

static bool is_target(const char* path) {
    return strcmp(path, "/") == 0 || strcmp(path, "/axi") == 0;
}

// The children of an __overlay__ are what an overlay adds.
static void add_node(struct overlay* overlay, const struct reader* reader, const char* name) {
    size_t length = strlen(overlay->nodes);

    if (reader->depth == 3 && strcmp(reader->names[2], "__overlay__") == 0) {
        scnprintf(overlay->nodes + length, NODES_SIZE - length, "%s/%s\n",
                  strcmp(reader->target, "/") == 0 ? "" : reader->target, name);
    }
}

static bool begin_node(struct overlay* overlay, struct reader* reader) {
    const char* name = (const char*)reader->at;
    size_t length = strnlen(name, reader->end - reader->at);

    if (!take(reader, length + 1) || reader->depth == DEEPEST_NODE) {
        return false;
    }
    if (reader->depth == 1) {
        reader->target = NULL;
    }
    if (reader->depth == 2 && strcmp(name, "__overlay__") == 0) {
        if (!reader->target || !is_target(reader->target)) {
            return false;
        }
        reader->fragments++;
    }
    add_node(overlay, reader, name);
    reader->names[reader->depth++] = name;
    return true;
}

static bool read_property(struct reader* reader) {
    u32 length, name_offset;
    const char *name, *value;

    if (!read_word(reader, &length) || !read_word(reader, &name_offset)) {
        return false;
    }
    value = (const char*)take(reader, length);
    name = reader->strings + name_offset;
    if (!value || name_offset >= reader->strings_end - reader->strings) {
        return false;
    }
    if (reader->depth == 2 && strncmp(name, "target-path", reader->strings_end - name) == 0) {
        if (length == 0 || value[length - 1] != '\0') {
            return false;
        }
        reader->target = value;
    }
    return true;
}

static bool read_tree(struct overlay* overlay, struct reader* reader) {
    u32 token;

    while (read_word(reader, &token)) {
        bool understood = true;

        switch (token) {
            case FDT_BEGIN_NODE:
                understood = begin_node(overlay, reader);
                break;
            case FDT_END_NODE:
                understood = reader->depth-- > 0;
                break;
            case FDT_PROP:
                understood = read_property(reader);
                break;
            case FDT_NOP:
                break;
            case FDT_END:
                return reader->depth == 0 && reader->fragments > 0;
            default:
                understood = false;
        }
        if (!understood) {
            return false;
        }
    }
    return false;
}

static bool lies_within(u32 offset, u32 size, size_t total) {
    return offset <= total && size <= total - offset && IS_ALIGNED(offset, sizeof(u32));
}

static bool apply(struct overlay* overlay, const void* bytes, size_t size) {
    const struct fdt_header* header = bytes;
    struct reader reader = {};
    u32 structure, structure_size, strings, strings_size;

    if (size < sizeof(*header) || be32_to_cpu(header->magic) != FDT_MAGIC ||
        be32_to_cpu(header->total_size) != size) {
        return false;
    }
    structure = be32_to_cpu(header->structure_offset);
    structure_size = be32_to_cpu(header->structure_size);
    strings = be32_to_cpu(header->strings_offset);
    strings_size = be32_to_cpu(header->strings_size);
    if (!lies_within(structure, structure_size, size) || !lies_within(strings, strings_size, size)) {
        return false;
    }
    reader.at = bytes + structure;
    reader.end = reader.at + structure_size;
    reader.strings = bytes + strings;
    reader.strings_end = reader.strings + strings_size;
    return read_tree(overlay, &reader);
}

// ---- configfs

static ssize_t overlay_dtbo_write(struct config_item* item, const void* bytes, size_t size) {
    struct overlay* overlay = overlay_of(item);

    mutex_lock(&lock);
    if (!overlay->written) {
        overlay->written = true;
        overlay->applied = apply(overlay, bytes, size);
    }
    mutex_unlock(&lock);
    return size;
}
CONFIGFS_BIN_ATTR_WO(overlay_, dtbo, NULL, LARGEST_OVERLAY);

static struct configfs_bin_attribute* overlay_bin_attrs[] = {&overlay_attr_dtbo, NULL};

static ssize_t overlay_status_show(struct config_item* item, char* text) {
    return sysfs_emit(text, "%s\n", overlay_of(item)->applied ? "applied" : "unapplied");
}
CONFIGFS_ATTR_RO(overlay_, status);

static struct configfs_attribute* overlay_attrs[] = {&overlay_attr_status, NULL};

// The directory is gone, and nobody has its files open any more.
static void overlay_release(struct config_item* item) {
    struct overlay* overlay = overlay_of(item);

    mutex_lock(&lock);
    list_del(&overlay->entry);
    mutex_unlock(&lock);
    kfree(overlay);
}

static struct configfs_item_operations overlay_item_operations = {.release = overlay_release};

static const struct config_item_type overlay_type = {
    .ct_item_ops = &overlay_item_operations,
    .ct_attrs = overlay_attrs,
    .ct_bin_attrs = overlay_bin_attrs,
    .ct_owner = THIS_MODULE,
};

static struct config_item* make_overlay(struct config_group* group, const char* name) {
    struct overlay* overlay = kzalloc(sizeof(*overlay), GFP_KERNEL);

    if (!overlay) {
        return ERR_PTR(-ENOMEM);
    }
    config_item_init_type_name(&overlay->item, name, &overlay_type);
    mutex_lock(&lock);
    list_add_tail(&overlay->entry, &overlays);
    mutex_unlock(&lock);
    return &overlay->item;
}

static struct configfs_group_operations overlays_operations = {.make_item = make_overlay};

static const struct config_item_type overlays_type = {
    .ct_group_ops = &overlays_operations,
    .ct_owner = THIS_MODULE,
};
static struct config_group overlays_group;

static const struct config_item_type tree_type = {.ct_owner = THIS_MODULE};
static struct configfs_subsystem tree = {
    .su_group = {.cg_item = {.ci_namebuf = "device-tree", .ci_type = &tree_type}},
    .su_mutex = __MUTEX_INITIALIZER(tree.su_mutex),
};

// ---- what has been added

static int nodes_show(struct seq_file* file, void* unused) {
    const struct overlay* overlay;

    mutex_lock(&lock);
    list_for_each_entry(overlay, &overlays, entry) {
        if (overlay->applied) {
            seq_puts(file, overlay->nodes);
        }
    }
    mutex_unlock(&lock);
    return 0;
}
DEFINE_SHOW_ATTRIBUTE(nodes);

static int __init board_overlay_init(void) {
    int error;

    config_group_init(&tree.su_group);
    config_group_init_type_name(&overlays_group, "overlays", &overlays_type);
    configfs_add_default_group(&overlays_group, &tree.su_group);
    error = configfs_register_subsystem(&tree);
    if (error) {
        return error;
    }
    directory = debugfs_create_dir("norv_board_overlay", NULL);
    debugfs_create_file("nodes", 0444, directory, NULL, &nodes_fops);
    return 0;
}

static void __exit board_overlay_exit(void) {
    debugfs_remove(directory);
    configfs_unregister_subsystem(&tree);
}

module_init(board_overlay_init);
module_exit(board_overlay_exit);
MODULE_LICENSE("GPL");
MODULE_DESCRIPTION("Device-tree overlays of the virtual board");
