#include "Events.h"

#include <numeric>

namespace {

constexpr int shortestPauseMs = 100;
constexpr int longestPauseMs = 2500;

} // namespace

QString secondsText(int ms) {
    return QStringLiteral("%1 s").arg(ms / 1000.0);
}

Events::Events(Scene &scene, quint32 seed) : m_scene(scene), m_random(seed) {
    for (const auto &events : {talkEvents(), linkEvents(), siteEvents()})
        m_table.insert(m_table.end(), events.begin(), events.end());
    m_next.setSingleShot(true);
    m_next.setTimerType(Qt::PreciseTimer);
    QObject::connect(&m_next, &QTimer::timeout, [this] { happen(); });
}

void Events::begin() {
    scheduleNext();
}

void Events::stop() {
    m_next.stop();
}

void Events::scheduleNext() {
    m_next.start(m_random.bounded(shortestPauseMs, longestPauseMs));
}

void Events::happen() {
    const Event &event = draw();
    QRandomGenerator ofThisOne(m_random.generate()); // so that what it draws does not change what comes after it
    if (const Told details = event.happen(m_scene, ofThisOne))
        m_scene.journal().event(QLatin1String(event.name), *details);
    scheduleNext();
}

const Event &Events::draw() {
    const int sum = std::accumulate(m_table.begin(), m_table.end(), 0,
                                    [](int weight, const Event &event) { return weight + event.weight; });
    int number = m_random.bounded(sum);
    for (const Event &event : m_table) {
        number -= event.weight;
        if (number < 0)
            return event;
    }
    return m_table.back();
}
