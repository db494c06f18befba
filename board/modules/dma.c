// SPDX-License-Identifier: GPL-2.0
//
// The driver of /dev/uio-dma on the virtual board, with a device that moves data by DMA.
//
// Buffers are dma-bufs, listed in /sys/kernel/debug/dma_buf/bufinfo and in /proc/PID/fdinfo/FD under names
// that select where their memory comes from: single pages ("norv_board_dma_default"), the kernel's allocator
// ("..._kmalloc", 4 MiB at most), contiguous pages ("..._cma"), pages of the process that asked ("..._user",
// whole pages), or 256 KiB that were set aside when the module was loaded ("..._reserved").
//
// Locking maps a buffer for the device; a buffer is locked once at a time, and unlocked at the latest when
// the manager is closed. An entry of the list is the address and the length in bytes of one piece of memory,
// 64 bits each.
//
// The device does not see the processor's cache: it works on a copy of the buffer, as if that were the memory
// below the cache, which is brought up to date where a driver on such a processor does it. Locking, and the
// end of an access for writing (DMA_BUF_IOCTL_SYNC) bring what was written to the device; unlocking, and the
// begin of an access for reading bring what the device has written to the process, and what the process has
// written since then without a sync is lost. An access is synchronised only while the buffer is locked, as
// locking does it anyway. With the parameter coherent=Y there is no copy, and a forgotten sync makes no
// difference.
//
// A scatter-gather sync moves bytes of a locked buffer, from the offset in the 64-bit value and as many as
// the 32-bit value says: direction 0 into the device's own 64 KiB, direction 1 from there into the buffer. It
// synchronises these bytes, and no others.
//
// The device is started without any sync by writing "ADDRESS LENGTH" to /sys/kernel/debug/norv_board_dma/take
// or put: it takes that many bytes at an address from the entries of a locked buffer into its own memory, or
// puts them there from its memory, which the file `memory` shows. At another address it fails (-EFAULT).
//
// /sys/kernel/debug/norv_board_dma/ shows what the driver saw: `buffers` and `locks` that there are now, how
// often access by the processor began and ended (`begins`, `ends`) and its direction the last time (1:
// written to the device, 2: read from it), and the values of the last scatter-gather sync.

#include <linux/debugfs.h>
#include <linux/dma-buf.h>
#include <linux/dma-mapping.h>
#include <linux/genalloc.h>
#include <linux/highmem.h>
#include <linux/miscdevice.h>
#include <linux/mm.h>
#include <linux/module.h>
#include <linux/platform_device.h>
#include <linux/slab.h>
#include <linux/uaccess.h>
#include <linux/vmalloc.h>

#include "kernel_versions.h"

#define RESERVED_SIZE (256 * 1024)
#define LARGEST_BUFFER (64 * 1024 * 1024)
#define DEVICE_MEMORY (64 * 1024)

enum { MEMORY_DEFAULT, MEMORY_KMALLOC, MEMORY_CMA, MEMORY_USER, MEMORY_RESERVED, MEMORY_TYPES };

static const char* const exporter_names[MEMORY_TYPES] = {
    "norv_board_dma_default", "norv_board_dma_kmalloc",  "norv_board_dma_cma",
    "norv_board_dma_user",    "norv_board_dma_reserved",
};

struct create_request {
    __u64 size;
    __u32 type;
    __u32 reserved;
    __s32 fd;
    __u32 padding;
    __u64 address;
};

struct lock_request {
    __s32 fd;
    __u32 count;
};

struct entries_request {
    __s32 fd;
    __u32 count;
    __u64 array;
};

struct sync_request {
    __s32 fd;
    __u32 direction;
    __u32 length;
    __u32 padding;
    __u64 offset;
};

struct entry {
    __u64 address;
    __u64 length;
};

#define REQUEST_CREATE _IOWR('U', 0, struct create_request)
#define REQUEST_LOCK _IOWR('U', 1, struct lock_request)
#define REQUEST_UNLOCK _IOW('U', 2, __s32)
#define REQUEST_ENTRIES _IOWR('U', 3, struct entries_request)
#define REQUEST_SYNC _IOW('U', 4, struct sync_request)

static bool coherent;
module_param(coherent, bool, 0444);
MODULE_PARM_DESC(coherent, "whether the device sees the processor's cache (default N)");

struct buffer {
    u32 type;
    u8* below_cache;        // what the device sees; null where it sees the pages
    atomic_t mapped;        // how many times it is mapped for a device
    size_t size;            // in bytes, whole pages
    unsigned int pages;     // that the buffer has so far
    struct page** page;     // in their order
    void* memory;           // of a contiguous buffer
    dma_addr_t cma_handle;  // of one from the pool for contiguous memory
};

struct lock {
    struct list_head list;  // of its manager
    struct list_head all;
    struct dma_buf* dmabuf;
    struct dma_buf_attachment* attachment;
    struct sg_table* table;
};

// One open of the manager.
struct manager {
    struct mutex mutex;
    struct list_head locks;
};

static struct platform_device* device;
static void* reserved_memory;
static struct gen_pool* reserved_pool;
static u8* device_memory;
static DEFINE_MUTEX(device_mutex);  // whatever moves data, and the list of all locks
static LIST_HEAD(all_locks);
static struct debugfs_blob_wrapper memory_blob;
static struct dentry* directory;

static struct {
    atomic_t buffers;
    atomic_t locks;
    atomic_t begins;
    atomic_t ends;
    u32 begin_direction;
    u32 end_direction;
    u32 sg_sync_direction;
    u32 sg_sync_value32;
    u64 sg_sync_value64;
} seen;

// ---- memory

static int obtain_single_pages(struct buffer* buffer, unsigned int count) {
    while (buffer->pages < count) {
        struct page* page = alloc_page(GFP_KERNEL | __GFP_ZERO);

        if (!page)
            return -ENOMEM;
        buffer->page[buffer->pages++] = page;
    }
    return 0;
}

static int obtain_pages_of_process(struct buffer* buffer, unsigned int count, u64 address) {
    int pinned;

    if (!PAGE_ALIGNED(address))
        return -EINVAL;
    pinned = pin_user_pages_fast(address, count, FOLL_WRITE | FOLL_LONGTERM, buffer->page);
    if (pinned < 0)
        return pinned;
    buffer->pages = pinned;
    return pinned == count ? 0 : -EFAULT;
}

static void* obtain_contiguous(struct buffer* buffer) {
    struct page* page;

    switch (buffer->type) {
        case MEMORY_KMALLOC:
            return kzalloc(buffer->size, GFP_KERNEL | __GFP_NOWARN);
        case MEMORY_CMA:
            page = dma_alloc_pages(&device->dev, buffer->size, &buffer->cma_handle, DMA_BIDIRECTIONAL,
                                   GFP_KERNEL | __GFP_ZERO | __GFP_NOWARN);
            return page ? page_address(page) : NULL;
        default:
            return (void*)gen_pool_alloc(reserved_pool, buffer->size);
    }
}

static int obtain_contiguous_pages(struct buffer* buffer, unsigned int count) {
    buffer->memory = obtain_contiguous(buffer);
    if (!buffer->memory)
        return -ENOMEM;
    memset(buffer->memory, 0, buffer->size);
    for (; buffer->pages < count; buffer->pages++)
        buffer->page[buffer->pages] = virt_to_page(buffer->memory + buffer->pages * PAGE_SIZE);
    return 0;
}

static int obtain_memory(struct buffer* buffer, u64 address) {
    unsigned int count = buffer->size / PAGE_SIZE;

    buffer->page = kvcalloc(count, sizeof(*buffer->page), GFP_KERNEL);
    if (!buffer->page)
        return -ENOMEM;
    switch (buffer->type) {
        case MEMORY_DEFAULT:
            return obtain_single_pages(buffer, count);
        case MEMORY_USER:
            return obtain_pages_of_process(buffer, count, address);
        default:
            return obtain_contiguous_pages(buffer, count);
    }
}

static void free_contiguous(struct buffer* buffer) {
    if (!buffer->memory)
        return;
    switch (buffer->type) {
        case MEMORY_KMALLOC:
            kfree(buffer->memory);
            break;
        case MEMORY_CMA:
            dma_free_pages(&device->dev, buffer->size, virt_to_page(buffer->memory), buffer->cma_handle,
                           DMA_BIDIRECTIONAL);
            break;
        default:
            gen_pool_free(reserved_pool, (unsigned long)buffer->memory, buffer->size);
    }
}

static void free_buffer(struct buffer* buffer) {
    unsigned int index;

    if (buffer->type == MEMORY_USER)
        unpin_user_pages_dirty_lock(buffer->page, buffer->pages, true);
    for (index = 0; buffer->type == MEMORY_DEFAULT && index < buffer->pages; index++)
        __free_page(buffer->page[index]);
    free_contiguous(buffer);
    vfree(buffer->below_cache);
    kvfree(buffer->page);
    kfree(buffer);
}

// ---- the cache

// Copies bytes between the pages and what the device sees.
static void copy_through(struct buffer* buffer, bool to_device, size_t offset, size_t length) {
    while (buffer->below_cache && length > 0) {
        size_t in_page = offset % PAGE_SIZE;
        size_t part = min_t(size_t, length, PAGE_SIZE - in_page);
        u8* page = board_map_page(buffer->page[offset / PAGE_SIZE]);

        if (to_device)
            memcpy(buffer->below_cache + offset, page + in_page, part);
        else
            memcpy(page + in_page, buffer->below_cache + offset, part);
        board_unmap_page(page);
        offset += part;
        length -= part;
    }
}

// To the device: cleans the cache; from it: invalidates the cache.
static void synchronise(struct buffer* buffer, bool to_device) {
    mutex_lock(&device_mutex);
    copy_through(buffer, to_device, 0, buffer->size);
    mutex_unlock(&device_mutex);
}

// Moves bytes between the device's own memory and what it sees of a buffer.
static void move_bytes(struct buffer* buffer, bool from_device, size_t offset, size_t length) {
    u8* memory = device_memory;

    while (length > 0) {
        size_t in_page = offset % PAGE_SIZE;
        size_t part = min_t(size_t, length, PAGE_SIZE - in_page);
        u8* page = board_map_page(buffer->page[offset / PAGE_SIZE]);
        u8* bytes = buffer->below_cache ? buffer->below_cache + offset : page + in_page;

        memcpy(from_device ? bytes : memory, from_device ? memory : bytes, part);
        board_unmap_page(page);
        memory += part;
        offset += part;
        length -= part;
    }
}

// ---- a buffer as a dma-buf

// Contiguous memory is one piece; of other memory each page is one.
static int list_pieces(struct buffer* buffer, struct sg_table* table) {
    unsigned int count = buffer->memory ? 1 : buffer->pages;
    size_t length = buffer->size / count;
    struct scatterlist* piece;
    unsigned int index;
    int error = sg_alloc_table(table, count, GFP_KERNEL);

    if (error)
        return error;
    for_each_sgtable_sg(table, piece, index) sg_set_page(piece, buffer->page[index], length, 0);
    return 0;
}

static struct sg_table* map_for_device(struct dma_buf_attachment* attachment,
                                       enum dma_data_direction direction) {
    struct sg_table* table = kzalloc(sizeof(*table), GFP_KERNEL);
    struct buffer* buffer = attachment->dmabuf->priv;
    int error;

    if (!table)
        return ERR_PTR(-ENOMEM);
    error = list_pieces(buffer, table);
    if (error)
        goto free_table;
    error = dma_map_sgtable(attachment->dev, table, direction, 0);
    if (error)
        goto free_pieces;
    atomic_inc(&buffer->mapped);
    synchronise(buffer, true);
    return table;

free_pieces:
    sg_free_table(table);
free_table:
    kfree(table);
    return ERR_PTR(error);
}

static void unmap_for_device(struct dma_buf_attachment* attachment, struct sg_table* table,
                             enum dma_data_direction direction) {
    struct buffer* buffer = attachment->dmabuf->priv;

    synchronise(buffer, false);
    atomic_dec(&buffer->mapped);
    dma_unmap_sgtable(attachment->dev, table, direction, 0);
    sg_free_table(table);
    kfree(table);
}

static int map_into_process(struct dma_buf* dmabuf, struct vm_area_struct* area) {
    struct buffer* buffer = dmabuf->priv;
    unsigned long address = area->vm_start;
    unsigned int index = area->vm_pgoff;
    int error = 0;

    for (; address < area->vm_end && !error; address += PAGE_SIZE, index++)
        error =
            remap_pfn_range(area, address, page_to_pfn(buffer->page[index]), PAGE_SIZE, area->vm_page_prot);
    return error;
}

static int begin_access(struct dma_buf* dmabuf, enum dma_data_direction direction) {
    struct buffer* buffer = dmabuf->priv;

    atomic_inc(&seen.begins);
    seen.begin_direction = direction;
    if (atomic_read(&buffer->mapped) && direction != DMA_TO_DEVICE)
        synchronise(buffer, false);
    return 0;
}

static int end_access(struct dma_buf* dmabuf, enum dma_data_direction direction) {
    struct buffer* buffer = dmabuf->priv;

    atomic_inc(&seen.ends);
    seen.end_direction = direction;
    if (atomic_read(&buffer->mapped) && direction != DMA_FROM_DEVICE)
        synchronise(buffer, true);
    return 0;
}

static void release_buffer(struct dma_buf* dmabuf) {
    free_buffer(dmabuf->priv);
    atomic_dec(&seen.buffers);
}

static const struct dma_buf_ops buffer_operations = {
    .map_dma_buf = map_for_device,
    .unmap_dma_buf = unmap_for_device,
    .mmap = map_into_process,
    .begin_cpu_access = begin_access,
    .end_cpu_access = end_access,
    .release = release_buffer,
};

// ---- create

static struct buffer* new_buffer(const struct create_request* request) {
    struct buffer* buffer = kzalloc(sizeof(*buffer), GFP_KERNEL);
    int error;

    if (!buffer)
        return ERR_PTR(-ENOMEM);
    buffer->type = request->type;
    buffer->size = PAGE_ALIGN(request->size);
    error = obtain_memory(buffer, request->address);
    if (!error && !coherent) {
        buffer->below_cache = vzalloc(buffer->size);
        error = buffer->below_cache ? 0 : -ENOMEM;
    }
    if (!error)
        return buffer;
    free_buffer(buffer);
    return ERR_PTR(error);
}

static int export_buffer(struct buffer* buffer) {
    DEFINE_DMA_BUF_EXPORT_INFO(info);
    struct dma_buf* dmabuf;
    int fd;

    info.exp_name = exporter_names[buffer->type];
    info.ops = &buffer_operations;
    info.size = buffer->size;
    info.flags = O_RDWR;
    info.priv = buffer;
    dmabuf = dma_buf_export(&info);
    if (IS_ERR(dmabuf)) {
        free_buffer(buffer);
        return PTR_ERR(dmabuf);
    }
    atomic_inc(&seen.buffers);
    fd = dma_buf_fd(dmabuf, O_CLOEXEC);
    if (fd < 0)
        dma_buf_put(dmabuf);
    return fd;
}

static int create(struct create_request* request) {
    struct buffer* buffer;

    if (request->size == 0 || request->type >= MEMORY_TYPES || request->reserved != 0 || request->fd != -1)
        return -EINVAL;
    if (request->type != MEMORY_USER && request->address != 0)
        return -EINVAL;
    if (request->size > LARGEST_BUFFER)
        return -ENOMEM;
    buffer = new_buffer(request);
    if (IS_ERR(buffer))
        return PTR_ERR(buffer);
    request->fd = export_buffer(buffer);
    return request->fd < 0 ? request->fd : 0;
}

// ---- lock

static struct lock* find_lock(struct manager* manager, struct dma_buf* dmabuf) {
    struct lock* lock;

    list_for_each_entry(lock, &manager->locks, list) {
        if (lock->dmabuf == dmabuf)
            return lock;
    }
    return NULL;
}

// Takes over the reference to the dma-buf when it succeeds.
static struct lock* new_lock(struct dma_buf* dmabuf) {
    struct lock* lock = kzalloc(sizeof(*lock), GFP_KERNEL);
    long error;

    if (!lock)
        return ERR_PTR(-ENOMEM);
    lock->dmabuf = dmabuf;
    lock->attachment = dma_buf_attach(dmabuf, &device->dev);
    error = PTR_ERR_OR_ZERO(lock->attachment);
    if (error)
        goto free_lock;
    lock->table = dma_buf_map_attachment(lock->attachment, DMA_BIDIRECTIONAL);
    error = PTR_ERR_OR_ZERO(lock->table);
    if (error)
        goto detach;
    mutex_lock(&device_mutex);
    list_add(&lock->all, &all_locks);
    mutex_unlock(&device_mutex);
    atomic_inc(&seen.locks);
    return lock;

detach:
    dma_buf_detach(dmabuf, lock->attachment);
free_lock:
    kfree(lock);
    return ERR_PTR(error);
}

static void end_lock(struct lock* lock) {
    list_del(&lock->list);
    mutex_lock(&device_mutex);
    list_del(&lock->all);
    mutex_unlock(&device_mutex);
    dma_buf_unmap_attachment(lock->attachment, lock->table, DMA_BIDIRECTIONAL);
    dma_buf_detach(lock->dmabuf, lock->attachment);
    dma_buf_put(lock->dmabuf);
    kfree(lock);
    atomic_dec(&seen.locks);
}

static int lock_buffer(struct manager* manager, struct lock_request* request) {
    struct dma_buf* dmabuf = dma_buf_get(request->fd);
    struct lock* lock;

    if (IS_ERR(dmabuf))
        return PTR_ERR(dmabuf);
    lock = find_lock(manager, dmabuf) ? ERR_PTR(-EBUSY) : new_lock(dmabuf);
    if (IS_ERR(lock)) {
        dma_buf_put(dmabuf);
        return PTR_ERR(lock);
    }
    list_add(&lock->list, &manager->locks);
    request->count = lock->table->nents;
    return 0;
}

// The lock of the buffer with this descriptor; it lasts as long as the manager's mutex is held.
static struct lock* lock_of(struct manager* manager, int fd) {
    struct dma_buf* dmabuf = dma_buf_get(fd);
    struct lock* lock;

    if (IS_ERR(dmabuf))
        return ERR_CAST(dmabuf);
    lock = find_lock(manager, dmabuf);
    dma_buf_put(dmabuf);
    return lock ? lock : ERR_PTR(-EINVAL);
}

static int unlock_buffer(struct manager* manager, int fd) {
    struct lock* lock = lock_of(manager, fd);

    if (IS_ERR(lock))
        return PTR_ERR(lock);
    end_lock(lock);
    return 0;
}

static int copy_entries(struct manager* manager, const struct entries_request* request) {
    struct entry __user* array = u64_to_user_ptr(request->array);
    struct lock* lock = lock_of(manager, request->fd);
    struct scatterlist* piece;
    int index;

    if (IS_ERR(lock))
        return PTR_ERR(lock);
    if (request->count != lock->table->nents)
        return -EINVAL;
    for_each_sgtable_dma_sg(lock->table, piece, index) {
        struct entry entry = {sg_dma_address(piece), sg_dma_len(piece)};

        if (copy_to_user(&array[index], &entry, sizeof(entry)))
            return -EFAULT;
    }
    return 0;
}

// ---- the device

static void sync_and_move(struct buffer* buffer, const struct sync_request* request) {
    mutex_lock(&device_mutex);
    if (!request->direction)
        copy_through(buffer, true, request->offset, request->length);
    move_bytes(buffer, request->direction, request->offset, request->length);
    if (request->direction)
        copy_through(buffer, false, request->offset, request->length);
    mutex_unlock(&device_mutex);
}

// Whether the address is in a piece of the locked buffer, followed by that many bytes; then its offset.
static bool find_in_lock(const struct lock* lock, u64 address, size_t length, size_t* offset) {
    struct scatterlist* piece;
    int index;

    *offset = 0;
    for_each_sgtable_dma_sg(lock->table, piece, index) {
        u64 start = sg_dma_address(piece);

        if (address >= start && address - start < sg_dma_len(piece)) {
            *offset += address - start;
            return length <= sg_dma_len(piece) - (address - start);
        }
        *offset += sg_dma_len(piece);
    }
    return false;
}

static int run_device(bool put, u64 address, size_t length) {
    const struct lock* lock;
    int result = -EFAULT;

    mutex_lock(&device_mutex);
    list_for_each_entry(lock, &all_locks, all) {
        size_t offset;

        if (find_in_lock(lock, address, length, &offset)) {
            move_bytes(lock->dmabuf->priv, put, offset, length);
            result = 0;
            break;
        }
    }
    mutex_unlock(&device_mutex);
    return result;
}

static ssize_t start_device(struct file* file, const char __user* text, size_t size, loff_t* offset) {
    bool put = file_inode(file)->i_private;  // only that file has the device's memory with it
    char words[64];
    unsigned long long address;
    unsigned int length;
    int error;

    if (size >= sizeof(words))
        return -EINVAL;
    if (copy_from_user(words, text, size))
        return -EFAULT;
    words[size] = '\0';
    if (sscanf(words, "%lli %u", &address, &length) != 2 || length > DEVICE_MEMORY)
        return -EINVAL;
    error = run_device(put, address, length);
    return error ? error : size;
}

static const struct file_operations start_operations = {.owner = THIS_MODULE, .write = start_device};

static int sync_pieces(struct manager* manager, const struct sync_request* request) {
    struct lock* lock = lock_of(manager, request->fd);

    seen.sg_sync_direction = request->direction;
    seen.sg_sync_value32 = request->length;
    seen.sg_sync_value64 = request->offset;
    if (IS_ERR(lock))
        return PTR_ERR(lock);
    if (request->direction > 1 || request->length > DEVICE_MEMORY || request->offset > lock->dmabuf->size ||
        request->length > lock->dmabuf->size - request->offset)
        return -EINVAL;
    sync_and_move(lock->dmabuf->priv, request);
    return 0;
}

// ---- the manager

union request {
    struct create_request create;
    struct lock_request lock;
    struct entries_request entries;
    struct sync_request sync;
    __s32 fd;
};

static long serve(struct manager* manager, unsigned int number, union request* request) {
    switch (number) {
        case REQUEST_CREATE:
            return create(&request->create);
        case REQUEST_LOCK:
            return lock_buffer(manager, &request->lock);
        case REQUEST_UNLOCK:
            return unlock_buffer(manager, request->fd);
        case REQUEST_ENTRIES:
            return copy_entries(manager, &request->entries);
        case REQUEST_SYNC:
            return sync_pieces(manager, &request->sync);
        default:
            return -ENOTTY;
    }
}

static long control_manager(struct file* file, unsigned int number, unsigned long argument) {
    struct manager* manager = file->private_data;
    union request request;
    long result;

    if (_IOC_SIZE(number) > sizeof(request))
        return -ENOTTY;
    if (copy_from_user(&request, (void __user*)argument, _IOC_SIZE(number)))
        return -EFAULT;
    mutex_lock(&manager->mutex);
    result = serve(manager, number, &request);
    mutex_unlock(&manager->mutex);
    if (result == 0 && (_IOC_DIR(number) & _IOC_READ) &&
        copy_to_user((void __user*)argument, &request, _IOC_SIZE(number)))
        return -EFAULT;
    return result;
}

static int open_manager(struct inode* inode, struct file* file) {
    struct manager* manager = kzalloc(sizeof(*manager), GFP_KERNEL);

    if (!manager)
        return -ENOMEM;
    mutex_init(&manager->mutex);
    INIT_LIST_HEAD(&manager->locks);
    file->private_data = manager;
    return 0;
}

static int close_manager(struct inode* inode, struct file* file) {
    struct manager* manager = file->private_data;
    struct lock* lock;
    struct lock* next;

    list_for_each_entry_safe(lock, next, &manager->locks, list) end_lock(lock);
    kfree(manager);
    return 0;
}

static const struct file_operations manager_operations = {
    .owner = THIS_MODULE,
    .open = open_manager,
    .release = close_manager,
    .unlocked_ioctl = control_manager,
};

static struct miscdevice manager_node = {
    .minor = MISC_DYNAMIC_MINOR,
    .name = "uio-dma",
    .fops = &manager_operations,
};

// ---- module

static int add_device(void) {
    device = platform_device_register_simple("norv-board-dma", PLATFORM_DEVID_NONE, NULL, 0);
    if (IS_ERR(device)) {
        int error = PTR_ERR(device);

        device = NULL;
        return error;
    }
    return dma_coerce_mask_and_coherent(&device->dev, DMA_BIT_MASK(64));
}

static int set_memory_aside(void) {
    device_memory = kzalloc(DEVICE_MEMORY, GFP_KERNEL);
    reserved_memory = alloc_pages_exact(RESERVED_SIZE, GFP_KERNEL);
    reserved_pool = gen_pool_create(PAGE_SHIFT, NUMA_NO_NODE);
    if (!device_memory || !reserved_memory || !reserved_pool)
        return -ENOMEM;
    return gen_pool_add(reserved_pool, (unsigned long)reserved_memory, RESERVED_SIZE, NUMA_NO_NODE);
}

static void show_what_was_seen(void) {
    directory = debugfs_create_dir("norv_board_dma", NULL);
    memory_blob.data = device_memory;
    memory_blob.size = DEVICE_MEMORY;
    debugfs_create_blob("memory", 0400, directory, &memory_blob);
    debugfs_create_file("take", 0200, directory, NULL, &start_operations);
    debugfs_create_file("put", 0200, directory, device_memory, &start_operations);
    debugfs_create_atomic_t("buffers", 0444, directory, &seen.buffers);
    debugfs_create_atomic_t("locks", 0444, directory, &seen.locks);
    debugfs_create_atomic_t("begins", 0444, directory, &seen.begins);
    debugfs_create_atomic_t("ends", 0444, directory, &seen.ends);
    debugfs_create_u32("begin_direction", 0444, directory, &seen.begin_direction);
    debugfs_create_u32("end_direction", 0444, directory, &seen.end_direction);
    debugfs_create_u32("sg_sync_direction", 0444, directory, &seen.sg_sync_direction);
    debugfs_create_u32("sg_sync_value32", 0444, directory, &seen.sg_sync_value32);
    debugfs_create_u64("sg_sync_value64", 0444, directory, &seen.sg_sync_value64);
}

static void give_back(void) {
    debugfs_remove_recursive(directory);
    if (reserved_pool)
        gen_pool_destroy(reserved_pool);
    if (reserved_memory)
        free_pages_exact(reserved_memory, RESERVED_SIZE);
    kfree(device_memory);
    platform_device_unregister(device);
}

static int __init board_dma_init(void) {
    int error = add_device();

    if (!error)
        error = set_memory_aside();
    if (!error)
        error = misc_register(&manager_node);
    if (error)
        give_back();
    else
        show_what_was_seen();
    return error;
}

static void __exit board_dma_exit(void) {
    misc_deregister(&manager_node);
    give_back();
}

module_init(board_dma_init);
module_exit(board_dma_exit);
BOARD_IMPORT_DMA_BUF;
MODULE_LICENSE("GPL");
MODULE_DESCRIPTION("The /dev/uio-dma driver of the virtual board");
