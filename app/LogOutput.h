#pragma once

/// Sends every log line to standard error: formatted as QT_MESSAGE_PATTERN asks, UTF-8 whatever the locale, in one
/// write.
void installLogOutput();
