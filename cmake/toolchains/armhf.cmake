# Zynq-7000 and other 32-bit ARM boards.
set(CMAKE_SYSTEM_PROCESSOR armv7l)
set(triplet arm-linux-gnueabihf)
set(emulator qemu-arm)
include(${CMAKE_CURRENT_LIST_DIR}/debian_cross.cmake)
# GCC would tell, at every call, what it has passed differently since its version 7.
set(CMAKE_CXX_FLAGS_INIT -Wno-psabi)
