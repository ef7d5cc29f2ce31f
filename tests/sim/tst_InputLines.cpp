#include "sim/show/InputLines.h"

#include <QSignalSpy>
#include <QTest>

#include <array>
#include <unistd.h>

using namespace sim;

class TestInputLines : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();
    void linesAreWholeHoweverTheyArrive();
    void blanksAroundALineAreDropped();
    void theLastLineNeedsNoLineFeed();
    void theEndIsToldOnce();

private:
    void type(const char *text) { QCOMPARE(write(m_pipe[1], text, strlen(text)), ssize_t(strlen(text))); }
    void hangUp();

    std::array<int, 2> m_pipe{-1, -1};
};

namespace {

QStringList textsOf(const QSignalSpy &lines) {
    QStringList texts;
    for (const QVariantList &line : lines)
        texts.append(line.first().toString());
    return texts;
}

} // namespace

void TestInputLines::init() {
    QCOMPARE(pipe(m_pipe.data()), 0);
}

void TestInputLines::cleanup() {
    hangUp();
    QCOMPARE(close(m_pipe[0]), 0);
}

void TestInputLines::hangUp() {
    if (m_pipe[1] >= 0) {
        QCOMPARE(close(m_pipe[1]), 0);
        m_pipe[1] = -1;
    }
}

void TestInputLines::linesAreWholeHoweverTheyArrive() {
    InputLines input(m_pipe[0]);
    QSignalSpy lines(&input, &InputLines::line);
    type("one\ntwo\nthr");
    QTRY_COMPARE(textsOf(lines), (QStringList{QStringLiteral("one"), QStringLiteral("two")}));
    type("ee \xe2\x80");
    type("\x94\n\nfive\n");
    QTRY_COMPARE(textsOf(lines), (QStringList{QStringLiteral("one"), QStringLiteral("two"), QStringLiteral("three —"),
                                              QString(), QStringLiteral("five")}));
}

void TestInputLines::blanksAroundALineAreDropped() {
    InputLines input(m_pipe[0]);
    QSignalSpy lines(&input, &InputLines::line);
    type(" \tshow  status \r\n");
    QTRY_COMPARE(textsOf(lines), QStringList{QStringLiteral("show  status")});
}

void TestInputLines::theLastLineNeedsNoLineFeed() {
    InputLines input(m_pipe[0]);
    QSignalSpy lines(&input, &InputLines::line);
    QSignalSpy ended(&input, &InputLines::ended);
    type("quit");
    hangUp();
    QVERIFY(ended.wait());
    QCOMPARE(textsOf(lines), QStringList{QStringLiteral("quit")});
}

void TestInputLines::theEndIsToldOnce() {
    InputLines input(m_pipe[0]);
    QSignalSpy lines(&input, &InputLines::line);
    QSignalSpy ended(&input, &InputLines::ended);
    hangUp();
    QVERIFY(ended.wait());
    QCoreApplication::processEvents();
    QCOMPARE(ended.count(), 1);
    QCOMPARE(lines.count(), 0);
}

QTEST_GUILESS_MAIN(TestInputLines)
#include "tst_InputLines.moc"
