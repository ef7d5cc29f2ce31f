#include "../support/LogCapture.h"
#include "EngineOnCard.h"
#include "Hearing.h"
#include "Talker.h"

#include <QTest>

#include <limits>

namespace {

constexpr int hugeNumber = std::numeric_limits<int>::max();

/// A device of many rates on the card of the engine's site.
QString deviceOfManyRates(const EngineOnCard &site) {
    QFile config(sim::SoundCard::writeAlsaConfig(site.folder.path()));
    if (!config.open(QIODevice::Append) || config.write("pcm.any { type plug slave.pcm \"hw:1,0\" }\n") < 0)
        qFatal("cannot write the ALSA configuration");
    return QStringLiteral("any");
}

/// A sound that repeats itself eight times in a frame of 320 samples, so that each such frame is like the one before,
/// wherever in the sound it begins. It has many harmonics: what an encoder makes of them shows its settings.
constexpr size_t periodSamples = 40;

std::vector<std::int16_t> buzz(size_t samples, size_t phase = 0) {
    std::vector<std::int16_t> sound(samples);
    for (size_t i = 0; i < samples; ++i) {
        const size_t at = (i + phase) % periodSamples;
        sound[i] = std::int16_t((at * at * 7919) % 16001 - 8000);
    }
    return sound;
}

/// Whether these are the first packets that a new encoder at 16000 Hz with such settings makes of that sound.
bool areFirstOfBuzz(const std::vector<QByteArray> &packets, int bitrate, int complexity) {
    for (size_t phase = 0; phase < periodSamples; ++phase) {
        Talker talker(16000);
        talker.setBitrate(bitrate, complexity);
        if (talker.say({16000, buzz(packets.size() * 320, phase)}) == packets)
            return true;
    }
    return false;
}

} // namespace

class TestAudioEngineReopening : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void changesQuality();
    void encodesByTheNumbersOfTheChange();
    void reopensWhatWasOpenBeforeTwoChanges();
    void staysClosedWhenStoppedBeforeTheReopening();
    void mayEndBeforeTheReopening();
    void survivesAbsurdQuality_data();
    void survivesAbsurdQuality();
    void triesAGivenUpPlaybackAgain();
};

void TestAudioEngineReopening::changesQuality() {
    EngineOnCard site;
    QVERIFY(site.engine.openPlayback() && site.engine.openCapture());
    LogCapture log;
    site.engine.changeQuality(16000, 24000, 5, 20);
    QCOMPARE(log.take(), QStringList{QStringLiteral("info [Audio] Quality change → SR: 16000 BR: 24000 fd: 20 ms")});
    QVERIFY(!site.card.isPlaybackOpen() && !site.card.isCaptureOpen());
    QCOMPARE(site.timer("reopen")->interval(), 100);
    QVERIFY(site.playbackReopens() && site.captureReopens());
    site.engine.onAudioReceivedFrom(Talker(16000).say(sim::tone(500, -10, 0.02, 16000)).front(), 42);
    QCOMPARE(log.take(), QStringList{QStringLiteral("info [Audio] Decoder created userId: 42 SR: 16000 | total: 1")});
}

void TestAudioEngineReopening::encodesByTheNumbersOfTheChange() {
    std::vector<QByteArray> first;
    QVERIFY(undisturbed([&] {
        EngineOnCard site({.rateHz = 16000});
        site.engine.setDevices(deviceOfManyRates(site), {});
        site.card.feed({16000, buzz(80000)});
        site.engine.changeQuality(16000, 24000, 2, 20);
        const bool isInTheSound = QTest::qWaitFor([&] { return !site.timer("reopen")->isActive(); });
        const bool sends =
            isInTheSound && site.engine.openCapture() && QTest::qWaitFor([&] { return site.sent.size() >= 5; });
        first = {site.sent.begin(), site.sent.begin() + (sends ? 5 : 0)};
        return site.card.captureXruns() == 0;
    }));
    QCOMPARE(first.size(), size_t(5));
    QVERIFY(areFirstOfBuzz(first, 24000, 2));
    QVERIFY(!areFirstOfBuzz(first, 32000, 2)); // the numbers before the change would show
    QVERIFY(!areFirstOfBuzz(first, 24000, 5));
}

void TestAudioEngineReopening::reopensWhatWasOpenBeforeTwoChanges() {
    EngineOnCard site;
    QVERIFY(site.engine.openPlayback());
    site.engine.changeQuality(16000, 24000, 5, 20);
    site.engine.changeQuality(24000, 24000, 5, 40);
    QVERIFY(site.playbackReopens());
    QCOMPARE(site.timer("output")->interval(), 40);
    QTRY_VERIFY(!site.timer("reopen")->isActive());
    QVERIFY(!site.card.isCaptureOpen()); // was not open
}

void TestAudioEngineReopening::staysClosedWhenStoppedBeforeTheReopening() {
    EngineOnCard site;
    QVERIFY(site.engine.openPlayback() && site.engine.openCapture());
    site.engine.changeQuality(16000, 24000, 5, 20);
    site.engine.stopPlayback();
    site.engine.stopCapture();
    QTRY_VERIFY(!site.timer("reopen")->isActive());
    QVERIFY(!site.card.isPlaybackOpen() && !site.card.isCaptureOpen());
}

void TestAudioEngineReopening::mayEndBeforeTheReopening() {
    const QTemporaryDir folder;
    const sim::SoundCard card(folder.path(), 1);
    QVERIFY(sim::SoundCard::installAlsaConfig(folder.path()));
    auto engine = std::make_unique<AudioEngine>();
    engine->setDevices(QStringLiteral("hw:1,0"), QStringLiteral("hw:1,0"));
    QVERIFY(engine->initialize(48000, 1, 32000, 5, 20) && engine->openPlayback() && engine->openCapture());
    engine->changeQuality(16000, 24000, 5, 20);
    engine.reset();
    QVERIFY(!QTest::qWaitFor([&] { return card.isPlaybackOpen() || card.isCaptureOpen(); }, 200));
}

void TestAudioEngineReopening::survivesAbsurdQuality_data() {
    QTest::addColumn<int>("rateHz");
    QTest::addColumn<int>("bitrate");
    QTest::addColumn<int>("complexity");
    QTest::addColumn<int>("frameMs");
    QTest::newRow("all zero") << 0 << 0 << 0 << 0;
    QTest::newRow("all negative") << -1 << -1 << -1 << -1;
    QTest::newRow("most negative") << -hugeNumber - 1 << -hugeNumber - 1 << -hugeNumber - 1 << -hugeNumber - 1;
    QTest::newRow("all huge") << hugeNumber << hugeNumber << hugeNumber << hugeNumber;
    QTest::newRow("rate of one") << 1 << 32000 << 5 << 20;
    QTest::newRow("no Opus rate") << 44100 << 32000 << 5 << 20;
    QTest::newRow("huge rate") << hugeNumber << 32000 << 5 << 20;
    QTest::newRow("huge frame") << 48000 << 32000 << 5 << hugeNumber;
    QTest::newRow("zero frame") << 48000 << 32000 << 5 << 0;
    QTest::newRow("frame of 1 ms") << 48000 << 32000 << 5 << 1;
    QTest::newRow("frame of 120 ms") << 48000 << 32000 << 5 << 120;
}

void TestAudioEngineReopening::survivesAbsurdQuality() {
    QFETCH(int, rateHz);
    QFETCH(int, bitrate);
    QFETCH(int, complexity);
    QFETCH(int, frameMs);
    EngineOnCard site;
    QVERIFY(site.engine.openPlayback() && site.engine.openCapture());
    QElapsedTimer timer;
    timer.start();
    site.engine.changeQuality(rateHz, bitrate, complexity, frameMs);
    site.engine.onAudioReceivedFrom(speechPacket(), 1);
    site.engine.setTxTone(3, 3, 3);
    site.engine.setRxTone(3, 3, 3);
    QVERIFY(site.playbackReopens() && site.captureReopens());
    site.receive(std::vector<QByteArray>(5, speechPacket()));
    site.engine.onOutputBufferTimer();
    QVERIFY2(timer.elapsed() < 2000, qPrintable(QString::number(timer.elapsed())));

    site.engine.changeQuality(48000, 32000, 5, 20);
    QVERIFY(site.playbackReopens() && site.captureReopens());
    site.sent.clear();
    site.engine.onAudioReceivedFrom(speechPacket(), 1);
    QVERIFY(site.engine.outputLevel() > 0);
    QTRY_VERIFY(!site.sent.empty());
    QCOMPARE(Talker().hear({site.sent.front()}).samples.size(), size_t(960));
}

void TestAudioEngineReopening::triesAGivenUpPlaybackAgain() {
    EngineOnCard site;
    QTimer *retry = site.timer("retry");
    QCOMPARE(retry->interval(), 3000);
    QVERIFY(retry->isSingleShot());
    LogCapture log;
    retry->start(0);
    QVERIFY(site.playbackReopens());
    QCOMPARE(log.take(), QStringList{QStringLiteral("info [Audio] Retrying playback open...")});
    retry->start(0); // opened meanwhile by somebody else
    QTRY_VERIFY(!retry->isActive());
    QVERIFY(log.take().isEmpty());
    retry->start(3000);
    site.engine.stopPlayback();
    QVERIFY(!retry->isActive());
}

QTEST_GUILESS_MAIN(TestAudioEngineReopening)
#include "tst_AudioEngineReopening.moc"
