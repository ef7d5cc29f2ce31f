#include "CardBench.h"
#include "sim/MonotonicClock.h"

#include <ctime>

using namespace sim;

namespace {

qint64 framesIn(qint64 ns, qint64 rateHz) {
    return ns * rateHz / 1'000'000'000;
}

/// Where the one sound in a recording begins and how much follows its first sample; -1 when there is none.
qint64 firstSound(const Samples &samples) {
    const auto at = std::find_if(samples.begin(), samples.end(), [](std::int16_t sample) { return sample != 0; });
    return at == samples.end() ? -1 : at - samples.begin();
}

qint64 countSound(const Samples &samples) {
    return std::count_if(samples.begin(), samples.end(), [](std::int16_t sample) { return sample != 0; });
}

qint64 threadCpuNs() {
    timespec used{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &used);
    return used.tv_sec * Q_INT64_C(1'000'000'000) + used.tv_nsec;
}

} // namespace

class TestSoundCard : public CardBench {
    Q_OBJECT

private Q_SLOTS:
    void defaultIsTheFirstCard();

    void theCardGrantsWhatItCan_data();
    void theCardGrantsWhatItCan();

    void theClockSetsThePace_data();
    void theClockSetsThePace();
    void whatIsFedIsCapturedSampleForSample();
    void bothChannelsCaptureTheSame();
    void aSecondFeedFollowsTheFirst();
    void clearedFeedIsSilence();
    void feedOfAnotherRateIsConverted();
    void whatIsWrittenPassesTheJackAtItsTime();
    void aStereoPlaybackIsHeardAsTheMean();
    void gapsAreSilent();
    void droppedFramesNeverPassTheJack();
    void playbackStartsAtItsThreshold();
    void aFullBufferBlocksWithoutSpinning();
    void drainingEnds();
    void aSlowClockLeavesNoHoles();
};

void TestSoundCard::defaultIsTheFirstCard() {
    const SoundCard card(m_folder.path(), 0);
    const Handle handle(playback, "default");
    QCOMPARE(handle.error(), 0);
    QVERIFY(card.isPlaybackOpen());
}

void TestSoundCard::theCardGrantsWhatItCan_data() {
    QTest::addColumn<int>("rateHz");
    QTest::addColumn<int>("minChannels");
    QTest::addColumn<uint>("askedRate");
    QTest::addColumn<uint>("grantedRate");
    QTest::addColumn<uint>("grantedChannels");
    QTest::addColumn<qulonglong>("askedBuffer");
    QTest::addColumn<qulonglong>("askedPeriod");
    QTest::newRow("usual") << 48000 << 1 << 48000U << 48000U << 1U << 24000ULL << 960ULL;
    QTest::newRow("44100 only") << 44100 << 1 << 48000U << 44100U << 1U << 22050ULL << 882ULL;
    QTest::newRow("stereo only") << 48000 << 2 << 48000U << 48000U << 2U << 24000ULL << 960ULL;
    QTest::newRow("another Opus rate") << 48000 << 1 << 16000U << 48000U << 1U << 9600ULL << 960ULL;
    QTest::newRow("smallest period") << 48000 << 1 << 48000U << 48000U << 1U << 1024ULL << 64ULL;
}

void TestSoundCard::theCardGrantsWhatItCan() {
    QFETCH(int, rateHz);
    QFETCH(int, minChannels);
    QFETCH(uint, askedRate);
    QFETCH(qulonglong, askedBuffer);
    QFETCH(qulonglong, askedPeriod);
    CardOptions options;
    options.rateHz = rateHz;
    options.minChannels = minChannels;
    const SoundCard card(m_folder.path(), 0, options);
    for (const snd_pcm_stream_t stream : {capture, playback}) {
        Handle handle(stream);
        handle.rateHz = askedRate;
        handle.bufferFrames = askedBuffer;
        handle.periodFrames = askedPeriod;
        QCOMPARE(handle.configure(), 0);
        QTEST(handle.rateHz, "grantedRate");
        QTEST(handle.channels, "grantedChannels");
        QCOMPARE(qulonglong(handle.bufferFrames), askedBuffer);
        QCOMPARE(qulonglong(handle.periodFrames), askedPeriod);
    }
}

void TestSoundCard::theClockSetsThePace_data() {
    QTest::addColumn<double>("ppm");
    QTest::addColumn<qint64>("realRate");
    QTest::newRow("exact") << 0.0 << Q_INT64_C(48000);
    QTest::newRow("one percent fast") << 10000.0 << Q_INT64_C(48480);
    QTest::newRow("one percent slow") << -10000.0 << Q_INT64_C(47520);
}

void TestSoundCard::theClockSetsThePace() {
    QFETCH(double, ppm);
    QFETCH(qint64, realRate);
    CardOptions options;
    options.capturePpm = ppm;
    const SoundCard card(m_folder.path(), 0, options);
    Handle handle(capture);
    handle.bufferFrames = 48000;
    QCOMPARE(handle.configure(), 0);
    QCOMPARE(handle.setThresholds(1, 19200), 0);

    const qint64 beforeStart = monotonicNs();
    QCOMPARE(snd_pcm_start(handle), 0);
    const qint64 afterStart = monotonicNs();
    QCOMPARE(snd_pcm_wait(handle, 5000), 1);
    const qint64 beforeEnd = monotonicNs();
    const qint64 frames = snd_pcm_avail_update(handle);
    const qint64 afterEnd = monotonicNs();

    QVERIFY(frames >= 19200);
    // The exact moments lie somewhere between the readings of the clock; a busy machine only widens the bounds.
    QVERIFY(frames >= framesIn(beforeEnd - afterStart, realRate) - 2);
    QVERIFY(frames <= framesIn(afterEnd - beforeStart, realRate) + 2);
}

void TestSoundCard::whatIsFedIsCapturedSampleForSample() {
    SoundCard card(m_folder.path(), 0);
    Handle handle(capture);
    QCOMPARE(handle.configure(), 0);
    const qint64 beforeStart = monotonicNs();
    QCOMPARE(snd_pcm_start(handle), 0);
    const qint64 afterStart = monotonicNs();
    const Samples fed = ramp(9600);
    const qint64 fedAt = card.feed({48000, fed});

    Samples captured;
    while (captured.size() < 14400) {
        const Samples frame = handle.read(960);
        QCOMPARE(frame.size(), std::size_t(960));
        captured.insert(captured.end(), frame.begin(), frame.end());
    }
    const auto at = std::search(captured.begin(), captured.end(), fed.begin(), fed.end());
    QVERIFY(at != captured.end());
    QVERIFY(isSilent(Samples(captured.begin(), at)));
    QVERIFY(isSilent(Samples(at + qint64(fed.size()), captured.end())));
    QVERIFY(at - captured.begin() >= framesIn(fedAt - afterStart, 48000) - 1);
    QVERIFY(at - captured.begin() <= framesIn(fedAt - beforeStart, 48000) + 1);
    QCOMPARE(qint64(card.framesCaptured()), qint64(captured.size()));
    QCOMPARE(card.captureXruns(), 0);
}

void TestSoundCard::bothChannelsCaptureTheSame() {
    CardOptions options;
    options.minChannels = 2;
    SoundCard card(m_folder.path(), 0, options);
    Handle handle(capture);
    QCOMPARE(handle.configure(), 0);
    card.feed({48000, ramp(4800)});
    const Samples captured = handle.read(9600);
    QCOMPARE(captured.size(), std::size_t(2 * 9600));
    Samples left;
    for (std::size_t i = 0; i < captured.size(); i += 2) {
        QCOMPARE(captured[i], captured[i + 1]);
        left.push_back(captured[i]);
    }
    QCOMPARE(countSound(left), Q_INT64_C(4800));
}

void TestSoundCard::aSecondFeedFollowsTheFirst() {
    SoundCard card(m_folder.path(), 0);
    Handle handle(capture);
    QCOMPARE(handle.configure(), 0);
    const Samples whole = ramp(4800);
    const qint64 first = card.feed({48000, Samples(whole.begin(), whole.begin() + 2400)});
    const qint64 second = card.feed({48000, Samples(whole.begin() + 2400, whole.end())});
    QVERIFY(std::abs(second - first - 50'000'000) <= 1);
    const Samples captured = handle.read(9600);
    QVERIFY(std::search(captured.begin(), captured.end(), whole.begin(), whole.end()) != captured.end());
}

void TestSoundCard::clearedFeedIsSilence() {
    SoundCard card(m_folder.path(), 0);
    Handle handle(capture);
    QCOMPARE(handle.configure(), 0);
    card.feed({48000, ramp(48000)});
    card.clearFeed();
    QVERIFY(isSilent(handle.read(9600)));
}

void TestSoundCard::feedOfAnotherRateIsConverted() {
    CardOptions options;
    options.rateHz = 44100;
    SoundCard card(m_folder.path(), 0, options);
    Handle handle(capture);
    QCOMPARE(handle.configure(), 0);
    card.feed({48000, Samples(4800, 10000)});
    const Samples captured = handle.read(8820);
    // 100 ms are 4410 frames at the card's rate.
    QVERIFY(std::abs(countSound(captured) - 4410) <= 8);
}

void TestSoundCard::whatIsWrittenPassesTheJackAtItsTime() {
    SoundCard card(m_folder.path(), 0);
    Handle handle(playback);
    QCOMPARE(handle.configure(), 0);
    QCOMPARE(handle.setThresholds(4800, 960), 0);
    const Samples sound = ramp(9600);
    const qint64 beforeStart = monotonicNs();
    QCOMPARE(qint64(handle.write(Samples(sound.begin(), sound.begin() + 4800))), Q_INT64_C(4800));
    const qint64 afterStart = monotonicNs();
    for (auto at = sound.begin() + 4800; at != sound.end(); at += 960)
        QCOMPARE(qint64(handle.write(Samples(at, at + 960))), Q_INT64_C(960));
    QCOMPARE(snd_pcm_drain(handle), 0);

    const qint64 from = beforeStart - 100'000'000;
    const Samples heard = card.played(from, monotonicNs()).samples;
    const auto at = std::search(heard.begin(), heard.end(), sound.begin(), sound.end());
    QVERIFY(at != heard.end());
    QCOMPARE(countSound(heard), Q_INT64_C(9600));
    QVERIFY(at - heard.begin() >= framesIn(beforeStart - from, 48000) - 1);
    QVERIFY(at - heard.begin() <= framesIn(afterStart - from, 48000) + 1);
    QCOMPARE(qint64(card.framesPlayed()), Q_INT64_C(9600));
    QCOMPARE(card.playbackXruns(), 0);
}

void TestSoundCard::aStereoPlaybackIsHeardAsTheMean() {
    CardOptions options;
    options.minChannels = 2;
    const SoundCard card(m_folder.path(), 0, options);
    Handle handle(playback);
    QCOMPARE(handle.configure(), 0);
    Samples sound;
    for (int i = 0; i < 1920; ++i)
        sound.insert(sound.end(), {3000, -1000});
    QCOMPARE(handle.setThresholds(24000, 960), 0); // draining starts it
    const qint64 from = monotonicNs();
    QCOMPARE(qint64(handle.write(sound)), Q_INT64_C(1920));
    QCOMPARE(snd_pcm_drain(handle), 0);
    const Samples heard = card.played(from, monotonicNs()).samples;
    QCOMPARE(qint64(std::count(heard.begin(), heard.end(), 1000)), Q_INT64_C(1920));
    QCOMPARE(countSound(heard), Q_INT64_C(1920));
}

void TestSoundCard::gapsAreSilent() {
    const SoundCard card(m_folder.path(), 0);
    Handle handle(playback);
    QCOMPARE(handle.configure(), 0);
    QCOMPARE(handle.setThresholds(24000, 960), 0); // draining starts it
    const Samples sound = ramp(1920);
    const qint64 from = monotonicNs();
    QCOMPARE(qint64(handle.write(sound)), Q_INT64_C(1920));
    QCOMPARE(snd_pcm_drain(handle), 0);
    const qint64 betweenNs = monotonicNs();
    QCOMPARE(snd_pcm_prepare(handle), 0);
    QCOMPARE(qint64(handle.write(sound)), Q_INT64_C(1920));
    QCOMPARE(snd_pcm_drain(handle), 0);

    const Samples heard = card.played(from, monotonicNs()).samples;
    const qint64 between = framesIn(betweenNs - from, 48000);
    const auto first = std::search(heard.begin(), heard.begin() + between, sound.begin(), sound.end());
    const auto second = std::search(heard.begin() + between - 1, heard.end(), sound.begin(), sound.end());
    QVERIFY(first != heard.begin() + between);
    QVERIFY(second != heard.end());
    QVERIFY(isSilent(Samples(first + 1920, second)));
    QCOMPARE(countSound(heard), Q_INT64_C(3840));
}

void TestSoundCard::droppedFramesNeverPassTheJack() {
    const SoundCard card(m_folder.path(), 0);
    Handle handle(playback);
    QCOMPARE(handle.configure(), 0);
    const qint64 from = monotonicNs();
    QCOMPARE(qint64(handle.write(ramp(19200))), Q_INT64_C(19200));
    QCOMPARE(snd_pcm_state(handle), SND_PCM_STATE_RUNNING);
    QCOMPARE(snd_pcm_drop(handle), 0);
    const qint64 dropped = monotonicNs();
    QVERIFY(countSound(card.played(from, dropped).samples) <= framesIn(dropped - from, 48000) + 1);
    QVERIFY(isSilent(card.played(dropped + 100'000, dropped + 1'000'000'000).samples));
}

void TestSoundCard::playbackStartsAtItsThreshold() {
    const SoundCard card(m_folder.path(), 0);
    Handle handle(playback);
    QCOMPARE(handle.configure(), 0);
    QCOMPARE(handle.setThresholds(4800, 960), 0);
    QCOMPARE(qint64(handle.write(Samples(4799, 1))), Q_INT64_C(4799));
    QCOMPARE(snd_pcm_state(handle), SND_PCM_STATE_PREPARED);
    QCOMPARE(qint64(handle.write(Samples(1, 1))), Q_INT64_C(1));
    QCOMPARE(snd_pcm_state(handle), SND_PCM_STATE_RUNNING);
}

void TestSoundCard::aFullBufferBlocksWithoutSpinning() {
    const SoundCard card(m_folder.path(), 0);
    Handle handle(playback);
    QCOMPARE(handle.configure(), 0);
    QCOMPARE(handle.setThresholds(4800, 960), 0);
    QCOMPARE(qint64(handle.write(Samples(24000, 1))), Q_INT64_C(24000));
    const qint64 wall = monotonicNs();
    const qint64 cpu = threadCpuNs();
    QCOMPARE(qint64(handle.write(Samples(14400, 1))), Q_INT64_C(14400));
    const double wallNs = double(monotonicNs() - wall);
    const double cpuNs = double(threadCpuNs() - cpu);
    // 14,400 frames are 300 ms; 24,000 were full when they were written.
    QVERIFY2(wallNs > 250e6, qPrintable(QString::number(wallNs)));
    QVERIFY2(cpuNs / wallNs < 0.1, qPrintable(QString::number(cpuNs / wallNs)));
    QCOMPARE(card.playbackXruns(), 0);
}

void TestSoundCard::drainingEnds() {
    const SoundCard card(m_folder.path(), 0);
    Handle handle(playback);
    QCOMPARE(handle.configure(), 0);
    // Below the start threshold: draining must start the stream to empty it.
    QCOMPARE(handle.setThresholds(24000, 960), 0);
    QCOMPARE(qint64(handle.write(ramp(4800))), Q_INT64_C(4800));
    const qint64 before = monotonicNs();
    QCOMPARE(snd_pcm_drain(handle), 0);
    const qint64 tookNs = monotonicNs() - before;
    QVERIFY2(tookNs >= 99'000'000 && tookNs < 1'000'000'000, qPrintable(QString::number(tookNs)));
    QCOMPARE(snd_pcm_state(handle), SND_PCM_STATE_SETUP);
    QCOMPARE(countSound(card.played(before, monotonicNs()).samples), Q_INT64_C(4800));
}

void TestSoundCard::aSlowClockLeavesNoHoles() {
    CardOptions options;
    options.playbackPpm = -10000.0;
    const SoundCard card(m_folder.path(), 0, options);
    Handle handle(playback);
    QCOMPARE(handle.configure(), 0);
    QCOMPARE(handle.setThresholds(24000, 960), 0); // draining starts it
    const qint64 from = monotonicNs();
    for (int i = 0; i < 10; ++i)
        QCOMPARE(qint64(handle.write(Samples(960, 7))), Q_INT64_C(960));
    QCOMPARE(snd_pcm_drain(handle), 0);
    const Samples heard = card.played(from, monotonicNs()).samples;
    const qint64 first = firstSound(heard);
    QVERIFY(first >= 0);
    // 9600 frames at 99 % of the rate last as long as 9697 of the exact clock.
    QVERIFY(std::abs(countSound(heard) - 9697) <= 2);
    const auto end = heard.begin() + first + countSound(heard);
    QVERIFY(std::all_of(heard.begin() + first, end, [](std::int16_t sample) { return sample == 7; }));
}

QTEST_GUILESS_MAIN(TestSoundCard)
#include "tst_SoundCard.moc"
