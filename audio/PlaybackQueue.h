#pragma once

#include <QtGlobal>

#include <span>
#include <vector>

/// The mono samples that wait for the playback device, handed out in chunks of one frame duration.
///
/// Starts unprimed: nothing is handed out before five chunks are there. Holds at most ten; what is older is dropped, so
/// a burst from the network cannot make the audio late for good. Pure: no device, no clock.
class PlaybackQueue {
public:
    /// @param samples  at least 1; less counts as 1
    void setChunkSamples(int samples);
    /// Drops everything and unprimes.
    void clear();
    void unprime() { m_primed = false; }

    void append(std::span<const qint16> samples);

    bool isPrimed() const { return m_primed; }
    /// Becomes primed if the start level is reached. Returns true only at that moment.
    bool prime();
    /// The oldest chunk, valid until the next append; empty when less than a whole chunk is there.
    std::span<const qint16> takeChunk();

    size_t chunkSamples() const { return m_chunkSamples; }
    int sizeBytes() const { return int(size() * sizeof(qint16)); }
    /// How many chunks were dropped because too many waited.
    qint64 droppedChunks() const { return m_droppedChunks; }

private:
    size_t size() const { return m_samples.size() - m_taken; }
    void dropSurplus();

    std::vector<qint16> m_samples;
    size_t m_taken = 0; ///< samples at the front that are handed out or dropped already
    size_t m_chunkSamples = 960;
    bool m_primed = false;
    qint64 m_droppedChunks = 0;
};
