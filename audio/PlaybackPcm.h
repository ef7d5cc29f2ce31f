#pragma once

#include "audio/PcmHandle.h"

#include <span>
#include <vector>

/// The sound device that feeds the radio's microphone input: 16-bit, half a second of buffer, blocking.
///
/// A write waits for room. A device that has none keeps the loop waiting, for long if it has stopped consuming; the
/// driver bounds that wait and fails the write.
class PlaybackPcm {
public:
    /// Opens, sets the device up and fills it with silence. A failure is logged and leaves it closed.
    /// @param periodMs  wanted length of a period, 1 or more
    bool open(const QString &device, int periodMs);
    void close() { m_pcm.reset(); }
    /// Lets what the device holds play out, at most its buffer, then closes.
    void drainAndClose();
    bool isOpen() const { return m_pcm != nullptr; }

    /// As last granted by a device.
    int rateHz() const { return m_rateHz; }
    int channels() const { return m_channels; }
    /// What rateHz() tells until a device grants one.
    void assumeRate(int rateHz) { m_rateHz = rateHz; }

    /// Whether a write of that many frames returns at once. Also true of a device whose trouble a write would bring to
    /// light, and of one that is full as soon as it starts: that one can only be waited for. Starts a device that could
    /// make room in no other way.
    bool hasRoomFor(size_t frames);
    /// Writes mono samples to every channel. Returns the frames written or a negative ALSA error.
    snd_pcm_sframes_t write(std::span<const qint16> mono);
    /// Makes the device ready again after an error; false when it cannot be.
    bool recover(int error);
    /// Writes it all in small pieces, each tried once more after an underrun or a suspend. Blocks for as long as the
    /// sound lasts, less what the device's buffer takes. Returns 0 or the negative ALSA error that ended it.
    int writeThrough(std::span<const qint16> interleaved, int channels);

private:
    int setHardware(int periodMs);
    int setSoftware();
    void fillWithSilence();
    snd_pcm_uframes_t startFrames() const;
    snd_pcm_sframes_t writeFrames(std::span<const qint16> interleaved);

    PcmHandle m_pcm;
    int m_rateHz = 48000;
    int m_channels = 2;
    snd_pcm_uframes_t m_periodFrames = 0;
    snd_pcm_uframes_t m_bufferFrames = 0;
    std::vector<qint16> m_fitted; ///< samples on their way, in the device's number of channels
};
