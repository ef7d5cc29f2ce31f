#include "net/MediaDatagram.h"

#include <QtTest>

Q_DECLARE_METATYPE(ControlReply)

namespace {

std::string_view view(const QByteArray &bytes) {
    return {bytes.constData(), static_cast<std::size_t>(bytes.size())};
}

} // namespace

class TestMediaDatagram : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void tellsControlRepliesFromAudio_data();
    void tellsControlRepliesFromAudio();
    void putsTheIdInNetworkOrder_data();
    void putsTheIdInNetworkOrder();
    void reusesTheDatagramsMemory();
};

void TestMediaDatagram::tellsControlRepliesFromAudio_data() {
    QTest::addColumn<QByteArray>("datagram");
    QTest::addColumn<ControlReply>("reply");
    QTest::newRow("PONG") << QByteArray("PONG") << ControlReply::Pong;
    QTest::newRow("white space around") << QByteArray(" \t\r\nPONG\v\f \r\n") << ControlReply::Pong;
    QTest::newRow("text ends at zero") << QByteArray("PONG\0\0rest", 10) << ControlReply::Pong;
    QTest::newRow("white space before zero") << QByteArray("PONG \0x", 7) << ControlReply::Pong;
    QTest::newRow("more than PONG") << QByteArray("PONG!") << ControlReply::None;
    QTest::newRow("lower case") << QByteArray("pong") << ControlReply::None;
    QTest::newRow("REGISTERED") << QByteArray("REGISTERED:42\n") << ControlReply::Registered;
    QTest::newRow("REGISTERED without number") << QByteArray("REGISTERED:") << ControlReply::Registered;
    QTest::newRow("REGISTERED without colon") << QByteArray("REGISTERED") << ControlReply::None;
    QTest::newRow("OK") << QByteArray("OK") << ControlReply::Confirmed;
    QTest::newRow("TOKEN_OK") << QByteArray("TOKEN_OK\r\n") << ControlReply::Confirmed;
    QTest::newRow("KEEPALIVE_OK") << QByteArray("KEEPALIVE_OK") << ControlReply::KeepAliveOk;
    QTest::newRow("a frame") << QByteArray("\0\0\0\7PONG", 8) << ControlReply::None;
    QTest::newRow("an id that spells OK") << QByteArray("OK\0\0frame", 9) << ControlReply::Confirmed;
    QTest::newRow("a negative id") << QByteArray("\xff\xff\xff\xffOK", 6) << ControlReply::None;
    QTest::newRow("blanks") << QByteArray(" \n ") << ControlReply::None;
    QTest::newRow("empty") << QByteArray() << ControlReply::None;
}

void TestMediaDatagram::tellsControlRepliesFromAudio() {
    QFETCH(QByteArray, datagram);
    QTEST(controlReply(view(datagram)), "reply");
}

void TestMediaDatagram::putsTheIdInNetworkOrder_data() {
    QTest::addColumn<int>("id");
    QTest::addColumn<QByteArray>("header");
    QTest::newRow("zero") << 0 << QByteArray("\0\0\0\0", 4);
    QTest::newRow("66051") << 66051 << QByteArray("\0\1\2\3", 4); // 0x00010203
    QTest::newRow("largest") << 2147483647 << QByteArray("\x7f\xff\xff\xff", 4);
    QTest::newRow("negative") << -2 << QByteArray("\xff\xff\xff\xfe", 4);
}

void TestMediaDatagram::putsTheIdInNetworkOrder() {
    QFETCH(int, id);
    QFETCH(QByteArray, header);
    QByteArray datagram;
    buildAudioDatagram(datagram, id, "frame");
    QCOMPARE(datagram, header + "frame");
    QCOMPARE(speakerId(view(datagram)), id);
}

void TestMediaDatagram::reusesTheDatagramsMemory() {
    QByteArray datagram;
    buildAudioDatagram(datagram, 1, QByteArray(96, 'a'));
    const char *const memory = datagram.constData();
    buildAudioDatagram(datagram, 2, QByteArray(60, 'b'));
    buildAudioDatagram(datagram, 3, QByteArray(90, 'c'));
    QCOMPARE(datagram, QByteArray("\0\0\0\3", 4) + QByteArray(90, 'c'));
    QCOMPARE(static_cast<const void *>(datagram.constData()), static_cast<const void *>(memory));
}

QTEST_GUILESS_MAIN(TestMediaDatagram)
#include "tst_MediaDatagram.moc"
