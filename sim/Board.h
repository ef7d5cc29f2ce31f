#pragma once

#include <QByteArray>
#include <QObject>
#include <QString>

#include <cstdint>
#include <vector>

namespace sim {

/// The radio interface board, on a pseudo-terminal: speaks the serial protocol from the board's side.
class Board : public QObject {
    Q_OBJECT

public:
    /// @param devpts  a mounted devpts folder; the port is one of its entries
    explicit Board(const QString &devpts, QObject *parent = nullptr);
    ~Board() override;

    /// Path of the serial device, for "serial_port".
    QString portName() const;

    /// What the board says when it has started ("ARDUINO:READY").
    void announceReady();
    /// Opens or closes the squelch: "COS:1" or "COS:0".
    void setSquelch(bool open);
    /// An unexpected restart: PTT drops, squelch state is forgotten, "ARDUINO:READY".
    void reset();
    void sendRaw(const QByteArray &bytes);
    /// The device disappears, as a cable pulled.
    void vanish();

    bool isKeyed() const;

    struct Keying {
        std::int64_t timeNs = 0; ///< CLOCK_MONOTONIC
        bool keyed = false;
    };
    /// Every change of PTT since the board was made.
    const std::vector<Keying> &keyings() const;
    /// Every line heard from the daemon.
    const QList<QByteArray> &linesHeard() const;

Q_SIGNALS:
    void lineHeard(QByteArray line);
    void pttChanged(bool keyed);
};

} // namespace sim
