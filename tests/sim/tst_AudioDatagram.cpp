#include "sim/wire/AudioDatagram.h"

#include <QTest>

using namespace sim;

class TestAudioDatagram : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void putsTheTalkerFirst_data();
    void putsTheTalkerFirst();
    void needsAFrame_data();
    void needsAFrame();
};

void TestAudioDatagram::putsTheTalkerFirst_data() {
    QTest::addColumn<quint32>("talkerId");
    QTest::addColumn<QByteArray>("header");
    QTest::newRow("0") << 0U << QByteArray("\0\0\0\0", 4);
    QTest::newRow("7") << 7U << QByteArray("\0\0\0\7", 4);
    QTest::newRow("16909060") << 16909060U << QByteArray("\1\2\3\4", 4);
    QTest::newRow("highest") << 4294967295U << QByteArray("\xFF\xFF\xFF\xFF", 4);
}

void TestAudioDatagram::putsTheTalkerFirst() {
    QFETCH(quint32, talkerId);
    QFETCH(QByteArray, header);
    QCOMPARE((AudioDatagram{talkerId, "frame"}.bytes()), header + "frame");
    const std::optional<AudioDatagram> audio = AudioDatagram::fromBytes(header + "frame");
    QVERIFY(audio);
    QCOMPARE(audio->talkerId, talkerId);
    QCOMPARE(audio->frame, QByteArray("frame"));
}

void TestAudioDatagram::needsAFrame_data() {
    QTest::addColumn<int>("length");
    QTest::addColumn<bool>("isAudio");
    QTest::newRow("nothing") << 0 << false;
    QTest::newRow("header only") << 4 << false;
    QTest::newRow("one byte of frame") << 5 << true;
}

void TestAudioDatagram::needsAFrame() {
    QFETCH(int, length);
    QFETCH(bool, isAudio);
    QCOMPARE(AudioDatagram::fromBytes(QByteArray(length, 'x')).has_value(), isAudio);
}

QTEST_APPLESS_MAIN(TestAudioDatagram)
#include "tst_AudioDatagram.moc"
