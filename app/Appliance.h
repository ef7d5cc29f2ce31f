#pragma once

#include "app/CommandIntake.h"
#include "app/Gateway.h"
#include "app/LoginTrigger.h"
#include "app/RadioTraffic.h"
#include "app/SessionFlow.h"
#include "app/SoundDeviceChoice.h"
#include "app/StateFiles.h"
#include "app/UserLists.h"

#include <QObject>
#include <QTimer>

#include <chrono>
#include <memory>
#include <vector>

class ArduinoController;
class AudioEngine;
class TcpClient;
class UdpAudio;

/// How often the gateway does what it repeats; a test hands in shorter periods.
struct TimerPeriods {
    using ms = std::chrono::milliseconds;

    ms levels{200};
    ms status{2000};
    ms ping{5000};
    ms refresh{10000};
    ms loginTrigger{2000};
    ms commands{500};
};

/// The whole gateway: owns the components, the rules and the timers, and connects them.
///
///     board -- ArduinoController --cosChanged--> RadioTraffic --> TcpClient, UdpAudio --> server
///     board <------- setPtt ------------------- RadioTraffic <-- UserLists <-- TcpClient <-- server
///
/// One event loop drives everything; every connection is a direct call.
class Appliance : public QObject {
    Q_OBJECT

public:
    explicit Appliance(const AppliancePaths &paths = {}, CaptureProbe probe = opensForCapture,
                       const SessionDelays &delays = {}, const TimerPeriods &periods = {});
    ~Appliance() override;

    /// Creates and wires the components, starts the timers and schedules the first connection. Called once.
    void start();

private:
    void createLink();
    void createMedia();
    void createEngine();
    void configureEngine();
    void createRadio();
    void startTimers();
    template <class Receiver>
    void repeat(std::chrono::milliseconds period, Receiver *receiver, void (Receiver::*tick)());
    void connectFirst();

    Gateway m_gateway;
    const CaptureProbe m_probe;
    const TimerPeriods m_periods;

    std::unique_ptr<TcpClient> m_link;
    std::unique_ptr<UdpAudio> m_media;
    std::unique_ptr<AudioEngine> m_engine;
    std::unique_ptr<ArduinoController> m_radio;

    StateFiles m_stateFiles;
    RadioTraffic m_traffic;
    SessionFlow m_session;
    UserLists m_userLists;
    LoginTrigger m_loginTrigger;
    CommandIntake m_commands;
    std::vector<std::unique_ptr<QTimer>> m_timers;
};
