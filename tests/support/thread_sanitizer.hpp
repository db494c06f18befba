// SPDX-License-Identifier: MIT
// What the double says to the thread sanitizer; nothing in other builds. The double itself is not
// instrumented, but the sanitizer sees the C library's calls that it makes, the templates that it shares with
// instrumented code, and the device models.
#pragma once

#include <sys/types.h>

#include <cstddef>

#ifdef NORV_THREAD_SANITIZER

extern "C" {
void __tsan_ignore_thread_begin();
void __tsan_ignore_thread_end();
int __sanitizer_get_ownership(const volatile void* memory);
void AnnotateIgnoreSyncBegin(const char* file, int line);
void AnnotateIgnoreSyncEnd(const char* file, int line);
void __tsan_read_range(void* address, unsigned long size);
void __tsan_write_range(void* address, unsigned long size);
}

namespace norv::test {

inline void hide_accesses() {
    __tsan_ignore_thread_begin();
}
inline void show_accesses() {
    __tsan_ignore_thread_end();
}
inline void hide_synchronisation() {
    AnnotateIgnoreSyncBegin(__FILE__, __LINE__);
}
inline void show_synchronisation() {
    AnnotateIgnoreSyncEnd(__FILE__, __LINE__);
}
// Whether the sanitizer is finding the names for a report on this thread. It calls the C library for that, and the
// thread's memory is then from an allocator of its own.
inline bool is_writing_report() {
    void* memory = operator new(1);
    const bool ordinary = __sanitizer_get_ownership(memory) != 0;
    operator delete(memory);
    return !ordinary;
}
// What the kernel did to the caller's memory.
inline void was_read(const void* bytes, long count) {
    __tsan_read_range(const_cast<void*>(bytes), count > 0 ? static_cast<unsigned long>(count) : 0);
}
inline void was_written(void* bytes, long count) {
    __tsan_write_range(bytes, count > 0 ? static_cast<unsigned long>(count) : 0);
}

}  // namespace norv::test

#else

namespace norv::test {

inline void hide_accesses() {}
inline void show_accesses() {}
inline void hide_synchronisation() {}
inline void show_synchronisation() {}
inline bool is_writing_report() {
    return false;
}
inline void was_read(const void* /*bytes*/, long /*count*/) {}
inline void was_written(void* /*bytes*/, long /*count*/) {}

}  // namespace norv::test

#endif
