#include "Hilltop.h"

/// What the server says over the control link, with all that follows from it. The first byte tells how the stream is
/// cut into pieces.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    if (size == 0)
        return 0;
    Hilltop hilltop(data[0] == '0' ? 0 : data[0]);
    for (const Step &step : scriptOf(data + 1, size - 1, 's'))
        hilltop.play(step);
    hilltop.finish();
    return 0;
}
