#include "sim/server/CommandLine.h"

namespace sim {

namespace {

constexpr QLatin1Char blank(' ');
constexpr QLatin1Char quote('"');

/// Index of the quote that closes the word opened at start; -1: none.
int closingQuote(const QString &line, int start) {
    for (int at = line.indexOf(quote, start + 1); at >= 0; at = line.indexOf(quote, at + 1)) {
        if (at + 1 == line.size() || line.at(at + 1) == blank)
            return at;
    }
    return -1;
}

} // namespace

QStringList splitCommand(const QString &line) {
    QStringList words;
    int at = 0;
    while (at < line.size()) {
        const int closing = line.at(at) == quote ? closingQuote(line, at) : -1;
        const int nextBlank = line.indexOf(blank, at);
        const int end = closing >= 0 ? closing + 1 : nextBlank < 0 ? line.size() : nextBlank;
        words.append(closing >= 0 ? line.mid(at + 1, closing - at - 1) : line.mid(at, end - at));
        at = end + 1;
    }
    return words;
}

} // namespace sim
