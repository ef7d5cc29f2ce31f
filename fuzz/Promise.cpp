#include "Promise.h"

#include <cstdio>
#include <cstdlib>
#include <deque>

namespace {

std::deque<QByteArray> &lastLines() {
    static std::deque<QByteArray> lines;
    return lines;
}

} // namespace

void promise(bool holds, const char *what) {
    if (holds)
        return;
    // Standard error is the fuzzer's own log; there is nobody else to tell that it fails.
    for (const QByteArray &line : lastLines())
        (void)std::fprintf(stderr, "%s\n", line.constData());
    (void)std::fprintf(stderr, "BROKEN PROMISE: %s\n", what);
    std::abort();
}

void keepLogLine(const QByteArray &line) {
    constexpr std::size_t most = 20;
    lastLines().push_back(line);
    if (lastLines().size() > most)
        lastLines().pop_front();
}
