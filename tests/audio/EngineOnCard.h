#pragma once

#include "audio/AudioEngine.h"
#include "sim/card/SoundCard.h"

#include <QTemporaryDir>
#include <QTest>

#include <chrono>
#include <vector>

/// An engine at its usual settings on a simulated sound card of its own, with a clock that the test turns.
class EngineOnCard {
public:
    explicit EngineOnCard(const sim::CardOptions &options = {}, const QString &warningToneFile = {})
        : card(folder.path(), 1, options),
          engine(warningToneFile, nullptr, [this] { return nowMs; }) {
        sim::SoundCard::installAlsaConfig(folder.path());
        engine.setDevices(QStringLiteral("hw:1,0"), QStringLiteral("hw:1,0"));
        engine.initialize(48000, 1, 32000, 5, 20);
        QObject::connect(&engine, &AudioEngine::audioEncoded, [this](const QByteArray &data) { sent.push_back(data); });
    }

    /// Packets from a talker at the pace of speech. False when this machine did not keep that pace.
    bool receive(const std::vector<QByteArray> &packets, quint32 userId = 42) {
        using namespace std::chrono;
        auto tick = steady_clock::now();
        bool keptPace = true;
        for (const QByteArray &packet : packets) {
            engine.onAudioReceivedFrom(packet, userId);
            tick += milliseconds(20);
            while (steady_clock::now() < tick)
                QTest::qWait(1);
            keptPace = keptPace && steady_clock::now() < tick + milliseconds(60);
        }
        return keptPace;
    }

    /// What the radio has put on the air since this was made.
    sim::Pcm onAir() const { return card.played(m_begin, steadyNs()); }

    bool playbackReopens() {
        return QTest::qWaitFor([this] { return card.isPlaybackOpen(); }, 1000);
    }
    bool captureReopens() {
        return QTest::qWaitFor([this] { return card.isCaptureOpen(); }, 1000);
    }

    QTimer *timer(const char *name) { return engine.findChild<QTimer *>(QLatin1String(name)); }

    QTemporaryDir folder;
    sim::SoundCard card;
    qint64 nowMs = 1'000'000;
    AudioEngine engine;
    std::vector<QByteArray> sent; ///< what the engine has emitted

private:
    static std::int64_t steadyNs() { return std::chrono::steady_clock::now().time_since_epoch().count(); }

    std::int64_t m_begin = steadyNs();
};
