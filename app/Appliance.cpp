#include "app/Appliance.h"

#include "audio/AudioEngine.h"
#include "config/Settings.h"
#include "net/TcpClient.h"
#include "net/UdpAudio.h"
#include "radio/ArduinoController.h"

#include <QDebug>

#include <utility>

Appliance::Appliance(const AppliancePaths &paths, CaptureProbe probe, const SessionDelays &delays,
                     const TimerPeriods &periods)
    : m_gateway(paths),
      m_probe(std::move(probe)),
      m_periods(periods),
      m_stateFiles(m_gateway),
      m_traffic(m_gateway, m_stateFiles),
      m_session(m_gateway, m_stateFiles, m_traffic, delays),
      m_userLists(m_gateway, m_traffic),
      m_loginTrigger(m_gateway),
      m_commands(m_gateway, m_stateFiles) {}

Appliance::~Appliance() = default;

void Appliance::start() {
    m_gateway.config.object(); // loaded now, so that its own log line comes before those of the components
    createLink();
    createMedia();
    createEngine();
    createRadio();
    startTimers();
    connectFirst();
}

void Appliance::createLink() {
    m_link = std::make_unique<TcpClient>();
    m_gateway.link = m_link.get();
    const TcpClient *link = m_link.get();
    connect(link, &TcpClient::connected, &m_session, &SessionFlow::onConnected);
    connect(link, &TcpClient::disconnected, &m_session, &SessionFlow::onDisconnected);
    connect(link, &TcpClient::loginResult, &m_session, &SessionFlow::onLoginResult);
    connect(link, &TcpClient::joinRoomResult, &m_session, &SessionFlow::onJoinRoomResult);
    connect(link, &TcpClient::leaveRoomResult, &m_session, &SessionFlow::onLeaveRoomResult);
    connect(link, &TcpClient::roomKeyReceived, &m_session, &SessionFlow::onRoomKey);
    connect(link, &TcpClient::roomListReceived, &m_stateFiles, &StateFiles::onRoomList);
    connect(link, &TcpClient::roomUsersReceived, &m_userLists, &UserLists::onRoomUsers);
    connect(link, &TcpClient::allUsersReceived, &m_userLists, &UserLists::onAllUsers);
    connect(link, &TcpClient::adminMuteStatusChanged, &m_userLists, &UserLists::onAdminMuteStatus);
    connect(link, &TcpClient::adminMuted, &m_userLists, &UserLists::onAdminMuted);
    connect(link, &TcpClient::audioQualityReceived, &m_stateFiles, &StateFiles::onAudioQuality);
    connect(link, &TcpClient::onlineUsersReceived, &m_userLists, &UserLists::onOnlineUsers);
    connect(link, &TcpClient::userInfoReceived, &m_userLists, &UserLists::onUserInfo);
    connect(link, &TcpClient::errorOccurred, &m_session, &SessionFlow::onLinkError);
}

void Appliance::createMedia() {
    m_media = std::make_unique<UdpAudio>();
    m_gateway.media = m_media.get();
    connect(m_gateway.media, &UdpAudio::udpReady, this, [] { qDebug() << "[UDP] Siap"; });
    connect(m_gateway.media, &UdpAudio::audioReceivedFrom, &m_traffic, &RadioTraffic::onFrameReceived);
}

void Appliance::createEngine() {
    m_engine = std::make_unique<AudioEngine>(m_gateway.paths.warningToneFile());
    m_gateway.engine = m_engine.get();
    // A failure is the engine's to log; the gateway then runs without that direction of sound.
    m_engine->initialize(48000, 1, 32000, 5, 20);
    m_engine->setFramesWanted(m_gateway.session.transmitting);
    const QString device = chooseSoundDevice(Settings::audioInput(m_gateway.config.object()), m_probe);
    m_engine->setDevices(device, device);
    configureEngine();
    m_engine->openPlayback();
    m_engine->openCapture();
    qDebug() << "[Appliance] Audio device:" << device;
    connect(m_gateway.engine, &AudioEngine::audioEncoded, &m_traffic, &RadioTraffic::onFrameEncoded);
    connect(m_gateway.engine, &AudioEngine::totExpired, &m_traffic, &RadioTraffic::onTotExpired);
}

void Appliance::configureEngine() {
    const QJsonObject &settings = m_gateway.config.object();
    m_engine->setMicGain(Gateway::gainPercent(Settings::micGainPercent(settings)));
    m_engine->setSpeakerGain(Gateway::gainPercent(Settings::speakerGainPercent(settings)));
    m_engine->setAgcEnabled(Settings::agcEnabled(settings));
    m_engine->setTotDuration(Settings::totDurationSeconds(settings));
    const Settings::Tone tx = Settings::txTone(settings);
    m_engine->setTxTone(static_cast<float>(tx.bass), static_cast<float>(tx.mid), static_cast<float>(tx.treble));
    const Settings::Tone rx = Settings::rxTone(settings);
    m_engine->setRxTone(static_cast<float>(rx.bass), static_cast<float>(rx.mid), static_cast<float>(rx.treble));
}

void Appliance::createRadio() {
    m_radio = std::make_unique<ArduinoController>();
    m_gateway.radio = m_radio.get();
    const QJsonObject &settings = m_gateway.config.object();
    const QString port = Settings::serialPort(settings);
    if (!port.isEmpty()) {
        m_radio->openPort(port, Settings::baudRate(settings), Settings::cosLogicHigh(settings),
                          Settings::pttInvert(settings));
    }
    connect(m_gateway.radio, &ArduinoController::cosChanged, &m_traffic, &RadioTraffic::onCosChanged);
}

template <class Receiver>
void Appliance::repeat(std::chrono::milliseconds period, Receiver *receiver, void (Receiver::*tick)()) {
    auto &timer = m_timers.emplace_back(std::make_unique<QTimer>());
    connect(timer.get(), &QTimer::timeout, receiver, tick);
    timer->start(period);
}

void Appliance::startTimers() {
    repeat(m_periods.levels, &m_stateFiles, &StateFiles::writeLevels);
    repeat(m_periods.status, &m_stateFiles, &StateFiles::writeStatus);
    repeat(m_periods.ping, &m_session, &SessionFlow::ping);
    connect(m_gateway.link, &TcpClient::pingUpdated, &m_stateFiles, &StateFiles::onPingUpdated);
    repeat(m_periods.refresh, &m_session, &SessionFlow::refresh);
    repeat(m_periods.loginTrigger, &m_loginTrigger, &LoginTrigger::check);
    repeat(m_periods.commands, &m_commands, &CommandIntake::scan);
}

void Appliance::connectFirst() {
    QString &server = m_gateway.session.serverAddress;
    server = Settings::serverAddress(m_gateway.config.object());
    if (!server.isEmpty())
        m_session.scheduleFirstConnection();
}
