#include "../support/LogCapture.h"
#include "EngineOnCard.h"
#include "Hearing.h"
#include "sim/sound/AudioAnalysis.h"

#include <QTest>

class TestAudioEngineWarning : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void warnsWithTheSyntheticTone();
    void warnsWithATonesFile();
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
