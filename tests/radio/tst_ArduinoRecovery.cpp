#include "ArduinoBench.h"

#include <QElapsedTimer>

#include <ctime>
#include <thread>

namespace {

constexpr int moreThanAPtyHolds = 20'000; // PTT requests

QString lost(const PtyBoard &board) {
    return QStringLiteral("warning [Arduino] Serial port lost: \"%1\" — radio interface closed").arg(board.device());
}

QString unexpectedReset(int count) {
    return QStringLiteral("warning [Arduino] UNEXPECTED RESET detected! (count: %1 ) — re-sending config").arg(count);
}

std::chrono::milliseconds processorTime() {
    return std::chrono::milliseconds(std::clock() * 1000 / CLOCKS_PER_SEC);
}

} // namespace

class TestArduinoRecovery : public ArduinoBench {
    Q_OBJECT

private Q_SLOTS:
    void welcomesTheFirstStartOfTheBoard();
    void healsAnUnexpectedReset_data();
    void healsAnUnexpectedReset();
    void configuresOncePerReset();

    void closesALostPortOnce_data();
    void closesALostPortOnce();
    void saysThatThePortIsLostBeforeTheSquelchCloses();
    void doesNotSpinOnALostPort();
    void survivesWritingToALostPort();
    void opensAgainAfterALoss();

    void unkeysTheTransmitterOfABusyBoardOnTheWayOut();
    void doesNotTakeABusyBoardForALostOne();
    void doesNotWaitForABoardThatTakesNothing();
};

void TestArduinoRecovery::welcomesTheFirstStartOfTheBoard() {
    open();
    QSignalSpy cos(m_radio.get(), &ArduinoController::cosChanged);
    sayAndWait("COS:1\nARDUINO:READY\n");
    QCOMPARE(m_log->take(), QStringList(ready));
    QCOMPARE(firstArguments(cos), QList<bool>{true});
    m_radio->setPtt(true);
    QTRY_COMPARE(m_board->heard(), QByteArray("PTT:1\n")); // and no configuration before it
}

void TestArduinoRecovery::healsAnUnexpectedReset_data() {
    QTest::addColumn<QByteArray>("before");
    QTest::addColumn<QList<bool>>("reports");

    QTest::newRow("squelch open") << QByteArray("COS:1\n") << QList<bool>{true, false};
    QTest::newRow("squelch closed") << QByteArray("COS:1\nCOS:0\n") << QList<bool>{true, false};
    QTest::newRow("squelch not reported yet") << QByteArray() << QList<bool>();
}

void TestArduinoRecovery::healsAnUnexpectedReset() {
    QFETCH(QByteArray, before);
    m_radio = std::make_unique<ArduinoController>(nullptr, ArduinoTiming{1h, 1h, 30ms, 1h});
    open();
    QSignalSpy cos(m_radio.get(), &ArduinoController::cosChanged);
    sayAndWait("ARDUINO:READY\n" + before);
    QCOMPARE(m_log->take(), QStringList(ready));

    QStringList loggedAtReport;
    connect(m_radio.get(), &ArduinoController::cosChanged, this, [&] { loggedAtReport = m_log->lines(); });
    sayAndWait("ARDUINO:READY\n");
    QCOMPARE(m_log->lines(), QStringList(unexpectedReset(2)));
    QCOMPARE(m_board->heard(), QByteArray());
    QTEST(firstArguments(cos), "reports");
    if (before == "COS:1\n")
        QCOMPARE(loggedAtReport, QStringList(unexpectedReset(2)));

    QTRY_COMPARE(m_board->heard(), QByteArray("CONFIG:COS_HIGH:1\nCONFIG:PTT_INVERT:0\n"));
    QCOMPARE(m_log->take(), (QStringList{unexpectedReset(2), configSent("true", "false")}));
    QVERIFY(m_radio->isOpen());
}

void TestArduinoRecovery::configuresOncePerReset() {
    m_radio = std::make_unique<ArduinoController>(nullptr, ArduinoTiming{1h, 1h, 30ms, 1h});
    open();
    sayAndWait("ARDUINO:READY\nARDUINO:READY\nARDUINO:READY\n");
    QCOMPARE(m_log->take(), (QStringList{ready, unexpectedReset(2), unexpectedReset(3)}));
    QTRY_COMPARE(m_board->heard(), QByteArray("CONFIG:COS_HIGH:1\nCONFIG:PTT_INVERT:0\n").repeated(2));
    QCOMPARE(m_log->take(), (QStringList{configSent("true", "false"), configSent("true", "false")}));
}

void TestArduinoRecovery::closesALostPortOnce_data() {
    QTest::addColumn<QByteArray>("before");
    QTest::addColumn<QList<bool>>("reports");

    QTest::newRow("squelch open") << QByteArray("COS:1\n") << QList<bool>{true, false};
    QTest::newRow("squelch closed") << QByteArray("COS:0\n") << QList<bool>{false};
}

void TestArduinoRecovery::closesALostPortOnce() {
    QFETCH(QByteArray, before);
    m_radio = std::make_unique<ArduinoController>(nullptr, quick);
    QVERIFY(m_radio->openPort(m_board->device(), 9600, cosHigh, !pttInverted));
    QSignalSpy cos(m_radio.get(), &ArduinoController::cosChanged);
    sayAndWait(before);
    m_log->take();
    m_board->vanish();
    QTRY_VERIFY(!m_radio->isOpen());
    QStringList logged = m_log->take();
    logged.removeOne(dtrFailed); // it may have come to that
    QCOMPARE(logged, QStringList(lost(*m_board)));
    QCOMPARE(logOfAWhile(quick), QStringList());
    QTEST(firstArguments(cos), "reports");
    QVERIFY(!m_radio->findChild<QSerialPort *>());
}

void TestArduinoRecovery::saysThatThePortIsLostBeforeTheSquelchCloses() {
    open();
    sayAndWait("COS:1\n");
    QStringList loggedAtReport;
    bool isOpenAtReport = true;
    connect(m_radio.get(), &ArduinoController::cosChanged, this, [&] {
        loggedAtReport = m_log->lines();
        isOpenAtReport = m_radio->isOpen();
    });
    m_board->vanish();
    QTRY_COMPARE(loggedAtReport, QStringList(lost(*m_board)));
    QVERIFY(!isOpenAtReport);
}

void TestArduinoRecovery::doesNotSpinOnALostPort() {
    open();
    m_board->vanish();
    QTRY_VERIFY(!m_radio->isOpen());
    const auto before = processorTime();
    QTimer watch;
    watch.setSingleShot(true);
    QSignalSpy over(&watch, &QTimer::timeout);
    watch.start(300);
    QVERIFY(over.wait());
    QVERIFY2(processorTime() - before < 100ms, "the loop has been busy with a dead port");
}

void TestArduinoRecovery::survivesWritingToALostPort() {
    open();
    m_board->vanish();
    m_radio->setPtt(true); // before the loop has come to know of the loss
    m_radio->sendConfig();
    m_radio->setPtt(false);
    QTRY_VERIFY(!m_radio->isOpen());
    QCOMPARE(m_log->take(), (QStringList{configSent("true", "false"), lost(*m_board)}));
}

void TestArduinoRecovery::opensAgainAfterALoss() {
    open();
    m_board->vanish();
    QTRY_VERIFY(!m_radio->isOpen());
    m_log->take();
    m_board = std::make_unique<PtyBoard>();
    open();
    QSignalSpy cos(m_radio.get(), &ArduinoController::cosChanged);
    sayAndWait("COS:1\n");
    QCOMPARE(firstArguments(cos), QList<bool>{true});
}

void TestArduinoRecovery::unkeysTheTransmitterOfABusyBoardOnTheWayOut() {
    open();
    for (int i = 0; i < moreThanAPtyHolds; ++i)
        m_radio->setPtt(true);
    std::thread board([this] {
        while (m_board->hasBytes() && !m_board->heard().endsWith("PTT:0\n")) {
        }
    });
    m_radio.reset();
    board.join();
    QCOMPARE(m_board->heard(), QByteArray("PTT:1\n").repeated(moreThanAPtyHolds) + "PTT:0\n");
}

void TestArduinoRecovery::doesNotTakeABusyBoardForALostOne() {
    open();
    for (int i = 0; i < moreThanAPtyHolds; ++i)
        m_radio->setPtt(true);
    m_radio->setPtt(false);
    QCoreApplication::processEvents();
    QVERIFY(m_radio->isOpen());
    QTRY_COMPARE(m_board->heard().size(), 6 * (moreThanAPtyHolds + 1));
    QCOMPARE(m_board->heard(), QByteArray("PTT:1\n").repeated(moreThanAPtyHolds) + "PTT:0\n");
    QCOMPARE(m_log->take(), QStringList());
}

void TestArduinoRecovery::doesNotWaitForABoardThatTakesNothing() {
    open();
    for (int i = 0; i < moreThanAPtyHolds; ++i)
        m_radio->setPtt(true);
    QElapsedTimer timer;
    timer.start();
    m_radio.reset();
    QVERIFY2(timer.elapsed() < 3000, qPrintable(QString::number(timer.elapsed())));
}

QTEST_GUILESS_MAIN(TestArduinoRecovery)
#include "tst_ArduinoRecovery.moc"
