#include "net/ReplyFramer.h"

#include <QList>

#include <algorithm>
#include <cctype>
#include <cstring>
#include <iterator>

namespace {

const QByteArray audioKeyword = QByteArrayLiteral("AUDIO ");

bool isSpace(char c) {
    return std::isspace(static_cast<unsigned char>(c)) != 0;
}

QString trimmedText(const char *begin, const char *end) {
    begin = std::find_if_not(begin, end, isSpace);
    end = std::find_if_not(std::make_reverse_iterator(end), std::make_reverse_iterator(begin), isSpace).base();
    return QString::fromUtf8(begin, static_cast<int>(end - begin));
}

} // namespace

void ReplyFramer::append(const QByteArray &bytes) {
    const int left = m_buffer.size() - m_start;
    // Moving the rest to the front only when it is no longer than what has been consumed keeps the cost linear.
    if (left <= m_start) {
        m_buffer.remove(0, m_start);
        m_searched -= m_start;
        m_start = 0;
        m_bytesWorked += left;
    }
    m_buffer.append(bytes);
}

std::optional<ReplyUnit> ReplyFramer::next() {
    for (;;) {
        if (m_audio)
            return takeAudioBlock();
        if (atAudioHeader()) {
            if (!takeAudioHeader())
                return std::nullopt;
            continue;
        }
        const auto line = takeLine();
        if (!line)
            return std::nullopt;
        if (!line->isEmpty())
            return *line;
    }
}

void ReplyFramer::clear() {
    *this = ReplyFramer();
}

qint64 ReplyFramer::bytesWorked() const {
    return m_bytesWorked;
}

std::optional<ReplyFramer::AudioHeader> ReplyFramer::parseAudioHeader(const QByteArray &header) {
    const QList<QByteArray> parts = header.split(' ');
    if (parts.size() < 3)
        return std::nullopt;
    bool isNumber = false;
    const int length = parts[2].toInt(&isNumber);
    if (!isNumber || length < 0)
        return std::nullopt;
    return AudioHeader{parts[1].toInt(), length};
}

bool ReplyFramer::atAudioHeader() const {
    return m_buffer.size() - m_start >= audioKeyword.size() &&
           std::memcmp(m_buffer.constData() + m_start, audioKeyword.constData(), audioKeyword.size()) == 0;
}

/// False when the header is not complete yet. A malformed one is taken and leaves nothing behind.
bool ReplyFramer::takeAudioHeader() {
    const int end = findCrLf();
    if (end < 0)
        return false;
    m_audio = parseAudioHeader(m_buffer.mid(m_start, end - m_start));
    consumeUpTo(end + 2);
    return true;
}

std::optional<ReplyUnit> ReplyFramer::takeAudioBlock() {
    if (m_buffer.size() - m_start < m_audio->length)
        return std::nullopt;
    AudioBlock block{m_audio->userId, m_buffer.mid(m_start, m_audio->length)};
    consumeUpTo(m_start + m_audio->length);
    m_audio.reset();
    return block;
}

/// The next line, trimmed and possibly empty; nothing while its line feed is missing.
std::optional<QString> ReplyFramer::takeLine() {
    const int end = findLineFeed();
    if (end < 0)
        return std::nullopt;
    const QString line = trimmedText(m_buffer.constData() + m_start, m_buffer.constData() + end);
    consumeUpTo(end + 1);
    return line;
}

/// Index of the next line feed not searched before, or -1.
int ReplyFramer::findLineFeed() {
    const int found = m_buffer.indexOf('\n', m_searched);
    const int searchedTo = found < 0 ? m_buffer.size() : found + 1;
    m_bytesWorked += searchedTo - m_searched;
    m_searched = searchedTo;
    return found;
}

/// Index of the carriage return of the next CR LF pair, or -1.
int ReplyFramer::findCrLf() {
    int lineFeed = findLineFeed();
    while (lineFeed >= 0 && m_buffer.at(lineFeed - 1) != '\r')
        lineFeed = findLineFeed();
    return lineFeed < 0 ? -1 : lineFeed - 1;
}

void ReplyFramer::consumeUpTo(int position) {
    m_start = position;
    m_searched = position;
}
