#include "net/ReplyFramer.h"

#include <QtTest>

namespace {

/// Units as text: a line as it is, an audio block as "<id:payload>".
QStringList takeAll(ReplyFramer &framer) {
    QStringList units;
    while (const auto unit = framer.next()) {
        if (const auto *block = std::get_if<AudioBlock>(&*unit))
            units.append(QStringLiteral("<%1:%2>").arg(block->userId).arg(QString::fromLatin1(block->payload)));
        else
            units.append(std::get<QString>(*unit));
    }
    return units;
}

QStringList feedInPieces(const QByteArray &bytes, int pieceSize) {
    ReplyFramer framer;
    QStringList units;
    for (int at = 0; at < bytes.size(); at += pieceSize) {
        framer.append(bytes.mid(at, pieceSize));
        units += takeAll(framer);
    }
    return units;
}

} // namespace

class TestReplyFramer : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void cutsTheStreamIntoUnits_data();
    void cutsTheStreamIntoUnits();
    void keepsAnUnfinishedLineUntilItsLineFeed();
    void waitsForTheWholePayload();
    void takesNoMemoryForAnAnnouncedLength();
    void canBeFedAndClearedBetweenUnits();
    void forgetsEverythingWhenCleared();
    void worksInLinearTime_data();
    void worksInLinearTime();
};

void TestReplyFramer::cutsTheStreamIntoUnits_data() {
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<QStringList>("units");
    const auto row = [](const char *name, const QByteArray &bytes, std::initializer_list<const char *> units) {
        QStringList expected;
        for (const char *unit : units)
            expected.append(QString::fromUtf8(unit));
        QTest::newRow(name) << bytes << expected;
    };
    row("two replies in order", "ROOMS|a\r\nPONG\r\n", {"ROOMS|a", "PONG"});
    row("a lone line feed ends a line", "a\nb\n", {"a", "b"});
    row("white space at both ends goes", " \t a b \v\f\r\n", {"a b"});
    row("empty lines are skipped", "\r\n \r\n\na\n", {"a"});
    row("UTF-8", "KICKED|\xE2\x80\x94 \xC3\xA9\r\n", {"KICKED|— é"});
    row("audio block between lines", "a\r\nAUDIO 7 5\r\nhe\r\nlb\r\n", {"a", "<7:he\r\nl>", "b"});
    row("empty audio block", "AUDIO 7 0\r\nb\n", {"<7:>", "b"});
    row("audio block whose payload looks like a header", "AUDIO 1 11\r\nAUDIO 2 3\r\nx\n", {"<1:AUDIO 2 3\r\n>", "x"});
    row("further header fields are ignored", "AUDIO 1 2 opus\r\nxyb\n", {"<1:xy>", "b"});
    row("a double blank makes an empty id", "AUDIO  3 9\r\nxyzb\n", {"<0:xyz>", "b"}); // fields "", "3", "9"
    row("an id that is no number is 0", "AUDIO x 2\r\nxyb\n", {"<0:xy>", "b"});
    row("header with two fields is discarded", "AUDIO 7\r\nb\n", {"b"});
    row("header with no fields is discarded", "AUDIO \r\nb\n", {"b"});
    row("negative length is discarded", "AUDIO 7 -1\r\nb\n", {"b"});
    row("length that is no number is discarded", "AUDIO 7 x\r\nb\n", {"b"});
    row("empty length is discarded", "AUDIO 7 \r\nb\n", {"b"});
    row("length beyond 32 bits is discarded", "AUDIO 7 2147483648\r\nb\n", {"b"});
    row("a header needs CR LF", "AUDIO 7 1\nx 1 2\r\nb\n", {"b"});
    row("the keyword alone is a line", "AUDIO\r\nb\n", {"AUDIO", "b"});
    row("lower case is a line", "audio 1 2\r\nb\n", {"audio 1 2", "b"});
    row("an indented header is a line", " AUDIO 1 2\r\nb\n", {"AUDIO 1 2", "b"});
}

void TestReplyFramer::cutsTheStreamIntoUnits() {
    QFETCH(QByteArray, bytes);
    QFETCH(QStringList, units);
    for (int pieceSize = 1; pieceSize <= bytes.size(); ++pieceSize)
        QCOMPARE(feedInPieces(bytes, pieceSize), units);
}

void TestReplyFramer::keepsAnUnfinishedLineUntilItsLineFeed() {
    ReplyFramer framer;
    framer.append("PO");
    QVERIFY(!framer.next());
    framer.append("NG\r");
    QVERIFY(!framer.next());
    framer.append("\n");
    QCOMPARE(takeAll(framer), QStringList{QStringLiteral("PONG")});
    QVERIFY(!framer.next());
}

void TestReplyFramer::waitsForTheWholePayload() {
    ReplyFramer framer;
    framer.append("AUDIO 7 4\r\nabc");
    QVERIFY(!framer.next());
    framer.append("dROOMS\r\n");
    QCOMPARE(takeAll(framer), (QStringList{QStringLiteral("<7:abcd>"), QStringLiteral("ROOMS")}));
}

void TestReplyFramer::takesNoMemoryForAnAnnouncedLength() {
    ReplyFramer framer;
    framer.append("AUDIO 7 2147483647\r\n");
    QVERIFY(!framer.next());
    for (int i = 0; i < 1000; ++i) {
        framer.append("PONG\r\n");
        QVERIFY(!framer.next()); // all of it is payload
    }
    QVERIFY(framer.bytesWorked() < qint64{3} * 6020);
}

void TestReplyFramer::canBeFedAndClearedBetweenUnits() {
    ReplyFramer framer;
    framer.append("a\nb\n");
    QCOMPARE(std::get<QString>(*framer.next()), QStringLiteral("a"));
    framer.append("c\n");
    QCOMPARE(std::get<QString>(*framer.next()), QStringLiteral("b"));
    framer.clear();
    QVERIFY(!framer.next());
    framer.append("d\n");
    QCOMPARE(takeAll(framer), QStringList{QStringLiteral("d")});
}

void TestReplyFramer::forgetsEverythingWhenCleared() {
    ReplyFramer framer;
    framer.append("AUDIO 7 100\r\nabc");
    QVERIFY(!framer.next());
    framer.clear();
    framer.append("half a li");
    QVERIFY(!framer.next());
    framer.clear();
    framer.append("PONG\n");
    QCOMPARE(takeAll(framer), QStringList{QStringLiteral("PONG")});
}

void TestReplyFramer::worksInLinearTime_data() {
    constexpr int size = 5'000'000;
    const QByteArray filling(size, 'x');
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<int>("units");
    QTest::newRow("one long line") << filling + "\r\n" << 1;
    QTest::newRow("one long audio block") << "AUDIO 1 " + QByteArray::number(size) + "\r\n" + filling << 1;
    QTest::newRow("a header without end") << "AUDIO " + filling << 0;
    QTest::newRow("line feeds in a header without end") << "AUDIO " + QByteArray(size, '\n') << 0;
    QTest::newRow("a long header before its payload")
        << "AUDIO 1 " + QByteArray::number(size / 2) + QByteArray(size / 2, ' ') + "\r\n" + filling.left(size / 2) << 1;
    QTest::newRow("many short lines") << QByteArray("PONG\r\n").repeated(size / 6) << size / 6;
    QTest::newRow("blank lines") << QByteArray(size, '\n') << 0;
}

void TestReplyFramer::worksInLinearTime() {
    QFETCH(QByteArray, bytes);
    QFETCH(int, units);
    constexpr int segment = 1400;
    ReplyFramer framer;
    int count = 0;
    for (int at = 0; at < bytes.size(); at += segment) {
        framer.append(bytes.mid(at, segment));
        while (framer.next())
            ++count;
    }
    QCOMPARE(count, units);
    // Searched once, moved at most once.
    QVERIFY2(framer.bytesWorked() <= 2 * qint64{bytes.size()}, qPrintable(QString::number(framer.bytesWorked())));
}

QTEST_GUILESS_MAIN(TestReplyFramer)
#include "tst_ReplyFramer.moc"
