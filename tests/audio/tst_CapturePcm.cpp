#include "../support/LogCapture.h"
#include "Hearing.h"
#include "audio/CapturePcm.h"
#include "sim/card/SoundCard.h"
#include "sim/sound/AudioAnalysis.h"

#include <QElapsedTimer>
#include <QTemporaryDir>
#include <QTest>

namespace {
const QString cardName = QStringLiteral("hw:2,0");
} // namespace

class TestCapturePcm : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void initTestCase() { QVERIFY(sim::SoundCard::installAlsaConfig(m_folder.path())); }
    void saysWhyItCannotOpen();
    void staysSilentAboutADeviceThatCannotBeSetUp();
    void settlesTheRateBeforeItRuns_data();
    void settlesTheRateBeforeItRuns();
    void readsWhatTheCardHears_data();
    void readsWhatTheCardHears();
    void neverWaitsForAFrame();
    void goesOnAfterAnOverrun();
    void isStartedAgainAfterAStartThatFailed();
    void staysOpenAndEmptyWhenTheCardIsGone();

private:
    sim::Pcm record(CapturePcm &pcm, int frames);

    QTemporaryDir m_folder;
    int m_rateHz = 48000;
};

/// The next frames of 20 ms; fewer when they do not come.
sim::Pcm TestCapturePcm::record(CapturePcm &pcm, int frames) {
    const int samples = m_rateHz / 50;
    sim::Pcm sound{m_rateHz, {}};
    QElapsedTimer timer;
    timer.start();
    while (int(sound.samples.size()) < frames * samples && timer.elapsed() < 5000) {
        const auto frame = pcm.readFrame(samples);
        sound.samples.insert(sound.samples.end(), frame.begin(), frame.end());
        QTest::qSleep(5);
    }
    return sound;
}

void TestCapturePcm::saysWhyItCannotOpen() {
    sim::SoundCard card(m_folder.path(), 2);
    CapturePcm pcm;
    LogCapture log;
    card.setBusy(true);
    QCOMPARE(pcm.open(cardName, 48000), 0);
    QCOMPARE(log.take(), QStringList{QStringLiteral("warning [Audio] Capture open: Device or resource busy")});
    card.setBusy(false);
    card.setPresent(false);
    QCOMPARE(pcm.open(cardName, 48000), 0);
    QCOMPARE(log.take(), QStringList{QStringLiteral("warning [Audio] Capture open: No such device")});
    QVERIFY(!pcm.isOpen());
}

void TestCapturePcm::staysSilentAboutADeviceThatCannotBeSetUp() {
    const sim::SoundCard card(m_folder.path(), 2, {.minChannels = 3, .maxChannels = 2}); // has no configuration at all
    CapturePcm pcm;
    QCOMPARE(pcm.open(cardName, 48000), 0);
    QVERIFY(!pcm.isOpen());
    QVERIFY(!card.isCaptureOpen());
}

void TestCapturePcm::settlesTheRateBeforeItRuns_data() {
    QTest::addColumn<int>("rateHz");
    for (int rateHz : {8000, 16000, 44100, 48000, 96000})
        QTest::newRow(qPrintable(QString::number(rateHz))) << rateHz;
}

void TestCapturePcm::settlesTheRateBeforeItRuns() {
    QFETCH(int, rateHz);
    const sim::SoundCard card(m_folder.path(), 2, {.rateHz = rateHz});
    CapturePcm pcm;
    QCOMPARE(pcm.open(cardName, 48000), rateHz);
    QVERIFY(!pcm.isOpen());
    QVERIFY(pcm.start());
    QVERIFY(pcm.isOpen());
    pcm.close();
    QVERIFY(!pcm.isOpen());
    QVERIFY(!card.isCaptureOpen());
}

void TestCapturePcm::readsWhatTheCardHears_data() {
    QTest::addColumn<int>("rateHz");
    QTest::addColumn<int>("minChannels");
    QTest::newRow("48000 Hz mono") << 48000 << 1;
    QTest::newRow("48000 Hz stereo only") << 48000 << 2;
    QTest::newRow("16000 Hz mono") << 16000 << 1;
}

void TestCapturePcm::readsWhatTheCardHears() {
    QFETCH(int, rateHz);
    QFETCH(int, minChannels);
    m_rateHz = rateHz;
    const sim::Pcm fed = sim::tone(1000, -10, 0.4, rateHz);
    sim::Pcm heard;
    QVERIFY(undisturbed([&] {
        sim::SoundCard card(m_folder.path(), 2, {.rateHz = rateHz, .minChannels = minChannels});
        CapturePcm pcm;
        const bool runs = pcm.open(cardName, 48000) == rateHz && pcm.start();
        card.feed(fed);
        heard = runs ? record(pcm, 30) : sim::Pcm();
        return runs && card.captureXruns() == 0;
    }));
    const auto first = std::find_if(heard.samples.begin(), heard.samples.end(), [](int s) { return s != 0; });
    QVERIFY(heard.samples.end() - first >= std::ptrdiff_t(fed.samples.size()) - 1);
    QVERIFY(std::equal(fed.samples.begin() + 1, fed.samples.end(), first)); // a sine starts at 0
}

void TestCapturePcm::neverWaitsForAFrame() {
    const sim::SoundCard card(m_folder.path(), 2);
    CapturePcm pcm;
    QCOMPARE(pcm.open(cardName, 48000), 48000);
    QVERIFY(pcm.start());
    QElapsedTimer timer;
    timer.start();
    QVERIFY(pcm.readFrame(48000 / 10).empty());
    QVERIFY2(timer.elapsed() < 50, qPrintable(QString::number(timer.elapsed())));
}

void TestCapturePcm::goesOnAfterAnOverrun() {
    m_rateHz = 48000;
    sim::SoundCard card(m_folder.path(), 2);
    CapturePcm pcm;
    QCOMPARE(pcm.open(cardName, 48000), 48000);
    QVERIFY(pcm.start());
    QCOMPARE(int(record(pcm, 2).samples.size()), 1920);
    const int overruns = card.captureXruns(); // of a busy machine
    card.overrun();
    QVERIFY(pcm.readFrame(960).empty());
    QCOMPARE(card.captureXruns(), overruns + 1);
    LogCapture log;
    QCOMPARE(int(record(pcm, 5).samples.size()), 4800);
    QVERIFY(log.lines().isEmpty());
}

void TestCapturePcm::isStartedAgainAfterAStartThatFailed() {
    m_rateHz = 48000;
    sim::SoundCard card(m_folder.path(), 2);
    CapturePcm pcm;
    QCOMPARE(pcm.open(cardName, 48000), 48000);
    QVERIFY(pcm.start());
    card.refuseCaptureStarts(true);
    card.overrun();
    for (int poll = 0; poll < 3; ++poll)
        QVERIFY(pcm.readFrame(960).empty());
    card.refuseCaptureStarts(false);
    QCOMPARE(int(record(pcm, 5).samples.size()), 4800);
}

void TestCapturePcm::staysOpenAndEmptyWhenTheCardIsGone() {
    m_rateHz = 48000;
    sim::SoundCard card(m_folder.path(), 2);
    CapturePcm pcm;
    QCOMPARE(pcm.open(cardName, 48000), 48000);
    QVERIFY(pcm.start());
    QCOMPARE(int(record(pcm, 2).samples.size()), 1920);
    card.unplug();
    LogCapture log;
    QElapsedTimer timer;
    timer.start();
    for (int poll = 0; poll < 100; ++poll)
        QVERIFY(pcm.readFrame(960).empty());
    QVERIFY2(timer.elapsed() < 500, qPrintable(QString::number(timer.elapsed())));
    QVERIFY(pcm.isOpen());
    QVERIFY(log.lines().isEmpty());
}

QTEST_GUILESS_MAIN(TestCapturePcm)
#include "tst_CapturePcm.moc"
