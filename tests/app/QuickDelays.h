#pragma once

#include "app/SessionFlow.h"

using namespace std::chrono_literals;

/// A session that hardly waits.
inline constexpr SessionDelays quick = {5ms, 40ms, 10ms, 15ms, 5ms, 25ms, 5ms};
