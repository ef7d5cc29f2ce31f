#pragma once

#include "Figures.h"
#include "Hearing.h"

/// The site at rest, between two stretches of everything at once.
struct Rest {
    Figures figures;
    double wakeUpsPerSecond = 0.0;
    Duplex duplex;
};

/// Heals everything, waits until all is back where it was at the beginning, listens both ways and measures. What does
/// not come back is told as a broken promise.
Rest comeToRest(Scene &scene);

/// The board disappears for good, with the transmitter keyed; the gateway is to go on without it.
void loseBoard(Scene &scene);
