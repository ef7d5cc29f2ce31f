#include "Fuzz.h"
#include "Hilltop.h"

/// What the Web UI drops for a gateway that is in a room: command files and login triggers.
void fuzz(const QByteArray &input) {
    Hilltop hilltop(0);
    hilltop.enterRoom();
    for (const Step &step : scriptOf(input, 'c'))
        hilltop.play(step);
    hilltop.finish();
}
