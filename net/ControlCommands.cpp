#include "net/ControlCommands.h"

namespace {

struct Position {
    int number = 0; ///< 1 and up; 0 where no position stands
    int length = 0; ///< characters it takes, the percent sign included
};

bool isDigit(QChar c) {
    return c >= QLatin1Char('0') && c <= QLatin1Char('9');
}

/// The position that begins at index i of the pattern.
Position positionAt(QStringView pattern, qsizetype i) {
    constexpr int longest = 3;
    Position position;
    if (pattern[i] != QLatin1Char('%'))
        return position;
    for (position.length = 1; position.length < longest && i + position.length < pattern.size(); ++position.length) {
        const QChar digit = pattern[i + position.length];
        if (!isDigit(digit))
            break;
        position.number = position.number * 10 + digit.digitValue();
    }
    return position;
}

} // namespace

QString commandLine(QStringView pattern, const QStringList &arguments) {
    QString line;
    for (qsizetype i = 0; i < pattern.size();) {
        const Position position = positionAt(pattern, i);
        if (position.number >= 1 && position.number <= arguments.size()) {
            line += arguments[position.number - 1];
            i += position.length;
        } else {
            line += pattern[i];
            ++i;
        }
    }
    return line;
}
