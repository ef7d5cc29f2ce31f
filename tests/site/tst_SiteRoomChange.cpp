#include "Hearing.h"
#include "sim/wire/SealedFrame.h"

using namespace sim;

namespace {

const QByteArray lobbyKey(32, 'L');
constexpr double lowHertz = 700, highHertz = 1500; // whole waves per frame

QList<QByteArray> frames(double hertz, int count, const QByteArray &key) {
    VoiceEncoder encoder;
    QList<QByteArray> all;
    for (int i = 0; i < count; ++i)
        all.append(sealed(encoder.encode(tone(hertz, -10, 0.02).samples), key));
    return all;
}

/// In tenths of a frame, so that a single frame is not overlooked.
bool isHeard(const Pcm &sound, double hertz) {
    constexpr double piece = 0.01;
    for (double at = 0; at + piece <= sound.seconds(); at += piece / 2) {
        if (toneLevelDbfs(slice(sound, at, at + piece), hertz) > -20)
            return true;
    }
    return false;
}

} // namespace

/// What belongs to one room does not get into the next.
class TestSiteRoomChange : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void whatWaitsToBePlayedIsForgottenWithTheRoom();
    void aKeyOfAnotherLengthSwitchesSealingOff_data();
    void aKeyOfAnotherLengthSwitchesSealingOff();
};

void TestSiteRoomChange::whatWaitsToBePlayedIsForgottenWithTheRoom() {
    TestSite site;
    site.server().setRoomKey("Lobby"_s, lobbyKey);
    QVERIFY(site.bringUp());
    const std::int64_t beginNs = monotonicNs();
    // One frame less than what playback begins with.
    for (const QByteArray &frame : frames(lowHertz, 4, lobbyKey))
        site.server().sendAudioTo(site.gateway(), 7, frame);
    QVERIFY(site.waitForLog("[Audio] Decoder created userId: 7"_s, 5000));
    site.dropFile("kivo-cmd-1.json"_s, R"({"action":"leave"})");
    QVERIFY(site.waitForLine("info"_s, "[Room] Keluar dari room: \"Lobby\""_s, 5000));
    for (const QByteArray &frame : frames(highHertz, 8, lobbyKey))
        site.server().sendAudioTo(site.gateway(), 8, frame);
    QVERIFY(Site::waitFor([&] { return isHeard(site.card().played(beginNs, monotonicNs()), highHertz); }, 5000));
    QVERIFY(!isHeard(site.card().played(beginNs, monotonicNs()), lowHertz));
}

void TestSiteRoomChange::aKeyOfAnotherLengthSwitchesSealingOff_data() {
    QTest::addColumn<QByteArray>("key");
    QTest::newRow("a byte short") << QByteArray(31, 'k').toBase64();
    QTest::newRow("a byte long") << QByteArray(33, 'k').toBase64();
    QTest::newRow("no Base64") << QByteArray("!");
}

void TestSiteRoomChange::aKeyOfAnotherLengthSwitchesSealingOff() {
    QFETCH(QByteArray, key);
    constexpr double radioHertz = 1013;
    TestSite site;
    site.server().setRoomKey("Lobby"_s, lobbyKey);
    QVERIFY(site.bringUp());
    QList<QByteArray> sent;
    QObject::connect(&site.server(), &VoiceServer::audioRelayed, &site.server(),
                     [&](const QString &, const QByteArray &frame) { sent.append(frame); });
    site.server().setReplyPath(
        [&](const QByteArray &line) {
            return QList<QByteArray>{line.startsWith("JOIN_OK|Hilltop") ? "JOIN_OK|Hilltop|" + key + "\r\n" : line};
        },
        site.gateway());
    site.dropFile("kivo-cmd-1.json"_s, R"({"action":"join","room":"Hilltop"})");
    QVERIFY(site.waitForLine("info"_s, "[Room] Bergabung ke room: \"Hilltop\""_s, 5000));

    site.card().feed(tone(radioHertz, -10, 30));
    site.board().setSquelch(true);
    QVERIFY(Site::waitFor([&] { return sent.size() >= 40; }, 5000));
    site.board().setSquelch(false);
    VoiceDecoder decoder;
    Pcm inClear{voiceRateHz, {}};
    for (const QByteArray &frame : std::as_const(sent)) {
        QVERIFY(!opened(frame, lobbyKey));
        const std::vector<std::int16_t> samples = decoder.decode(frame);
        inClear.samples.insert(inClear.samples.end(), samples.begin(), samples.end());
    }
    VERIFY_BETWEEN(toneHz(inClear), radioHertz - 5, radioHertz + 5);
    // And in clear is what it takes.
    site.server().sendAudioTo(site.gateway(), 9, frames(lowHertz, 1, {}).first());
    QVERIFY(site.waitForLog("[Audio] Decoder created userId: 9"_s, 5000));
    QCOMPARE(site.daemon().logged("Decode err"_s), QStringList());
}

SITE_TEST_MAIN(TestSiteRoomChange)
#include "tst_SiteRoomChange.moc"
