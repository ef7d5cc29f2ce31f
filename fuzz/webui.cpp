#include "Hilltop.h"

/// What the Web UI drops for a gateway that is in a room: command files and login triggers.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    Hilltop hilltop(0);
    hilltop.enterRoom();
    for (const Step &step : scriptOf(data, size, 'c'))
        hilltop.play(step);
    hilltop.finish();
    return 0;
}
