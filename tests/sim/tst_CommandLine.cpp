#include "sim/server/CommandLine.h"

#include <QTest>

using namespace sim;

class TestCommandLine : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void cutsLinesIntoWords_data();
    void cutsLinesIntoWords();
};

void TestCommandLine::cutsLinesIntoWords_data() {
    QTest::addColumn<QString>("line");
    QTest::addColumn<QStringList>("words");
    const auto row = [](const char *line, const QStringList &words) {
        QTest::newRow(line) << QString::fromUtf8(line) << words;
    };
    const auto text = [](const char *word) { return QString::fromUtf8(word); };
    row("", {});
    row("PING", {text("PING")});
    row("LOGIN AB1CD pw h1", {text("LOGIN"), text("AB1CD"), text("pw"), text("h1")});
    row("LOGIN AB1CD ", {text("LOGIN"), text("AB1CD")});
    row("A  B", {text("A"), text(""), text("B")});
    row("TX_START \"Room A\"", {text("TX_START"), text("Room A")});
    row("X \"\" 3 \"\"", {text("X"), text(""), text("3"), text("")});
    row("X \"a\"b\" 1", {text("X"), text("a\"b"), text("1")});
    row("X \"never closed", {text("X"), text("\"never"), text("closed")});
    row("X a\"b c\"d", {text("X"), text("a\"b"), text("c\"d")});
    row("\"", {text("\"")});
    row("JOIN Ruang Ü", {text("JOIN"), text("Ruang"), text("Ü")});
}

void TestCommandLine::cutsLinesIntoWords() {
    QFETCH(QString, line);
    QFETCH(QStringList, words);
    QCOMPARE(splitCommand(line), words);
}

QTEST_APPLESS_MAIN(TestCommandLine)
#include "tst_CommandLine.moc"
