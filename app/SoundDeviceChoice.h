#pragma once

#include <QString>

#include <functional>

/// Whether a sound device opens for capture.
using CaptureProbe = std::function<bool(const QString &device)>;

/// The configured device when it opens, else the first of cards 0 to 3 that does, else "hw:1,0" all the same. Logs
/// which.
QString chooseSoundDevice(const QString &configured, const CaptureProbe &opens);

/// The probe of the real devices: opens the device, blocking, and closes it at once.
bool opensForCapture(const QString &device);
