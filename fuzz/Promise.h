#pragma once

#include <cstdio>
#include <cstdlib>

/// Ends the fuzzer with a finding unless the promise holds.
inline void promise(bool holds, const char *what) {
    if (holds)
        return;
    // Standard error is the fuzzer's own log; there is nobody else to tell.
    (void)std::fprintf(stderr, "BROKEN PROMISE: %s\n", what);
    std::abort();
}
