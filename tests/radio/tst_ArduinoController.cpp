#include "../support/LogCapture.h"
#include "ControlLines.h"
#include "PtyBoard.h"
#include "radio/ArduinoController.h"

#include <QElapsedTimer>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

#include <ctime>
#include <memory>
#include <thread>

using namespace std::chrono_literals;

namespace {

constexpr ArduinoTiming silent = {1h, 1h, 1h, 1h}; // nothing happens by itself
constexpr ArduinoTiming quick = {10ms, 40ms, 20ms, 30ms};

constexpr int moreThanAPtyHolds = 20'000; // PTT requests

constexpr bool cosHigh = true;
constexpr bool pttInverted = true;

const QString dtrFailed =
    QStringLiteral("warning [Arduino] DTR LOW failed (CH341 quirk) — Arduino may reset once"); // as a pty does
const QString ready = QStringLiteral("info [Arduino] Ready");

QString connectedTo(const PtyBoard &board) {
    return QStringLiteral("info [Arduino] Connected to \"%1\" @ 9600").arg(board.device());
}

QString lost(const PtyBoard &board) {
    return QStringLiteral("warning [Arduino] Serial port lost: \"%1\" — radio interface closed").arg(board.device());
}

QString unexpectedReset(int count) {
    return QStringLiteral("warning [Arduino] UNEXPECTED RESET detected! (count: %1 ) — re-sending config").arg(count);
}

QString configSent(const char *cosLogicHigh, const char *pttInvert) {
    return QStringLiteral("info [Arduino] Config sent - COS_HIGH: %1 PTT_INVERT: %2")
        .arg(QLatin1String(cosLogicHigh), QLatin1String(pttInvert));
}

QString configUpdated(const char *cosLogicHigh, const char *pttInvert) {
    return QStringLiteral("info [Arduino] Config updated via Web UI - COS_HIGH: %1 PTT_INVERT: %2")
        .arg(QLatin1String(cosLogicHigh), QLatin1String(pttInvert));
}

QList<bool> firstArguments(const QSignalSpy &spy) {
    QList<bool> values;
    for (const QList<QVariant> &arguments : spy)
        values.append(arguments.first().toBool());
    return values;
}

std::chrono::milliseconds processorTime() {
    return std::chrono::milliseconds(std::clock() * 1000 / CLOCKS_PER_SEC);
}

} // namespace

class tst_ArduinoController : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();

    void keepsTheTimesOfTheProtocol();
    void doesNothingWhileClosed();
    void saysWhyAPortDoesNotOpen_data();
    void saysWhyAPortDoesNotOpen();
    void opensOnePortAtATime();

    void reportsSquelch_data();
    void reportsSquelch();
    void readsThroughNoise();
    void reportsNothingMoreOnceAListenerHasClosedThePort();

    void keysTheTransmitterOnEachRequest();
    void doesNotLeaveTheTransmitterToTheLoop();
    void unkeysTheTransmitterOnTheWayOut();
    void unkeysTheTransmitterOfABusyBoardOnTheWayOut();
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
    void takesNoStepOfAClosedPortOnTheNextOne();

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
    void doesNotTakeABusyBoardForALostOne();
    void doesNotWaitForABoardThatTakesNothing();

private:
    void open(bool cosLogicHigh = cosHigh, bool pttInvert = !pttInverted);
    void sayAndWait(const QByteArray &chunk);
    QStringList logOfAWhile(const ArduinoTiming &timing);

    std::unique_ptr<LogCapture> m_log;
    std::unique_ptr<PtyBoard> m_board;
    std::unique_ptr<ArduinoController> m_radio;
};

void tst_ArduinoController::init() {
    m_log = std::make_unique<LogCapture>();
    m_board = std::make_unique<PtyBoard>();
    m_radio = std::make_unique<ArduinoController>(nullptr, silent);
}

void tst_ArduinoController::cleanup() {
    m_radio.reset();
    m_board.reset();
    m_log.reset();
}

/// Opens the port and forgets what has been logged about it.
void tst_ArduinoController::open(bool cosLogicHigh, bool pttInvert) {
    QVERIFY(m_radio->openPort(m_board->device(), 9600, cosLogicHigh, pttInvert));
    QCOMPARE(m_log->take(), QStringList(connectedTo(*m_board)));
}

/// Returns when the controller has seen the chunk.
void tst_ArduinoController::sayAndWait(const QByteArray &chunk) {
    QSignalSpy seen(m_radio->findChildren<QSerialPort *>().last(), &QSerialPort::readyRead);
    m_board->say(chunk);
    QVERIFY(seen.wait());
}

/// Returns when a second controller, opened now, has come through all steps that it takes by itself; with what has been
/// logged up to then, but for its lines.
QStringList tst_ArduinoController::logOfAWhile(const ArduinoTiming &timing) {
    PtyBoard board;
    ArduinoController other(nullptr, timing);
    bool isThrough = other.openPort(board.device(), 9600, cosHigh, !pttInverted);
    const auto hasBeenServed = [&board] {
        return board.heard().contains("CONFIG:PTT_INVERT:0\n") && board.heard().count("PING\n") >= 3;
    };
    isThrough = isThrough && QTest::qWaitFor(hasBeenServed);
    QStringList lines = m_log->take();
    for (const QString &own : {connectedTo(board), dtrFailed, configSent("true", "false")})
        isThrough = lines.removeOne(own) && isThrough;
    return isThrough ? lines : QStringList(QStringLiteral("the second controller is not through"));
}

void tst_ArduinoController::keepsTheTimesOfTheProtocol() {
    const ArduinoTiming timing;
    QCOMPARE(timing.lineControl.count(), 200);
    QCOMPARE(timing.firstConfig.count(), 2000);
    QCOMPARE(timing.configAfterReset.count(), 500);
    QCOMPARE(timing.health.count(), 5000);
}

void tst_ArduinoController::doesNothingWhileClosed() {
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

void tst_ArduinoController::saysWhyAPortDoesNotOpen_data() {
    QTest::addColumn<QString>("target"); // empty: nothing there
    QTest::addColumn<QString>("reason");

    QTest::newRow("missing") << QString() << QStringLiteral("No such file or directory");
    QTest::newRow("no serial port") << QStringLiteral("/dev/null") << QStringLiteral("Inappropriate ioctl for device");
}

void tst_ArduinoController::saysWhyAPortDoesNotOpen() {
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

void tst_ArduinoController::opensOnePortAtATime() {
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

void tst_ArduinoController::reportsSquelch_data() {
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

void tst_ArduinoController::reportsSquelch() {
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

void tst_ArduinoController::readsThroughNoise() {
    open();
    QSignalSpy cos(m_radio.get(), &ArduinoController::cosChanged);
    const QByteArray noise = QByteArray(1000, '\xFE') + QByteArray(100, '\0') + QByteArray(1000, 'U');
    for (int i = 0; i < 20; ++i)
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

void tst_ArduinoController::reportsNothingMoreOnceAListenerHasClosedThePort() {
    open();
    QSignalSpy cos(m_radio.get(), &ArduinoController::cosChanged);
    connect(m_radio.get(), &ArduinoController::cosChanged, m_radio.get(), &ArduinoController::closePort);
    m_board->say("COS:0\nCOS:1\n");
    QTRY_COMPARE(cos.size(), 1);
    QVERIFY(!m_radio->isOpen());
    QCOMPARE(firstArguments(cos), QList<bool>{false});
}

void tst_ArduinoController::keysTheTransmitterOnEachRequest() {
    open(!cosHigh, pttInverted);
    m_radio->setPtt(true);
    QTRY_COMPARE(m_board->heard(), QByteArray("PTT:1\n")); // whatever the polarity
    m_radio->setPtt(true);
    QTRY_COMPARE(m_board->heard(), QByteArray("PTT:1\nPTT:1\n"));
    m_radio->setPtt(false);
    QTRY_COMPARE(m_board->heard(), QByteArray("PTT:1\nPTT:1\nPTT:0\n"));
    QCOMPARE(m_log->take(), QStringList());
}

void tst_ArduinoController::doesNotLeaveTheTransmitterToTheLoop() {
    open();
    m_radio->setPtt(true);
    QVERIFY(m_board->hasBytes());
    QCOMPARE(m_board->heard(), QByteArray("PTT:1\n"));
}

void tst_ArduinoController::unkeysTheTransmitterOnTheWayOut() {
    open();
    m_radio->setPtt(true);
    m_radio.reset();
    QTRY_COMPARE(m_board->heard(), QByteArray("PTT:1\nPTT:0\n"));
    QCOMPARE(m_log->take(), QStringList());
}

void tst_ArduinoController::unkeysTheTransmitterOfABusyBoardOnTheWayOut() {
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

void tst_ArduinoController::unkeysTheTransmitterWhenClosed() {
    open();
    m_radio->closePort();
    QVERIFY(!m_radio->isOpen());
    m_radio->setPtt(true);
    QTRY_COMPARE(m_board->heard(), QByteArray("PTT:0\n"));
    QCOMPARE(m_log->take(), QStringList());
}

void tst_ArduinoController::configuresTheBoardAfterOpening_data() {
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

void tst_ArduinoController::configuresTheBoardAfterOpening() {
    QFETCH(bool, cosLogicHigh);
    QFETCH(bool, pttInvert);
    QFETCH(QString, log);
    m_radio = std::make_unique<ArduinoController>(nullptr, ArduinoTiming{1h, 20ms, 1h, 1h});
    open(cosLogicHigh, pttInvert);
    QTRY_COMPARE(m_log->lines(), QStringList(log));
    QTEST(m_board->heard(), "lines");
}

void tst_ArduinoController::configuresTheBoardOnRequest() {
    open();
    m_radio->sendConfig();
    QCOMPARE(m_log->take(), QStringList(configSent("true", "false")));
    QTRY_COMPARE(m_board->heard(), QByteArray("CONFIG:COS_HIGH:1\nCONFIG:PTT_INVERT:0\n"));
    m_radio->updateConfig(false, true);
    QCOMPARE(m_log->take(), (QStringList{configSent("false", "true"), configUpdated("false", "true")}));
    QTRY_COMPARE(m_board->heard(), QByteArray("CONFIG:COS_HIGH:1\nCONFIG:PTT_INVERT:0\n"
                                              "CONFIG:COS_HIGH:0\nCONFIG:PTT_INVERT:1\n"));
}

void tst_ArduinoController::keepsAnUpdateForTheTimeThePortIsOpen() {
    m_radio->updateConfig(true, true);
    m_log->take();
    open(false, false);
    m_radio->sendConfig();
    QCOMPARE(m_log->take(), QStringList(configSent("false", "false")));
}

void tst_ArduinoController::keepsDtrAndRtsLow() {
    const ControlLines lines(0);
    m_radio = std::make_unique<ArduinoController>(nullptr, ArduinoTiming{10ms, 1h, 1h, 1h});
    open();
    QCOMPARE(lines.lowered(), QList<int>());
    QTRY_COMPARE(m_log->lines(), QStringList(QStringLiteral("info [Arduino] DTR LOW — reset prevention active")));
    QCOMPARE(lines.lowered(), (QList<int>{TIOCM_DTR, TIOCM_RTS}));
}

void tst_ArduinoController::carriesOnWhenDtrIsRefused_data() {
    QTest::addColumn<int>("error");
    QTest::newRow("no such request") << ENOTTY;
    QTest::newRow("failed on the bus") << EIO; // the port calls this a lost device
    QTest::newRow("timed out") << ETIMEDOUT;
}

void tst_ArduinoController::carriesOnWhenDtrIsRefused() {
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

void tst_ArduinoController::pingsWhileOpen() {
    m_radio = std::make_unique<ArduinoController>(nullptr, ArduinoTiming{1h, 1h, 1h, 10ms});
    open();
    QTRY_COMPARE(m_board->heard().left(15), QByteArray("PING\nPING\nPING\n"));
    QVERIFY(m_radio->isOpen()); // though there is no answer
    m_radio->closePort();
    QTRY_VERIFY(m_board->heard().endsWith("PTT:0\n"));
    QCOMPARE(m_log->take(), QStringList());
}

void tst_ArduinoController::doesNothingByItselfOnceClosed() {
    m_radio = std::make_unique<ArduinoController>(nullptr, quick);
    open();
    m_radio->closePort();
    QCOMPARE(logOfAWhile(quick), QStringList());
    QCOMPARE(m_board->heard(), QByteArray("PTT:0\n"));
}

void tst_ArduinoController::startsAfreshWhenOpenedAgain() {
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

void tst_ArduinoController::takesNoStepOfAClosedPortOnTheNextOne() {
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

void tst_ArduinoController::welcomesTheFirstStartOfTheBoard() {
    open();
    QSignalSpy cos(m_radio.get(), &ArduinoController::cosChanged);
    sayAndWait("COS:1\nARDUINO:READY\n");
    QCOMPARE(m_log->take(), QStringList(ready));
    QCOMPARE(firstArguments(cos), QList<bool>{true});
    m_radio->setPtt(true);
    QTRY_COMPARE(m_board->heard(), QByteArray("PTT:1\n")); // and no configuration before it
}

void tst_ArduinoController::healsAnUnexpectedReset_data() {
    QTest::addColumn<QByteArray>("before");
    QTest::addColumn<QList<bool>>("reports");

    QTest::newRow("squelch open") << QByteArray("COS:1\n") << QList<bool>{true, false};
    QTest::newRow("squelch closed") << QByteArray("COS:1\nCOS:0\n") << QList<bool>{true, false};
    QTest::newRow("squelch not reported yet") << QByteArray() << QList<bool>();
}

void tst_ArduinoController::healsAnUnexpectedReset() {
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

void tst_ArduinoController::configuresOncePerReset() {
    m_radio = std::make_unique<ArduinoController>(nullptr, ArduinoTiming{1h, 1h, 30ms, 1h});
    open();
    sayAndWait("ARDUINO:READY\nARDUINO:READY\nARDUINO:READY\n");
    QCOMPARE(m_log->take(), (QStringList{ready, unexpectedReset(2), unexpectedReset(3)}));
    QTRY_COMPARE(m_board->heard(), QByteArray("CONFIG:COS_HIGH:1\nCONFIG:PTT_INVERT:0\n").repeated(2));
    QCOMPARE(m_log->take(), (QStringList{configSent("true", "false"), configSent("true", "false")}));
}

void tst_ArduinoController::closesALostPortOnce_data() {
    QTest::addColumn<QByteArray>("before");
    QTest::addColumn<QList<bool>>("reports");

    QTest::newRow("squelch open") << QByteArray("COS:1\n") << QList<bool>{true, false};
    QTest::newRow("squelch closed") << QByteArray("COS:0\n") << QList<bool>{false};
}

void tst_ArduinoController::closesALostPortOnce() {
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

void tst_ArduinoController::saysThatThePortIsLostBeforeTheSquelchCloses() {
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

void tst_ArduinoController::doesNotSpinOnALostPort() {
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

void tst_ArduinoController::survivesWritingToALostPort() {
    open();
    m_board->vanish();
    m_radio->setPtt(true); // before the loop has come to know of the loss
    m_radio->sendConfig();
    m_radio->setPtt(false);
    QTRY_VERIFY(!m_radio->isOpen());
    QCOMPARE(m_log->take(), (QStringList{configSent("true", "false"), lost(*m_board)}));
}

void tst_ArduinoController::opensAgainAfterALoss() {
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

void tst_ArduinoController::doesNotTakeABusyBoardForALostOne() {
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

void tst_ArduinoController::doesNotWaitForABoardThatTakesNothing() {
    open();
    for (int i = 0; i < moreThanAPtyHolds; ++i)
        m_radio->setPtt(true);
    QElapsedTimer timer;
    timer.start();
    m_radio.reset();
    QVERIFY2(timer.elapsed() < 1000, qPrintable(QString::number(timer.elapsed())));
}

QTEST_GUILESS_MAIN(tst_ArduinoController)
#include "tst_ArduinoController.moc"
