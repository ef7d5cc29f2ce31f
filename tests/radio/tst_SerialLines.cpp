#include "radio/SerialLines.h"

#include <QTest>

class TestSerialLines : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void putsLinesTogetherFromChunks_data();
    void putsLinesTogetherFromChunks();
    void givesTheSameLinesWhereverTheBytesAreSplit();
    void neverTakesACutLineForAShortOne_data();
    void neverTakesACutLineForAShortOne();
    void keepsNoneOfAnEndlessLine();
    void forgetsAnUnfinishedLine();
};

void TestSerialLines::putsLinesTogetherFromChunks_data() {
    QTest::addColumn<QList<QByteArray>>("chunks");
    QTest::addColumn<QStringList>("lines");

    using Chunks = QList<QByteArray>;
    const auto row = [](const char *name, const Chunks &chunks, const QStringList &lines) {
        QTest::newRow(name) << chunks << lines;
    };
    const QString cosOn = QStringLiteral("COS:1");
    const QString cosOff = QStringLiteral("COS:0");
    row("nothing", {""}, {});
    row("one line", {"COS:1\n"}, {cosOn});
    row("carriage return", {"COS:1\r\n"}, {cosOn});
    row("three chunks", {"CO", "S:1\r", "\n"}, {cosOn});
    row("two lines at once", {"COS:1\nCOS:0\n"}, {cosOn, cosOff});
    row("one and a half", {"COS:1\nCO", "S:0\n"}, {cosOn, cosOff});
    row("no line feed yet", {"COS:1\r"}, {});
    row("empty lines", {"\n\r\n \n"}, {QString(), QString(), QString()});
    row("blanks around", {" \t COS:0 \v\f\r\n"}, {cosOff});
    row("blanks within", {"COS:1  x\n"}, {QStringLiteral("COS:1  x")});
    row("other white space around",
        {"\xC2\xA0"
         "COS:1\xE2\x80\x83\n"},
        {cosOn});
    row("a NUL hides the rest of its chunk", {QByteArray("CO\0S:9\nx\n", 9), "S:1\n"}, {cosOn});
    row("a NUL first", {QByteArray("\0COS:0\n", 7), "COS:1\n"}, {cosOn});
    row("beyond ASCII", {"\xC3\xA9\n"}, {QStringLiteral("é")});
    row("many blanks behind", {"COS:1", QByteArray(100'000, ' '), "\n"}, {cosOn});
    row("many blanks before", {QByteArray(100'000, ' '), "COS:1\n"}, {cosOn});
    row("the longest", {QByteArray(64, 'x') + "\n"}, {QString(64, QLatin1Char('x'))});
}

void TestSerialLines::putsLinesTogetherFromChunks() {
    QFETCH(QList<QByteArray>, chunks);
    SerialLines lines;
    QStringList completed;
    for (const QByteArray &chunk : qAsConst(chunks))
        completed += lines.feed(chunk);
    QTEST(completed, "lines");
}

void TestSerialLines::givesTheSameLinesWhereverTheBytesAreSplit() {
    const QByteArray stream = " COS:1\r\nARDUINO:READY\n\nPONG  \n" + QByteArray(70, 'y') + "\nCOS:0\n";
    const QStringList whole = SerialLines().feed(stream);
    QCOMPARE(whole.size(), 6);
    for (int first = 0; first <= stream.size(); ++first) {
        for (int second = first; second <= stream.size(); ++second) {
            SerialLines lines;
            QStringList completed = lines.feed(stream.left(first));
            completed += lines.feed(stream.mid(first, second - first));
            completed += lines.feed(stream.mid(second));
            QCOMPARE(completed, whole);
        }
    }
}

void TestSerialLines::neverTakesACutLineForAShortOne_data() {
    QTest::addColumn<QByteArray>("line");

    QTest::newRow("text behind the limit") << "COS:1" + QByteArray(59, ' ') + "x\n";
    QTest::newRow("text at the limit") << "COS:1" + QByteArray(58, ' ') + "x\n";
    QTest::newRow("text and blanks far behind the limit")
        << "COS:1" + QByteArray(500, ' ') + "x" + QByteArray(500, ' ') + "\n";
    QTest::newRow("ends like a line") << QByteArray(500, 'x') + " COS:1\n";
}

void TestSerialLines::neverTakesACutLineForAShortOne() {
    QFETCH(QByteArray, line);
    const QStringList lines = SerialLines().feed(line);
    QCOMPARE(lines.size(), 1);
    QCOMPARE(lines.first().size(), SerialLines::maxLineLength);
}

void TestSerialLines::keepsNoneOfAnEndlessLine() {
    SerialLines lines;
    const QByteArray noise(4096, 'U');
    for (int i = 0; i < 1000; ++i)
        QVERIFY(lines.feed(noise).isEmpty());
    const QStringList completed = lines.feed("\nCOS:1\n");
    QCOMPARE(completed, (QStringList{QString(64, QLatin1Char('U')), QStringLiteral("COS:1")}));
}

void TestSerialLines::forgetsAnUnfinishedLine() {
    SerialLines lines;
    QVERIFY(lines.feed("COS:1 and").isEmpty());
    lines.clear();
    QCOMPARE(lines.feed("COS:0\n"), QStringList(QStringLiteral("COS:0")));
}

QTEST_APPLESS_MAIN(TestSerialLines)
#include "tst_SerialLines.moc"
