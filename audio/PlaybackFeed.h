#pragma once

#include "audio/PlaybackPcm.h"
#include "audio/PlaybackQueue.h"

#include <span>

/// The last stretch of the way to the radio: the queue, the device it is written to, and what is done about a device
/// that fails.
class PlaybackFeed {
public:
    /// Length of a chunk and of the period asked of the device at its next opening. @param ms  1 or more
    void setFrameDuration(int ms);
    /// Opens the device; true also when it is open already. Failures are logged.
    bool open(const QString &device);
    /// Lets the device play out, closes it and drops what is queued.
    void drainAndClose();
    bool isOpen() const { return m_pcm.isOpen(); }

    /// As last granted by a device, see PlaybackPcm.
    int rateHz() const { return m_pcm.rateHz(); }
    int channels() const { return m_pcm.channels(); }
    void assumeRate(int rateHz);

    void append(std::span<const qint16> frame) { m_queue.append(frame); }
    /// Drops what is queued and unprimes.
    void clear() { m_queue.clear(); }
    /// Ends a series of write errors: sound is coming in that is worth the trouble.
    void forgetErrors() { m_writeErrors = 0; }

    /// Writes the next chunk if there is one to be written. False when the device failed once too often in a series and
    /// was closed.
    /// @param streamRateHz  for the log
    bool playChunk(int streamRateHz);
    /// Writes past the queue, see PlaybackPcm.
    int writeThrough(std::span<const qint16> interleaved, int channels);

private:
    void sizeChunks();
    void logPrimed(int streamRateHz) const;
    bool write(std::span<const qint16> chunk);
    void giveUp();

    PlaybackQueue m_queue;
    PlaybackPcm m_pcm;
    int m_frameMs = 20;
    int m_writeErrors = 0; ///< in the present series
};
