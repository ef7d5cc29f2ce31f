#pragma once

/// Sends every log line to standard error: formatted as QT_MESSAGE_PATTERN asks, UTF-8 whatever the locale, in one
/// write, cut after 4096 characters. Where standard error is the journal, each line begins with its level ("<4>"),
/// which the journal takes off.
void installLogOutput();
