#pragma once

// Counts every way to the heap of the program whose one source file includes this: the program's own definitions come
// before the C library's, for every library of the process, and reach the library's by their second names. The address
// sanitizer has a heap of its own; under it nothing is counted.

#ifndef __has_feature
#define __has_feature(feature) 0
#endif

#if defined(__SANITIZE_ADDRESS__) || __has_feature(address_sanitizer)
#define KIVO_COUNTS_ALLOCATIONS 0
#else
#define KIVO_COUNTS_ALLOCATIONS 1

#include <cerrno>
#include <cstdlib>

namespace {

thread_local long allocations = 0; ///< of this thread, since its start

} // namespace

// NOLINTBEGIN(bugprone-reserved-identifier, misc-definitions-in-headers, readability-identifier-naming)
extern "C" {
void *__libc_malloc(size_t size);
void *__libc_calloc(size_t count, size_t size);
void *__libc_realloc(void *old, size_t size);
void *__libc_memalign(size_t alignment, size_t size);

void *malloc(size_t size) {
    ++allocations;
    return __libc_malloc(size);
}

void *calloc(size_t count, size_t size) {
    ++allocations;
    return __libc_calloc(count, size);
}

void *realloc(void *old, size_t size) {
    ++allocations;
    return __libc_realloc(old, size);
}

void *aligned_alloc(size_t alignment, size_t size) {
    ++allocations;
    return __libc_memalign(alignment, size);
}

int posix_memalign(void **block, size_t alignment, size_t size) {
    ++allocations;
    *block = __libc_memalign(alignment, size);
    return *block ? 0 : ENOMEM;
}
}
// NOLINTEND(bugprone-reserved-identifier, misc-definitions-in-headers, readability-identifier-naming)

/// How often this thread went to the heap meanwhile.
template <class Action>
long allocationsOf(Action action) {
    const long before = allocations;
    action();
    return allocations - before;
}

#endif
