/* SPDX-License-Identifier: MIT */
/*
 * Creates a DMA buffer, fills it between the two syncs of a transfer, and counts the pieces of memory with
 * which a device would be programmed. What was written is then read through a second handle on the same
 * memory, as another program or driver would see it.
 *
 *     dma_buffer [KIND [BYTES]]      KIND: default, kmalloc, cma or reserved; default: default 16384
 */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "norv_base.h"
#include "norv_linux_dma.h"

struct kind {
    const char* name;
    uint32_t (*create)(int32_t* manager, uint64_t size, norv_linux_dma_t** buffer);
};

static const struct kind kinds[] = {
    {"default", norv_linux_dma_create_mem},
    {"kmalloc", norv_linux_dma_create_by_kmalloc},
    {"cma", norv_linux_dma_create_by_cma},
    {"reserved", norv_linux_dma_create_by_reserved},
};

/* Ends the program if a call has failed. */
static void must(const char* what, uint32_t status) {
    if (status != NORV_STATUS_OK) {
        fprintf(stderr, "%s: %s (%s)\n", what, norv_status_name(status), norv_status_text(status));
        exit(EXIT_FAILURE);
    }
}

static const struct kind* kind_named(const char* name) {
    for (size_t index = 0; index < sizeof kinds / sizeof kinds[0]; index++) {
        if (strcmp(kinds[index].name, name) == 0) {
            return &kinds[index];
        }
    }
    fprintf(stderr, "%s: not a kind of memory; there are default, kmalloc, cma and reserved\n", name);
    exit(2);
}

/* The device must not touch the buffer while the processor writes to it. */
static void fill(norv_linux_dma_t** buffer, uint64_t size) {
    void* memory;

    must("map", norv_linux_dma_map_mem(buffer, &memory));
    must("start of the transfer", norv_linux_dma_sync(buffer, false));
    for (uint64_t index = 0; index < size; index++) {
        ((unsigned char*)memory)[index] = (unsigned char)(index % 251);
    }
    must("end of the transfer", norv_linux_dma_sync(buffer, true));
    must("unmap", norv_linux_dma_unmap_mem(buffer));
}

static uint64_t count_pieces(norv_linux_dma_t** buffer) {
    void* entries;
    uint64_t count;

    must("lock", norv_linux_dma_lock_mem(buffer, &entries, &count));
    must("unlock", norv_linux_dma_unlock_mem(buffer));
    return count;
}

/* Reads the buffer through its descriptor, as another program would. */
static int is_filled(int32_t* manager, int32_t descriptor, uint64_t size) {
    norv_linux_dma_t* shared;
    void* memory;
    uint64_t right = 0;

    must("adopt", norv_linux_dma_create_by_fd(manager, descriptor, size, &shared));
    must("map", norv_linux_dma_map_mem(&shared, &memory));
    while (right < size && ((const unsigned char*)memory)[right] == right % 251) {
        right++;
    }
    must("unmap", norv_linux_dma_unmap_mem(&shared));
    norv_linux_dma_destroy(&shared);
    return right == size;
}

int main(int count, char** arguments) {
    const struct kind* kind = kind_named(count > 1 ? arguments[1] : "default");
    const uint64_t size = count > 2 ? strtoull(arguments[2], NULL, 0) : 16384;
    int32_t manager;
    norv_linux_dma_t* buffer;
    int filled;

    must("/dev/uio-dma", norv_linux_dma_create_mgr(&manager));
    must("create", kind->create(&manager, size, &buffer));
    fill(&buffer, size);
    printf("%s: %llu bytes in %llu pieces of memory\n", kind->name, (unsigned long long)size,
           (unsigned long long)count_pieces(&buffer));
    filled = is_filled(&manager, norv_linux_dma_get_fd(&buffer), size);
    norv_linux_dma_destroy(&buffer);
    norv_linux_dma_destory_mgr(&manager);

    if (!filled) {
        fprintf(stderr, "%s: what was written is not what the buffer holds\n", kind->name);
        return EXIT_FAILURE;
    }
    printf("%s: another handle on the buffer sees what was written\n", kind->name);
    return EXIT_SUCCESS;
}
