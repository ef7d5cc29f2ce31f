#include "net/ReplyJoiner.h"

#include <QtTest>

class TestReplyJoiner : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void joinsSplitReplies_data();
    void joinsSplitReplies();
    void forgetsAWaitingHalfWhenCleared();
};

void TestReplyJoiner::joinsSplitReplies_data() {
    QTest::addColumn<QStringList>("lines");
    QTest::addColumn<QStringList>("replies");
    const auto row = [](const char *name, const char *lines, const char *replies) {
        const auto split = [](const char *text) { return QString::fromLatin1(text).split(QLatin1Char('/')); };
        QTest::newRow(name) << split(lines) << split(replies);
    };
    row("ordinary lines pass", "PONG/ROOMS|a", "PONG/ROOMS|a");
    row("profile", "USER_PROFILE/a|b", "USER_PROFILE|a|b");
    row("user info", "USER_INFO_RESULT/{}", "USER_INFO_RESULT|{}");
    row("announcements", "ANNOUNCEMENTS/[]", "ANNOUNCEMENTS|[]");
    row("a profile with a bar is whole", "USER_PROFILE|{}/PONG", "USER_PROFILE|{}/PONG");
    row("the first word decides", "USER_PROFILE of AB1CD/x", "USER_PROFILE of AB1CD|x");
    row("a longer first word passes", "USER_PROFILES/x", "USER_PROFILES/x");
    row("a single announcement passes", "ANNOUNCEMENT/x", "ANNOUNCEMENT/x");
    row("lower case passes", "user_profile/x", "user_profile/x");
    row("the next line is taken whatever it is", "USER_PROFILE/USER_PROFILE/PONG", "USER_PROFILE|USER_PROFILE/PONG");
}

void TestReplyJoiner::joinsSplitReplies() {
    QFETCH(QStringList, lines);
    QFETCH(QStringList, replies);
    ReplyJoiner joiner;
    QStringList joined;
    for (const QString &line : qAsConst(lines)) {
        if (const auto reply = joiner.add(line))
            joined.append(*reply);
    }
    QCOMPARE(joined, replies);
}

void TestReplyJoiner::forgetsAWaitingHalfWhenCleared() {
    ReplyJoiner joiner;
    QVERIFY(!joiner.add(QStringLiteral("ANNOUNCEMENTS")));
    joiner.clear();
    QCOMPARE(joiner.add(QStringLiteral("PONG")).value_or(QString()), QStringLiteral("PONG"));
}

QTEST_GUILESS_MAIN(TestReplyJoiner)
#include "tst_ReplyJoiner.moc"
