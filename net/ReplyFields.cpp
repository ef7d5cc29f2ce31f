#include "net/ReplyFields.h"

ReplyFields::ReplyFields(const QString &line) : m_line(line), m_starts{0} {
    for (int bar = line.indexOf(QLatin1Char('|')); bar >= 0; bar = line.indexOf(QLatin1Char('|'), bar + 1))
        m_starts.push_back(bar + 1);
    m_starts.push_back(line.size() + 1);
}

int ReplyFields::count() const {
    return static_cast<int>(m_starts.size()) - 1;
}

QString ReplyFields::keyword() const {
    return value(0);
}

QString ReplyFields::value(int i, const QString &fallback) const {
    return i < count() ? m_line.mid(m_starts[i], m_starts[i + 1] - 1 - m_starts[i]) : fallback;
}

int ReplyFields::number(int i) const {
    return value(i).toInt();
}

bool ReplyFields::isSet(int i) const {
    return value(i) == QLatin1String("1");
}

QString ReplyFields::rest(int from, const QString &fallback) const {
    return from < count() ? m_line.mid(m_starts[from]) : fallback;
}
