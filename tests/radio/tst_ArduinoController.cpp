#include "ArduinoBench.h"
#include "ControlLines.h"

#include <QTemporaryDir>

namespace {

QString configUpdated(const char *cosLogicHigh, const char *pttInvert) {
    return QStringLiteral("info [Arduino] Config updated via Web UI - COS_HIGH: %1 PTT_INVERT: %2")
        .arg(QLatin1String(cosLogicHigh), QLatin1String(pttInvert));
}

} // namespace

class TestArduinoController : public ArduinoBench {
    Q_OBJECT

private Q_SLOTS:
    void keepsTheTimesOfTheProtocol();
    void doesNothingWhileClosed();
    void saysWhyAPortDoesNotOpen_data();
    void saysWhyAPortDoesNotOpen();
    void opensOnePortAtATime();

    void reportsSquelch_data();
    void reportsSquelch();
    void readsThroughNoise();
    void reportsNothingMoreOnceAListenerHasClosedThePort();
    void reportsAFloodBesideEverythingElse();

    void keysTheTransmitterOnEachRequest();
    void doesNotLeaveTheTransmitterToTheLoop();
    void unkeysTheTransmitterOnTheWayOut();
    void unkeysTheTransmitterWhenClosed();

    void configuresTheBoardAfterOpening_data();
    void configuresTheBoardAfterOpening();
    void configuresTheBoardOnRequest();
    void keepsAnUpdateForTheTimeThePortIsOpen();
    void keepsDtrAndRtsLow();
    void carriesOnWhenDtrIsRefused_data();
    void carriesOnWhenDtrIsRefused();
    void pingsWhileOpen();
    void doesNothingByItselfOnceClosed();
    void startsAfreshWhenOpenedAgain();
    void closesTheSquelchOfTheEarlierBoard();
    void takesNoStepOfAClosedPortOnTheNextOne();
};

void TestArduinoController::keepsTheTimesOfTheProtocol() {
    const ArduinoTiming timing;
    QCOMPARE(timing.lineControl.count(), 200);
    QCOMPARE(timing.firstConfig.count(), 2000);
    QCOMPARE(timing.configAfterReset.count(), 500);
    QCOMPARE(timing.health.count(), 5000);
}

void TestArduinoController::doesNothingWhileClosed() {
    QSignalSpy cos(m_radio.get(), &ArduinoController::cosChanged);
    QVERIFY(!m_radio->isOpen());
    m_radio->setPtt(true);
    m_radio->setPtt(false);
    m_radio->sendConfig();
    m_radio->checkHealth();
    m_radio->onReadyRead();
    m_radio->closePort();
    QCOMPARE(m_log->take(), QStringList());
    m_radio->updateConfig(true, false);
    QCOMPARE(m_log->take(), QStringList(configUpdated("true", "false")));
    QVERIFY(!m_radio->isOpen());
    QCOMPARE(cos.size(), 0);
}

void TestArduinoController::saysWhyAPortDoesNotOpen_data() {
    QTest::addColumn<QString>("target"); // empty: nothing there
    QTest::addColumn<QString>("reason");

    QTest::newRow("missing") << QString() << QStringLiteral("No such file or directory");
    QTest::newRow("no serial port") << QStringLiteral("/dev/null") << QStringLiteral("Inappropriate ioctl for device");
}

void TestArduinoController::saysWhyAPortDoesNotOpen() {
    QFETCH(QString, target);
    QFETCH(QString, reason);
    const QTemporaryDir folder; // ports are locked by name, so that one used by others will not do
    const QString port = folder.filePath(QStringLiteral("port"));
    if (!target.isEmpty())
        QVERIFY(QFile::link(target, port));
    QVERIFY(!m_radio->openPort(port, 9600, true, false));
    QCOMPARE(m_log->take(),
             QStringList(QStringLiteral("warning [Arduino] Failed to open port: \"%1\" — \"%2\"").arg(port, reason)));
    QVERIFY(!m_radio->isOpen());
    m_radio->setPtt(true);
    QCOMPARE(m_log->take(), QStringList());
}

void TestArduinoController::opensOnePortAtATime() {
    open();
    PtyBoard second;
    QVERIFY(m_radio->openPort(second.device(), 115200, cosHigh, !pttInverted));
    QCOMPARE(m_log->take(),
             QStringList(QStringLiteral("info [Arduino] Connected to \"%1\" @ 115200").arg(second.device())));
    QTRY_COMPARE(m_board->heard(), QByteArray("PTT:0\n"));
    m_radio->setPtt(true);
    QTRY_COMPARE(second.heard(), QByteArray("PTT:1\n"));
    QCOMPARE(m_board->heard(), QByteArray("PTT:0\n"));
    m_radio->closePort();
}

void TestArduinoController::reportsSquelch_data() {
    QTest::addColumn<QList<QByteArray>>("chunks");
    QTest::addColumn<QList<bool>>("reports");

    const auto row = [](const char *name, const QList<QByteArray> &chunks, const QList<bool> &reports) {
        QTest::newRow(name) << chunks << reports;
    };
    row("open", {"COS:1\n"}, {true});
    row("closed", {"COS:0\n"}, {false});
    row("in three reads", {"CO", "S:1\r", "\n"}, {true});
    row("two lines in one read", {"COS:1\nCOS:0\n"}, {true, false});
    row("repeated", {"COS:1\n", "COS:1\n", "COS:1\n"}, {true, true, true});
    row("blanks around", {"  COS:0 \t\r\n"}, {false});
    row("lower case", {"cos:1\n"}, {});
    row("more text", {"COS:1 x\n"}, {});
    row("answers", {"PONG\nPTT_ON\nPTT_OFF\n"}, {});
    row("unknown and empty lines", {"\n\r\nHELLO\nCOS:2\nCOS:\n"}, {});
    row("a first start", {"ARDUINO:READY\n"}, {});
}

void TestArduinoController::reportsSquelch() {
    QFETCH(QList<QByteArray>, chunks);
    open();
    QSignalSpy cos(m_radio.get(), &ArduinoController::cosChanged);
    for (int i = 0; i < chunks.size(); ++i) {
        if (i == chunks.size() - 1 && chunks.size() > 1 && !chunks.first().endsWith('\n'))
            QCOMPARE(cos.size(), 0); // an unfinished line says nothing
        sayAndWait(chunks.at(i));
    }
    QTEST(firstArguments(cos), "reports");
}

void TestArduinoController::readsThroughNoise() {
    open();
    QSignalSpy cos(m_radio.get(), &ArduinoController::cosChanged);
    const QByteArray noise = QByteArray(200, '\xFE') + QByteArray(20, '\0') + QByteArray(200, 'U');
    for (int i = 0; i < 100; ++i)
        sayAndWait(noise);
    QCOMPARE(cos.size(), 0);
    // Said until it is understood: the last of the noise may still be on its way, and its NULs hide what comes with it.
    const auto isUnderstood = [&] {
        m_board->say("\nCOS:1\n");
        return cos.wait(100);
    };
    QTRY_VERIFY(isUnderstood());
    QVERIFY(!firstArguments(cos).contains(false));
    QCOMPARE(m_log->take(), QStringList());
}

void TestArduinoController::reportsNothingMoreOnceAListenerHasClosedThePort() {
    open();
    QSignalSpy cos(m_radio.get(), &ArduinoController::cosChanged);
    connect(m_radio.get(), &ArduinoController::cosChanged, m_radio.get(), &ArduinoController::closePort);
    m_board->say("COS:0\nCOS:1\n");
    QTRY_COMPARE(cos.size(), 1);
    QVERIFY(!m_radio->isOpen());
    QCOMPARE(firstArguments(cos), QList<bool>{false});
}

void TestArduinoController::reportsAFloodBesideEverythingElse() {
    open();
    int reports = 0;
    connect(m_radio.get(), &ArduinoController::cosChanged, [&] { ++reports; });
    QList<int> reportsAtTicks;
    QTimer everythingElse;
    connect(&everythingElse, &QTimer::timeout, [&] { reportsAtTicks += reports; });
    everythingElse.start(0);
    m_board->say(QByteArray("COS:1\nCOS:0\n").repeated(250)); // 3000 bytes, which a pty hands over at once
    QTRY_COMPARE(reports, 500);
    for (int i = 1; i < reportsAtTicks.size(); ++i)
        QVERIFY(reportsAtTicks[i] - reportsAtTicks[i - 1] <= 512 / 6 + 1);
}

void TestArduinoController::keysTheTransmitterOnEachRequest() {
    open(!cosHigh, pttInverted);
    m_radio->setPtt(true);
    QTRY_COMPARE(m_board->heard(), QByteArray("PTT:1\n")); // whatever the polarity
    m_radio->setPtt(true);
    QTRY_COMPARE(m_board->heard(), QByteArray("PTT:1\nPTT:1\n"));
    m_radio->setPtt(false);
    QTRY_COMPARE(m_board->heard(), QByteArray("PTT:1\nPTT:1\nPTT:0\n"));
    QCOMPARE(m_log->take(), QStringList());
}

void TestArduinoController::doesNotLeaveTheTransmitterToTheLoop() {
    open();
    m_radio->setPtt(true);
    QVERIFY(m_board->hasBytes());
    QCOMPARE(m_board->heard(), QByteArray("PTT:1\n"));
}

void TestArduinoController::unkeysTheTransmitterOnTheWayOut() {
    open();
    m_radio->setPtt(true);
    m_radio.reset();
    QTRY_COMPARE(m_board->heard(), QByteArray("PTT:1\nPTT:0\n"));
    QCOMPARE(m_log->take(), QStringList());
}

void TestArduinoController::unkeysTheTransmitterWhenClosed() {
    open();
    m_radio->closePort();
    QVERIFY(!m_radio->isOpen());
    m_radio->setPtt(true);
    QTRY_COMPARE(m_board->heard(), QByteArray("PTT:0\n"));
    QCOMPARE(m_log->take(), QStringList());
}

void TestArduinoController::configuresTheBoardAfterOpening_data() {
    QTest::addColumn<bool>("cosLogicHigh");
    QTest::addColumn<bool>("pttInvert");
    QTest::addColumn<QByteArray>("lines");
    QTest::addColumn<QString>("log");

    QTest::newRow("low, plain") << false << false << QByteArray("CONFIG:COS_HIGH:0\nCONFIG:PTT_INVERT:0\n")
                                << configSent("false", "false");
    QTest::newRow("low, inverted") << false << true << QByteArray("CONFIG:COS_HIGH:0\nCONFIG:PTT_INVERT:1\n")
                                   << configSent("false", "true");
    QTest::newRow("high, plain") << true << false << QByteArray("CONFIG:COS_HIGH:1\nCONFIG:PTT_INVERT:0\n")
                                 << configSent("true", "false");
    QTest::newRow("high, inverted") << true << true << QByteArray("CONFIG:COS_HIGH:1\nCONFIG:PTT_INVERT:1\n")
                                    << configSent("true", "true");
}

void TestArduinoController::configuresTheBoardAfterOpening() {
    QFETCH(bool, cosLogicHigh);
    QFETCH(bool, pttInvert);
    QFETCH(QString, log);
    m_radio = std::make_unique<ArduinoController>(nullptr, ArduinoTiming{1h, 20ms, 1h, 1h});
    open(cosLogicHigh, pttInvert);
    QTRY_COMPARE(m_log->lines(), QStringList(log));
    QTEST(m_board->heard(), "lines");
}

void TestArduinoController::configuresTheBoardOnRequest() {
    open();
    m_radio->sendConfig();
    QCOMPARE(m_log->take(), QStringList(configSent("true", "false")));
    QTRY_COMPARE(m_board->heard(), QByteArray("CONFIG:COS_HIGH:1\nCONFIG:PTT_INVERT:0\n"));
    m_radio->updateConfig(false, true);
    QCOMPARE(m_log->take(), (QStringList{configSent("false", "true"), configUpdated("false", "true")}));
    QTRY_COMPARE(m_board->heard(), QByteArray("CONFIG:COS_HIGH:1\nCONFIG:PTT_INVERT:0\n"
                                              "CONFIG:COS_HIGH:0\nCONFIG:PTT_INVERT:1\n"));
}

void TestArduinoController::keepsAnUpdateForTheTimeThePortIsOpen() {
    m_radio->updateConfig(true, true);
    m_log->take();
    open(false, false);
    m_radio->sendConfig();
    QCOMPARE(m_log->take(), QStringList(configSent("false", "false")));
}

void TestArduinoController::keepsDtrAndRtsLow() {
    const ControlLines lines(0);
    m_radio = std::make_unique<ArduinoController>(nullptr, ArduinoTiming{10ms, 1h, 1h, 1h});
    open();
    QCOMPARE(lines.lowered(), QList<int>());
    QTRY_COMPARE(m_log->lines(), QStringList(QStringLiteral("info [Arduino] DTR LOW — reset prevention active")));
    QCOMPARE(lines.lowered(), (QList<int>{TIOCM_DTR, TIOCM_RTS}));
}

void TestArduinoController::carriesOnWhenDtrIsRefused_data() {
    QTest::addColumn<int>("error");
    QTest::newRow("no such request") << ENOTTY;
    QTest::newRow("failed on the bus") << EIO; // the port calls this a lost device
    QTest::newRow("timed out") << ETIMEDOUT;
}

void TestArduinoController::carriesOnWhenDtrIsRefused() {
    QFETCH(int, error);
    const ControlLines lines(error);
    m_radio = std::make_unique<ArduinoController>(nullptr, ArduinoTiming{10ms, 1h, 1h, 1h});
    open();
    QTRY_COMPARE(m_log->lines(), QStringList(dtrFailed));
    QCOMPARE(lines.lowered(), (QList<int>{TIOCM_DTR, TIOCM_RTS}));
    QSignalSpy cos(m_radio.get(), &ArduinoController::cosChanged);
    sayAndWait("COS:1\n");
    QCOMPARE(firstArguments(cos), QList<bool>{true});
    QCOMPARE(m_log->take(), QStringList(dtrFailed));
}

void TestArduinoController::pingsWhileOpen() {
    m_radio = std::make_unique<ArduinoController>(nullptr, ArduinoTiming{1h, 1h, 1h, 10ms});
    open();
    QTRY_COMPARE(m_board->heard().left(15), QByteArray("PING\nPING\nPING\n"));
    QVERIFY(m_radio->isOpen()); // though there is no answer
    m_radio->closePort();
    QTRY_VERIFY(m_board->heard().endsWith("PTT:0\n"));
    QCOMPARE(m_log->take(), QStringList());
}

void TestArduinoController::doesNothingByItselfOnceClosed() {
    m_radio = std::make_unique<ArduinoController>(nullptr, quick);
    open();
    m_radio->closePort();
    QCOMPARE(logOfAWhile(quick), QStringList());
    QCOMPARE(m_board->heard(), QByteArray("PTT:0\n"));
}

void TestArduinoController::startsAfreshWhenOpenedAgain() {
    m_radio = std::make_unique<ArduinoController>(nullptr, ArduinoTiming{10ms, 40ms, 1h, 1h});
    open();
    sayAndWait("ARDUINO:READY\nCOS");
    m_radio->closePort();
    QCOMPARE(m_log->take(), QStringList(ready));
    QTRY_COMPARE(m_board->heard(), QByteArray("PTT:0\n"));

    open();
    QSignalSpy cos(m_radio.get(), &ArduinoController::cosChanged);
    sayAndWait(":1\nARDUINO:READY\n"); // neither the half line nor the count of before
    QCOMPARE(cos.size(), 0);
    QCOMPARE(logOfAWhile({10ms, 40ms, 1h, 40ms}), (QStringList{ready, dtrFailed, configSent("true", "false")}));
    QCOMPARE(m_board->heard(), QByteArray("PTT:0\nCONFIG:COS_HIGH:1\nCONFIG:PTT_INVERT:0\n"));
}

void TestArduinoController::closesTheSquelchOfTheEarlierBoard() {
    open();
    sayAndWait("COS:1\n");
    QSignalSpy cos(m_radio.get(), &ArduinoController::cosChanged);
    open();
    QCOMPARE(firstArguments(cos), QList<bool>{false});
    sayAndWait("ARDUINO:READY\nARDUINO:READY\n");
    QCOMPARE(cos.size(), 1);
}

void TestArduinoController::takesNoStepOfAClosedPortOnTheNextOne() {
    m_radio = std::make_unique<ArduinoController>(nullptr, ArduinoTiming{0ms, 0ms, 1h, 1h});
    open();
    m_radio->closePort(); // with both steps due, and no turn of the loop before the next opening
    PtyBoard second;
    QVERIFY(m_radio->openPort(second.device(), 9600, cosHigh, !pttInverted));
    QCOMPARE(logOfAWhile(quick), (QStringList{connectedTo(second), dtrFailed, configSent("true", "false")}));
    QCOMPARE(second.heard(), QByteArray("CONFIG:COS_HIGH:1\nCONFIG:PTT_INVERT:0\n"));
    QCOMPARE(m_board->heard(), QByteArray("PTT:0\n"));
    m_radio->closePort();
}

QTEST_GUILESS_MAIN(TestArduinoController)
#include "tst_ArduinoController.moc"
