#pragma once

#include "sim/MonotonicClock.h"
#include "sim/member/RoomMember.h"
#include "sim/site/Site.h"

#include <QCoreApplication>
#include <QtTest>

#include <memory>

/// UTF-8 text as a QString.
inline QString operator""_s(const char *text, std::size_t bytes) {
    return QString::fromUtf8(text, static_cast<int>(bytes));
}

/// One control line that the gateway sent.
struct SentLine {
    std::int64_t timeNs = 0; ///< CLOCK_MONOTONIC at arrival
    QString text;
};

/// The site of one test: a new box, with a record of what the gateway says to the server. When the test fails, the
/// daemon's log is shown.
class TestSite : public sim::Site {
public:
    explicit TestSite(const sim::CardOptions &card = {}) : Site({}, card) {
        QObject::connect(&server(), &sim::VoiceServer::lineReceived, &server(),
                         [this](const QString &callsign, const QString &line) {
                             if (callsign != memberAccount().callsign &&
                                 !line.startsWith("LOGIN "_s + memberAccount().callsign))
                                 m_sent.append({sim::monotonicNs(), line});
                         });
    }

    ~TestSite() { showLogOfFailure(); }

    TestSite(const TestSite &) = delete;
    TestSite &operator=(const TestSite &) = delete;

    /// The daemon's log, if the running test function has failed.
    void showLogOfFailure() {
        if (!QTest::currentTestFailed())
            return;
        for (const sim::LogLine &line : daemon().log())
            qWarning().noquote() << "daemon:" << line.level << line.text.left(300);
    }

    static QString gateway() { return gatewayAccount().callsign; }

    /// Everything the gateway sent that begins with this, in order.
    QStringList sent(const QString &beginning = {}) const {
        QStringList texts;
        for (const SentLine &line : m_sent) {
            if (line.text.startsWith(beginning))
                texts.append(line.text);
        }
        return texts;
    }
    const QList<SentLine> &sentLines() const { return m_sent; }
    void forgetSent() { m_sent.clear(); }

    /// Until the gateway has sent that many lines that begin so.
    bool waitForSent(const QString &beginning, int timeoutMs, int count = 1) {
        return waitFor([&] { return sent(beginning).size() >= count; }, timeoutMs);
    }

    /// Until the daemon's log has the line, whole.
    bool waitForLine(const QString &level, const QString &text, int timeoutMs) {
        return waitFor([&] { return countLines(level, text) > 0; }, timeoutMs);
    }
    int countLines(const QString &level, const QString &text) {
        const auto isLine = [&](const sim::LogLine &line) { return line.level == level && line.text == text; };
        return int(std::count_if(daemon().log().begin(), daemon().log().end(), isLine));
    }
    /// The log has the line just once; it may follow a moment after what it tells of was seen elsewhere.
    bool logsOnce(const QString &level, const QString &text) {
        return waitForLine(level, text, 2000) && countLines(level, text) == 1;
    }
    /// When the first line with the words was said that the log got after that moment; 0: it has none.
    std::int64_t timeLogged(const QString &words, std::int64_t afterNs = 0) {
        for (const sim::LogLine &line : daemon().log()) {
            if (line.timeNs > afterNs && line.text.contains(words))
                return line.saidNs;
        }
        return 0;
    }

    QJsonValue status(const char *key) const {
        return readState("kivo-status.json"_s).object().value(QLatin1String(key));
    }
    /// The status file is written anew every 2 s.
    bool waitForStatus(const char *key, const QJsonValue &value, int timeoutMs = 5000) {
        return waitFor([&] { return status(key) == value; }, timeoutMs);
    }

    /// A member in that room, ready to talk and to listen; null when it does not get there.
    std::unique_ptr<sim::RoomMember> memberIn(const QString &room) {
        auto member = std::make_unique<sim::RoomMember>();
        member->connectToServer("127.0.0.1"_s, server().tcpPort(), server().udpPort(), memberAccount().callsign,
                                memberAccount().password, room);
        return waitFor([&] { return member->isReady(); }, 10000) ? std::move(member) : nullptr;
    }

    /// The gateway in the lobby, and a member with it; null when one of them does not get there.
    std::unique_ptr<sim::RoomMember> bringUpWithMember() { return bringUp() ? memberIn("Lobby"_s) : nullptr; }

    /// The member talks, upon which the gateway keys the radio.
    bool keysFor(sim::RoomMember &member) {
        member.startTalking();
        return waitFor([&] { return board().isKeyed(); }, 5000);
    }

    /// Until the gateway says that it is in that room, and has a media link made after that moment.
    bool waitUntilBack(const QString &room, std::int64_t afterNs, int timeoutMs = 10000) {
        const QString joined = "[Room] Bergabung ke room: \""_s + room + u'"';
        return waitFor([&] { return timeLogged(joined, afterNs) > 0 && timeLogged("[UDP] Siap"_s, afterNs) > 0; },
                       timeoutMs);
    }

private:
    QList<SentLine> m_sent;
};

inline double secondsBetween(std::int64_t fromNs, std::int64_t toNs) {
    return double(toNs - fromNs) / 1e9;
}

/// Shows the value when it is not in the range.
#define VERIFY_BETWEEN(value, low, high)                                                                               \
    do {                                                                                                               \
        const double measured = (value);                                                                               \
        QVERIFY2(measured >= (low) && measured <= (high), qPrintable(QStringLiteral("%1 is %2, not between %3 and %4") \
                                                                         .arg(QLatin1String(#value))                   \
                                                                         .arg(measured)                                \
                                                                         .arg(double(low))                             \
                                                                         .arg(double(high))));                         \
    } while (false)

/// main() of a test on the site: the namespaces come first, before any thread.
#define SITE_TEST_MAIN(TestClass)                                                                                      \
    int main(int argc, char **argv) {                                                                                  \
        if (!sim::enterPrivateSite())                                                                                  \
            return 1;                                                                                                  \
        const QCoreApplication application(argc, argv);                                                                \
        TestClass test;                                                                                                \
        return QTest::qExec(&test, argc, argv);                                                                        \
    }
