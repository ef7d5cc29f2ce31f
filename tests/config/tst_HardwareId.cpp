#include "config/HardwareId.h"

#include <QDir>
#include <QFile>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QTest>

namespace {

const InterfaceTraits loopBack = {true, true, true, QStringLiteral("00:00:00:00:00:00")};
const InterfaceTraits wired = {true, true, false, QStringLiteral("AA:BB:CC:DD:EE:01")};
const InterfaceTraits wireless = {true, true, false, QStringLiteral("AA:BB:CC:DD:EE:02")};

InterfaceTraits changed(InterfaceTraits interface, bool isUp, bool isRunning, const char *address) {
    interface.isUp = isUp;
    interface.isRunning = isRunning;
    interface.hardwareAddress = QString::fromLatin1(address);
    return interface;
}

} // namespace

Q_DECLARE_METATYPE(InterfaceTraits)

class TestHardwareId : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void isTheShortenedDigestOfTheJoinedTraits_data();
    void isTheShortenedDigestOfTheJoinedTraits();
    void takesTheFirstAddressThatIdentifiesTheBox_data();
    void takesTheFirstAddressThatIdentifiesTheBox();
    void takesTheFirstMachineIdentifierThatSaysSomething_data();
    void takesTheFirstMachineIdentifierThatSaysSomething();
    void isTheSameEachTimeOnThisBox();
};

// The digests are those of coreutils' sha256sum over the joined texts.
void TestHardwareId::isTheShortenedDigestOfTheJoinedTraits_data() {
    QTest::addColumn<QStringList>("traits");
    QTest::addColumn<QString>("id");

    const QStringList box = {QStringLiteral("gateway-1"), QStringLiteral("AA:BB:CC:DD:EE:FF"),
                             QStringLiteral("0123456789abcdef0123456789abcdef"), QStringLiteral("debian"),
                             QStringLiteral("6.1.0-21-arm64")};
    QTest::newRow("a box") << box << QStringLiteral("5b8c075b1fa24d4e9552feabe6825352");
    QTest::newRow("the same box with another kernel")
        << (QStringList(box.mid(0, 4)) << QStringLiteral("6.1.0-22-arm64"))
        << QStringLiteral("2707a612551e75b151fd65b3c01fd55d");
    QTest::newRow("empty texts keep their places") << QStringList{QString(), QString(), QString(), QString(), QString()}
                                                   << QStringLiteral("45ca31c3315a5978f40438aab46040d7");
    QTest::newRow("beyond ASCII") << QStringList{QStringLiteral("gerbang-é-日本"), QStringLiteral("00:00:00:00:00:00"),
                                                 QStringLiteral("arm64"), QString(), QStringLiteral("5.10")}
                                  << QStringLiteral("f23d59a33615b40fff2c2b43f71e6446");
}

void TestHardwareId::isTheShortenedDigestOfTheJoinedTraits() {
    QFETCH(QStringList, traits);
    QTEST(hardwareIdOf({traits[0], traits[1], traits[2], traits[3], traits[4]}), "id");
}

void TestHardwareId::takesTheFirstAddressThatIdentifiesTheBox_data() {
    QTest::addColumn<QVector<InterfaceTraits>>("interfaces");
    QTest::addColumn<QString>("address");

    const QString zeros = QStringLiteral("00:00:00:00:00:00");
    const char *const address = "AA:BB:CC:DD:EE:01";
    const auto row = [](const char *name, const QVector<InterfaceTraits> &interfaces, const QString &expected) {
        QTest::newRow(name) << interfaces << expected;
    };
    row("no interface at all", {}, zeros);
    row("only the loop-back", {loopBack}, zeros);
    row("loop-back with an address", {changed(loopBack, true, true, address)}, zeros);
    row("the first of two", {loopBack, wired, wireless}, wired.hardwareAddress);
    row("the other way round", {loopBack, wireless, wired}, wireless.hardwareAddress);
    row("one that is down", {loopBack, changed(wired, false, true, address), wireless}, wireless.hardwareAddress);
    row("one without a cable", {loopBack, changed(wired, true, false, address), wireless}, wireless.hardwareAddress);
    row("one without an address", {loopBack, changed(wired, true, true, ""), wireless}, wireless.hardwareAddress);
    row("one with a zero address", {loopBack, changed(wired, true, true, "00:00:00:00:00:00"), wireless},
        wireless.hardwareAddress);
    row("none that will do", {loopBack, changed(wired, true, false, address), changed(wireless, true, true, "")},
        zeros);
}

void TestHardwareId::takesTheFirstAddressThatIdentifiesTheBox() {
    QFETCH(QVector<InterfaceTraits>, interfaces);
    QTEST(primaryNetworkAddress(interfaces), "address");
}

void TestHardwareId::takesTheFirstMachineIdentifierThatSaysSomething_data() {
    QTest::addColumn<QByteArray>("machineId"); // null: no such file
    QTest::addColumn<QByteArray>("productUuid");
    QTest::addColumn<QString>("identifier");

    QTest::newRow("machine id, trimmed") << QByteArray(" 0123abcd \r\n") << QByteArray("uuid\n")
                                         << QStringLiteral("0123abcd");
    QTest::newRow("machine id beyond ASCII") << QByteArray("\xC3\xA9\n") << QByteArray() << QStringLiteral("é");
    QTest::newRow("empty machine id") << QByteArray("") << QByteArray("uuid\n") << QStringLiteral("uuid");
    QTest::newRow("blank machine id") << QByteArray(" \n\t\n") << QByteArray("uuid\n") << QStringLiteral("uuid");
    QTest::newRow("no machine id") << QByteArray() << QByteArray("uuid\n") << QStringLiteral("uuid");
    QTest::newRow("nothing but blanks") << QByteArray("\n") << QByteArray(" ") << QStringLiteral("arm64");
    QTest::newRow("neither file") << QByteArray() << QByteArray() << QStringLiteral("arm64");
}

void TestHardwareId::takesTheFirstMachineIdentifierThatSaysSomething() {
    QFETCH(QByteArray, machineId);
    QFETCH(QByteArray, productUuid);
    QTemporaryDir folder;
    const QStringList paths = {folder.filePath(QStringLiteral("machine-id")),
                               folder.filePath(QStringLiteral("product_uuid"))};
    const QByteArray contents[] = {machineId, productUuid};
    for (int i = 0; i < paths.size(); ++i) {
        if (contents[i].isNull())
            continue;
        QFile file(paths[i]);
        QVERIFY(file.open(QIODevice::WriteOnly) && file.write(contents[i]) == contents[i].size());
    }
    QTEST(machineIdentifier(paths, QStringLiteral("arm64")), "identifier");
}

void TestHardwareId::isTheSameEachTimeOnThisBox() {
    const QString id = computeHardwareId();
    QVERIFY(QRegularExpression(QStringLiteral("\\A[0-9a-f]{32}\\z")).match(id).hasMatch());
    QCOMPARE(computeHardwareId(), id);
}

QTEST_GUILESS_MAIN(TestHardwareId)
#include "tst_HardwareId.moc"
