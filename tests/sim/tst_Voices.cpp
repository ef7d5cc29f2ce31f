#include "sim/sound/Voices.h"

#include <QTemporaryDir>
#include <QTest>

using namespace sim;

Q_DECLARE_METATYPE(sim::Pcm)

class TestVoices : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void pausesStandAroundTheWords();
    void aWavFileIsSpokenAtTheSitesRate();
    void whatCannotBeSpokenIsExplained_data();
    void whatCannotBeSpokenIsExplained();
    void wordsAreSpoken();

private:
    QString wav(const Pcm &pcm) const;

    QTemporaryDir m_folder;
};

QString TestVoices::wav(const Pcm &pcm) const {
    const QString path = m_folder.filePath(QStringLiteral("said.wav"));
    return writeWav(path, pcm) ? path : QString();
}

void TestVoices::pausesStandAroundTheWords() {
    const Pcm padded = withPauses({10, {7, 8}});
    QCOMPARE(padded.rateHz, 10);
    // 0.4 s and 0.6 s at 10 samples a second.
    QCOMPARE(padded.samples, (std::vector<std::int16_t>{0, 0, 0, 0, 7, 8, 0, 0, 0, 0, 0, 0}));
}

void TestVoices::aWavFileIsSpokenAtTheSitesRate() {
    QString problem;
    const auto pcm = sentence(wav(tone(500, -6, 0.5, 16000)), radioVoice, &problem);
    QVERIFY2(pcm.has_value(), qPrintable(problem));
    QCOMPARE(pcm->rateHz, 48000);
    QVERIFY(qAbs(pcm->seconds() - 0.5) < 0.001);
}

void TestVoices::whatCannotBeSpokenIsExplained_data() {
    QTest::addColumn<Pcm>("pcm");
    QTest::addColumn<QString>("problem");
    QTest::newRow("silence") << Pcm{8000, std::vector<std::int16_t>(8000, 0)} << QStringLiteral("is silence");
    QTest::newRow("too long") << tone(500, -6, 31.0, 8000)
                              << QStringLiteral("takes 31.00 s; say something of 0.1 to 30 s");
    QTest::newRow("too short") << tone(500, -6, 0.05, 8000)
                               << QStringLiteral("takes 0.05 s; say something of 0.1 to 30 s");
}

void TestVoices::whatCannotBeSpokenIsExplained() {
    QFETCH(Pcm, pcm);
    QFETCH(QString, problem);
    const QString path = wav(pcm);
    QString found;
    QVERIFY(!sentence(path, radioVoice, &found));
    QCOMPARE(found, QStringLiteral("\"%1\" %2").arg(path, problem));

    const QString nowhere = QStringLiteral("/nowhere/said.wav");
    QVERIFY(!sentence(nowhere, radioVoice, &found));
    QCOMPARE(found, QStringLiteral("\"/nowhere/said.wav\" cannot be read as a WAV file of 16-bit PCM, mono or stereo"));
}

void TestVoices::wordsAreSpoken() {
    QString problem;
    for (const char *voice : {radioVoice, roomVoice}) {
        const auto shorter = sentence(QStringLiteral("Hello."), voice, &problem);
        const auto longer = sentence(QStringLiteral("- Hello hilltop, this is the room."), voice, &problem);
        QVERIFY2(shorter && longer, qPrintable(problem));
        QVERIFY(longer->seconds() > shorter->seconds());
    }
}

QTEST_GUILESS_MAIN(TestVoices)
#include "tst_Voices.moc"
