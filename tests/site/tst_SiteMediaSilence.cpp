#include "TestSite.h"

#include <QRegularExpression>

using namespace sim;

/// The media path dies while the control link lives on. The gateway looks after it every 30 s, from its start.
class TestSiteMediaSilence : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void aSilentMediaPathIsKeptOpenThenMadeAnew();
};

void TestSiteMediaSilence::aSilentMediaPathIsKeptOpenThenMadeAnew() {
    struct Datagram {
        std::int64_t timeNs;
        QByteArray bytes;
    };
    TestSite site;
    QList<Datagram> datagrams;
    QObject::connect(&site.server(), &VoiceServer::datagramReceived, &site.server(), [&](const QByteArray &bytes) {
        datagrams.append({monotonicNs(), bytes});
    });
    const auto received = [&](const QByteArray &beginning) {
        QList<Datagram> found;
        for (const Datagram &datagram : datagrams) {
            const bool isMembers = datagram.bytes.startsWith("TOKEN:") && datagram.bytes.endsWith(":200");
            if (datagram.bytes.startsWith(beginning) && !isMembers)
                found.append(datagram);
        }
        return found;
    };
    QVERIFY(site.bringUp());
    const std::int64_t readyNs = site.timeLogged("[UDP] UDP is now READY"_s);
    const QByteArray token = received("TOKEN:").value(0).bytes;
    QCOMPARE(received("TOKEN:").size(), 1);

    // A datagram within the 20 s before the first look makes the path good then.
    QVERIFY(!Site::waitFor([&] { return !received("KEEPALIVE").isEmpty(); }, 14000));
    auto member = site.memberIn("Lobby"_s);
    QVERIFY(member);
    member->speak(tone(700, -10, 0.1));
    QVERIFY(site.waitForLog("[Audio] Decoder created userId: 200"_s, 2000));
    QVERIFY(Site::waitFor([&] { return !member->isSpeaking(); }, 2000));
    const std::int64_t lastHeardNs = monotonicNs();
    member.reset();

    // From now on nothing comes any more. At the second and the third look the path is kept open.
    site.server().setMediaLoss([](const QByteArray &) { return true; });
    QVERIFY(Site::waitFor([&] { return received("KEEPALIVE").size() == 1; }, 60000));
    VERIFY_BETWEEN(secondsBetween(readyNs, received("KEEPALIVE").value(0).timeNs), 56.0, 63.0);
    QVERIFY(Site::waitFor([&] { return received("KEEPALIVE").size() == 2; }, 35000));
    VERIFY_BETWEEN(secondsBetween(lastHeardNs, received("KEEPALIVE").value(1).timeNs), 60.0, 80.0);
    site.board().setSquelch(true); // talks on, though nobody can tell it whether it is heard
    const auto failed = [&] { return site.timeLogged("[UDP] Socket health check FAILED"_s) > 0; };
    QVERIFY(Site::waitFor(failed, 35000));
    const std::int64_t failedNs = site.timeLogged("[UDP] Socket health check FAILED"_s);
    VERIFY_BETWEEN(secondsBetween(lastHeardNs, failedNs), 90.0, 110.0);
    QCOMPARE(received("KEEPALIVE").size(), 2);
    const QRegularExpression failure(
        "^\\[UDP\\] Socket health check FAILED — state: \\S+ silent: (9\\d|1[0-2]\\d)\\d{3} "
        "ms — reinitializing\\.\\.\\.$"_s);
    const QString line = site.daemon().logged("[UDP] Socket health check FAILED"_s).value(0);
    QVERIFY2(failure.match(line).hasMatch(), qPrintable(line));

    // 200 ms later a fresh socket and the handshake from its beginning, with the same token.
    site.server().setMediaLoss({});
    QVERIFY(site.waitForLine("debug"_s, "[UDP] Reinitializing UDP socket..."_s, 3000));
    VERIFY_BETWEEN(secondsBetween(failedNs, site.timeLogged("Reinitializing"_s)), 0.15, 2.0);
    QVERIFY(Site::waitFor([&] { return site.timeLogged("[UDP] Siap"_s, failedNs) > 0; }, 5000));
    QCOMPARE(received("TOKEN:").size(), 2);
    QCOMPARE(received("TOKEN:").value(1).bytes, token);
    QCOMPARE(site.daemon().logged("[UDP] Bound to local port:"_s).size(), 2);
    QCOMPARE(site.daemon().logged("[Server] Terputus"_s), QStringList());

    // And both directions carry again.
    member = site.memberIn("Lobby"_s);
    QVERIFY(member);
    QVERIFY(Site::waitFor([&] { return member->heard().size() >= 10; }, 5000));
    site.board().setSquelch(false);
    member->speak(tone(700, -10, 0.5));
    QVERIFY(site.waitForLog("[Audio] SW buffer primed"_s, 5000));
}

SITE_TEST_MAIN(TestSiteMediaSilence)
#include "tst_SiteMediaSilence.moc"
