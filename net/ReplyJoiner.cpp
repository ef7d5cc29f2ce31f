#include "net/ReplyJoiner.h"

#include <QLatin1String>

#include <algorithm>
#include <iterator>
#include <utility>

namespace {

const QLatin1String splitKeywords[] = {QLatin1String("USER_PROFILE"), QLatin1String("USER_INFO_RESULT"),
                                       QLatin1String("ANNOUNCEMENTS")};

bool isFirstHalf(const QString &line) {
    if (line.contains(QLatin1Char('|')))
        return false;
    const int blank = line.indexOf(QLatin1Char(' '));
    const auto firstWord = QStringView(line).left(blank < 0 ? line.size() : blank);
    return std::find(std::begin(splitKeywords), std::end(splitKeywords), firstWord) != std::end(splitKeywords);
}

} // namespace

std::optional<QString> ReplyJoiner::add(const QString &line) {
    if (!m_pending.isEmpty())
        return std::exchange(m_pending, QString()) + QLatin1Char('|') + line;
    if (!isFirstHalf(line))
        return line;
    m_pending = line;
    return std::nullopt;
}

void ReplyJoiner::clear() {
    m_pending.clear();
}
