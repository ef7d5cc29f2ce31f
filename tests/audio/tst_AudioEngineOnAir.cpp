#include "../support/LogCapture.h"
#include "EngineOnCard.h"
#include "Hearing.h"
#include "Talker.h"
#include "sim/sound/AudioAnalysis.h"

#include <QTest>

namespace {

/// The last stretch of a sound, where everything has settled.
sim::Pcm end(const sim::Pcm &sound, double seconds) {
    return sim::slice(sound, sound.seconds() - seconds, sound.seconds());
}

int samplesIn(const QByteArray &packet, int rateHz) {
    return opus_packet_get_nb_samples(reinterpret_cast<const unsigned char *>(packet.constData()), packet.size(),
                                      rateHz);
}

} // namespace

class TestAudioEngineOnAir : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void init() { cryptoBinding() = m_system; }

    void sendsWhatTheRadioHears_data();
    void sendsWhatTheRadioHears();
    void followsTheFrameDurationWhenItSends();
    void refusesACardThatOpusCannotFollow();
    void sendsNothingFromARefusedCardThatIsOpenedAgain();
    void readsNothingWhileTheMicrophoneIsMuted();
    void metersButSendsNothingWhileNobodyWantsFrames();
    void encodesTheFirstWantedFrameFromAFreshState();
    void sealsWhatItSends();
    void sendsInClearWhileTheCryptoLibraryFails();
    void goesOnSendingAfterAnOverrun();

    void playsWhatTheRoomSays_data();
    void playsWhatTheRoomSays();
    void dropsWhatItCannotOpen();
    void keepsTheQueueWhileTheSpeakerIsMuted();
    void forgetsTheQueueWhenBuffersAreCleared();
    void metersRiseAtOnceAndFallSlowly();
    void shapesWhatItReceives();
    void forgetsTheAutomaticGainWhenSwitchedOff();
    void survivesTheCardBeingUnplugged();

private:
    const CryptoBinding m_system = cryptoBinding();
};

// From the radio to the network

void TestAudioEngineOnAir::sendsWhatTheRadioHears_data() {
    QTest::addColumn<int>("rateHz");
    QTest::addColumn<int>("minChannels");
    QTest::newRow("48000 Hz mono") << 48000 << 1;
    QTest::newRow("stereo only") << 48000 << 2;
    QTest::newRow("16000 Hz only") << 16000 << 1;
}

void TestAudioEngineOnAir::sendsWhatTheRadioHears() {
    QFETCH(int, rateHz);
    QFETCH(int, minChannels);
    sim::Pcm heard;
    int frameSamples = 0;
    QVERIFY(undisturbed([&] {
        EngineOnCard site({.rateHz = rateHz, .minChannels = minChannels});
        site.engine.setMicGain(50);
        site.engine.openCapture();
        site.card.feed(sim::tone(1000, -10, 1.5, rateHz));
        const bool sends = QTest::qWaitFor([&] { return site.sent.size() >= 60; });
        heard = end(Talker().hear(site.sent), 0.5);
        frameSamples = sends ? samplesIn(site.sent[0], rateHz) : 0;
        return sends && site.card.captureXruns() == 0;
    }));
    QVERIFY(isNear(sim::toneHz(heard), 1000, 1));
    QVERIFY(isNear(sim::toneLevelDbfs(heard, 1000), -10 - 6.02, 0.5));
    QVERIFY(sim::toneShare(heard, 1000) > 0.98);
    QCOMPARE(frameSamples, rateHz / 50);
}

void TestAudioEngineOnAir::followsTheFrameDurationWhenItSends() {
    EngineOnCard site;
    QVERIFY(site.engine.openCapture());
    site.engine.changeQuality(48000, 24000, 5, 60);
    QVERIFY(site.captureReopens());
    site.sent.clear();
    QTRY_VERIFY(!site.sent.empty());
    QCOMPARE(Talker().hear({site.sent[0]}).samples.size(), size_t(2880));
}

void TestAudioEngineOnAir::refusesACardThatOpusCannotFollow() {
    EngineOnCard site({.rateHz = 44100});
    LogCapture log;
    QVERIFY(!site.engine.openCapture());
    QVERIFY(!site.card.isCaptureOpen());
    QVERIFY(log.take().isEmpty());
    site.card.setRate(48000); // another card in its place
    QVERIFY(site.engine.openCapture());
    QTRY_VERIFY(!site.sent.empty());
}

/// The rate is then no longer a new one, but there is still no encoder for it.
void TestAudioEngineOnAir::sendsNothingFromARefusedCardThatIsOpenedAgain() {
    EngineOnCard site({.rateHz = 44100});
    QVERIFY(!site.engine.openCapture());
    QVERIFY(site.engine.openCapture());
    QVERIFY(site.card.isCaptureOpen());
    QTRY_VERIFY(site.card.framesCaptured() >= 4410);
    QVERIFY(site.sent.empty());
}

void TestAudioEngineOnAir::readsNothingWhileTheMicrophoneIsMuted() {
    EngineOnCard site;
    QVERIFY(site.engine.openCapture());
    QTRY_VERIFY(!site.sent.empty());
    site.engine.setMicMuted(true);
    QVERIFY(site.engine.isMicMuted());
    const auto read = site.card.framesCaptured();
    site.sent.clear();
    QVERIFY(!QTest::qWaitFor([&] { return !site.sent.empty(); }, 100));
    QCOMPARE(site.card.framesCaptured(), read);
    site.engine.setMicMuted(false);
    QTRY_VERIFY(!site.sent.empty());
}

void TestAudioEngineOnAir::metersButSendsNothingWhileNobodyWantsFrames() {
    EngineOnCard site;
    site.engine.setFramesWanted(false);
    QVERIFY(site.engine.openCapture());
    site.card.feed(sim::tone(1000, -10, 5));
    QTRY_COMPARE(site.engine.inputLevel(), 73); // (-10 - 3.01 + 50) / 50 of a hundred
    QVERIFY(site.sent.empty());
    site.engine.setFramesWanted(true);
    QTRY_VERIFY(!site.sent.empty());
}

void TestAudioEngineOnAir::encodesTheFirstWantedFrameFromAFreshState() {
    EngineOnCard site;
    QVERIFY(site.engine.openCapture());
    site.card.feed(sim::tone(1000, -10, 5));
    QTRY_VERIFY(site.engine.inputLevel() > 70);
    site.card.clearFeed();
    QTRY_COMPARE(site.engine.inputLevel(), 0);
    const QByteArray silence = Talker().packet(std::vector<std::int16_t>(960));
    site.sent.clear();
    QTRY_VERIFY(!site.sent.empty());
    QVERIFY(site.sent[0] != silence); // a state that still remembers the tone
    site.engine.setFramesWanted(false);
    site.sent.clear();
    site.engine.setFramesWanted(true);
    QTRY_VERIFY(!site.sent.empty());
    QCOMPARE(site.sent[0].toHex(), silence.toHex());
}

void TestAudioEngineOnAir::sealsWhatItSends() {
    std::vector<QByteArray> sent;
    QVERIFY(undisturbed([&] {
        EngineOnCard site;
        site.engine.setEncryptionKey(QByteArray(32, 'k').toBase64());
        site.engine.openCapture();
        site.card.feed(sim::tone(1000, -10, 5));
        bool sends = QTest::qWaitFor([&] { return site.sent.size() >= 10; });
        const int overruns = site.card.captureXruns(); // of a slow machine at first
        sends = sends && QTest::qWaitFor([&] { return site.sent.size() >= 18; });
        sent = site.sent;
        return sends && site.card.captureXruns() == overruns;
    }));
    FrameCipher room;
    room.setKey(QByteArray(32, 'k').toBase64());
    std::vector<QByteArray> packets;
    for (const QByteArray &frame : sent) {
        packets.push_back(room.open(frame));
        QCOMPARE(packets.back().size(), frame.size() - 40);
    }
    QVERIFY(isNear(sim::toneHz(end(Talker().hear(packets), 0.1)), 1000, 5));
}

void TestAudioEngineOnAir::sendsInClearWhileTheCryptoLibraryFails() {
    cryptoBinding().sodiumInit = [] { return -1; };
    EngineOnCard site;
    site.engine.setEncryptionKey(QByteArray(32, 'k').toBase64());
    QVERIFY(site.engine.openCapture());
    QTRY_VERIFY(!site.sent.empty());
    QCOMPARE(site.sent[0].toHex(), Talker().packet(std::vector<std::int16_t>(960)).toHex());
}

void TestAudioEngineOnAir::goesOnSendingAfterAnOverrun() {
    sim::Pcm heard;
    QVERIFY(undisturbed([&] {
        EngineOnCard site;
        site.engine.openCapture();
        const bool sends = QTest::qWaitFor([&] { return !site.sent.empty(); });
        site.card.overrun();
        const bool overruns = QTest::qWaitFor([&] { return site.card.captureXruns() > 0; });
        site.sent.clear();
        site.card.feed(sim::tone(1000, -10, 0.6));
        const bool goesOn = QTest::qWaitFor([&] { return site.sent.size() >= 25; });
        heard = end(Talker().hear(site.sent), 0.2);
        return sends && overruns && goesOn && site.card.captureXruns() == 1;
    }));
    QVERIFY(isNear(sim::toneLevelDbfs(heard, 1000), -10, 0.5));
    QVERIFY(sim::toneShare(heard, 1000) > 0.98);
}

// From the network to the radio

void TestAudioEngineOnAir::playsWhatTheRoomSays_data() {
    QTest::addColumn<int>("rateHz");
    QTest::addColumn<int>("minChannels");
    QTest::newRow("48000 Hz mono") << 48000 << 1;
    QTest::newRow("stereo only") << 48000 << 2;
    QTest::newRow("44100 Hz") << 44100 << 1;
}

void TestAudioEngineOnAir::playsWhatTheRoomSays() {
    QFETCH(int, rateHz);
    QFETCH(int, minChannels);
    Talker talker;
    const auto beginning = talker.say(sim::tone(1000, -10, 0.2));
    const auto rest = talker.say(sim::tone(1000, -10, 0.6));
    sim::Pcm heard;
    QStringList lines;
    QVERIFY(undisturbed([&] {
        EngineOnCard site({.rateHz = rateHz, .minChannels = minChannels});
        site.engine.setSpeakerGain(50);
        site.engine.openPlayback();
        LogCapture log;
        site.receive(beginning);
        const int underruns = site.card.playbackXruns(); // one, when priming outlasts the silence of the start
        const bool keptPace = site.receive(rest);
        lines = log.take();
        heard = sim::slice(spoken(site.onAir()), 0.2, 0.5);
        return keptPace && site.card.playbackXruns() == underruns;
    }));
    const QString primed =
        QStringLiteral("info [Audio] SW buffer primed | serverSR: 48000 | outputRate: %1 | ratio: %2 ")
            .arg(QString::number(rateHz), rateHz == 44100 ? QStringLiteral("0.92") : QStringLiteral("1.00"));
    QVERIFY2(lines.at(1).startsWith(primed), qPrintable(lines.at(1)));
    QVERIFY(isNear(sim::toneHz(heard), 1000, 1));
    QVERIFY(isNear(sim::toneLevelDbfs(heard, 1000), -10 - 6.02, 0.5));
    QVERIFY(sim::toneShare(heard, 1000) > 0.98);
}

void TestAudioEngineOnAir::dropsWhatItCannotOpen() {
    EngineOnCard site;
    site.engine.setEncryptionKey(QByteArray(32, 'k').toBase64());
    QVERIFY(site.engine.openPlayback());
    const QByteArray packet = Talker().say(sim::tone(1000, -10, 0.02)).front();
    LogCapture log;
    site.engine.onAudioReceivedFrom(packet, 1);
    site.engine.onAudioReceivedFrom(QByteArray(40, 'x'), 1);
    QVERIFY(log.take().isEmpty());
    QCOMPARE(site.engine.outputLevel(), 0);
    QCOMPARE(site.engine.openFrame(site.engine.sealFrame(packet)), packet);
    site.engine.onAudioReceivedFrom(site.engine.sealFrame(packet), 1);
    QVERIFY(site.engine.outputLevel() > 0);
}

void TestAudioEngineOnAir::keepsTheQueueWhileTheSpeakerIsMuted() {
    const auto packets = Talker().say(sim::tone(1000, -10, 0.12));
    int level = 0;
    int levelMuted = 0;
    std::int64_t silence = 0; // frames that it starts with
    std::int64_t playedMuted = 0;
    std::int64_t playedThen = 0;
    QVERIFY(undisturbed([&] {
        EngineOnCard site;
        site.engine.openPlayback();
        for (const QByteArray &packet : packets)
            site.engine.onAudioReceivedFrom(packet, 1);
        level = site.engine.outputLevel();
        silence = site.card.framesPlayed();
        site.engine.setSpkMuted(true);
        for (int tick = 0; tick < 3; ++tick)
            site.engine.onOutputBufferTimer();
        levelMuted = site.engine.outputLevel();
        playedMuted = site.card.framesPlayed();
        site.engine.setSpkMuted(false);
        site.engine.onOutputBufferTimer();
        playedThen = site.card.framesPlayed();
        return site.card.playbackXruns() == 0;
    }));
    QVERIFY(level > 0);
    QCOMPARE(levelMuted, level - 15);
    QCOMPARE(playedMuted, silence);
    QCOMPARE(playedThen, silence + 960);
}

void TestAudioEngineOnAir::forgetsTheQueueWhenBuffersAreCleared() {
    EngineOnCard site;
    QVERIFY(site.engine.openPlayback());
    const auto packets = Talker().say(sim::tone(1000, -10, 0.2));
    const auto silence = site.card.framesPlayed();
    for (const auto &clear : {&AudioEngine::clearBuffers, &AudioEngine::resetDecoders}) {
        for (const QByteArray &packet : packets)
            site.engine.onAudioReceivedFrom(packet, 1);
        (site.engine.*clear)();
        site.engine.onOutputBufferTimer();
        QCOMPARE(site.card.framesPlayed(), silence);
    }
}

void TestAudioEngineOnAir::metersRiseAtOnceAndFallSlowly() {
    EngineOnCard site;
    QVERIFY(site.engine.openPlayback());
    for (const QByteArray &packet : Talker().say(sim::tone(1000, -10, 0.1)))
        site.engine.onAudioReceivedFrom(packet, 1);
    QVERIFY(isNear(site.engine.outputLevel(), 73, 1)); // (-10 - 3.01 + 50) / 50 of a hundred
    int level = site.engine.outputLevel();
    while (level > 0) {
        site.engine.onOutputBufferTimer();
        QCOMPARE(site.engine.outputLevel(), std::max(level - 5, 0));
        level = site.engine.outputLevel();
    }
    site.engine.onOutputBufferTimer();
    QCOMPARE(site.engine.outputLevel(), 0);
}

void TestAudioEngineOnAir::shapesWhatItReceives() {
    EngineOnCard site;
    QVERIFY(site.engine.openPlayback());
    const auto settle = [&] {
        site.engine.resetDecoders();
        for (const QByteArray &packet : Talker().say(sim::tone(1000, -30, 1.0)))
            site.engine.onAudioReceivedFrom(packet, 1);
        return site.engine.outputLevel();
    };
    const int plain = settle();
    QVERIFY(isNear(plain, 34, 1)); // (-30 - 3.01 + 50) / 50 of a hundred
    site.engine.setRxTone(0, 12, 0);
    QVERIFY(isNear(settle(), plain + 24, 1)); // 12 dB of 50
    site.engine.setRxTone(0, 0, 0);
    site.engine.setAgcEnabled(true);
    // 50 frames from a factor of 1 toward 10 by 2 % each: 10 - 9 * 0.98^50 = 6.72, or 16.5 dB.
    QVERIFY(isNear(settle(), plain + 33, 2));
    site.engine.setAgcEnabled(false);
    QCOMPARE(settle(), plain);
}

void TestAudioEngineOnAir::forgetsTheAutomaticGainWhenSwitchedOff() {
    EngineOnCard site;
    QVERIFY(site.engine.openPlayback());
    const auto packets = Talker().say(sim::tone(1000, -30, 1.04)); // an rms of 733, to be raised 10 times at the most
    QCOMPARE(packets.size(), size_t(52));
    const auto receive = [&](size_t first, size_t end) {
        for (size_t packet = first; packet < end; ++packet)
            site.engine.onAudioReceivedFrom(packets[packet], 1);
        return site.engine.outputLevel();
    };
    site.engine.setAgcEnabled(true);
    // A factor of 1, moved 50 times to 0.98 of itself + 0.2: 6.72, or 16.5 dB; (-30 - 3.01 + 16.5 + 50) / 50 of a
    // hundred.
    QVERIFY(isNear(receive(0, 50), 67, 2));
    site.engine.setAgcEnabled(false);
    site.engine.setAgcEnabled(true);
    // A factor of 1 again, moved twice: 1.18, 1.3564, or 2.65 dB; (-30 - 3.01 + 2.65 + 50) / 50 of a hundred.
    QVERIFY(isNear(receive(50, 52), 39, 1));
}

void TestAudioEngineOnAir::survivesTheCardBeingUnplugged() {
    EngineOnCard site;
    QVERIFY(site.engine.openPlayback() && site.engine.openCapture());
    const auto packets = Talker().say(sim::tone(1000, -10, 0.5));
    site.receive(packets);
    site.card.unplug();
    LogCapture log;
    QElapsedTimer timer;
    timer.start();
    site.receive(packets);
    site.engine.onTotWarning();
    site.engine.changeQuality(48000, 32000, 5, 20);
    QVERIFY2(timer.elapsed() < 1500, qPrintable(QString::number(timer.elapsed())));
    QTRY_VERIFY(!site.timer("reopen")->isActive());
    QCOMPARE(log.take().mid(5), QStringList({QStringLiteral("warning [Audio] Playback open: No such device"),
                                             QStringLiteral("warning [Audio] Capture open: No such device")}));
}

QTEST_GUILESS_MAIN(TestAudioEngineOnAir)
#include "tst_AudioEngineOnAir.moc"
