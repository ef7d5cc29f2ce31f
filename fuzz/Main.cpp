#include "Fuzz.h"
#include "Surroundings.h"

#include <cstddef>

// The names are the libraries'.
// NOLINTBEGIN(readability-identifier-naming,bugprone-reserved-identifier)

/// Freed memory is watched for long enough to catch a late use, and used again soon enough to stay in the cache.
extern "C" const char *__asan_default_options();
extern "C" const char *__asan_default_options() {
    return "quarantine_size_mb=4:malloc_context_size=5";
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size);
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    Surroundings::instance();
    fuzz(QByteArray(reinterpret_cast<const char *>(data), static_cast<int>(size)));
    return 0;
}

// NOLINTEND(readability-identifier-naming,bugprone-reserved-identifier)
