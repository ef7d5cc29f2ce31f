#include "CardBench.h"
#include "sim/MonotonicClock.h"

#include <cerrno>
#include <memory>

using namespace sim;

class TestSoundCardFaults : public CardBench {
    Q_OBJECT

private Q_SLOTS:
    void aCardThatIsNotThereCannotBeOpened();
    void anAbsentCardSaysNoSuchDevice();
    void aBusyCardSaysBusy();
    void aDirectionCanBeOpenedOnce();

    void anOverrunIsReportedAndRecovered_data();
    void anOverrunIsReportedAndRecovered();
    void anUnderrunIsReportedAndRecovered_data();
    void anUnderrunIsReportedAndRecovered();
    void anUnpluggedCaptureEnds();
    void anUnpluggedPlaybackEnds();
    void anUnplugEndsABlockedWrite();
    void aCardPluggedInAgainMayHaveChanged();
    void failingWritesCannotBeRecovered();
};

void TestSoundCardFaults::aCardThatIsNotThereCannotBeOpened() {
    const SoundCard card(m_folder.path(), 0);
    QCOMPARE(Handle(capture, "hw:3,0").error(), -ENOENT);
    QCOMPARE(Handle(capture, "hw:0,1").error(), -ENOENT);
    QCOMPARE(Handle(capture, "hw:0,0").error(), 0);
}

void TestSoundCardFaults::anAbsentCardSaysNoSuchDevice() {
    SoundCard card(m_folder.path(), 0);
    card.setPresent(false);
    QCOMPARE(Handle(capture).error(), -ENODEV);
    QCOMPARE(Handle(playback).error(), -ENODEV);
    card.setPresent(true);
    QCOMPARE(Handle(capture).error(), 0);
}

void TestSoundCardFaults::aBusyCardSaysBusy() {
    SoundCard card(m_folder.path(), 0);
    card.setBusy(true);
    QCOMPARE(Handle(capture).error(), -EBUSY);
    QCOMPARE(Handle(playback).error(), -EBUSY);
    card.setBusy(false);
    QCOMPARE(Handle(playback).error(), 0);
}

void TestSoundCardFaults::aDirectionCanBeOpenedOnce() {
    const SoundCard card(m_folder.path(), 0);
    Handle first(capture);
    QCOMPARE(first.error(), 0);
    QVERIFY(card.isCaptureOpen());
    QVERIFY(!card.isPlaybackOpen());
    QCOMPARE(Handle(capture).error(), -EBUSY);
    QCOMPARE(Handle(playback).error(), 0);
    first.close();
    QVERIFY(!card.isCaptureOpen());
    QCOMPARE(Handle(capture).error(), 0);
}

void TestSoundCardFaults::anOverrunIsReportedAndRecovered_data() {
    QTest::addColumn<bool>("onCommand");
    QTest::newRow("on command") << true;
    QTest::newRow("not read in time") << false;
}

void TestSoundCardFaults::anOverrunIsReportedAndRecovered() {
    QFETCH(bool, onCommand);
    SoundCard card(m_folder.path(), 0);
    Handle handle(capture);
    handle.bufferFrames = 48000;
    handle.periodFrames = 960;
    QCOMPARE(handle.configure(), 0);
    QCOMPARE(snd_pcm_start(handle), 0);
    if (onCommand) {
        QVERIFY(snd_pcm_avail_update(handle) >= 0);
        card.overrun();
    }
    QTRY_COMPARE(qint64(snd_pcm_avail_update(handle)), qint64(-EPIPE));
    QCOMPARE(qint64(snd_pcm_avail_update(handle)), qint64(-EPIPE));
    QCOMPARE(card.captureXruns(), 1);
    QCOMPARE(snd_pcm_recover(handle, -EPIPE, 1), 0);
    QCOMPARE(snd_pcm_start(handle), 0);
    QCOMPARE(handle.read(960).size(), std::size_t(960));
    QCOMPARE(card.captureXruns(), 1);
}

void TestSoundCardFaults::anUnderrunIsReportedAndRecovered_data() {
    QTest::addColumn<bool>("onCommand");
    QTest::newRow("on command") << true;
    QTest::newRow("not written in time") << false;
}

void TestSoundCardFaults::anUnderrunIsReportedAndRecovered() {
    QFETCH(bool, onCommand);
    SoundCard card(m_folder.path(), 0);
    Handle handle(playback);
    QCOMPARE(handle.configure(), 0);
    QCOMPARE(handle.setThresholds(960, 960), 0);
    QCOMPARE(qint64(handle.write(ramp(onCommand ? 19200 : 960))), qint64(onCommand ? 19200 : 960));
    if (onCommand)
        card.underrun();
    else
        QTRY_COMPARE(qint64(snd_pcm_avail_update(handle)), qint64(-EPIPE));
    QCOMPARE(qint64(handle.write(ramp(960))), qint64(-EPIPE));
    QCOMPARE(card.playbackXruns(), 1);
    QVERIFY(isSilent(card.played(monotonicNs() + 100'000, monotonicNs() + 1'000'000'000).samples));
    QCOMPARE(snd_pcm_recover(handle, -EPIPE, 1), 0);
    QCOMPARE(qint64(handle.write(ramp(1920))), Q_INT64_C(1920));
    QCOMPARE(snd_pcm_state(handle), SND_PCM_STATE_RUNNING);
    QCOMPARE(card.playbackXruns(), 1);
}

void TestSoundCardFaults::anUnpluggedCaptureEnds() {
    SoundCard card(m_folder.path(), 0);
    Handle handle(capture);
    QCOMPARE(handle.configure(), 0);
    QCOMPARE(snd_pcm_start(handle), 0);
    QCOMPARE(handle.read(960).size(), std::size_t(960));
    card.unplug();
    const snd_pcm_sframes_t left = snd_pcm_avail_update(handle); // of before
    QTest::qWait(50);
    QVERIFY(snd_pcm_avail_update(handle) <= left);
    Samples buffer(960);
    QCOMPARE(qint64(snd_pcm_readi(handle, buffer.data(), 960)), qint64(-ENODEV));
    QCOMPARE(snd_pcm_state(handle), SND_PCM_STATE_DISCONNECTED);
    QVERIFY(snd_pcm_recover(handle, -ENODEV, 1) < 0);
    QCOMPARE(card.captureXruns(), 0);
    QCOMPARE(Handle(capture).error(), -ENODEV);
}

void TestSoundCardFaults::anUnpluggedPlaybackEnds() {
    SoundCard card(m_folder.path(), 0);
    Handle handle(playback);
    QCOMPARE(handle.configure(), 0);
    QCOMPARE(handle.setThresholds(960, 960), 0);
    QCOMPARE(qint64(handle.write(ramp(9600))), Q_INT64_C(9600));
    card.unplug();
    QCOMPARE(qint64(handle.write(ramp(960))), qint64(-ENODEV));
    QVERIFY(snd_pcm_recover(handle, -ENODEV, 1) < 0);
    QVERIFY(isSilent(card.played(monotonicNs() + 100'000, monotonicNs() + 1'000'000'000).samples));
    QCOMPARE(card.playbackXruns(), 0);
    // What was open when the card went stays dead, even when it comes back.
    card.plugIn();
    QCOMPARE(qint64(handle.write(ramp(960))), qint64(-ENODEV));
    QVERIFY(snd_pcm_drain(handle) < 0);
}

void TestSoundCardFaults::anUnplugEndsABlockedWrite() {
    SoundCard card(m_folder.path(), 0);
    Handle handle(playback);
    QCOMPARE(handle.configure(), 0);
    QCOMPARE(handle.setThresholds(960, 960), 0);
    QCOMPARE(qint64(handle.write(Samples(24000, 1))), Q_INT64_C(24000));
    const std::unique_ptr<QThread> hand(QThread::create([&card] {
        // The first frames beyond a full buffer: the write is under way and blocks.
        const QDeadlineTimer deadline(5000);
        while (card.framesPlayed() <= 24000 && !deadline.hasExpired())
            QThread::yieldCurrentThread();
        card.unplug();
    }));
    hand->start();
    const qint64 written = handle.write(Samples(19200, 1));
    QVERIFY(hand->wait(5000));
    QVERIFY(written < 19200);
    QCOMPARE(qint64(handle.write(Samples(960, 1))), qint64(-ENODEV));
}

void TestSoundCardFaults::aCardPluggedInAgainMayHaveChanged() {
    SoundCard card(m_folder.path(), 0);
    {
        Handle handle(capture);
        QCOMPARE(handle.configure(), 0);
        card.unplug();
    }
    card.setRate(44100);
    card.plugIn();
    Handle handle(capture);
    QCOMPARE(handle.error(), 0);
    QCOMPARE(handle.configure(), 0);
    QCOMPARE(handle.rateHz, 44100U);
    QCOMPARE(handle.read(882).size(), std::size_t(882));
}

void TestSoundCardFaults::failingWritesCannotBeRecovered() {
    SoundCard card(m_folder.path(), 0);
    Handle handle(playback);
    QCOMPARE(handle.configure(), 0);
    QCOMPARE(handle.setThresholds(960, 960), 0);
    QCOMPARE(qint64(handle.write(ramp(960))), Q_INT64_C(960));
    card.failPlaybackWrites(true);
    for (int i = 0; i < 3; ++i) {
        const qint64 error = handle.write(ramp(960));
        QVERIFY(error == -EIO || error == -EPIPE);
        QVERIFY(snd_pcm_recover(handle, int(error), 1) < 0);
    }
    // Also once the stream has run empty, which an ordinary card recovers from.
    QTRY_COMPARE(qint64(snd_pcm_avail_update(handle)), qint64(-EPIPE));
    QCOMPARE(qint64(handle.write(ramp(960))), qint64(-EPIPE));
    QVERIFY(snd_pcm_recover(handle, -EPIPE, 1) < 0);

    card.failPlaybackWrites(false);
    QCOMPARE(snd_pcm_recover(handle, -EPIPE, 1), 0);
    QCOMPARE(qint64(handle.write(ramp(960))), Q_INT64_C(960));
}

QTEST_GUILESS_MAIN(TestSoundCardFaults)
#include "tst_SoundCardFaults.moc"
