#pragma once

#include "Scene.h"

#include <QRandomGenerator>

#include <span>
#include <vector>

/// What to tell of an event; nothing when it cannot happen just now.
using Told = std::optional<QString>;

QString secondsText(int ms);

/// Something that happens to the site now and then.
struct Event {
    const char *name;
    int weight; ///< how often, against the others
    /// @param random  of this one event alone
    Told (*happen)(Scene &scene, QRandomGenerator &random);
};
std::span<const Event> talkEvents(); ///< who talks, and where
std::span<const Event> linkEvents(); ///< what becomes of the links to the server
std::span<const Event> siteEvents(); ///< card, board and Web UI

/// One event after the other, all drawn from the seed: what, when and with which numbers.
class Events {
public:
    Events(Scene &scene, quint32 seed);

    void begin();
    void stop();

private:
    void scheduleNext();
    void happen();
    const Event &draw();

    Scene &m_scene;
    QRandomGenerator m_random;
    std::vector<Event> m_table;
    QTimer m_next;
};
