#!/usr/bin/env bats
# SPDX-License-Identifier: MIT
# norv dma, where there is no driver

load support

setup() { [[ ! -e /dev/uio-dma ]] || skip "this machine has /dev/uio-dma, and its memory is not for tests"; }

@test "AMissingDriverIsNamedWithItsUsualCause" {
    norv dma kinds
    fails "/dev/uio-dma: NOT_FOUND: no /dev/uio-dma; is the DMA driver loaded?"
    norv dma test cma 64k
    fails "/dev/uio-dma: NOT_FOUND: no /dev/uio-dma; is the DMA driver loaded?"
}

@test "AKindOfMemoryIsOneOfFive" {
    norv dma test fast
    is_wrong_usage "fast not in {cma,default,kmalloc,reserved,user}"
}

@test "ASizeIsANumberWithOrWithoutAUnit" {
    norv dma test default large
    is_wrong_usage SIZE
}
