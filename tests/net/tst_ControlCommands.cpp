#include "net/ControlCommands.h"

#include <QtTest>

#include <initializer_list>

class TestControlCommands : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void fillsPositionsInOnePass_data();
    void fillsPositionsInOnePass();
    void hasTheWireFormOfEveryCommand_data();
    void hasTheWireFormOfEveryCommand();
};

namespace {

QString line(QStringView pattern, std::initializer_list<const char *> arguments) {
    QStringList texts;
    for (const char *argument : arguments)
        texts.append(QString::fromUtf8(argument));
    return commandLine(pattern, texts);
}

} // namespace

void TestControlCommands::fillsPositionsInOnePass_data() {
    QTest::addColumn<QString>("filled");
    QTest::addColumn<QString>("expected");
    const auto row = [](const char *name, const QString &filled, const char *expected) {
        QTest::newRow(name) << filled << QString::fromUtf8(expected);
    };
    row("in order", line(u"A %1 %2", {"x", "y"}), "A x y");
    row("out of order and twice", line(u"%2 %1 %2", {"x", "y"}), "y x y");
    row("an argument with a position in it", line(u"%1 %2", {"%2 %1 %5", "y"}), "%2 %1 %5 y");
    row("an argument ending in a percent sign", line(u"%1%2", {"%", "1"}), "%1");
    row("a digit behind a position belongs to it", line(u"%12", {"a", "b"}), "%12");
    row("no argument for the position", line(u"%1 %3 %0", {"a", "b"}), "a %3 %0");
    row("no position", line(u"50% %x %", {"a"}), "50% %x %");
    row("three digits", line(u"%112", {"a", "b", "c", "d", "e", "f", "g", "h", "i", "j", "k", "l"}), "k2");
    row("empty arguments", line(u"\"%1\" %2", {"", ""}), "\"\" ");
}

void TestControlCommands::fillsPositionsInOnePass() {
    QFETCH(QString, filled);
    QTEST(filled, "expected");
}

void TestControlCommands::hasTheWireFormOfEveryCommand_data() {
    QTest::addColumn<QString>("built");
    QTest::addColumn<QString>("wire");
    const auto row = [](const char *wire, QStringView pattern, std::initializer_list<const char *> arguments) {
        QTest::newRow(wire) << line(pattern, arguments) << QString::fromUtf8(wire);
    };
    using C = ControlCommand;
    row("LOGIN AB1CD pw", C::login, {"AB1CD", "pw"});
    row("LOGIN AB1CD pw h1", C::loginWithHwid, {"AB1CD", "pw", "h1"});
    row("LOGIN_HWID a b", C::loginHwid, {"a", "b"});
    row("JOIN Lobby", C::join, {"Lobby"});
    row("LEAVE", C::leave, {});
    row("ROOMS", C::rooms, {});
    row("TX_START \"Room A\"", C::txStart, {"Room A"});
    row("TX_STOP \"Room A\"", C::txStop, {"Room A"});
    row("PING", C::ping, {});
    row("QUIT", C::quit, {});
    row("ONLINE_USERS", C::onlineUsers, {});
    row("USER_GET_INFO AB1CD", C::userInfo, {"AB1CD"});
    row("ADMIN_GET_ALL_USERS", C::allUsers, {});
    row("ADMIN_PENDING", C::pendingUsers, {});
    row("ADMIN_APPROVE_USER 7", C::approveUser, {"7"});
    row("ADMIN_UNAPPROVE_USER 7", C::unapproveUser, {"7"});
    row("ADMIN_RESET_HWID 7", C::resetHwid, {"7"});
    row("ADMIN_KICK 7", C::kickUser, {"7"});
    row("ADMIN_MOVE 7 Lobby", C::moveUser, {"7", "Lobby"});
    row("ADMIN_MUTE 7 1", C::muteUser, {"7", "1"});
    row("ADMIN_DELETE_USER 7", C::deleteUser, {"7"});
    row("ADMIN_RESET_PASSWORD 7 \"p w\"", C::resetPassword, {"7", "p w"});
    row("ADMIN_CREATE_ROOM \"Room A\" 50", C::createRoom, {"Room A", "50"});
    row("ADMIN_DELETE_ROOM \"say \"hi\"\"", C::deleteRoom, {"say \"hi\""});
    row("ADMIN_EDIT_ROOM \"a\" \"b\" 50 \"\"", C::editRoom, {"a", "b", "50"});
    row("ADMIN_SET_ROOM_ORDER a,b", C::setRoomOrder, {"a,b"});
    row("ADMIN_SET_AUDIO_QUALITY high", C::setAudioQuality, {"high"});
    row("ADMIN_UPDATE_USER 7 \"n\" \"r\" \"active\" \"g\" \"f\" \"l\" \"%10\" \"w\" 1 0 \"2024-01-31\"", C::updateUser,
        {"7", "n", "r", "active", "g", "f", "l", "%10", "w", "1", "0", "2024-01-31"});
    row("ADMIN_UPDATE_USER 7 \"n\" \"r\" \"active\" \"g\" \"f\" \"l\" \"e\" \"w\" 1 0 \"\"", C::updateUser,
        {"7", "n", "r", "active", "g", "f", "l", "e", "w", "1", "0", ""});
}

void TestControlCommands::hasTheWireFormOfEveryCommand() {
    QFETCH(QString, built);
    QTEST(built, "wire");
}

QTEST_GUILESS_MAIN(TestControlCommands)
#include "tst_ControlCommands.moc"
