#include "net/MediaHealth.h"

MediaHealth judgeMediaHealth(qint64 nowMs, qint64 lastReceivedMs, bool socketBad) {
    constexpr qint64 quietAfterMs = 20000;
    constexpr qint64 failedAfterMs = 90000;
    const qint64 silentMs = lastReceivedMs > 0 ? nowMs - lastReceivedMs : 0;
    if (socketBad || silentMs > failedAfterMs)
        return MediaHealth::Failed;
    return silentMs > quietAfterMs ? MediaHealth::Quiet : MediaHealth::Good;
}
