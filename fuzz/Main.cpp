#include "Fuzz.h"
#include "Promise.h"
#include "Surroundings.h"

#include <cstddef>
#include <ctime>

// The names are the libraries'.
// NOLINTBEGIN(readability-identifier-naming,bugprone-reserved-identifier)

/// Freed memory is watched for long enough to catch a late use, and used again soon enough to stay in the cache.
extern "C" const char *__asan_default_options();
extern "C" const char *__asan_default_options() {
    return "quarantine_size_mb=4:malloc_context_size=5";
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size);
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    constexpr std::clock_t longest = 10 * CLOCKS_PER_SEC;
    Surroundings::instance();
    const std::clock_t start = std::clock();
    fuzz(QByteArray(reinterpret_cast<const char *>(data), static_cast<int>(size)));
    // The processor's time, not the wall's: the machine may be busy with other things.
    promise(std::clock() - start < longest, "no input takes ten seconds");
    return 0;
}

// NOLINTEND(readability-identifier-naming,bugprone-reserved-identifier)
