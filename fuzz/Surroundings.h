#pragma once

#include "VirtualTime.h"

#include <QString>

/// What every fuzzed piece of the gateway needs around it: an application with virtual time, a log that is put into
/// words and kept to itself, no sound card but ALSA's "null", and a folder in memory. Set up at the first call and
/// kept.
class Surroundings {
public:
    static Surroundings &instance();

    VirtualTime &time() { return *m_time; }
    QString file(const char *name) const { return m_folder + QLatin1Char('/') + QLatin1String(name); }
    QString folder() const { return m_folder; }

private:
    Surroundings();

    VirtualTime *m_time; ///< the application's
    QString m_folder;
};
