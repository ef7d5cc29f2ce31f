#pragma once

#include <QByteArray>
#include <QString>

/// The board's end of a serial line, on a pseudo-terminal, and what the transmitter wired to it does.
class Board {
public:
    Board();
    ~Board();
    Board(const Board &) = delete;
    Board &operator=(const Board &) = delete;

    /// Nobody's, once it has vanished: its own name may by then be another process's.
    QString portName() const { return isThere() ? m_portName : QStringLiteral("/dev/nobody"); }
    bool isThere() const { return m_master >= 0; }
    /// Says it, and returns when the other side can read it.
    void say(const QByteArray &bytes);
    /// Gone, as a board whose plug is pulled.
    void vanish();
    /// What it was told since the last call.
    QByteArray heard();
    /// Whether the last order was to transmit; none is to be silent.
    bool isKeyed();

private:
    void open();
    void close();
    bool isLockedElsewhere() const;

    int m_master = -1;
    int m_slave = -1; ///< kept open, so that the line does not hang up between two openings of the port
    QString m_portName;
    QByteArray m_unread;
    bool m_keyed = false;
};
