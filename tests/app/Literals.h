#pragma once

#include <QString>

/// UTF-8 text as a QString.
inline QString operator""_s(const char *text, std::size_t bytes) {
    return QString::fromUtf8(text, static_cast<int>(bytes));
}
