#include "radio/ArduinoController.h"

#include <QDebug>
#include <QSignalBlocker>

#include <poll.h>
#include <utility>

namespace {

/// What is taken from the board in one turn of the loop. Each of its reports goes into a file, the log and the network,
/// and a board on native USB is not held to its baud rate.
constexpr qint64 bytesPerTurn = 512;

/// How long a closing port is given for its last bytes while the device takes none.
constexpr int lastBytesMs = 250;

void setUpLine(QSerialPort &port, qint32 baudRate) {
    // Refused values show when the port is opened.
    port.setBaudRate(baudRate, QSerialPort::AllDirections);
    port.setDataBits(QSerialPort::Data8);
    port.setParity(QSerialPort::NoParity);
    port.setStopBits(QSerialPort::OneStop);
    port.setFlowControl(QSerialPort::NoFlowControl);
}

bool takesBytesNow(const QSerialPort &port) {
    pollfd device = {port.handle(), POLLOUT, 0};
    return ::poll(&device, 1, 0) == 1 && device.revents == POLLOUT;
}

void handOverLastBytes(QSerialPort &port) {
    while (port.bytesToWrite() > 0 && port.waitForBytesWritten(lastBytesMs)) {
    }
}

QByteArray configLine(const char *setting, bool value) {
    return QByteArray("CONFIG:") + setting + (value ? ":1\n" : ":0\n");
}

} // namespace

ArduinoController::ArduinoController(QObject *parent, ArduinoTiming timing)
    : QObject(parent),
      m_timing(timing),
      m_healthTimer(this) {
    connect(&m_healthTimer, &QTimer::timeout, this, &ArduinoController::checkHealth);
}

ArduinoController::~ArduinoController() {
    closePort();
}

bool ArduinoController::openPort(const QString &portName, int baudRate, bool cosLogicHigh, bool pttInvert) {
    closePort();
    dropStaleCos();
    m_port = new QSerialPort(portName, this);
    m_port->setReadBufferSize(bytesPerTurn);
    setUpLine(*m_port, baudRate);
    if (!m_port->open(QIODevice::ReadWrite)) {
        qWarning() << "[Arduino] Failed to open port:" << portName << "—" << m_port->errorString();
        delete std::exchange(m_port, nullptr);
        return false;
    }
    m_cosLogicHigh = cosLogicHigh;
    m_pttInvert = pttInvert;
    m_portName = portName;
    m_baudRate = baudRate;
    m_readyCount = 0;
    startUsingPort();
    qInfo() << "[Arduino] Connected to" << m_portName << "@" << m_baudRate;
    return true;
}

void ArduinoController::startUsingPort() {
    m_lines.clear();
    connect(m_port, &QSerialPort::readyRead, this, &ArduinoController::onReadyRead);
    connect(m_port, &QSerialPort::errorOccurred, this, &ArduinoController::onPortError);
    scheduleStep(m_timing.lineControl, &ArduinoController::holdControlLinesLow);
    scheduleStep(m_timing.firstConfig, &ArduinoController::sendConfig);
    m_healthTimer.start(m_timing.health);
}

/// Later, unless the port of now has been closed by then.
void ArduinoController::scheduleStep(std::chrono::milliseconds delay, Step step) {
    QTimer::singleShot(delay, m_port, [this, port = m_port, step] {
        if (port == m_port)
            (this->*step)();
    });
}

void ArduinoController::closePort() {
    m_healthTimer.stop();
    if (m_port)
        m_port->disconnect(this); // nothing that happens on the way out is news, a failing write least of all
    setPtt(false);
    QSerialPort *const port = std::exchange(m_port, nullptr);
    if (!port)
        return;
    handOverLastBytes(*port);
    port->close();
    port->deleteLater(); // it may be its own signal that has brought us here
}

bool ArduinoController::isOpen() const {
    return m_port && m_port->isOpen();
}

void ArduinoController::holdControlLinesLow() {
    // A board or adapter that refuses these is still of use; the port's error must not pass for the loss of it.
    const QSignalBlocker noError(m_port);
    if (m_port->setDataTerminalReady(false))
        qInfo() << "[Arduino] DTR LOW — reset prevention active";
    else
        qWarning() << "[Arduino] DTR LOW failed (CH341 quirk) — Arduino may reset once";
    m_port->setRequestToSend(false);
}

void ArduinoController::sendConfig() {
    if (!isOpen())
        return;
    send(configLine("COS_HIGH", m_cosLogicHigh));
    send(configLine("PTT_INVERT", m_pttInvert));
    qInfo() << "[Arduino] Config sent - COS_HIGH:" << m_cosLogicHigh << "PTT_INVERT:" << m_pttInvert;
}

void ArduinoController::setPtt(bool enable) {
    send(enable ? "PTT:1\n" : "PTT:0\n");
}

void ArduinoController::updateConfig(bool cosLogicHigh, bool pttInvert) {
    m_cosLogicHigh = cosLogicHigh;
    m_pttInvert = pttInvert;
    sendConfig();
    qInfo() << "[Arduino] Config updated via Web UI - COS_HIGH:" << m_cosLogicHigh << "PTT_INVERT:" << m_pttInvert;
}

void ArduinoController::checkHealth() {
    send("PING\n");
}

/// Nothing is done about a failing write: a lost device tells of itself through the port's error.
void ArduinoController::send(const QByteArray &line) {
    if (!isOpen())
        return;
    m_port->write(line);
    // Not left to the loop, which may be held up while the transmitter waits to be released. A device that is full is:
    // flushing into it would look like the loss of it.
    if (takesBytesNow(*m_port))
        m_port->flush();
}

void ArduinoController::onPortError(QSerialPort::SerialPortError portError) {
    if (portError != QSerialPort::ResourceError && portError != QSerialPort::ReadError)
        return;
    // Without the port's own text: at a hang-up that is what the system had to say about something else, long ago.
    qWarning() << "[Arduino] Serial port lost:" << m_portName << "— radio interface closed";
    closePort();
    dropStaleCos();
}

void ArduinoController::onReadyRead() {
    if (!isOpen())
        return;
    const QStringList lines = m_lines.feed(m_port->readAll());
    for (const QString &line : lines) {
        act(line);
        if (!isOpen()) // closed by a listener: nobody could close a squelch that is opened now
            return;
    }
}

void ArduinoController::act(const QString &line) {
    // The answers "PONG", "PTT_ON" and "PTT_OFF" are welcome and change nothing, like noise.
    static const std::pair<QLatin1String, Step> actions[] = {
        {QLatin1String("COS:1"), &ArduinoController::onCosOpened},
        {QLatin1String("COS:0"), &ArduinoController::onCosClosed},
        {QLatin1String("ARDUINO:READY"), &ArduinoController::onBoardReady},
    };
    for (const auto &[text, step] : actions) {
        if (line == text) {
            (this->*step)();
            return;
        }
    }
}

void ArduinoController::onCosOpened() {
    m_cosActive = true;
    Q_EMIT cosChanged(true);
}

void ArduinoController::onCosClosed() {
    m_cosActive = false;
    Q_EMIT cosChanged(false);
}

void ArduinoController::onBoardReady() {
    ++m_readyCount;
    if (m_readyCount == 1) {
        qInfo() << "[Arduino] Ready";
        return;
    }
    qWarning() << "[Arduino] UNEXPECTED RESET detected! (count:" << m_readyCount << ")"
               << "— re-sending config";
    scheduleStep(m_timing.configAfterReset, &ArduinoController::sendConfig);
    dropStaleCos();
}

void ArduinoController::dropStaleCos() {
    if (std::exchange(m_cosActive, false))
        Q_EMIT cosChanged(false);
}
