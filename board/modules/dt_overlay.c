// SPDX-License-Identifier: GPL-2.0
//
// Device-tree overlays of the virtual board: the configfs directory device-tree/overlays, in which every
// directory that is made is an overlay with the attributes "dtbo" and "status".
//
// The board's tree has the nodes /, /axi and /interrupt-controller, the latter two with the labels `amba` and
// `gic`. A compiled overlay that is written to "dtbo" is applied when all its fragments are for one of these
// nodes, by path or by label, and all labels that it refers to are known; the kernel's log says why one is
// not. Then "status" reads "applied", and "unapplied" in any other case. As with every binary attribute of
// configfs, the file is looked at when it is closed, so a write never fails for what is in it. An overlay can
// be written once.
//
// The nodes / and /axi are buses: a node that an overlay adds to one of them becomes a platform device,
// unless its "status" is another than "okay", as the kernel's own overlays have it; it goes away with the
// overlay. The name is made of the node's: serial@a0000000 becomes a0000000.serial. The device has no
// resources and finds no driver: that would take a kernel that is built with device trees (CONFIG_OF).
//
// /sys/kernel/debug/norv_board_dt_overlay/nodes lists the nodes that the applied overlays have added.

#include <linux/configfs.h>
#include <linux/debugfs.h>
#include <linux/list.h>
#include <linux/module.h>
#include <linux/mutex.h>
#include <linux/platform_device.h>
#include <linux/seq_file.h>
#include <linux/sizes.h>
#include <linux/slab.h>

#define LARGEST_OVERLAY SZ_1M
#define MOST_NODES 16
#define MOST_FRAGMENTS 16
#define LONGEST_NAME 64
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

// A node of the board's tree.
struct base_node {
    const char* path;
    const char* label;               // null: none
    const char* bus;                 // what the names of its devices begin with; null: it is not a bus
    struct platform_device* device;  // of the bus itself, where it has one
};

static struct base_node base_nodes[] = {
    {.path = "/", .bus = ""},
    {.path = "/axi", .label = "amba", .bus = "axi:"},
    {.path = "/interrupt-controller", .label = "gic"},
};

// A node that an overlay adds.
struct added_node {
    const struct base_node* target;
    char name[LONGEST_NAME];
    bool is_available;
    struct platform_device* device;  // null: none
};

struct overlay {
    struct config_item item;
    struct list_head entry;
    bool written;
    bool applied;
    int node_count;
    struct added_node nodes[MOST_NODES];
};

static DEFINE_MUTEX(lock);
static LIST_HEAD(overlays);
static struct dentry* directory;

static struct overlay* overlay_of(struct config_item* item) {
    return container_of(item, struct overlay, item);
}

// ---- reading a flattened tree

struct fragment {
    const char* name;
    size_t name_length;
    const struct base_node* target;
};

struct reader {
    const char* overlay;  // its name
    const u8* at;
    const u8* end;
    const char* strings;
    const char* strings_end;
    int depth;
    const char* names[DEEPEST_NODE];
    // Fragments whose target is a label: they are listed after the nodes.
    struct fragment fragments[MOST_FRAGMENTS];
    int fragment_count;
    const struct base_node* target;  // of the fragment that is being read
    int applied_fragments;
};

static bool read_word(struct reader* reader, u32* word) {
    if (reader->end - reader->at < sizeof(*word)) {
        return false;
    }
    *word = be32_to_cpup((const __be32*)reader->at);
    reader->at += sizeof(*word);
    return true;
}

// Takes the given number of bytes, and those that fill them up to a whole word.
static const u8* take(struct reader* reader, u32 size) {
    const u8* taken = reader->at;

    if (size > LARGEST_OVERLAY || reader->end - reader->at < ALIGN(size, sizeof(u32))) {
        return NULL;
    }
    reader->at += ALIGN(size, sizeof(u32));
    return taken;
}

static const struct base_node* node_with_path(const char* path) {
    int index;

    for (index = 0; index < ARRAY_SIZE(base_nodes); index++) {
        if (strcmp(base_nodes[index].path, path) == 0) {
            return &base_nodes[index];
        }
    }
    return NULL;
}

static const struct base_node* node_with_label(const char* label) {
    int index;

    for (index = 0; index < ARRAY_SIZE(base_nodes); index++) {
        if (base_nodes[index].label && strcmp(base_nodes[index].label, label) == 0) {
            return &base_nodes[index];
        }
    }
    return NULL;
}

// What is read of a tree: first the labels that it refers to, then its nodes.
struct pass {
    bool (*begin_node)(struct overlay* overlay, struct reader* reader, const char* name);
    bool (*property)(struct overlay* overlay, struct reader* reader, const char* name, const char* value,
                     u32 length);
};

// ---- the labels: properties of /__fixups__, each with the places that refer to it, "/PATH:PROPERTY:OFFSET"

static bool note_node(struct overlay* overlay, struct reader* reader, const char* name) {
    return true;
}

// Of the places only the target of a fragment matters here: "/fragment@0:target:0".
static bool note_place(struct reader* reader, const char* place, const struct base_node* node) {
    const char* colon = strchr(place, ':');
    struct fragment* fragment = &reader->fragments[reader->fragment_count];

    if (place[0] != '/' || !colon) {
        return false;
    }
    if (strcmp(colon, ":target:0") != 0 || memchr(place + 1, '/', colon - place - 1)) {
        return true;
    }
    if (reader->fragment_count == MOST_FRAGMENTS) {
        return false;
    }
    fragment->name = place + 1;
    fragment->name_length = colon - fragment->name;
    fragment->target = node;
    reader->fragment_count++;
    return true;
}

static bool note_label(struct overlay* overlay, struct reader* reader, const char* name, const char* value,
                       u32 length) {
    const struct base_node* node;
    const char* place;

    if (reader->depth != 2 || strcmp(reader->names[1], "__fixups__") != 0) {
        return true;
    }
    node = node_with_label(name);
    if (!node) {
        pr_err("norv_board_dt_overlay: %s: the tree has no label %s\n", reader->overlay, name);
        return false;
    }
    if (length == 0 || value[length - 1] != '\0') {
        return false;
    }
    for (place = value; place < value + length; place += strlen(place) + 1) {
        if (!note_place(reader, place, node)) {
            return false;
        }
    }
    return true;
}

// ---- the nodes

static const struct base_node* target_by_label(const struct reader* reader, const char* name) {
    const struct fragment* fragment;

    for (fragment = reader->fragments; fragment < reader->fragments + reader->fragment_count; fragment++) {
        if (strlen(name) == fragment->name_length &&
            memcmp(name, fragment->name, fragment->name_length) == 0) {
            return fragment->target;
        }
    }
    return NULL;
}

static bool is_added_node(const struct reader* reader) {
    return reader->depth >= 3 && strcmp(reader->names[2], "__overlay__") == 0;
}

static bool add_node(struct overlay* overlay, struct reader* reader, const char* name) {
    struct added_node* node = &overlay->nodes[overlay->node_count];

    if (overlay->node_count == MOST_NODES || strscpy(node->name, name, sizeof(node->name)) < 0) {
        return false;
    }
    node->target = reader->target;
    node->is_available = true;
    overlay->node_count++;
    return true;
}

// The children of an __overlay__ are what an overlay adds.
static bool begin_added_node(struct overlay* overlay, struct reader* reader, const char* name) {
    if (reader->depth == 1) {
        reader->target = target_by_label(reader, name);
    }
    if (reader->depth == 2 && strcmp(name, "__overlay__") == 0) {
        if (!reader->target) {
            pr_err("norv_board_dt_overlay: %s: the tree has no node for %s\n", reader->overlay,
                   reader->names[1]);
            return false;
        }
        reader->applied_fragments++;
    }
    return reader->depth != 3 || !is_added_node(reader) || add_node(overlay, reader, name);
}

static bool read_property_of_node(struct overlay* overlay, struct reader* reader, const char* name,
                                  const char* value, u32 length) {
    if (reader->depth == 2 && strcmp(name, "target-path") == 0) {
        if (length == 0 || value[length - 1] != '\0') {
            return false;
        }
        reader->target = node_with_path(value);
    }
    if (reader->depth == 4 && is_added_node(reader) && strcmp(name, "status") == 0) {
        overlay->nodes[overlay->node_count - 1].is_available =
            (length == 5 && memcmp(value, "okay", 5) == 0) || (length == 3 && memcmp(value, "ok", 3) == 0);
    }
    return true;
}

static const struct pass labels_pass = {.begin_node = note_node, .property = note_label};
static const struct pass nodes_pass = {.begin_node = begin_added_node, .property = read_property_of_node};

static bool begin_node(struct overlay* overlay, struct reader* reader, const struct pass* pass) {
    const char* name = (const char*)reader->at;
    size_t length = strnlen(name, reader->end - reader->at);

    if (!take(reader, length + 1) || reader->depth == DEEPEST_NODE ||
        !pass->begin_node(overlay, reader, name)) {
        return false;
    }
    reader->names[reader->depth++] = name;
    return true;
}

static bool read_property(struct overlay* overlay, struct reader* reader, const struct pass* pass) {
    u32 length, name_offset;
    const char *name, *value;

    if (!read_word(reader, &length) || !read_word(reader, &name_offset)) {
        return false;
    }
    value = (const char*)take(reader, length);
    if (!value || name_offset >= reader->strings_end - reader->strings) {
        return false;
    }
    name = reader->strings + name_offset;
    if (strnlen(name, reader->strings_end - name) == reader->strings_end - name) {
        return false;
    }
    return pass->property(overlay, reader, name, value, length);
}

static bool read_tree(struct overlay* overlay, struct reader* reader, const struct pass* pass) {
    u32 token;

    while (read_word(reader, &token)) {
        bool understood = true;

        switch (token) {
            case FDT_BEGIN_NODE:
                understood = begin_node(overlay, reader, pass);
                break;
            case FDT_END_NODE:
                understood = reader->depth-- > 0;
                break;
            case FDT_PROP:
                understood = read_property(overlay, reader, pass);
                break;
            case FDT_NOP:
                break;
            case FDT_END:
                return reader->depth == 0;
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

static bool read_overlay(struct overlay* overlay, const void* bytes, size_t size) {
    const struct fdt_header* header = bytes;
    struct reader reader = {.overlay = overlay->item.ci_name};
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
    reader.end = bytes + structure + structure_size;
    reader.strings = bytes + strings;
    reader.strings_end = reader.strings + strings_size;
    reader.at = bytes + structure;
    if (!read_tree(overlay, &reader, &labels_pass)) {
        return false;
    }
    reader.at = bytes + structure;
    return read_tree(overlay, &reader, &nodes_pass) && reader.applied_fragments > 0;
}

// ---- the devices

// ADDRESS.NAME for NAME@ADDRESS, and BUS:NAME for a node without an address.
static void name_device(const struct added_node* node, char* name, size_t size) {
    const char* at = strchr(node->name, '@');

    if (at) {
        snprintf(name, size, "%s.%.*s", at + 1, (int)(at - node->name), node->name);
    } else {
        snprintf(name, size, "%s%s", node->target->bus, node->name);
    }
}

// As in the kernel, a device that cannot be made does not keep the overlay from being applied.
static void add_device(struct added_node* node) {
    struct platform_device_info info = {.id = PLATFORM_DEVID_NONE};
    char name[2 * LONGEST_NAME];

    if (!node->target->bus || !node->is_available) {
        return;
    }
    name_device(node, name, sizeof(name));
    info.name = name;
    info.parent = node->target->device ? &node->target->device->dev : NULL;
    node->device = platform_device_register_full(&info);
    if (IS_ERR(node->device)) {
        pr_err("norv_board_dt_overlay: the device %s cannot be made (%ld)\n", name, PTR_ERR(node->device));
        node->device = NULL;
    }
}

static bool apply(struct overlay* overlay, const void* bytes, size_t size) {
    int index;

    if (!read_overlay(overlay, bytes, size)) {
        return false;
    }
    for (index = 0; index < overlay->node_count; index++) {
        add_device(&overlay->nodes[index]);
    }
    return true;
}

static void take_back(struct overlay* overlay) {
    while (overlay->node_count > 0) {
        platform_device_unregister(overlay->nodes[--overlay->node_count].device);
    }
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

// The directory is gone, and its files are not open any longer.
static void overlay_release(struct config_item* item) {
    struct overlay* overlay = overlay_of(item);

    mutex_lock(&lock);
    list_del(&overlay->entry);
    mutex_unlock(&lock);
    take_back(overlay);
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
    int index;

    mutex_lock(&lock);
    list_for_each_entry(overlay, &overlays, entry) {
        for (index = 0; overlay->applied && index < overlay->node_count; index++) {
            const struct added_node* node = &overlay->nodes[index];

            seq_printf(file, "%s/%s\n", node->target->path[1] ? node->target->path : "", node->name);
        }
    }
    mutex_unlock(&lock);
    return 0;
}
DEFINE_SHOW_ATTRIBUTE(nodes);

static struct base_node* axi_bus = &base_nodes[1];

static bool has_own_bus;

// A machine with a device tree of its own may have this bus.
static struct platform_device* find_bus(void) {
    struct device* found = bus_find_device_by_name(&platform_bus_type, NULL, "axi");

    has_own_bus = found != NULL;
    return found ? to_platform_device(found)
                 : platform_device_register_simple("axi", PLATFORM_DEVID_NONE, NULL, 0);
}

static void release_bus(void) {
    if (has_own_bus) {
        put_device(&axi_bus->device->dev);
    } else {
        platform_device_unregister(axi_bus->device);
    }
}

static int __init board_overlay_init(void) {
    int error;

    axi_bus->device = find_bus();
    if (IS_ERR(axi_bus->device)) {
        return PTR_ERR(axi_bus->device);
    }
    config_group_init(&tree.su_group);
    config_group_init_type_name(&overlays_group, "overlays", &overlays_type);
    configfs_add_default_group(&overlays_group, &tree.su_group);
    error = configfs_register_subsystem(&tree);
    if (error) {
        release_bus();
        return error;
    }
    directory = debugfs_create_dir("norv_board_dt_overlay", NULL);
    debugfs_create_file("nodes", 0444, directory, NULL, &nodes_fops);
    return 0;
}

static void __exit board_overlay_exit(void) {
    debugfs_remove(directory);
    configfs_unregister_subsystem(&tree);
    release_bus();
}

module_init(board_overlay_init);
module_exit(board_overlay_exit);
MODULE_LICENSE("GPL");
MODULE_DESCRIPTION("Device-tree overlays of the virtual board");
