// SPDX-License-Identifier: MIT
// One interface over the kinds of flash.
#include "norv_linux_flash.h"

#include <cstddef>

#include "core/layout.hpp"

NORV_LAYOUT(norv_flash_config_t, 2 * sizeof(void*), kind, emmc_path);
NORV_LAYOUT(norv_flash_t, 2 * sizeof(void*), kind, backend);

namespace {

// Calls the function of the handle's kind with the address of that kind's own handle.
template <typename spi_call, typename emmc_call>
uint32_t forward(norv_flash_t* flash, spi_call to_spi, emmc_call to_emmc) {
    if (flash == nullptr) {
        return NORV_STATUS_INVALID_ARG;
    }
    switch (flash->kind) {
        case NORV_FLASH_KIND_SPI:
            return flash->backend.spi != nullptr ? to_spi(&flash->backend.spi) : NORV_STATUS_INVALID_ARG;
        case NORV_FLASH_KIND_EMMC:
            return to_emmc(&flash->backend.emmc);
        default:
            return NORV_STATUS_BAD_STATE;
    }
}

// The same for functions with the same arguments.
template <typename... arguments>
uint32_t forward_all(norv_flash_t* flash, uint32_t (*to_spi)(norv_spi_flash_t**, arguments...),
                     uint32_t (*to_emmc)(norv_emmc_flash_t**, arguments...), arguments... values) {
    return forward(
        flash, [=](norv_spi_flash_t** spi) { return to_spi(spi, values...); },
        [=](norv_emmc_flash_t** emmc) { return to_emmc(emmc, values...); });
}

}  // namespace

uint32_t norv_linux_flash_open(const norv_flash_config_t* config, norv_flash_t* flash) {
    if (flash == nullptr) {
        return NORV_STATUS_INVALID_ARG;
    }
    *flash = {};
    if (config == nullptr) {
        return NORV_STATUS_INVALID_ARG;
    }
    // quirk 155: for an unknown kind, later calls then return NORV_STATUS_BAD_STATE.
    flash->kind = config->kind;
    switch (config->kind) {
        case NORV_FLASH_KIND_SPI:
            return norv_linux_spi_flash_open(&flash->backend.spi);
        case NORV_FLASH_KIND_EMMC:
            return norv_linux_emmc_flash_open(&flash->backend.emmc, config->emmc_path);
        default:
            return NORV_STATUS_INVALID_ARG;
    }
}

void norv_linux_flash_close(norv_flash_t* flash) {
    forward(
        flash,
        [](norv_spi_flash_t** spi) {
            norv_linux_spi_flash_close(spi);
            return NORV_STATUS_OK;
        },
        [](norv_emmc_flash_t** emmc) {
            norv_linux_emmc_flash_close(emmc);
            return NORV_STATUS_OK;
        });
}

uint32_t norv_linux_flash_get_info(norv_flash_t* flash, norv_flash_info_t* info) {
    return forward_all(flash, norv_linux_spi_flash_get_info, norv_linux_emmc_flash_get_info, info);
}

uint32_t norv_linux_flash_erase_one_block(norv_flash_t* flash, uint32_t address) {
    return forward_all(flash, norv_linux_spi_flash_erase_one_block, norv_linux_emmc_flash_erase_one_block,
                       address);
}

uint32_t norv_linux_flash_erase_first_valid_block(norv_flash_t* flash, uint32_t address, uint32_t* end) {
    return forward_all(flash, norv_linux_spi_flash_erase_first_valid_block,
                       norv_linux_emmc_flash_erase_first_valid_block, address, end);
}

uint32_t norv_linux_flash_read(norv_flash_t* flash, uint32_t address, void* buffer, uint32_t* length) {
    return forward_all(flash, norv_linux_spi_flash_read, norv_linux_emmc_flash_read, address, buffer, length);
}

uint32_t norv_linux_flash_write(norv_flash_t* flash, uint32_t address, const void* data, uint32_t* length) {
    return forward_all(flash, norv_linux_spi_flash_write, norv_linux_emmc_flash_write, address, data, length);
}

uint32_t norv_linux_flash_continue_erase(norv_flash_t* flash, uint32_t address, uint32_t length,
                                         uint32_t* end, norv_flash_cancel_fn cancel,
                                         norv_flash_progress_fn progress, void* user) {
    return forward(
        flash,
        [=](norv_spi_flash_t** spi) {
            return norv_linux_spi_flash_continue_erase(spi, address, length, end, cancel, progress, user);
        },
        // quirk 156: without the end.
        [=](norv_emmc_flash_t** emmc) {
            return norv_linux_emmc_flash_continue_erase(emmc, address, length, cancel, progress, user);
        });
}

uint32_t norv_linux_flash_continue_read(norv_flash_t* flash, uint32_t address, void* buffer, uint32_t* length,
                                        norv_flash_cancel_fn cancel, norv_flash_progress_fn progress,
                                        void* user) {
    return forward_all(flash, norv_linux_spi_flash_continue_read, norv_linux_emmc_flash_continue_read,
                       address, buffer, length, cancel, progress, user);
}

uint32_t norv_linux_flash_continue_write_verify(norv_flash_t* flash, uint32_t address, uint32_t skip,
                                                const void* data, uint32_t* length, uint32_t* end,
                                                norv_flash_cancel_fn cancel, norv_flash_progress_fn progress,
                                                void* user) {
    return forward(
        flash,
        [=](norv_spi_flash_t** spi) {
            return norv_linux_spi_flash_continue_write_verify(spi, address, skip, data, length, end, cancel,
                                                              progress, user);
        },
        // quirk 156: without the end.
        [=](norv_emmc_flash_t** emmc) {
            return norv_linux_emmc_flash_continue_write_verify(emmc, address, skip, data, length, cancel,
                                                               progress, user);
        });
}
