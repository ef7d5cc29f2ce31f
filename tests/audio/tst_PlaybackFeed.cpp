#include "../support/LogCapture.h"
#include "Hearing.h"
#include "audio/PlaybackFeed.h"
#include "sim/card/SoundCard.h"
#include "sim/sound/AudioAnalysis.h"

#include <QElapsedTimer>
#include <QTemporaryDir>
#include <QTest>

#include <chrono>
#include <thread>

namespace {

const QString cardName = QStringLiteral("hw:3,0");

std::int64_t nowNs() {
    return std::chrono::steady_clock::now().time_since_epoch().count();
}

/// Plays the whole sound, a chunk of 20 ms per tick of 20 ms, five chunks ahead. False when this machine did not keep
/// that pace.
bool playAtPace(PlaybackFeed &feed, const sim::Pcm &sound) {
    const size_t chunk = size_t(sound.rateHz) / 50;
    feed.append(std::span(sound.samples).first(5 * chunk));
    auto tick = std::chrono::steady_clock::now();
    bool keptPace = true;
    for (size_t i = 5 * chunk; i + chunk <= sound.samples.size(); i += chunk) {
        feed.playChunk(48000);
        feed.append(std::span(sound.samples).subspan(i, chunk));
        std::this_thread::sleep_until(tick += std::chrono::milliseconds(20));
        keptPace = keptPace && std::chrono::steady_clock::now() < tick + std::chrono::milliseconds(60);
    }
    return keptPace;
}

std::span<const std::int16_t> withoutLeadingSilence(std::span<const std::int16_t> sound) {
    const auto first = std::find_if(sound.begin(), sound.end(), [](int sample) { return sample != 0; });
    return sound.subspan(size_t(first - sound.begin()));
}

} // namespace

class TestPlaybackFeed : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void saysWhyItCannotOpen();
    void saysWhyTheDeviceCannotBeSetUp();
    void tellsWhatTheDeviceGrants_data();
    void tellsWhatTheDeviceGrants();
    void saysWhenItIsPrimed_data();
    void saysWhenItIsPrimed();
    void playsWithoutAGap_data();
    void playsWithoutAGap();
    void playsOutBeforeItCloses();
    void opensAtOnceWhateverTheFrameDuration_data();
    void opensAtOnceWhateverTheFrameDuration();
    void startsADeviceThatOnlySoCanMakeRoom();
    void waitsForNoFullDevice();
    void givesUpAtTheHundredAndFirstFailure();
    void countsOnlyFailuresInARow();
    void goesOnAfterUnderruns();
    void primesAgainAtTheTwoHundredthUnderrun();
    void writesThroughAtOnce();
    void recoversBeforeItWritesThrough();
    void endsWritingThroughAtAFailure();

private:
    QTemporaryDir m_folder;
};

void TestPlaybackFeed::initTestCase() {
    const QString path = sim::SoundCard::writeAlsaConfig(m_folder.path());
    QFile config(path);
    QVERIFY(config.open(QIODevice::Append));
    config.write("pcm.null { type null }\n"
                 "pcm.telephone {\n"
                 "    type alaw\n"
                 "    slave { pcm null format S16_LE }\n"
                 "}\n");
    config.close();
    QVERIFY(qputenv("ALSA_CONFIG_PATH", path.toLocal8Bit()));
}

void TestPlaybackFeed::saysWhyItCannotOpen() {
    sim::SoundCard card(m_folder.path(), 3);
    PlaybackFeed feed;
    LogCapture log;
    card.setBusy(true);
    QVERIFY(!feed.open(cardName));
    QCOMPARE(log.take(), QStringList{QStringLiteral("warning [Audio] Playback open: Device or resource busy")});
    card.setBusy(false);
    card.setPresent(false);
    QVERIFY(!feed.open(cardName));
    QCOMPARE(log.take(), QStringList{QStringLiteral("warning [Audio] Playback open: No such device")});
    QVERIFY(!feed.isOpen());
    QCOMPARE(feed.channels(), 2);
    card.plugIn();
    QVERIFY(feed.open(cardName));
    QVERIFY(feed.open(cardName)); // open already
    QVERIFY(card.isPlaybackOpen());
}

void TestPlaybackFeed::saysWhyTheDeviceCannotBeSetUp() {
    PlaybackFeed feed;
    LogCapture log;
    QVERIFY(!feed.open(QStringLiteral("telephone"))); // knows A-law only
    QCOMPARE(log.take(), QStringList{QStringLiteral("warning [Audio] Playback hw_params: Invalid argument")});
    QVERIFY(!feed.isOpen());
}

void TestPlaybackFeed::tellsWhatTheDeviceGrants_data() {
    QTest::addColumn<int>("rateHz");
    QTest::addColumn<int>("minChannels");
    QTest::newRow("48000 Hz mono") << 48000 << 1;
    QTest::newRow("44100 Hz mono") << 44100 << 1;
    QTest::newRow("48000 Hz stereo only") << 48000 << 2;
}

void TestPlaybackFeed::tellsWhatTheDeviceGrants() {
    QFETCH(int, rateHz);
    QFETCH(int, minChannels);
    const sim::SoundCard card(m_folder.path(), 3, {.rateHz = rateHz, .minChannels = minChannels});
    PlaybackFeed feed;
    QVERIFY(feed.open(cardName));
    QCOMPARE(feed.rateHz(), rateHz);
    QCOMPARE(feed.channels(), minChannels);
    QCOMPARE(int(card.framesPlayed()), 5 * rateHz / 50); // the silence it starts with
}

void TestPlaybackFeed::saysWhenItIsPrimed_data() {
    QTest::addColumn<int>("rateHz");
    QTest::addColumn<QString>("line");
    QTest::newRow("48000") << 48000
                           << "info [Audio] SW buffer primed | serverSR: 48000 | outputRate: 48000 | ratio: 1.00 | "
                              "bufSize: 9600 bytes";
    QTest::newRow("44100") << 44100
                           << "info [Audio] SW buffer primed | serverSR: 48000 | outputRate: 44100 | ratio: 0.92 | "
                              "bufSize: 8820 bytes";
}

void TestPlaybackFeed::saysWhenItIsPrimed() {
    QFETCH(int, rateHz);
    QFETCH(QString, line);
    const sim::SoundCard card(m_folder.path(), 3, {.rateHz = rateHz});
    PlaybackFeed feed;
    const std::vector<qint16> frame(size_t(rateHz) / 50);
    QVERIFY(feed.open(cardName));
    LogCapture log;
    const auto silence = card.framesPlayed();
    for (int i = 0; i < 4; ++i) {
        feed.append(frame);
        QVERIFY(feed.playChunk(48000));
    }
    QVERIFY(log.lines().isEmpty());
    QCOMPARE(card.framesPlayed(), silence);
    feed.append(frame);
    QVERIFY(feed.playChunk(48000));
    QVERIFY(feed.playChunk(48000));
    QCOMPARE(log.take(), QStringList{line});
    QCOMPARE(card.framesPlayed(), silence + 2 * rateHz / 50);
}

void TestPlaybackFeed::playsWithoutAGap_data() {
    tellsWhatTheDeviceGrants_data();
}

void TestPlaybackFeed::playsWithoutAGap() {
    QFETCH(int, rateHz);
    QFETCH(int, minChannels);
    const sim::Pcm said = sim::tone(1000, -6, 1.0, rateHz);
    sim::Pcm heard;
    QVERIFY(undisturbed([&] {
        const sim::SoundCard card(m_folder.path(), 3, {.rateHz = rateHz, .minChannels = minChannels});
        PlaybackFeed feed;
        const auto begin = nowNs();
        const bool keptPace = feed.open(cardName) && playAtPace(feed, said);
        feed.drainAndClose();
        heard = card.played(begin, nowNs());
        return keptPace && card.playbackXruns() == 0;
    }));
    const auto played = withoutLeadingSilence(heard.samples);
    const auto expected = withoutLeadingSilence(std::span(said.samples).first(size_t(rateHz) / 50 * 45));
    QVERIFY(played.size() >= expected.size());
    QVERIFY(std::equal(expected.begin(), expected.end(), played.begin()));
}

void TestPlaybackFeed::playsOutBeforeItCloses() {
    const sim::SoundCard card(m_folder.path(), 3);
    PlaybackPcm pcm;
    const auto begin = nowNs();
    const sim::Pcm said = sim::tone(1000, -6, 0.2);
    QVERIFY(pcm.open(cardName, 20));
    QCOMPARE(int(pcm.write(said.samples)), 9600);
    pcm.drainAndClose();
    QVERIFY(!card.isPlaybackOpen());
    const sim::Pcm heard = card.played(begin, nowNs());
    const auto end = std::find_if(heard.samples.rbegin(), heard.samples.rend(), [](int s) { return s != 0; });
    const auto saidEnd = std::find_if(said.samples.rbegin(), said.samples.rend(), [](int s) { return s != 0; });
    QVERIFY(std::equal(saidEnd, said.samples.rend() - 1, end));
}

void TestPlaybackFeed::opensAtOnceWhateverTheFrameDuration_data() {
    QTest::addColumn<int>("frameMs");
    for (int frameMs : {1, 10, 20, 40, 60, 100, 120})
        QTest::newRow(qPrintable(QString::number(frameMs))) << frameMs;
}

void TestPlaybackFeed::opensAtOnceWhateverTheFrameDuration() {
    QFETCH(int, frameMs);
    const sim::SoundCard card(m_folder.path(), 3);
    PlaybackFeed feed;
    feed.setFrameDuration(frameMs);
    QElapsedTimer timer;
    timer.start();
    QVERIFY(feed.open(cardName));
    QVERIFY2(timer.elapsed() < 2000, qPrintable(QString::number(timer.elapsed())));
    QVERIFY(card.framesPlayed() > 0);
    QVERIFY(card.framesPlayed() <= 24000); // never more than the buffer takes
}

/// The driver starts it only with more than it holds, and a whole chunk finds no room.
void TestPlaybackFeed::startsADeviceThatOnlySoCanMakeRoom() {
    sim::SoundCard card(m_folder.path(), 3);
    PlaybackPcm pcm;
    QVERIFY(pcm.open(cardName, 20));
    const std::vector<qint16> some(4000);  // of the 4800 that start it
    constexpr size_t chunk = 24000 - 3000; // of the 24000 that it takes
    card.underrun();
    snd_pcm_sframes_t error = 0;
    QTRY_VERIFY((error = pcm.write(some)) < 0);
    QVERIFY(pcm.recover(int(error)));
    QCOMPARE(int(pcm.write(some)), int(some.size()));
    QVERIFY(!pcm.hasRoomFor(chunk));
    QVERIFY(QTest::qWaitFor([&] { return pcm.hasRoomFor(chunk); }, 1000));
}

void TestPlaybackFeed::waitsForNoFullDevice() {
    sim::SoundCard card(m_folder.path(), 3);
    PlaybackFeed feed;
    QVERIFY(feed.open(cardName));
    card.stall(true);
    const std::vector<qint16> frame(960);
    QElapsedTimer timer;
    timer.start();
    for (int i = 0; i < 60; ++i) { // more than the buffer's 25
        feed.append(frame);
        QVERIFY(feed.playChunk(48000));
    }
    QVERIFY2(timer.elapsed() < 500, qPrintable(QString::number(timer.elapsed())));
    QCOMPARE(int(card.framesPlayed()), 24000);

    // And all that may be held back follows when there is room again.
    card.stall(false);
    QTRY_COMPARE((feed.playChunk(48000), int(card.framesPlayed())), 24000 + 10 * 960);
}

void TestPlaybackFeed::givesUpAtTheHundredAndFirstFailure() {
    sim::SoundCard card(m_folder.path(), 3);
    PlaybackFeed feed;
    QVERIFY(feed.open(cardName));
    const std::vector<qint16> frame(960);
    for (int i = 0; i < 10; ++i)
        feed.append(frame);
    QVERIFY(feed.playChunk(48000));
    card.failPlaybackWrites(true);
    LogCapture log;
    for (int failure = 1; failure <= 100; ++failure) {
        feed.append(frame);
        QVERIFY(feed.playChunk(48000));
    }
    QVERIFY(log.lines().isEmpty());
    feed.append(frame);
    QVERIFY(!feed.playChunk(48000));
    QCOMPARE(log.take(), QStringList{QStringLiteral(
                             "warning [Audio] Persistent write failure — stopping playback, will retry in 3s")});
    QVERIFY(!feed.isOpen());
    QVERIFY(!card.isPlaybackOpen());

    card.failPlaybackWrites(false);
    QVERIFY(feed.open(cardName));
    feed.append(frame);
    QVERIFY(feed.playChunk(48000)); // primed anew: enough is still queued
    QCOMPARE(log.take().size(), 1);
}

void TestPlaybackFeed::countsOnlyFailuresInARow() {
    sim::SoundCard card(m_folder.path(), 3);
    PlaybackFeed feed;
    QVERIFY(feed.open(cardName));
    const std::vector<qint16> frame(960);
    for (int i = 0; i < 5; ++i)
        feed.append(frame);
    card.failPlaybackWrites(true);
    for (int failure = 0; failure < 300; ++failure) {
        if (failure % 100 == 0)
            feed.forgetErrors();
        feed.append(frame);
        QVERIFY(feed.playChunk(48000));
    }
    QVERIFY(feed.isOpen());
}

void TestPlaybackFeed::goesOnAfterUnderruns() {
    sim::Pcm heard;
    QVERIFY(undisturbed([&] {
        sim::SoundCard card(m_folder.path(), 3);
        PlaybackFeed feed;
        bool keptPace = feed.open(cardName) && playAtPace(feed, sim::tone(1000, -6, 0.3));
        card.underrun();
        const auto begin = nowNs();
        keptPace = keptPace && playAtPace(feed, sim::tone(1000, -6, 0.5));
        feed.drainAndClose();
        heard = sim::slice(card.played(begin, nowNs()), 0.2, 0.4);
        return keptPace;
    }));
    QVERIFY(sim::toneShare(heard, 1000) > 0.99);
}

void TestPlaybackFeed::primesAgainAtTheTwoHundredthUnderrun() {
    sim::SoundCard card(m_folder.path(), 3);
    PlaybackFeed feed;
    QVERIFY(feed.open(cardName));
    const std::vector<qint16> frame(960);
    for (int i = 0; i < 5; ++i)
        feed.append(frame);
    feed.playChunk(48000);
    LogCapture log;
    int failures = 0;
    for (int attempt = 0; attempt < 10000 && log.lines().isEmpty(); ++attempt) {
        card.underrun();
        const auto before = card.framesPlayed();
        feed.append(frame);
        QVERIFY(feed.playChunk(48000));
        failures += card.framesPlayed() == before;
    }
    QCOMPARE(log.take(), QStringList{QStringLiteral("debug [Audio] Re-priming after 200 underruns")});
    QVERIFY(feed.isOpen());
    QCOMPARE(failures, 200);
}

void TestPlaybackFeed::writesThroughAtOnce() {
    const sim::SoundCard card(m_folder.path(), 3, {.minChannels = 2});
    PlaybackFeed feed;
    const auto begin = nowNs();
    QVERIFY(feed.open(cardName));
    const sim::Pcm said = sim::tone(880, -6, 0.7); // longer than the device's buffer
    QCOMPARE(feed.writeThrough(said.samples, 1), 0);
    feed.drainAndClose();
    const sim::Pcm heard = card.played(begin, nowNs());
    const auto first = std::find_if(heard.samples.begin(), heard.samples.end(), [](int s) { return s != 0; });
    QVERIFY(first != heard.samples.begin() && heard.samples.end() - first >= 33599);
    QVERIFY(std::equal(said.samples.begin() + 1, said.samples.end(), first)); // a sine starts at 0
}

void TestPlaybackFeed::recoversBeforeItWritesThrough() {
    sim::SoundCard card(m_folder.path(), 3);
    PlaybackFeed feed;
    QVERIFY(feed.open(cardName));
    card.underrun();
    const auto begin = nowNs();
    const sim::Pcm said = sim::tone(880, -6, 0.2);
    QCOMPARE(feed.writeThrough(said.samples, 1), 0);
    feed.drainAndClose();
    QCOMPARE(card.playbackXruns(), 1);
    const sim::Pcm heard = card.played(begin, nowNs());
    const auto expected = withoutLeadingSilence(said.samples);
    const auto played = withoutLeadingSilence(heard.samples);
    QVERIFY(played.size() >= expected.size());
    QVERIFY(std::equal(expected.begin(), expected.end(), played.begin()));
}

void TestPlaybackFeed::endsWritingThroughAtAFailure() {
    sim::SoundCard card(m_folder.path(), 3);
    PlaybackFeed feed;
    QVERIFY(feed.open(cardName));
    card.failPlaybackWrites(true);
    QCOMPARE(feed.writeThrough(std::vector<qint16>(48000), 1), -EIO);
}

QTEST_GUILESS_MAIN(TestPlaybackFeed)
#include "tst_PlaybackFeed.moc"
