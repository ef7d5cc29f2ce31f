#include "radio/SerialLines.h"

#include <utility>

QStringList SerialLines::feed(const QByteArray &chunk) {
    QStringList lines;
    const QString text = QString::fromUtf8(chunk.constData()); // ends at the first NUL
    for (const QChar character : text) {
        if (character == QLatin1Char('\n'))
            lines.append(std::exchange(m_unfinished, QString()).trimmed());
        else
            append(character);
    }
    return lines;
}

void SerialLines::append(QChar character) {
    if (character.isSpace() && (m_unfinished.isEmpty() || m_unfinished.size() == maxLineLength))
        return;
    if (m_unfinished.size() < maxLineLength) {
        m_unfinished.append(character);
    } else {
        // Blanks may be what it ended with so far: what follows them must not be trimmed away with them.
        m_unfinished.back() = character;
    }
}
