#pragma once

#include <QByteArray>

/// Ends the fuzzer with a finding, told together with what was logged last, unless the promise holds.
void promise(bool holds, const char *what);

/// Keeps a line of the log for that.
void keepLogLine(const QByteArray &line);
