#pragma once

#include "sim/sound/Pcm.h"

#include <QString>

#include <cstdint>
#include <memory>

namespace sim {

struct CardOptions {
    int rateHz = 48000;  ///< the only rate the card runs at
    int minChannels = 1; ///< 2 for a stereo-only card
    int maxChannels = 2;
    double capturePpm = 0.0;  ///< clock error of the capture side
    double playbackPpm = 0.0; ///< clock error of the playback side
};

/// The site's end of one simulated sound card ("hw:N,0"). The daemon's end is an ALSA plugin; the two meet in a shared
/// memory file. Time on the card is CLOCK_MONOTONIC: sound is placed at, and found at, the moment it passes the card's
/// jacks.
class SoundCard {
public:
    /// @param folder  where the shared memory files of the site's cards live
    SoundCard(const QString &folder, int number, const CardOptions &options = {});
    ~SoundCard();
    SoundCard(const SoundCard &) = delete;
    SoundCard &operator=(const SoundCard &) = delete;

    // What the radio's receiver gives to the card.
    /// Plays the sound into the capture jack from now on, after what is already queued; silence otherwise. What would
    /// pass more than 80 s from now is left out. Returns the CLOCK_MONOTONIC time in ns at which its first sample
    /// passes.
    std::int64_t feed(const Pcm &pcm);
    void clearFeed();

    // What the card gives to the radio's transmitter.
    /// Everything that passed the playback jack between two CLOCK_MONOTONIC times (at most the last 60 s are kept), at
    /// the card's rate; of both channels the mean.
    Pcm played(std::int64_t fromNs, std::int64_t toNs) const;

    // Counters of the daemon's end, since the card was made.
    std::int64_t framesCaptured() const; ///< frames that the daemon read
    std::int64_t framesPlayed() const;   ///< frames that the daemon wrote
    int captureXruns() const;
    int playbackXruns() const;
    bool isCaptureOpen() const;
    bool isPlaybackOpen() const;

    // Faults.
    void setPresent(bool present); ///< false: cannot be opened (no such device)
    void setBusy(bool busy);       ///< true: cannot be opened (device or resource busy)
    void unplug();                 ///< running streams end with "no such device", and it is absent until plugIn()
    void plugIn();
    void setRate(int rateHz);              ///< for the next open; while no stream runs
    void setChannels(int min, int max);    ///< the same
    void overrun();                        ///< the running capture stream overruns
    void underrun();                       ///< the running playback stream underruns
    void stall(bool stalled);              ///< nothing moves on either side, and nothing says so, while set
    void refuseCaptureStarts(bool refuse); ///< recording cannot be started, while set
    void failPlaybackWrites(bool fail);    ///< every write fails and cannot be recovered, while set

    /// Writes the ALSA configuration that leads "hw:N,0" to the cards of that folder, and "default" to card 0. Returns
    /// the file's path, for ALSA_CONFIG_PATH; empty on failure. The plugin is the build's, or KIVO_CARD_PLUGIN's when
    /// that is set.
    static QString writeAlsaConfig(const QString &folder);
    /// The same, and sets ALSA_CONFIG_PATH for this process and its children.
    static bool installAlsaConfig(const QString &folder);

private:
    struct Shared;
    std::unique_ptr<Shared> m_shared;
};

} // namespace sim
