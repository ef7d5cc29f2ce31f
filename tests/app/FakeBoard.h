#pragma once

#include <QByteArray>
#include <QSocketNotifier>
#include <QString>
#include <QtTest>

#include <fcntl.h>
#include <functional>
#include <memory>
#include <pty.h>
#include <termios.h>
#include <unistd.h>

/// The board's end of a serial line, on a pseudo-terminal; keeps what it is told.
class FakeBoard {
public:
    FakeBoard() {
        termios raw = {};
        cfmakeraw(&raw);
        int slave = -1;
        char name[64] = {};
        if (openpty(&m_master, &slave, name, &raw, nullptr) != 0)
            qFatal("no pseudo-terminal");
        m_slave = slave;
        m_portName = QString::fromLocal8Bit(name);
        m_notifier = std::make_unique<QSocketNotifier>(m_master, QSocketNotifier::Read);
        QObject::connect(m_notifier.get(), &QSocketNotifier::activated, [this] { read(); });
    }

    ~FakeBoard() {
        m_notifier.reset();
        ::close(m_master);
        ::close(m_slave);
    }

    FakeBoard(const FakeBoard &) = delete;
    FakeBoard &operator=(const FakeBoard &) = delete;

    QString portName() const { return m_portName; }

    void say(const QByteArray &line) {
        QVERIFY(::write(m_master, line.constData(), static_cast<size_t>(line.size())) == line.size());
    }

    /// Waits until it has been told exactly these lines since the last call.
    bool isTold(const QByteArray &lines) { return hears(lines, &FakeBoard::m_heard); }

    /// The same of the transmitter alone: settings and keep-alives come by the clock.
    bool isToldOfPtt(const QByteArray &lines) { return hears(lines, &FakeBoard::pttLines); }

private:
    template <class What>
    bool hears(const QByteArray &lines, What what) {
        const bool told = QTest::qWaitFor([&] { return std::invoke(what, this) == lines; });
        if (!told)
            qDebug() << "board heard" << m_heard << "instead of" << lines;
        m_heard.clear();
        return told;
    }

    QByteArray pttLines() const {
        QByteArray lines;
        for (const QByteArray &line : m_heard.split('\n'))
            lines += line.startsWith("PTT:") ? line + '\n' : QByteArray();
        return lines;
    }

    void read() {
        char bytes[256];
        const ssize_t count = ::read(m_master, bytes, sizeof bytes);
        if (count > 0)
            m_heard.append(bytes, static_cast<int>(count));
    }

    int m_master = -1;
    int m_slave = -1;
    QString m_portName;
    QByteArray m_heard;
    std::unique_ptr<QSocketNotifier> m_notifier;
};
