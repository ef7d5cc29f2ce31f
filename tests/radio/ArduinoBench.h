#pragma once

#include "../support/LogCapture.h"
#include "PtyBoard.h"
#include "radio/ArduinoController.h"

#include <QSignalSpy>
#include <QTest>

#include <chrono>
#include <memory>

using namespace std::chrono_literals;

inline constexpr ArduinoTiming silent = {1h, 1h, 1h, 1h}; // nothing happens by itself
inline constexpr ArduinoTiming quick = {10ms, 40ms, 20ms, 30ms};

inline constexpr bool cosHigh = true;
inline constexpr bool pttInverted = true;

inline const QString dtrFailed =
    QStringLiteral("warning [Arduino] DTR LOW failed (CH341 quirk) — Arduino may reset once"); // as a pty does
inline const QString ready = QStringLiteral("info [Arduino] Ready");

inline QString connectedTo(const PtyBoard &board) {
    return QStringLiteral("info [Arduino] Connected to \"%1\" @ 9600").arg(board.device());
}

inline QString configSent(const char *cosLogicHigh, const char *pttInvert) {
    return QStringLiteral("info [Arduino] Config sent - COS_HIGH: %1 PTT_INVERT: %2")
        .arg(QLatin1String(cosLogicHigh), QLatin1String(pttInvert));
}

inline QList<bool> firstArguments(const QSignalSpy &spy) {
    QList<bool> values;
    for (const QList<QVariant> &arguments : spy)
        values.append(arguments.first().toBool());
    return values;
}

/// Fixture: each test has a closed controller, a board on a pty for it to open, and a log of its own.
class ArduinoBench : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void init() {
        m_log = std::make_unique<LogCapture>();
        m_board = std::make_unique<PtyBoard>();
        m_radio = std::make_unique<ArduinoController>(nullptr, silent);
    }

    void cleanup() {
        m_radio.reset();
        m_board.reset();
        m_log.reset();
    }

protected:
    /// Opens the port and forgets what has been logged about it.
    void open(bool cosLogicHigh = cosHigh, bool pttInvert = !pttInverted) {
        QVERIFY(m_radio->openPort(m_board->device(), 9600, cosLogicHigh, pttInvert));
        QCOMPARE(m_log->take(), QStringList(connectedTo(*m_board)));
    }

    /// Returns when the controller has seen the chunk.
    void sayAndWait(const QByteArray &chunk) {
        QSignalSpy seen(m_radio->findChildren<QSerialPort *>().last(), &QSerialPort::readyRead);
        m_board->say(chunk);
        QVERIFY(seen.wait());
    }

    /// Returns when a second controller, opened now, has come through all steps that it takes by itself; with what has
    /// been logged up to then, but for its lines.
    QStringList logOfAWhile(const ArduinoTiming &timing) {
        PtyBoard board;
        ArduinoController other(nullptr, timing);
        bool isThrough = other.openPort(board.device(), 9600, cosHigh, !pttInverted);
        const auto hasBeenServed = [&board] {
            return board.heard().contains("CONFIG:PTT_INVERT:0\n") && board.heard().count("PING\n") >= 3;
        };
        isThrough = isThrough && QTest::qWaitFor(hasBeenServed);
        QStringList lines = m_log->take();
        for (const QString &own : {connectedTo(board), dtrFailed, configSent("true", "false")})
            isThrough = lines.removeOne(own) && isThrough;
        return isThrough ? lines : QStringList(QStringLiteral("the second controller is not through"));
    }

    std::unique_ptr<LogCapture> m_log;
    std::unique_ptr<PtyBoard> m_board;
    std::unique_ptr<ArduinoController> m_radio;
};
