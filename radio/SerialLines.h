#pragma once

#include <QByteArray>
#include <QString>
#include <QStringList>

/// Puts together the lines of a serial text protocol from chunks of bytes as they happen to arrive.
///
/// A line ends at LF and is handed out trimmed of white space at both ends. Each chunk counts as UTF-8 up to its first
/// NUL. No line of the protocol is anywhere near maxLineLength: a longer one is handed out cut to that length, so that
/// a device that never sends LF costs no memory. Consumes in linear time however the bytes are split.
class SerialLines {
public:
    static constexpr int maxLineLength = 64;

    /// The lines that the chunk completes, in order.
    QStringList feed(const QByteArray &chunk);

    /// Forgets an unfinished line.
    void clear() { m_unfinished.clear(); }

private:
    void append(QChar character);

    QString m_unfinished; ///< without leading white space
};
