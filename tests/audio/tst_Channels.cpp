#include "audio/Channels.h"

#include <QTest>

using Samples = std::vector<qint16>;
Q_DECLARE_METATYPE(Samples)

class TestChannels : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void mixesToTheMeanCutTowardZero_data();
    void mixesToTheMeanCutTowardZero();
    void leavesAnUnfinishedFrameOut();
    void fitsTheNumberOfChannels_data();
    void fitsTheNumberOfChannels();
};

void TestChannels::mixesToTheMeanCutTowardZero_data() {
    QTest::addColumn<Samples>("frame");
    QTest::addColumn<int>("mono");
    QTest::newRow("one channel") << Samples{-7} << -7;
    QTest::newRow("equal") << Samples{100, 100} << 100;
    QTest::newRow("positive half") << Samples{1, 2} << 1;
    QTest::newRow("negative half") << Samples{-1, -2} << -1;
    QTest::newRow("mixed signs") << Samples{-3, 2} << 0;
    QTest::newRow("both at the top") << Samples{32767, 32767} << 32767;
    QTest::newRow("both at the bottom") << Samples{-32768, -32768} << -32768;
    QTest::newRow("opposite ends") << Samples{32767, -32768} << 0;
    QTest::newRow("four channels") << Samples{10, 20, 30, 41} << 25;
}

void TestChannels::mixesToTheMeanCutTowardZero() {
    QFETCH(Samples, frame);
    QFETCH(int, mono);
    const int channels = int(frame.size());
    Samples frames = frame;
    frames.insert(frames.end(), frame.begin(), frame.end());
    const auto mixed = mixToMono(frames, channels);
    QCOMPARE(int(mixed.size()), 2);
    QCOMPARE(int(mixed[0]), mono);
    QCOMPARE(int(mixed[1]), mono);
}

void TestChannels::leavesAnUnfinishedFrameOut() {
    Samples frames{2, 4, 6};
    QCOMPARE(int(mixToMono(frames, 2).size()), 1);
}

void TestChannels::fitsTheNumberOfChannels_data() {
    QTest::addColumn<int>("from");
    QTest::addColumn<int>("to");
    QTest::addColumn<Samples>("fitted");
    QTest::newRow("mono to stereo") << 1 << 2 << Samples{1, 1, 2, 2, 3, 3, 4, 4};
    QTest::newRow("stereo to mono") << 2 << 1 << Samples{1, 3};
    QTest::newRow("stereo to four") << 2 << 4 << Samples{1, 2, 2, 2, 3, 4, 4, 4};
    QTest::newRow("the same") << 2 << 2 << Samples{1, 2, 3, 4};
}

void TestChannels::fitsTheNumberOfChannels() {
    QFETCH(int, from);
    QFETCH(int, to);
    QFETCH(Samples, fitted);
    const Samples samples{1, 2, 3, 4};
    Samples storage;
    const auto result = fitChannels(samples, from, to, storage);
    QVERIFY(std::equal(result.begin(), result.end(), fitted.begin(), fitted.end()));
}

QTEST_APPLESS_MAIN(TestChannels)
#include "tst_Channels.moc"
