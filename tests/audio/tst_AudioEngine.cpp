#include "../support/LogCapture.h"
#include "EngineOnCard.h"
#include "Hearing.h"
#include "Talker.h"

#include <QSignalSpy>
#include <QTest>
#include <QThread>

#include <limits>

namespace {

constexpr int hugeNumber = std::numeric_limits<int>::max();

QStringList linesWith(const QStringList &lines, const char *text) {
    return lines.filter(QString::fromUtf8(text));
}

} // namespace

class TestAudioEngine : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void saysThatItExists();
    void makesTheCodec_data();
    void makesTheCodec();
    void saysWhyADeviceCannotBeOpened();
    void usesTheDefaultDeviceWhenNoneIsNamed();
    void looksAtTheDevicesInTime();
    void looksAtBothDevicesAtOnce();
    void looksNoLessOftenForBeingBroughtIntoStep();
    void looksInTimeAtAnyFrameDuration();
    void clampsAndLogsToneSettings();
    void bringsSamplesToAnotherRate();

    void ignoresPacketsThatCannotBeAudio();
    void receivesNothingWhileClosedOrMuted();
    void countsTalkers();
    void saysWhatCannotBeDecoded();

    void startsTheTimeOutTimers_data();
    void startsTheTimeOutTimers();
    void startsAnewWithEveryTransmission();
    void takesANewLimitAtTheNextTransmission();
    void saysThatTheTimeIsOverThenSignals();
    void runsOutByItself();
    void saysWhyItCannotWarn();
};

void TestAudioEngine::saysThatItExists() {
    LogCapture log;
    const AudioEngine engine;
    QCOMPARE(log.take(), QStringList{QStringLiteral("debug [Audio] Engine created (Linux headless)")});
    QCOMPARE(engine.inputLevel(), 0);
    QCOMPARE(engine.outputLevel(), 0);
}

void TestAudioEngine::makesTheCodec_data() {
    QTest::addColumn<int>("rateHz");
    QTest::addColumn<int>("channels");
    QTest::addColumn<QString>("line");
    QTest::newRow("usual") << 48000 << 1 << "info [Audio] Initialized: 48000 Hz, 32000 bps fd: 20 ms";
    QTest::newRow("lower rate") << 16000 << 1 << "info [Audio] Initialized: 16000 Hz, 32000 bps fd: 20 ms";
    QTest::newRow("no Opus rate") << 44100 << 1 << "warning [Audio] Encoder error";
    QTest::newRow("zero") << 0 << 1 << "warning [Audio] Encoder error";
    QTest::newRow("no channels") << 48000 << 0 << "warning [Audio] Encoder error";
}

void TestAudioEngine::makesTheCodec() {
    QFETCH(int, rateHz);
    QFETCH(int, channels);
    QFETCH(QString, line);
    AudioEngine engine;
    LogCapture log;
    QCOMPARE(engine.initialize(rateHz, channels, 32000, 5, 20), line.startsWith(QLatin1String("info")));
    QCOMPARE(log.take(), QStringList{line});
}

void TestAudioEngine::saysWhyADeviceCannotBeOpened() {
    EngineOnCard site;
    site.card.setPresent(false);
    LogCapture log;
    QVERIFY(!site.engine.openPlayback());
    QVERIFY(!site.engine.openCapture());
    QCOMPARE(log.take(), QStringList({QStringLiteral("warning [Audio] Playback open: No such device"),
                                      QStringLiteral("warning [Audio] Capture open: No such device")}));
    site.engine.stopPlayback();
    site.engine.stopCapture();
    site.engine.onInputReadyRead();
    site.engine.onOutputBufferTimer();
    QVERIFY(log.take().isEmpty());
}

void TestAudioEngine::usesTheDefaultDeviceWhenNoneIsNamed() {
    EngineOnCard site;
    const sim::SoundCard defaultCard(site.folder.path(), 0);
    site.engine.setDevices({}, {});
    QVERIFY(site.engine.openPlayback());
    QVERIFY(site.engine.openCapture());
    QVERIFY(defaultCard.isPlaybackOpen() && defaultCard.isCaptureOpen());
    QVERIFY(site.engine.openPlayback()); // open already
    QVERIFY(site.engine.openCapture());
    site.engine.stopPlayback();
    site.engine.stopCapture();
    QVERIFY(!defaultCard.isPlaybackOpen() && !defaultCard.isCaptureOpen());
}

void TestAudioEngine::looksAtTheDevicesInTime() {
    EngineOnCard site;
    const auto period = [&](const char *name) {
        const QTimer *timer = site.timer(name);
        return timer->isActive() && !timer->isSingleShot() ? timer->interval() : -1;
    };
    QCOMPARE(period("capturePoll"), -1);
    QCOMPARE(period("output"), -1);
    QVERIFY(site.engine.openPlayback() && site.engine.openCapture());
    QCOMPARE(period("capturePoll"), 10);
    QCOMPARE(period("output"), 20);
    site.engine.stopPlayback();
    site.engine.stopCapture();
    QCOMPARE(period("capturePoll"), -1);
    QCOMPARE(period("output"), -1);
}

/// A machine that is late for a tick brings the timers into step, or out of it, by itself.
void TestAudioEngine::looksAtBothDevicesAtOnce() {
    int inStep = 0;
    QVERIFY(undisturbed([&] {
        EngineOnCard site;
        site.engine.setFramesWanted(false); // an encoder is slow where it is emulated
        const bool runs = site.engine.openPlayback() && site.engine.openCapture();
        QTimer *const poll = site.timer("capturePoll");
        const QTimer *const output = site.timer("output");
        QSignalSpy ticks(output, &QTimer::timeout);
        bool isOnTime = runs && ticks.wait();
        QElapsedTimer sinceFirstTick;
        sinceFirstTick.start();
        QThread::msleep(5);
        poll->start(); // from now on in the middle between the ticks, as behind a stall
        isOnTime = isOnTime && sinceFirstTick.elapsed() <= 6;
        inStep = 0;
        for (int tick = 1; tick <= 20 && isOnTime; ++tick) {
            isOnTime = ticks.wait() && std::abs(sinceFirstTick.elapsed() - tick * 20) <= 4;
            const int apartMs = (output->remainingTime() - poll->remainingTime() + 20) % 10;
            inStep += poll->remainingTime() == 0 || apartMs <= 1 || apartMs == 9 ? 1 : 0;
        }
        return isOnTime;
    }));
    QVERIFY2(inStep >= 15, qPrintable(QStringLiteral("%1 of 20").arg(inStep)));
}

/// The card's backlog is worked off, by a second look at it every 20 ms, although the loop is held up again and again.
void TestAudioEngine::looksNoLessOftenForBeingBroughtIntoStep() {
    qint64 waitingFrames = 0;
    QVERIFY(undisturbed([&] {
        EngineOnCard site;
        site.engine.setFramesWanted(false); // an encoder is slow where it is emulated
        const bool runs = site.engine.openPlayback() && site.engine.openCapture();
        QElapsedTimer sinceTheStart;
        sinceTheStart.start();
        QTimer *const poll = site.timer("capturePoll");
        const QTimer *const output = site.timer("output");
        connect(output, &QTimer::timeout, poll, [poll] {
            QThread::msleep(5);
            poll->start(); // out of step at each tick
        });
        QThread::msleep(120); // six frames
        QSignalSpy ticks(output, &QTimer::timeout);
        while (ticks.size() < 40 && ticks.wait()) {
        }
        const qint64 elapsedMs = sinceTheStart.elapsed();
        waitingFrames = elapsedMs * 48 - site.card.framesCaptured();
        return runs && elapsedMs < 120 + 40 * 20 + 20 && site.card.captureXruns() == 0;
    }));
    QVERIFY2(waitingFrames < 3 * 960, qPrintable(QString::number(waitingFrames)));
}

void TestAudioEngine::looksInTimeAtAnyFrameDuration() {
    EngineOnCard site;
    QVERIFY(site.engine.initialize(48000, 1, 32000, 5, 7));
    QVERIFY(site.engine.openPlayback() && site.engine.openCapture());
    int looks = 0;
    connect(site.timer("capturePoll"), &QTimer::timeout, [&] { ++looks; });
    QTRY_VERIFY_WITH_TIMEOUT(looks >= 20, 2000);
}

void TestAudioEngine::clampsAndLogsToneSettings() {
    AudioEngine engine;
    LogCapture log;
    engine.setTxTone(20, -30, 5);
    engine.setRxTone(-0.5, 12, 99);
    QCOMPARE(log.take(), QStringList({QStringLiteral("info [Audio] TX Tone Bass: 12 Mid: -12 Treble: 5"),
                                      QStringLiteral("info [Audio] RX Tone Bass: -0.5 Mid: 12 Treble: 12")}));
}

void TestAudioEngine::bringsSamplesToAnotherRate() {
    AudioEngine engine;
    const QByteArray second(48000 * 2, '\0');
    QCOMPARE(engine.resample(second, 48000, 16000), QByteArray(16000 * 2, '\0'));
    QCOMPARE(engine.resample(second, 48000, 48000), second);
}

void TestAudioEngine::ignoresPacketsThatCannotBeAudio() {
    EngineOnCard site;
    site.engine.setTotDuration(60);
    QVERIFY(site.engine.openPlayback());
    LogCapture log;
    for (int size = 0; size <= 9; ++size)
        site.engine.onAudioReceivedFrom(QByteArray(size, '\xFF'), 7);
    QVERIFY(log.take().isEmpty());
    site.engine.onAudioReceivedFrom(QByteArray(10, '\xFF'), 7);
    QCOMPARE(log.take().first(), QStringLiteral("info [TOT] Timer started: 60 s untuk userId 7"));
}

void TestAudioEngine::receivesNothingWhileClosedOrMuted() {
    EngineOnCard site;
    site.engine.setTotDuration(60);
    LogCapture log;
    site.engine.onAudioReceived(speechPacket());
    QVERIFY(site.engine.openPlayback());
    site.engine.setSpkMuted(true);
    QVERIFY(site.engine.isSpkMuted());
    site.engine.onAudioReceived(speechPacket());
    QVERIFY(log.take().isEmpty());
    site.engine.setSpkMuted(false);
    site.engine.onAudioReceived(speechPacket());
    QCOMPARE(log.take(), QStringList({QStringLiteral("info [TOT] Timer started: 60 s untuk userId 0"),
                                      QStringLiteral("info [Audio] Decoder created userId: 0 SR: 48000 | total: 1")}));
}

void TestAudioEngine::countsTalkers() {
    EngineOnCard site;
    QVERIFY(site.engine.openPlayback());
    LogCapture log;
    site.engine.onAudioReceivedFrom(speechPacket(), 42);
    QCOMPARE(log.take(), QStringList{QStringLiteral("info [Audio] Decoder created userId: 42 SR: 48000 | total: 1")});
    site.engine.onAudioReceivedFrom(speechPacket(), 7);
    site.engine.onAudioReceivedFrom(speechPacket(), 42);
    QCOMPARE(log.take(), QStringList{QStringLiteral("info [Audio] Decoder created userId: 7 SR: 48000 | total: 2")});
    site.engine.resetDecoders();
    site.engine.onAudioReceivedFrom(speechPacket(), 7);
    QCOMPARE(log.take(), QStringList{QStringLiteral("info [Audio] Decoder created userId: 7 SR: 48000 | total: 1")});
}

void TestAudioEngine::saysWhatCannotBeDecoded() {
    EngineOnCard site;
    QVERIFY(site.engine.openPlayback());
    LogCapture log;
    site.engine.onAudioReceivedFrom(QByteArray(20, '\xFF'), 9);
    QCOMPARE(log.take().last(), QStringLiteral("warning [Audio] Decode err userId 9 : corrupted stream"));
    QCOMPARE(site.engine.outputLevel(), 0);
}

void TestAudioEngine::startsTheTimeOutTimers_data() {
    QTest::addColumn<int>("seconds");
    QTest::addColumn<int>("expiryMs");
    QTest::addColumn<int>("warningMs");
    QTest::newRow("15 s") << 15 << 15000 << 5000;
    QTest::newRow("11 s") << 11 << 11000 << 1000;
    QTest::newRow("no time to warn in 10 s") << 10 << 10000 << -1;
    QTest::newRow("nor in 8 s") << 8 << 8000 << -1;
    QTest::newRow("unlimited") << 0 << -1 << -1;
    QTest::newRow("negative is unlimited") << -60 << -1 << -1;
    QTest::newRow("as long as a timer runs") << hugeNumber << hugeNumber << hugeNumber;
}

void TestAudioEngine::startsTheTimeOutTimers() {
    QFETCH(int, seconds);
    QFETCH(int, expiryMs);
    QFETCH(int, warningMs);
    EngineOnCard site;
    QVERIFY(site.engine.openPlayback());
    site.engine.setTotDuration(seconds);
    LogCapture log;
    site.engine.onAudioReceivedFrom(speechPacket(), 42);
    const auto isDue = [&](const char *name, int ms) {
        const int remaining = site.timer(name)->remainingTime();
        return ms < 0 ? remaining == -1 : remaining > ms - 500 && remaining <= ms;
    };
    QVERIFY(isDue("tot", expiryMs));
    QVERIFY(isDue("totWarning", warningMs));
    const QString line = QStringLiteral("info [TOT] Timer started: %1 s untuk userId 42").arg(seconds);
    QCOMPARE(linesWith(log.take(), "[TOT]"), expiryMs < 0 ? QStringList() : QStringList{line});
}

void TestAudioEngine::startsAnewWithEveryTransmission() {
    EngineOnCard site;
    QVERIFY(site.engine.openPlayback());
    site.engine.setTotDuration(60);
    const auto starts = [&](quint32 userId, qint64 afterMs) {
        LogCapture log;
        site.nowMs += afterMs;
        site.engine.onAudioReceivedFrom(speechPacket(), userId);
        return !linesWith(log.take(), "[TOT] Timer started:").isEmpty();
    };
    QVERIFY(starts(1, 0));
    QVERIFY(!starts(1, 20));
    QVERIFY(!starts(1, 499));
    QVERIFY(starts(1, 500));
    QVERIFY(starts(2, 20));
    QVERIFY(starts(1, 20));
    site.engine.onTotExpired();
    QVERIFY(starts(1, 20)); // the talker's own next packet
    QVERIFY(!starts(1, 20));
    QVERIFY(site.engine.outputLevel() > 0); // and it is heard
}

void TestAudioEngine::takesANewLimitAtTheNextTransmission() {
    EngineOnCard site;
    QVERIFY(site.engine.openPlayback());
    site.engine.setTotDuration(60);
    site.engine.onAudioReceivedFrom(speechPacket(), 1);
    site.engine.setTotDuration(0);
    site.engine.onAudioReceivedFrom(speechPacket(), 1);
    QVERIFY(site.timer("tot")->isActive());
    site.nowMs += 500;
    site.engine.onAudioReceivedFrom(speechPacket(), 1);
    QVERIFY(!site.timer("tot")->isActive());
    QVERIFY(!site.timer("totWarning")->isActive());
}

void TestAudioEngine::saysThatTheTimeIsOverThenSignals() {
    EngineOnCard site;
    QVERIFY(site.engine.openPlayback());
    site.engine.setTotDuration(60);
    site.engine.onAudioReceivedFrom(speechPacket(), 42);
    LogCapture log;
    connect(&site.engine, &AudioEngine::totExpired, [] { qDebug() << "signal"; });
    site.engine.onTotExpired();
    QCOMPARE(log.take(), QStringList({QStringLiteral("info [TOT] Batas waktu tercapai ( 60 s) — downlink di-mute untuk "
                                                     "userId 42"),
                                      QStringLiteral("debug signal")}));
}

void TestAudioEngine::runsOutByItself() {
    EngineOnCard site;
    QVERIFY(site.engine.openPlayback());
    site.engine.setTotDuration(1);
    QSignalSpy expired(&site.engine, &AudioEngine::totExpired);
    QElapsedTimer timer;
    timer.start();
    site.engine.onAudioReceivedFrom(speechPacket(), 42);
    QVERIFY(expired.wait(3000));
    QVERIFY2(timer.elapsed() >= 1000, qPrintable(QString::number(timer.elapsed())));
}

void TestAudioEngine::saysWhyItCannotWarn() {
    EngineOnCard site;
    QSignalSpy warned(&site.engine, &AudioEngine::totWarning);
    const QStringList lines{
        QStringLiteral("info [TOT] Warning — 10 detik lagi downlink di-mute (userId 0 )"),
        QStringLiteral("warning [TOT] Warning tone tidak bisa diputar: ALSA tidak siap atau speaker muted")};
    LogCapture log;
    site.engine.onTotWarning();
    QCOMPARE(log.take(), lines);
    QVERIFY(site.engine.openPlayback());
    site.engine.setSpkMuted(true);
    site.engine.onTotWarning();
    QCOMPARE(log.take(), lines);
    QCOMPARE(warned.size(), 2);
}

QTEST_GUILESS_MAIN(TestAudioEngine)
#include "tst_AudioEngine.moc"
