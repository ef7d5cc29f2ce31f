#pragma once

#include <QObject>
#include <QString>
#include <QStringList>
#include <QVariantMap>

struct Gateway;

/// What the Web UI sees of the gateway itself and of its server: status, level meters, rooms, audio quality.
class StateFiles : public QObject {
    Q_OBJECT

public:
    explicit StateFiles(Gateway &gateway);

    /// Written by a timer, and at once where the Web UI must not wait for it.
    void writeStatus();
    void writeLevels();

    void onPingUpdated(float latencyMs);
    void onRoomList(const QStringList &rooms);
    /// Sets the engine to the announced quality when it is another than the last one.
    void onAudioQuality(const QVariantMap &announcement);

private:
    struct Quality {
        int sampleRate = 0;
        int bitrate = 0;
        int frameDurationMs = 0;
        bool operator==(const Quality &) const = default;
    };

    void applyQuality(const Quality &quality, int complexity, const QString &preset);

    Gateway &m_gateway;
    const QString m_statusFile;
    const QString m_levelFile;
    Quality m_applied;
};
