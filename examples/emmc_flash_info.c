/* SPDX-License-Identifier: MIT */
/*
 * Prints the geometry of an eMMC or an SD card, and its first bytes. Changes nothing.
 *
 *     emmc_flash_info [DEVICE]      default: /dev/mmcblk0
 *
 * On the virtual board /dev/mmcblk0 is an SD card, with the modules sdhci-pci and mmc_block.
 */
#include <stdio.h>
#include <stdlib.h>

#include "norv_base.h"
#include "norv_linux_emmc_flash.h"

/* Ends the program if a call has failed. */
static void must(const char* what, uint32_t status) {
    if (status != NORV_STATUS_OK) {
        fprintf(stderr, "%s: %s (%s)\n", what, norv_status_name(status), norv_status_text(status));
        exit(EXIT_FAILURE);
    }
}

/* A read may be short, for instance at the end of the device. */
static void show_start(norv_emmc_flash_t** flash) {
    uint8_t bytes[16];
    uint32_t count = sizeof bytes;
    must("read", norv_linux_emmc_flash_read(flash, 0, bytes, &count));
    printf("  starts with ");
    for (uint32_t index = 0; index < count; ++index) {
        printf(" %02x", bytes[index]);
    }
    printf("\n");
}

int main(int argc, char** argv) {
    const char* device = argc > 1 ? argv[1] : "/dev/mmcblk0";
    norv_emmc_flash_t* flash = NULL;
    norv_flash_info_t info;

    must(device, norv_linux_emmc_flash_open(&flash, device));
    must("get the geometry", norv_linux_emmc_flash_get_info(&flash, &info));
    printf("%s: %llu KiB, erase block %u, write unit %u\n", device, (unsigned long long)(info.size / 1024),
           info.erase_block_size, info.write_unit_size);
    show_start(&flash);
    norv_linux_emmc_flash_close(&flash);
    return EXIT_SUCCESS;
}
