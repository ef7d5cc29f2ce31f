#include "sim/show/Prompt.h"

#include <QCoreApplication>
#include <QSignalSpy>
#include <QTest>

#include <memory>

using namespace sim;

/// Runs on a private site, without a daemon: what a command does to the site is seen on the site.
class TestPrompt : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void initTestCase() { m_stage = std::make_unique<Stage>(); }
    void cleanupTestCase() { m_stage.reset(); }
    void squelchGoesToTheBoard();
    void everyDroppedCommandIsAFileInTheExchangeFolder();
    void theServerCanGoAndTheMemberComeBack();
    void unknownCommandsAndWordsDoNothing_data();
    void unknownCommandsAndWordsDoNothing();
    void quitIsPassedOn();
    void helpNamesEveryCommand_data();
    void helpNamesEveryCommand();

private:
    void execute(const char *line) { m_stage->prompt.execute(QString::fromUtf8(line)); }

    struct Stage {
        Site site;
        Radio radio{site.board(), site.card()};
        RoomMember member;
        Handset handset{member};
        Display display{0};
        Prompt prompt{site, radio, handset, display};
    };
    std::unique_ptr<Stage> m_stage;
};

namespace {

QJsonDocument dropped(const Site &site, int number) {
    return site.readState(QStringLiteral("kivo-cmd-%1.json").arg(number, 6, 10, QLatin1Char('0')));
}

} // namespace

void TestPrompt::squelchGoesToTheBoard() {
    QSignalSpy squelch(&m_stage->radio, &Radio::squelchChanged);
    execute("squelch open");
    execute("  squelch   close ");
    QCOMPARE(squelch, (QList<QVariantList>{{true}, {false}}));
}

void TestPrompt::everyDroppedCommandIsAFileInTheExchangeFolder() {
    execute(R"(drop {"action":"join","room":"Hilltop  Two"})");
    execute(R"(drop {"action":"leave"})");
    const QJsonObject join{{QStringLiteral("action"), QStringLiteral("join")},
                           {QStringLiteral("room"), QStringLiteral("Hilltop  Two")}};
    QCOMPARE(dropped(m_stage->site, 1).object(), join);
    QCOMPARE(dropped(m_stage->site, 2).object(), (QJsonObject{{QStringLiteral("action"), QStringLiteral("leave")}}));
}

void TestPrompt::theServerCanGoAndTheMemberComeBack() {
    RoomMember &member = m_stage->member;
    execute("server start");
    execute("member Hilltop");
    QTRY_VERIFY(member.isReady());
    QCOMPARE(m_stage->site.server().roomOf(Site::memberAccount().callsign), QStringLiteral("Hilltop"));
    QSignalSpy gone(&m_stage->site.server(), &VoiceServer::clientDisconnected);
    execute("server stop");
    QTRY_COMPARE(gone.count(), 1);
    execute("server start");
    execute("member Lobby");
    QTRY_VERIFY(member.isReady());
    QCOMPARE(m_stage->site.server().roomOf(Site::memberAccount().callsign), QStringLiteral("Lobby"));
}

void TestPrompt::unknownCommandsAndWordsDoNothing_data() {
    QTest::addColumn<QString>("line");
    for (const char *line :
         {"", "   ", "dance", "squelch", "squelch ajar", "Squelch open", "radio", "room /nowhere.wav", "quality 16000",
          "mute", "board", "card", "server", "show", "show nothing-like-it"}) {
        QTest::newRow(line) << QString::fromUtf8(line);
    }
}

void TestPrompt::unknownCommandsAndWordsDoNothing() {
    QFETCH(QString, line);
    QSignalSpy squelch(&m_stage->radio, &Radio::squelchChanged);
    QSignalSpy quit(&m_stage->prompt, &Prompt::quitRequested);
    m_stage->prompt.execute(line);
    QCOMPARE(squelch.count() + quit.count(), 0);
    QVERIFY(!m_stage->radio.isReceiving());
    QVERIFY(!m_stage->member.isSpeaking());
}

void TestPrompt::quitIsPassedOn() {
    QSignalSpy quit(&m_stage->prompt, &Prompt::quitRequested);
    execute("quit");
    QCOMPARE(quit.count(), 1);
}

void TestPrompt::helpNamesEveryCommand_data() {
    QTest::addColumn<QString>("name");
    for (const char *name : {"radio", "room", "squelch", "kick", "mute", "move", "quality", "board", "card", "server",
                             "drop", "show", "log", "member", "status", "help", "quit"}) {
        QTest::newRow(name) << QString::fromUtf8(name);
    }
}

void TestPrompt::helpNamesEveryCommand() {
    QFETCH(QString, name);
    QVERIFY(Prompt::help().contains(QStringLiteral("\n  %1 ").arg(name)) ||
            Prompt::help().startsWith(QStringLiteral("  %1 ").arg(name)));
}

int main(int argc, char **argv) {
    if (!enterPrivateSite())
        return 1;
    const QCoreApplication app(argc, argv);
    TestPrompt test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_Prompt.moc"
