// SPDX-License-Identifier: GPL-2.0
//
// The UMCB devices of the virtual board:
//
//   norv-board-control  umcb0: one page of registers, and an interrupt controller with four sources
//   umcb_pci_mmap       a PCI device whose identity was written to "new_id" of the driver umcb_pci_generic:
//   its
//                       BAR 0, no sources
//
// Registers of norv-board-control, in the processor's byte order; all others are plain memory:
//
//   0x00  identity, 0x554D4342
//   0x04  number of sources
//   0x10  interrupts that came from source 0, and so on
//
// Mode 0 leaves the registers as they are, mode 1 clears those that are plain memory; there are no others.
// Types are 0 (edge) and 1 (level); a source has the type that was set before it was registered. A source is
// registered once at a time, until its descriptor is closed.
//
// In /sys/kernel/debug/norv_board_umcb/ a number N written to `source0/raise` makes that source interrupt N
// more times, each time `delay_us` after it could: the device and the source are enabled, and the last event
// was cleared. `pending` shows how many are still to come, `registered`, `enabled` and `type` the source's
// state, `clears` how often an event was cleared. For the device `mode` and `modes` show the last mode and
// how often one was given, `enabled` whether it is enabled, and `registers` holds the page as the driver sees
// it.

#include <linux/anon_inodes.h>
#include <linux/cdev.h>
#include <linux/debugfs.h>
#include <linux/file.h>
#include <linux/hrtimer.h>
#include <linux/idr.h>
#include <linux/mm.h>
#include <linux/module.h>
#include <linux/pci.h>
#include <linux/platform_device.h>
#include <linux/poll.h>
#include <linux/slab.h>
#include <linux/spinlock.h>
#include <linux/uaccess.h>

#include "kernel_versions.h"

#define IDENTITY 0x554D4342
#define MOST_DEVICES 8
#define SOURCES 4
#define PLAIN_REGISTERS 0x100

enum { REG_IDENTITY, REG_SOURCES, REG_COUNTS = 0x10 / 4 };
enum { MODE_KEEP, MODE_CLEAR, MODES };
enum { TYPE_EDGE, TYPE_LEVEL, TYPES };

struct registration {
    __u32 irq;
    __u32 fd;
};

#define REQUEST_MODE _IOW('m', 0, __s32)
#define REQUEST_ENABLE_ALL _IO('m', 1)
#define REQUEST_DISABLE_ALL _IO('m', 2)
#define REQUEST_REGISTER _IOWR('m', 3, struct registration)
#define REQUEST_TYPE _IOW('m', 4, __u32)
#define REQUEST_ENABLE _IO('r', 0)
#define REQUEST_DISABLE _IO('r', 1)
#define REQUEST_CLEAR _IO('r', 2)

struct umcb {
    struct device dev;
    struct cdev cdev;
    const char* name;
    phys_addr_t address;
    resource_size_t size;
    bool has_sources;
    struct kobject* maps;
    struct kobject* map0;
};

// The sources of umcb0.
struct source {
    u32 number;
    u32 type;
    u32 pending;
    u32 clears;
    bool registered;
    bool enabled;
    bool event;
    struct hrtimer timer;
    wait_queue_head_t wait;
};

static dev_t first_number;
static struct class* umcb_class;
static DEFINE_IDA(numbers);

static struct platform_device* parent;
static struct umcb* control;
static u32* registers;
static struct source sources[SOURCES];
static DEFINE_SPINLOCK(lock);
static u32 mode;
static u32 modes;
static u32 type;
static u32 delay_us = 10;
static bool enabled;

static struct dentry* directory;
static struct debugfs_blob_wrapper blob;

// ---- the sources

static bool is_due(const struct source* source) {
    return enabled && source->enabled && source->pending && !source->event;
}

// With the lock held.
static void start_if_due(struct source* source) {
    if (is_due(source)) {
        hrtimer_start(&source->timer, ns_to_ktime(delay_us * NSEC_PER_USEC), HRTIMER_MODE_REL);
    }
}

static enum hrtimer_restart interrupt(struct hrtimer* expired) {
    struct source* source = container_of(expired, struct source, timer);
    u32* count = &registers[REG_COUNTS + source->number];
    bool comes;

    spin_lock(&lock);
    comes = is_due(source);
    if (comes) {
        source->pending--;
        source->event = true;
        WRITE_ONCE(*count, *count + 1);
    }
    spin_unlock(&lock);
    if (comes) {
        wake_up_interruptible_poll(&source->wait, EPOLLPRI);
    }
    return HRTIMER_NORESTART;
}

static int raise_interrupts(void* data, u64 count) {
    struct source* source = data;
    unsigned long flags;

    spin_lock_irqsave(&lock, flags);
    source->pending += count;
    start_if_due(source);
    spin_unlock_irqrestore(&lock, flags);
    return 0;
}
DEFINE_DEBUGFS_ATTRIBUTE(raise_operations, NULL, raise_interrupts, "%llu\n");

static long control_source(struct file* file, unsigned int request, unsigned long argument) {
    struct source* source = file->private_data;
    unsigned long flags;
    long result = 0;

    spin_lock_irqsave(&lock, flags);
    switch (request) {
        case REQUEST_ENABLE:
            source->enabled = true;
            break;
        case REQUEST_DISABLE:
            source->enabled = false;
            break;
        case REQUEST_CLEAR:
            source->event = false;
            source->clears++;
            break;
        default:
            result = -ENOTTY;
    }
    start_if_due(source);
    spin_unlock_irqrestore(&lock, flags);
    return result;
}

static __poll_t poll_source(struct file* file, poll_table* table) {
    struct source* source = file->private_data;

    poll_wait(file, &source->wait, table);
    return READ_ONCE(source->event) ? EPOLLPRI : 0;
}

static int release_source(struct inode* inode, struct file* file) {
    struct source* source = file->private_data;
    unsigned long flags;

    spin_lock_irqsave(&lock, flags);
    source->registered = false;
    source->enabled = false;
    source->event = false;
    spin_unlock_irqrestore(&lock, flags);
    return 0;
}

static const struct file_operations source_operations = {
    .owner = THIS_MODULE,
    .unlocked_ioctl = control_source,
    .poll = poll_source,
    .release = release_source,
    .llseek = noop_llseek,
};

// ---- the devices' requests

static int take_source(struct source* source) {
    unsigned long flags;
    bool taken;

    spin_lock_irqsave(&lock, flags);
    taken = source->registered;
    source->registered = true;
    if (!taken) {
        source->type = type;
    }
    spin_unlock_irqrestore(&lock, flags);
    return taken ? -EBUSY : 0;
}

// Opens a descriptor for a source that was taken, and returns its number.
static int open_source(struct source* source, struct registration __user* out) {
    struct file* file = anon_inode_getfile("[umcb-irq]", &source_operations, source, O_RDWR);
    int fd;

    if (IS_ERR(file)) {
        source->registered = false;
        return PTR_ERR(file);
    }
    fd = get_unused_fd_flags(O_CLOEXEC);
    if (fd < 0 || put_user(fd, &out->fd)) {
        if (fd >= 0) {
            put_unused_fd(fd);
        }
        fput(file);
        return fd < 0 ? fd : -EFAULT;
    }
    fd_install(fd, file);
    return 0;
}

static int register_source(const struct umcb* umcb, struct registration __user* argument) {
    struct registration registration;
    int error;

    if (copy_from_user(&registration, argument, sizeof(registration))) {
        return -EFAULT;
    }
    if (!umcb->has_sources || registration.irq >= SOURCES) {
        return -EINVAL;
    }
    error = take_source(&sources[registration.irq]);
    return error ? error : open_source(&sources[registration.irq], argument);
}

static int enable_all(bool enable) {
    unsigned long flags;
    int number;

    spin_lock_irqsave(&lock, flags);
    enabled = enable;
    for (number = 0; number < SOURCES; number++) {
        start_if_due(&sources[number]);
    }
    spin_unlock_irqrestore(&lock, flags);
    return 0;
}

static int set_type(u32 __user* argument) {
    u32 given;

    if (get_user(given, argument)) {
        return -EFAULT;
    }
    if (given >= TYPES) {
        return -EINVAL;
    }
    type = given;
    return 0;
}

static int set_mode(const struct umcb* umcb, s32 __user* argument) {
    s32 given;

    if (get_user(given, argument)) {
        return -EFAULT;
    }
    modes++;
    mode = given;
    if (given < 0 || given >= MODES) {
        return -EINVAL;
    }
    if (given == MODE_CLEAR && umcb == control) {
        memset((u8*)registers + PLAIN_REGISTERS, 0, PAGE_SIZE - PLAIN_REGISTERS);
    }
    return 0;
}

static long control_device(struct file* file, unsigned int request, unsigned long argument) {
    const struct umcb* umcb = file->private_data;

    switch (request) {
        case REQUEST_MODE:
            return set_mode(umcb, (s32 __user*)argument);
        case REQUEST_REGISTER:
            return register_source(umcb, (struct registration __user*)argument);
        case REQUEST_TYPE:
            return umcb->has_sources ? set_type((u32 __user*)argument) : -EINVAL;
        case REQUEST_ENABLE_ALL:
            return umcb->has_sources ? enable_all(true) : -EINVAL;
        case REQUEST_DISABLE_ALL:
            return umcb->has_sources ? enable_all(false) : -EINVAL;
        default:
            return -ENOTTY;
    }
}

// ---- the devices' nodes

static int open_device(struct inode* inode, struct file* file) {
    file->private_data = container_of(inode->i_cdev, struct umcb, cdev);
    return 0;
}

static int map_device(struct file* file, struct vm_area_struct* area) {
    const struct umcb* umcb = file->private_data;
    const unsigned long size = area->vm_end - area->vm_start;

    if (area->vm_pgoff || size > PAGE_ALIGN(umcb->size)) {
        return -EINVAL;
    }
    if (!umcb->has_sources) {
        area->vm_page_prot = pgprot_noncached(area->vm_page_prot);
    }
    return remap_pfn_range(area, area->vm_start, PHYS_PFN(umcb->address), size, area->vm_page_prot);
}

static const struct file_operations device_operations = {
    .owner = THIS_MODULE,
    .open = open_device,
    .mmap = map_device,
    .unlocked_ioctl = control_device,
    .llseek = noop_llseek,
};

// ---- their entries in sysfs

static ssize_t name_show(struct device* dev, struct device_attribute* attribute, char* text) {
    return sysfs_emit(text, "%s\n", container_of(dev, struct umcb, dev)->name);
}
static DEVICE_ATTR_RO(name);

static struct attribute* device_attrs[] = {&dev_attr_name.attr, NULL};
ATTRIBUTE_GROUPS(device);

// Of maps/map0.
static ssize_t size_show(struct kobject* map0, struct kobj_attribute* attribute, char* text) {
    struct umcb* umcb = container_of(kobj_to_dev(map0->parent->parent), struct umcb, dev);

    return sysfs_emit(text, "%pa\n", &umcb->size);
}
static struct kobj_attribute size_attribute = __ATTR_RO(size);

static void remove_map(struct umcb* umcb) {
    kobject_put(umcb->map0);
    kobject_put(umcb->maps);
}

static int add_map(struct umcb* umcb) {
    int error;

    umcb->maps = kobject_create_and_add("maps", &umcb->dev.kobj);
    umcb->map0 = umcb->maps ? kobject_create_and_add("map0", umcb->maps) : NULL;
    error = umcb->map0 ? sysfs_create_file(umcb->map0, &size_attribute.attr) : -ENOMEM;
    if (error) {
        remove_map(umcb);
    }
    return error;
}

// ---- devices

static void release_device(struct device* dev) {
    ida_free(&numbers, MINOR(dev->devt));
    kfree(container_of(dev, struct umcb, dev));
}

static struct umcb* new_device(struct device* on, const char* name) {
    struct umcb* umcb = kzalloc(sizeof(*umcb), GFP_KERNEL);
    const int number = ida_alloc_max(&numbers, MOST_DEVICES - 1, GFP_KERNEL);

    if (!umcb || number < 0) {
        if (number >= 0) {
            ida_free(&numbers, number);
        }
        kfree(umcb);
        return NULL;
    }
    device_initialize(&umcb->dev);
    umcb->dev.class = umcb_class;
    umcb->dev.parent = on;
    umcb->dev.devt = MKDEV(MAJOR(first_number), number);
    umcb->dev.groups = device_groups;
    umcb->dev.release = release_device;
    umcb->name = name;
    cdev_init(&umcb->cdev, &device_operations);
    umcb->cdev.owner = THIS_MODULE;
    return umcb;
}

static int add_device(struct umcb* umcb) {
    int error = dev_set_name(&umcb->dev, "umcb%d", MINOR(umcb->dev.devt));

    if (!error) {
        error = cdev_device_add(&umcb->cdev, &umcb->dev);
    }
    if (!error) {
        error = add_map(umcb);
        if (error) {
            cdev_device_del(&umcb->cdev, &umcb->dev);
        }
    }
    if (error) {
        put_device(&umcb->dev);
    }
    return error;
}

static void remove_device(struct umcb* umcb) {
    remove_map(umcb);
    cdev_device_del(&umcb->cdev, &umcb->dev);
    put_device(&umcb->dev);
}

// ---- PCI

static int probe(struct pci_dev* device, const struct pci_device_id* id) {
    struct umcb* umcb;
    int error = pcim_enable_device(device);

    if (error) {
        return error;
    }
    if (!pci_resource_len(device, 0)) {
        return -ENODEV;
    }
    umcb = new_device(&device->dev, "umcb_pci_mmap");
    if (!umcb) {
        return -ENOMEM;
    }
    umcb->address = pci_resource_start(device, 0);
    umcb->size = pci_resource_len(device, 0);
    pci_set_drvdata(device, umcb);
    return add_device(umcb);
}

static void remove(struct pci_dev* device) {
    remove_device(pci_get_drvdata(device));
}

static struct pci_driver pci_driver = {
    .name = "umcb_pci_generic",
    .probe = probe,
    .remove = remove,
};

// ---- umcb0

static void add_debug_files(void) {
    struct dentry* place;
    char name[16];
    int number;

    directory = debugfs_create_dir("norv_board_umcb", NULL);
    blob.data = registers;
    blob.size = PAGE_SIZE;
    debugfs_create_u32("mode", 0400, directory, &mode);
    debugfs_create_u32("modes", 0400, directory, &modes);
    debugfs_create_bool("enabled", 0400, directory, &enabled);
    debugfs_create_u32("delay_us", 0600, directory, &delay_us);
    debugfs_create_blob("registers", 0400, directory, &blob);
    for (number = 0; number < SOURCES; number++) {
        snprintf(name, sizeof(name), "source%d", number);
        place = debugfs_create_dir(name, directory);
        debugfs_create_file("raise", 0200, place, &sources[number], &raise_operations);
        debugfs_create_u32("pending", 0400, place, &sources[number].pending);
        debugfs_create_u32("type", 0400, place, &sources[number].type);
        debugfs_create_u32("clears", 0400, place, &sources[number].clears);
        debugfs_create_bool("registered", 0400, place, &sources[number].registered);
        debugfs_create_bool("enabled", 0400, place, &sources[number].enabled);
    }
}

static void set_up_sources(void) {
    int number;

    registers[REG_IDENTITY] = IDENTITY;
    registers[REG_SOURCES] = SOURCES;
    for (number = 0; number < SOURCES; number++) {
        sources[number].number = number;
        init_waitqueue_head(&sources[number].wait);
        board_timer_init(&sources[number].timer, interrupt);
    }
}

static int add_control(void) {
    int error = -ENOMEM;

    registers = (u32*)get_zeroed_page(GFP_KERNEL);
    control = registers ? new_device(&parent->dev, "norv-board-control") : NULL;
    if (control) {
        set_up_sources();
        control->has_sources = true;
        control->address = virt_to_phys(registers);
        control->size = PAGE_SIZE;
        error = add_device(control);
    }
    if (error) {
        free_page((unsigned long)registers);
    }
    return error;
}

static void remove_control(void) {
    int number;

    remove_device(control);
    for (number = 0; number < SOURCES; number++) {
        hrtimer_cancel(&sources[number].timer);
    }
    free_page((unsigned long)registers);
}

// ---- the module

static int create_class(void) {
    int error = alloc_chrdev_region(&first_number, 0, MOST_DEVICES, "umcb");

    if (error) {
        return error;
    }
    umcb_class = board_class_create("umcb");
    if (IS_ERR(umcb_class)) {
        unregister_chrdev_region(first_number, MOST_DEVICES);
        return PTR_ERR(umcb_class);
    }
    return 0;
}

static void destroy_class(void) {
    class_destroy(umcb_class);
    unregister_chrdev_region(first_number, MOST_DEVICES);
}

static int add_devices(void) {
    int error;

    parent = platform_device_register_simple("norv-board-umcb", PLATFORM_DEVID_NONE, NULL, 0);
    if (IS_ERR(parent)) {
        return PTR_ERR(parent);
    }
    error = add_control();
    if (error) {
        goto no_control;
    }
    error = pci_register_driver(&pci_driver);
    if (error) {
        goto no_driver;
    }
    return 0;
no_driver:
    remove_control();
no_control:
    platform_device_unregister(parent);
    return error;
}

static int __init board_umcb_init(void) {
    int error = create_class();

    if (error) {
        return error;
    }
    error = add_devices();
    if (error) {
        destroy_class();
        return error;
    }
    add_debug_files();
    return 0;
}

static void __exit board_umcb_exit(void) {
    debugfs_remove_recursive(directory);
    pci_unregister_driver(&pci_driver);
    remove_control();
    platform_device_unregister(parent);
    destroy_class();
}

module_init(board_umcb_init);
module_exit(board_umcb_exit);
MODULE_LICENSE("GPL");
MODULE_DESCRIPTION("UMCB devices of the virtual board, one with interrupt sources");
