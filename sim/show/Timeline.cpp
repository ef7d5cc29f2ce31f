#include "sim/show/Timeline.h"

#include "sim/sound/AudioAnalysis.h"

#include <algorithm>

namespace sim {

void Timeline::addLane(const QString &title) {
    laneOf(title);
}

void Timeline::setState(const QString &lane, bool on, std::int64_t timeNs) {
    Lane &changed = laneOf(lane);
    if (changed.isOn == on)
        return;
    changed.isOn = on;
    if (on)
        changed.spans.push_back({secondsAt(timeNs), secondsAt(timeNs)});
    else
        changed.spans.back().to = secondsAt(timeNs);
}

void Timeline::addSound(const QString &lane, const QString &name, std::int64_t startNs, const Pcm &pcm) {
    laneOf(lane).traces.push_back({name, secondsAt(startNs), envelopeDbfs(pcm)});
}

void Timeline::setView(std::int64_t fromNs, std::int64_t toNs) {
    m_view = {secondsAt(fromNs), secondsAt(toNs)};
    for (Lane &lane : m_lanes) {
        if (lane.isOn)
            lane.spans.back().to = m_view.to;
    }
}

Timeline::Lane &Timeline::laneOf(const QString &title) {
    const auto found =
        std::find_if(m_lanes.begin(), m_lanes.end(), [&](const Lane &lane) { return lane.title == title; });
    return found != m_lanes.end() ? *found : m_lanes.emplace_back(Lane{title, {}, {}, false});
}

} // namespace sim
