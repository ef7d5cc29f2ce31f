#include "Journal.h"

#include "sim/MonotonicClock.h"

#include <cstdio>

Journal::Journal(const QString &path) : m_file(path), m_beginNs(sim::monotonicNs()) {
    m_file.open(QIODevice::WriteOnly | QIODevice::Truncate); // isOpen() tells
}

double Journal::seconds() const {
    return double(sim::monotonicNs() - m_beginNs) / 1e9;
}

void Journal::event(const QString &kind, const QString &details) {
    ++m_events[kind];
    write("event ", details.isEmpty() ? kind : kind + QStringLiteral(": ") + details);
}

void Journal::daemonSaid(const sim::LogLine &line) {
    ++m_lines[line.level];
    write("daemon", line.level + QLatin1Char(' ') + line.text.left(300));
}

void Journal::broken(const QString &promise) {
    m_broken.append(promise);
    write("BROKEN", promise);
    std::fprintf(stderr, "not kept: %s\n", qPrintable(promise));
}

void Journal::write(const char *who, const QString &text) {
    char time[24];
    std::snprintf(time, sizeof time, "%10.3f ", seconds());
    m_file.write(QByteArray(time) + who + ' ' + text.toUtf8() + '\n');
    m_file.flush(); // it is read when everything else has gone wrong
}
