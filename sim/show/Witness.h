#pragma once

#include "sim/show/Display.h"
#include "sim/show/Timeline.h"
#include "sim/site/Radio.h"
#include "sim/site/Site.h"

#include <QHash>
#include <QObject>
#include <QString>

namespace sim {

/// The timeline's lanes, from top to bottom.
namespace lanes {
QString radioToRoom();
QString squelch();
QString gatewayTalks();
QString roomToRadio();
QString memberTalks();
QString ptt();
} // namespace lanes

/// Watches everything that happens on the site, tells the user, and takes down the states for the timeline.
class Witness : public QObject {
    Q_OBJECT

public:
    /// All must outlive the witness.
    Witness(Site &site, Radio &radio, Display &display, Timeline &timeline, QObject *parent = nullptr);

private:
    /// What one member has said since it began to talk.
    struct Talk {
        int frames = 0;
        qint64 bytes = 0;
    };

    void watchRadio(Radio &radio, Board &board);
    void watchServer(VoiceServer &server);
    void watchDaemon(Daemon &daemon);
    void onTalkingChanged(const QString &callsign, bool talking);
    void onAudioRelayed(const QString &callsign, const QByteArray &frame);
    void onLogLine(const LogLine &line);

    Display &m_display;
    Timeline &m_timeline;
    QHash<QString, Talk> m_talks; ///< by callsign
};

} // namespace sim
