#pragma once

#include <QString>

#include <vector>

/// A reply line cut at its bars: the keyword is piece 0, the fields follow. Empty pieces count. Pure.
class ReplyFields {
public:
    explicit ReplyFields(const QString &line);

    /// Number of pieces, keyword included; at least 1.
    int count() const;
    QString keyword() const;
    /// Piece i, which may be empty; the fallback only when there are fewer pieces.
    QString value(int i, const QString &fallback = {}) const;
    /// Piece i as a decimal number; 0 when missing or no 32-bit number.
    int number(int i) const;
    /// True when piece i is "1".
    bool isSet(int i) const;
    /// Everything from piece i on, bars included; the fallback when there are fewer pieces.
    QString rest(int from, const QString &fallback = {}) const;

private:
    QString m_line;
    std::vector<int> m_starts; ///< where each piece begins, and one past the end of the last piece's bar
};
