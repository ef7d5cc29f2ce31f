#include "app/Gateway.h"

#include "audio/AudioEngine.h"
#include "config/HardwareId.h"
#include "config/Settings.h"
#include "net/TcpClient.h"
#include "radio/ArduinoController.h"

bool Gateway::radioOpen() const {
    return radio && radio->isOpen();
}

int Gateway::userId() const {
    return link ? link->userId() : 0;
}

bool Gateway::isAdmin() const {
    return link && link->isAdmin();
}

void Gateway::setTransmitting(bool on) {
    if (session.transmitting == on)
        return;
    session.transmitting = on;
    if (engine)
        engine->setFramesWanted(on);
}

void Gateway::keyRadio(bool on) {
    radio->setPtt(on);
    session.radioKeyed = on;
}

bool Gateway::ensureHardwareId() {
    QJsonObject &settings = config.object();
    if (!Settings::hwid(settings).isEmpty())
        return false;
    Settings::setHwid(settings, computeHardwareId());
    return true;
}

void Gateway::connectToServer() {
    const QJsonObject &settings = config.object();
    link->connectToServer(Settings::serverAddress(settings), static_cast<quint16>(Settings::serverPort(settings)));
}
