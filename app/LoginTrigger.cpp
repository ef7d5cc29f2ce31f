#include "app/LoginTrigger.h"

#include "app/DroppedFile.h"
#include "app/Gateway.h"
#include "config/Settings.h"
#include "net/TcpClient.h"

#include <QDebug>
#include <QJsonDocument>

#include <cerrno>
#include <cstring>

LoginTrigger::LoginTrigger(Gateway &gateway) : m_gateway(gateway), m_path(gateway.paths.loginTriggerFile()) {}

void LoginTrigger::check() {
    const auto content = takeDroppedFile(m_path);
    if (!content) {
        if (const int reason = errno; reason != ENOENT)
            qWarning() << "[Appliance] Cannot read login trigger:" << std::strerror(reason);
        return;
    }
    const QJsonObject trigger = QJsonDocument::fromJson(*content).object();
    const QString callsign = trigger.value(QStringLiteral("callsign")).toString();
    const QString password = trigger.value(QStringLiteral("password")).toString();
    if (trigger.value(QStringLiteral("action")) == QLatin1String("login") && !callsign.isEmpty() && !password.isEmpty())
        submit(callsign.toUpper(), password);
}

void LoginTrigger::submit(const QString &callsign, const QString &password) {
    qDebug() << "[Appliance] Login trigger:" << callsign;
    store(callsign, password);
    SessionState &session = m_gateway.session;
    if (!session.currentRoom.isEmpty()) {
        session.rejoinRoom = session.currentRoom;
        qDebug() << "[Appliance] Saving current room for rejoin after re-login:" << session.rejoinRoom;
    }
    if (m_gateway.link)
        logIn(callsign, password);
}

void LoginTrigger::store(const QString &callsign, const QString &password) {
    QJsonObject &settings = m_gateway.config.object();
    settings.insert(QStringLiteral("callsign"), callsign);
    settings.insert(QStringLiteral("password"), password);
    settings.insert(QStringLiteral("setup_completed"), true);
    m_gateway.ensureHardwareId();
    m_gateway.session.loginBlocked = false;
    if (m_gateway.config.save())
        qDebug() << "[Appliance] Credentials saved to config";
}

void LoginTrigger::logIn(const QString &callsign, const QString &password) {
    if (m_gateway.session.connected)
        m_gateway.link->login(callsign, password, Settings::hwid(m_gateway.config.object()));
    else if (m_gateway.link->socketState() != QAbstractSocket::UnconnectedState)
        qDebug() << "[Appliance] Already connecting — login will proceed after connected";
    else
        m_gateway.connectToServer();
}
