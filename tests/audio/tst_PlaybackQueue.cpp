#include "audio/PlaybackQueue.h"

#include <QTest>

#include <numeric>

namespace {

/// Samples that count up, so that every one tells where it came from.
std::vector<qint16> counting(int first, int count) {
    std::vector<qint16> samples(count);
    std::iota(samples.begin(), samples.end(), qint16(first));
    return samples;
}

PlaybackQueue queueOf(int chunks, int chunkSamples) {
    PlaybackQueue queue;
    queue.setChunkSamples(chunkSamples);
    for (int chunk = 0; chunk < chunks; ++chunk)
        queue.append(counting(chunk * chunkSamples, chunkSamples));
    return queue;
}

} // namespace

class TestPlaybackQueue : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void becomesPrimedAtFiveChunks();
    void staysPrimedUntilUnprimed();
    void handsOutWholeChunksInOrder();
    void joinsPiecesOfAnyLength();
    void holdsAtMostTenChunks();
    void dropsDownToTenChunksBeforeOneIsPlayed();
    void keepsATailThatIsNoChunk();
    void startsOverWhenCleared();
    void survivesAChunkOfNothing_data();
    void survivesAChunkOfNothing();
};

void TestPlaybackQueue::becomesPrimedAtFiveChunks() {
    PlaybackQueue queue = queueOf(4, 960);
    queue.append(counting(0, 959));
    QVERIFY(!queue.prime());
    QVERIFY(!queue.isPrimed());
    queue.append(counting(0, 1));
    QCOMPARE(queue.sizeBytes(), 5 * 1920);
    QVERIFY(queue.prime());
    QVERIFY(queue.isPrimed());
    QVERIFY(!queue.prime()); // told once
}

void TestPlaybackQueue::staysPrimedUntilUnprimed() {
    PlaybackQueue queue = queueOf(5, 10);
    QVERIFY(queue.prime());
    for (int chunk = 0; chunk < 5; ++chunk)
        QCOMPARE(int(queue.takeChunk().size()), 10);
    QVERIFY(queue.takeChunk().empty());
    QVERIFY(queue.isPrimed());
    queue.unprime();
    QVERIFY(!queue.isPrimed());
    QVERIFY(!queue.prime());
}

void TestPlaybackQueue::handsOutWholeChunksInOrder() {
    PlaybackQueue queue = queueOf(3, 10);
    for (int first : {0, 10, 20}) {
        const auto chunk = queue.takeChunk();
        QCOMPARE(std::vector<qint16>(chunk.begin(), chunk.end()), counting(first, 10));
    }
    QVERIFY(queue.takeChunk().empty());
}

void TestPlaybackQueue::joinsPiecesOfAnyLength() {
    PlaybackQueue queue;
    queue.setChunkSamples(10);
    queue.append(counting(0, 3));
    queue.append(counting(3, 14));
    auto chunk = queue.takeChunk();
    QCOMPARE(std::vector<qint16>(chunk.begin(), chunk.end()), counting(0, 10));
    queue.append(counting(17, 3));
    chunk = queue.takeChunk();
    QCOMPARE(std::vector<qint16>(chunk.begin(), chunk.end()), counting(10, 10));
    QCOMPARE(queue.sizeBytes(), 0);
}

void TestPlaybackQueue::holdsAtMostTenChunks() {
    PlaybackQueue queue = queueOf(13, 10);
    QCOMPARE(queue.sizeBytes(), 10 * 20);
    QCOMPARE(queue.droppedChunks(), 3);
    QCOMPARE(int(queue.takeChunk().front()), 30); // the oldest went
}

void TestPlaybackQueue::dropsDownToTenChunksBeforeOneIsPlayed() {
    PlaybackQueue queue = queueOf(10, 1000); // becomes 25 chunks when the frame duration falls
    queue.setChunkSamples(400);
    const auto chunk = queue.takeChunk();
    QCOMPARE(queue.droppedChunks(), 15);
    QCOMPARE(std::vector<qint16>(chunk.begin(), chunk.end()), counting(15 * 400, 400));
    QCOMPARE(queue.sizeBytes(), 9 * 800);
}

void TestPlaybackQueue::keepsATailThatIsNoChunk() {
    PlaybackQueue queue = queueOf(10, 10);
    queue.append(counting(100, 9)); // 10.9 chunks: one is dropped whole
    QCOMPARE(queue.droppedChunks(), 1);
    QCOMPARE(queue.sizeBytes(), 99 * 2);
}

void TestPlaybackQueue::startsOverWhenCleared() {
    PlaybackQueue queue = queueOf(6, 10);
    QVERIFY(queue.prime());
    QVERIFY(!queue.takeChunk().empty());
    queue.clear();
    QCOMPARE(queue.sizeBytes(), 0);
    QVERIFY(!queue.isPrimed());
    queue.append(counting(70, 10));
    QCOMPARE(int(queue.takeChunk().front()), 70);
}

void TestPlaybackQueue::survivesAChunkOfNothing_data() {
    QTest::addColumn<int>("samples");
    QTest::newRow("zero") << 0;
    QTest::newRow("negative") << -2147483647;
}

void TestPlaybackQueue::survivesAChunkOfNothing() {
    QFETCH(int, samples);
    PlaybackQueue queue;
    queue.setChunkSamples(samples);
    queue.append(counting(0, 100));
    QVERIFY(queue.prime());
    QCOMPARE(int(queue.takeChunk().size()), 1);
    QCOMPARE(queue.sizeBytes(), 9 * 2);
}

QTEST_APPLESS_MAIN(TestPlaybackQueue)
#include "tst_PlaybackQueue.moc"
