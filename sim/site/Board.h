#pragma once

#include <QByteArray>
#include <QObject>
#include <QSocketNotifier>
#include <QString>

#include <cstdint>
#include <vector>

namespace sim {

/// The radio interface board, on a pseudo-terminal: speaks the serial protocol from the board's side. As on a real
/// serial line, what it says while nobody has the port open is lost.
class Board : public QObject {
    Q_OBJECT

public:
    /// @param devpts  a mounted devpts folder; the port is one of its entries. isThere() tells whether it could be
    /// made.
    explicit Board(const QString &devpts, QObject *parent = nullptr);
    ~Board() override;

    /// Path of the serial device, for "serial_port".
    QString portName() const { return m_portName; }
    bool isThere() const { return m_master >= 0; }
    /// Whether the daemon has the port open.
    bool isPortOpen() const { return m_isPortOpen; }

    /// What the board says when it has started ("ARDUINO:READY").
    void announceReady();
    /// Opens or closes the squelch: "COS:1" or "COS:0".
    void setSquelch(bool open);
    /// An unexpected restart: PTT drops, squelch state is forgotten, "ARDUINO:READY".
    void reset();
    /// The bytes as they stand, in order, as fast as they are taken.
    void sendRaw(const QByteArray &bytes);
    /// Whether all of it has gone into the line.
    bool isAllSent() const { return m_unsent.isEmpty(); }
    /// The device disappears, as a cable pulled. For good: a board that is plugged in again is another Board.
    void vanish();

    bool isKeyed() const { return m_isKeyed; }

    struct Keying {
        std::int64_t timeNs = 0; ///< CLOCK_MONOTONIC
        bool keyed = false;
    };
    /// Every change of PTT since the board was made.
    const std::vector<Keying> &keyings() const { return m_keyings; }
    /// Every line heard from the daemon, without its line end.
    const QList<QByteArray> &linesHeard() const { return m_linesHeard; }

Q_SIGNALS:
    void lineHeard(QByteArray line);
    void pttChanged(bool keyed);
    void portOpened();
    void portClosed();

private:
    bool makePort(const QString &devpts);
    void watch(int fd, QSocketNotifier *&notifier, QSocketNotifier::Type type, void (Board::*handler)());
    void onReadable();
    void onWritable();
    void lookWhoIsThere();
    void setPortOpen(bool open);
    void obey(const QByteArray &line);
    void setKeyed(bool keyed);

    int m_master = -1;
    int m_slave = -1;    ///< kept open, so that the line lives on while the daemon does not
    int m_openings = -1; ///< inotify on the port
    QString m_portName;
    QSocketNotifier *m_readable = nullptr; ///< children
    QSocketNotifier *m_writable = nullptr;
    QSocketNotifier *m_opened = nullptr;
    int m_openCount = 0;
    bool m_isPortOpen = false;
    bool m_isKeyed = false;
    QByteArray m_received; ///< not yet a whole line
    QByteArray m_unsent;
    std::vector<Keying> m_keyings;
    QList<QByteArray> m_linesHeard;
};

} // namespace sim
