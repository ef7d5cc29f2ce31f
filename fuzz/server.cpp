#include "Fuzz.h"
#include "Hilltop.h"

/// What the server says over the control link, with all that follows from it. The first byte tells how the stream is
/// cut into pieces.
void fuzz(const QByteArray &input) {
    Hilltop hilltop(firstByte(input) == '0' ? 0 : firstByte(input));
    for (const Step &step : scriptOf(input.mid(1), 's'))
        hilltop.play(step);
    hilltop.finish();
}
