#pragma once

#include <QObject>
#include <QString>

/// The radio interface: an Arduino-class board on a serial port that reports squelch (COS) and keys the transmitter (PTT).
class ArduinoController : public QObject {
    Q_OBJECT

public:
    explicit ArduinoController(QObject *parent = nullptr);
    /// Unkeys the transmitter and closes the port.
    ~ArduinoController() override;

    bool openPort(const QString &portName, int baudRate, bool cosLogicHigh, bool pttInvert);
    void closePort();
    bool isOpen() const;
    void sendConfig();

public Q_SLOTS:
    void setPtt(bool enable);
    void updateConfig(bool cosLogicHigh, bool pttInvert);
    void onReadyRead();
    void checkHealth();

Q_SIGNALS:
    void cosChanged(bool active);
    void error(QString message);
};
