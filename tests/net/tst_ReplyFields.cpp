#include "net/ReplyFields.h"

#include <QtTest>

class TestReplyFields : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void cutsAtEveryBar();
    void keepsEmptyPieces();
    void fallsBackOnlyWhereAPieceIsMissing();
    void readsNumbersAndFlags_data();
    void readsNumbersAndFlags();
    void givesTheRestWithItsBars();
    void takesALineWithoutBarsAsAKeyword();
};

void TestReplyFields::cutsAtEveryBar() {
    const ReplyFields reply(QStringLiteral("A|b|c d"));
    QCOMPARE(reply.count(), 3);
    QCOMPARE(reply.keyword(), QStringLiteral("A"));
    QCOMPARE(reply.value(1), QStringLiteral("b"));
    QCOMPARE(reply.value(2), QStringLiteral("c d"));
    QCOMPARE(reply.value(3), QString());
}

void TestReplyFields::keepsEmptyPieces() {
    const ReplyFields reply(QStringLiteral("A||c|"));
    QCOMPARE(reply.count(), 4);
    QCOMPARE(reply.value(1), QString());
    QCOMPARE(reply.value(2), QStringLiteral("c"));
    QCOMPARE(reply.value(3), QString());
}

void TestReplyFields::fallsBackOnlyWhereAPieceIsMissing() {
    const QString fallback = QStringLiteral("d");
    QCOMPARE(ReplyFields(QStringLiteral("A")).value(1, fallback), fallback);
    QCOMPARE(ReplyFields(QStringLiteral("A|")).value(1, fallback), QString());
    QCOMPARE(ReplyFields(QStringLiteral("A")).rest(1, fallback), fallback);
    QCOMPARE(ReplyFields(QStringLiteral("A|")).rest(1, fallback), QString());
}

void TestReplyFields::readsNumbersAndFlags_data() {
    QTest::addColumn<QString>("piece");
    QTest::addColumn<int>("number");
    QTest::addColumn<bool>("isSet");
    QTest::newRow("one") << QStringLiteral("1") << 1 << true;
    QTest::newRow("zero") << QStringLiteral("0") << 0 << false;
    QTest::newRow("negative") << QStringLiteral("-7") << -7 << false;
    QTest::newRow("empty") << QString() << 0 << false;
    QTest::newRow("text") << QStringLiteral("x1") << 0 << false;
    QTest::newRow("true") << QStringLiteral("true") << 0 << false;
    QTest::newRow("beyond 32 bits") << QStringLiteral("4294967296") << 0 << false;
}

void TestReplyFields::readsNumbersAndFlags() {
    QFETCH(QString, piece);
    const ReplyFields reply(QStringLiteral("A|") + piece);
    QTEST(reply.number(1), "number");
    QTEST(reply.isSet(1), "isSet");
}

void TestReplyFields::givesTheRestWithItsBars() {
    const ReplyFields reply(QStringLiteral("A|b||c|"));
    QCOMPARE(reply.rest(0), QStringLiteral("A|b||c|"));
    QCOMPARE(reply.rest(1), QStringLiteral("b||c|"));
    QCOMPARE(reply.rest(4), QString());
    QCOMPARE(reply.rest(5), QString());
}

void TestReplyFields::takesALineWithoutBarsAsAKeyword() {
    const ReplyFields reply(QStringLiteral("TX_STOP_OK"));
    QCOMPARE(reply.count(), 1);
    QCOMPARE(reply.keyword(), QStringLiteral("TX_STOP_OK"));
    QCOMPARE(reply.number(1), 0);
}

QTEST_GUILESS_MAIN(TestReplyFields)
#include "tst_ReplyFields.moc"
