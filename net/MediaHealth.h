#pragma once

#include <QtGlobal>

/// What the periodic health check finds.
enum class MediaHealth {
    Good,
    Quiet,  ///< nothing heard for more than 20 s: the path wants a keep-alive
    Failed, ///< the socket has closed, or nothing heard for more than 90 s
};

/// @param lastReceivedMs  when the server was last heard, on the same clock as nowMs; 0 when it never was, and then
///                        silence means nothing
MediaHealth judgeMediaHealth(qint64 nowMs, qint64 lastReceivedMs, bool socketBad);
