#pragma once

#include "radio/SerialLines.h"

#include <QObject>
#include <QSerialPort>
#include <QString>
#include <QTimer>

#include <chrono>

/// Delays of what the controller does by itself; tests hand in shorter ones.
struct ArduinoTiming {
    std::chrono::milliseconds lineControl{200};      ///< DTR and RTS low, after an opening
    std::chrono::milliseconds firstConfig{2000};     ///< after an opening, when a board restarted by it is up again
    std::chrono::milliseconds configAfterReset{500}; ///< after an unexpected restart of the board
    std::chrono::milliseconds health{5000};          ///< between two PINGs
};

/// The radio interface: an Arduino-class board on a serial port that reports squelch (COS) and keys the transmitter
/// (PTT).
///
/// Polarities are the board's business: here true means channel busy and transmitter keyed, whatever the wiring; the
/// board is only told how it is wired. A port that fails to open, or that is lost, stays closed; writing to a closed
/// port does nothing.
class ArduinoController : public QObject {
    Q_OBJECT

public:
    explicit ArduinoController(QObject *parent = nullptr, ArduinoTiming timing = ArduinoTiming());
    /// Unkeys the transmitter and closes the port.
    ~ArduinoController() override;

    bool openPort(const QString &portName, int baudRate, bool cosLogicHigh, bool pttInvert);
    /// Unkeys the transmitter first and waits a moment for the board to be told.
    void closePort();
    bool isOpen() const;
    void sendConfig();

public Q_SLOTS:
    void setPtt(bool enable);
    void updateConfig(bool cosLogicHigh, bool pttInvert);
    void onReadyRead();
    void checkHealth();

Q_SIGNALS:
    /// Each report of the board, repeated ones too; and false when the squelch was open and the board has restarted or
    /// is gone.
    void cosChanged(bool active);
    /// Never emitted; failures are logged.
    void error(QString message);

private:
    using Step = void (ArduinoController::*)();

    void startUsingPort();
    void scheduleStep(std::chrono::milliseconds delay, Step step);
    void holdControlLinesLow();
    void onPortError(QSerialPort::SerialPortError portError);
    void act(const QString &line);
    void onCosOpened();
    void onCosClosed();
    void onBoardReady();
    void dropStaleCos();
    void send(const QByteArray &line);

    const ArduinoTiming m_timing;
    QTimer m_healthTimer;
    QSerialPort *m_port = nullptr; ///< a child of this object
    SerialLines m_lines;
    QString m_portName;
    qint32 m_baudRate = 0;
    qint32 m_readyCount = 0; ///< starts of the board since the port was opened
    bool m_cosActive = false;
    bool m_cosLogicHigh = false;
    bool m_pttInvert = false;
};
