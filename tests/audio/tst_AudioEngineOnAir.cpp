#include "../config/LogCapture.h"
#include "EngineOnCard.h"
#include "Talker.h"
#include "sim/AudioAnalysis.h"

#include <QTest>

#include <cmath>

namespace {

/// The last stretch of a sound, where everything has settled.
sim::Pcm end(const sim::Pcm &sound, double seconds) {
    return sim::slice(sound, sound.seconds() - seconds, sound.seconds());
}

/// What was put on the air, without the silence before and after it.
sim::Pcm spoken(const sim::Pcm &onAir) {
    const auto isSound = [](int sample) { return sample != 0; };
    const auto &samples = onAir.samples;
    const auto first = std::find_if(samples.begin(), samples.end(), isSound);
    const auto last = std::find_if(samples.rbegin(), std::make_reverse_iterator(first), isSound).base();
    return {onAir.rateHz, {first, last}};
}

bool isNear(double value, double expected, double tolerance) {
    if (std::abs(value - expected) > tolerance) {
        qWarning() << "got" << value << "instead of" << expected;
        return false;
    }
    return true;
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
    void survivesTheCardBeingUnplugged();

    void warnsWithTheSyntheticTone();
    void warnsWithATonesFile();
    void saysWhyAToneBrokeOff();

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
    EngineOnCard site({.rateHz = rateHz, .minChannels = minChannels});
    site.engine.setMicGain(50);
    QVERIFY(site.engine.openCapture());
    site.card.feed(sim::tone(1000, -10, 1.5, rateHz));
    QTRY_VERIFY(site.sent.size() >= 60);
    const sim::Pcm heard = end(Talker().hear(site.sent), 0.5);
    QVERIFY(isNear(sim::toneHz(heard), 1000, 1));
    QVERIFY(isNear(sim::toneLevelDbfs(heard, 1000), -10 - 6.02, 0.5));
    QVERIFY(sim::toneShare(heard, 1000) > 0.98);
    QCOMPARE(opus_packet_get_nb_samples(reinterpret_cast<const unsigned char *>(site.sent[0].constData()),
                                        site.sent[0].size(), rateHz),
             rateHz / 50);
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
    site.card.feed(sim::tone(1000, -10, 0.5));
    QTRY_COMPARE(site.engine.inputLevel(), 73); // (-10 - 3.01 + 50) / 50 of a hundred
    QVERIFY(site.sent.empty());
    site.engine.setFramesWanted(true);
    QTRY_VERIFY(!site.sent.empty());
}

void TestAudioEngineOnAir::encodesTheFirstWantedFrameFromAFreshState() {
    EngineOnCard site;
    QVERIFY(site.engine.openCapture());
    site.card.feed(sim::tone(1000, -10, 0.2));
    QTRY_VERIFY(site.engine.inputLevel() > 70);
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
    EngineOnCard site;
    site.engine.setEncryptionKey(QByteArray(32, 'k').toBase64());
    QVERIFY(site.engine.openCapture());
    site.card.feed(sim::tone(1000, -10, 0.4));
    QTRY_VERIFY(site.sent.size() >= 15);
    FrameCipher room;
    room.setKey(QByteArray(32, 'k').toBase64());
    std::vector<QByteArray> packets;
    for (const QByteArray &frame : site.sent) {
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
    EngineOnCard site;
    QVERIFY(site.engine.openCapture());
    QTRY_VERIFY(!site.sent.empty());
    site.card.overrun();
    QTRY_COMPARE(site.card.captureXruns(), 1);
    site.sent.clear();
    site.card.feed(sim::tone(1000, -10, 0.6));
    QTRY_VERIFY(site.sent.size() >= 25);
    QVERIFY(sim::toneShare(end(Talker().hear(site.sent), 0.2), 1000) > 0.98);
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
    EngineOnCard site({.rateHz = rateHz, .minChannels = minChannels});
    site.engine.setSpeakerGain(50);
    QVERIFY(site.engine.openPlayback());
    LogCapture log;
    site.receive(Talker().say(sim::tone(1000, -10, 1.2)));
    QCOMPARE(log.take().at(1),
             QStringLiteral("info [Audio] SW buffer primed | serverSR: 48000 | outputRate: %1 | "
                            "ratio: %2 | bufSize: %3 bytes")
                 .arg(QString::number(rateHz), rateHz == 44100 ? QStringLiteral("0.92") : QStringLiteral("1.00"),
                      QString::number(rateHz / 10 * 2)));
    const sim::Pcm heard = sim::slice(spoken(site.onAir()), 0.3, 0.8);
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
    EngineOnCard site;
    QVERIFY(site.engine.openPlayback());
    for (const QByteArray &packet : Talker().say(sim::tone(1000, -10, 0.12))) {
        site.engine.onAudioReceivedFrom(packet, 1);
    }
    const int level = site.engine.outputLevel();
    QVERIFY(level > 0);
    site.engine.setSpkMuted(true);
    const auto played = site.card.framesPlayed();
    for (int tick = 0; tick < 3; ++tick) {
        site.engine.onOutputBufferTimer();
    }
    QCOMPARE(site.engine.outputLevel(), level - 15);
    QCOMPARE(site.card.framesPlayed(), played);
    site.engine.setSpkMuted(false);
    site.engine.onOutputBufferTimer();
    QCOMPARE(site.card.framesPlayed(), played + 960);
}

void TestAudioEngineOnAir::forgetsTheQueueWhenBuffersAreCleared() {
    EngineOnCard site;
    QVERIFY(site.engine.openPlayback());
    const auto packets = Talker().say(sim::tone(1000, -10, 0.2));
    const auto silence = site.card.framesPlayed();
    for (const auto &clear : {&AudioEngine::clearBuffers, &AudioEngine::resetDecoders}) {
        for (const QByteArray &packet : packets) {
            site.engine.onAudioReceivedFrom(packet, 1);
        }
        (site.engine.*clear)();
        site.engine.onOutputBufferTimer();
        QCOMPARE(site.card.framesPlayed(), silence);
    }
}

void TestAudioEngineOnAir::metersRiseAtOnceAndFallSlowly() {
    EngineOnCard site;
    QVERIFY(site.engine.openPlayback());
    for (const QByteArray &packet : Talker().say(sim::tone(1000, -10, 0.1))) {
        site.engine.onAudioReceivedFrom(packet, 1);
    }
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
        for (const QByteArray &packet : Talker().say(sim::tone(1000, -30, 1.0))) {
            site.engine.onAudioReceivedFrom(packet, 1);
        }
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

// The warning tone

void TestAudioEngineOnAir::warnsWithTheSyntheticTone() {
    EngineOnCard site({.minChannels = 2}, QStringLiteral("/nowhere/tone.wav"));
    QVERIFY(site.engine.openPlayback());
    LogCapture log;
    site.engine.onTotWarning();
    QCOMPARE(log.take().mid(1),
             QStringList({QStringLiteral("info [TOT] File WAV tidak ditemukan, pakai tone sintetis: "
                                         "\"/nowhere/tone.wav\""),
                          QStringLiteral("info [TOT] Warning tone sintetis 880Hz, 3 beep, 90% vol")}));
    site.engine.stopPlayback();
    const sim::Pcm tone = spoken(site.onAir());
    QVERIFY(isNear(tone.seconds() * 1000, 650, 1));
    for (double beep : {0.0, 0.25, 0.5}) {
        const sim::Pcm middle = sim::slice(tone, beep + 0.02, beep + 0.12);
        QVERIFY(isNear(sim::toneHz(middle), 880, 2));
        QVERIFY(isNear(sim::toneLevelDbfs(middle, 880), 20 * std::log10(0.9), 0.1));
    }
    QVERIFY(isNear(sim::longestGapMs(tone, -60), 100, 1));
}

void TestAudioEngineOnAir::warnsWithATonesFile() {
    const QTemporaryDir folder;
    const QString file = folder.filePath(QStringLiteral("tone.wav"));
    QVERIFY(sim::writeWav(file, sim::tone(600, -20, 0.5, 44100)));
    EngineOnCard site({.minChannels = 2}, file);
    QVERIFY(site.engine.openPlayback());
    LogCapture log;
    site.engine.onTotWarning();
    // 22050 samples become 24000, in two channels of two bytes.
    QCOMPARE(log.take().mid(1),
             QStringList({QStringLiteral("info [TOT] WAV resampled 44100 -> 48000"),
                          QStringLiteral("info [TOT] Warning tone dari WAV: \"%1\" | SR: 44100 | ch: 1 | size: 96000 "
                                         "bytes | boost: 4 x")
                              .arg(file)}));
    site.engine.stopPlayback();
    const sim::Pcm tone = sim::slice(spoken(site.onAir()), 0.05, 0.45);
    QVERIFY(isNear(sim::toneHz(tone), 600, 1));
    QVERIFY(isNear(sim::toneLevelDbfs(tone, 600), -20 + 12.04, 0.1));
    QVERIFY(sim::toneShare(tone, 600) > 0.999);
}

void TestAudioEngineOnAir::saysWhyAToneBrokeOff() {
    EngineOnCard site;
    QVERIFY(site.engine.openPlayback());
    site.card.failPlaybackWrites(true);
    LogCapture log;
    site.engine.playPcm(QByteArray(9600, 'x'), 1);
    QCOMPARE(log.take(), QStringList{QStringLiteral("warning [TOT] ALSA write error: Input/output error")});
    site.engine.playPcm(QByteArray(9600, 'x'), 0); // no channels, no sound
    site.engine.stopPlayback();
    site.engine.playPcm(QByteArray(9600, 'x'), 1); // nowhere to write to
    QVERIFY(log.take().isEmpty());
}

QTEST_GUILESS_MAIN(TestAudioEngineOnAir)
#include "tst_AudioEngineOnAir.moc"
