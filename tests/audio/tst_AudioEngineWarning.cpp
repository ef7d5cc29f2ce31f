#include "../support/LogCapture.h"
#include "EngineOnCard.h"
#include "Hearing.h"
#include "Talker.h"
#include "base/EpochClock.h"
#include "sim/sound/AudioAnalysis.h"

#include <QTest>

class TestAudioEngineWarning : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void warnsWithTheSyntheticTone();
    void warnsWithATonesFile();
    void aToneThatIsWaitedForIsNoPauseOfTheTalker();
    void saysWhyAToneBrokeOff();
};

void TestAudioEngineWarning::warnsWithTheSyntheticTone() {
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

void TestAudioEngineWarning::warnsWithATonesFile() {
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

/// Half a second of it fits into the device; the rest takes as long as it sounds.
void TestAudioEngineWarning::aToneThatIsWaitedForIsNoPauseOfTheTalker() {
    const QTemporaryDir folder;
    const QString file = folder.filePath(QStringLiteral("tone.wav"));
    QVERIFY(sim::writeWav(file, sim::tone(600, -20, 1.5, 48000)));
    QVERIFY(sim::SoundCard::installAlsaConfig(folder.path()));
    const sim::SoundCard card(folder.path(), 1);
    AudioEngine engine(file);
    engine.setDevices(QStringLiteral("hw:1,0"), QStringLiteral("hw:1,0"));
    QVERIFY(engine.initialize(48000, 1, 32000, 5, 20));
    QVERIFY(engine.openPlayback());
    engine.setTotDuration(60);
    const QByteArray packet = Talker().packet(std::vector<std::int16_t>(960));
    const QString begun = QStringLiteral("info [TOT] Timer started: 60 s untuk userId 42");
    LogCapture log;
    engine.onAudioReceivedFrom(packet + QByteArray(9, '\0'), 42);
    QCOMPARE(log.take().count(begun), 1);
    const qint64 beginMs = steadyEpochMs();
    engine.onTotWarning();
    QVERIFY(steadyEpochMs() - beginMs >= 900);
    engine.onAudioReceivedFrom(packet + QByteArray(9, '\0'), 42);
    QCOMPARE(log.take().count(begun), 0);
}

void TestAudioEngineWarning::saysWhyAToneBrokeOff() {
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

QTEST_GUILESS_MAIN(TestAudioEngineWarning)
#include "tst_AudioEngineWarning.moc"
