// SPDX-License-Identifier: MIT
// Memory and strings: the functions of the C library, under names that another base library can define.
#include <cstdlib>
#include <cstring>

#include "norv_base.h"

void* norv_malloc(size_t size) {
    return malloc(size);
}

void* norv_zalloc(size_t size) {
    return calloc(1, size);
}

void norv_free(void* memory) {
    free(memory);
}

void* norv_memset(void* destination, int byte, size_t size) {
    return memset(destination, byte, size);
}

void* norv_memcpy(void* destination, const void* source, size_t size) {
    return memcpy(destination, source, size);
}

int norv_memcmp(const void* first, const void* second, size_t size) {
    return memcmp(first, second, size);
}

size_t norv_strlen(const char* text) {
    return strlen(text);
}

int norv_strncmp(const char* first, const char* second, size_t size) {
    return strncmp(first, second, size);
}

char* norv_strncpy(char* destination, const char* source, size_t size) {
    return strncpy(destination, source, size);
}

char* norv_strstr(const char* text, const char* part) {
    return const_cast<char*>(strstr(text, part));
}

char* norv_strtok_r(char* text, const char* separators, char** position) {
    return strtok_r(text, separators, position);
}
