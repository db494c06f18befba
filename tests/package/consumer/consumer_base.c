/* SPDX-License-Identifier: MIT */
/* A user's program over the base library alone. */
#include <norv_base.h>
#include <stdio.h>

int main(void) {
    printf("base: %s\n", norv_status_name(NORV_STATUS_OK));
    return norv_time_get_us() != 0 ? 0 : 1;
}
