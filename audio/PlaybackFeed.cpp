#include "audio/PlaybackFeed.h"

#include <QDebug>

#include <algorithm>

namespace {
constexpr int errorsPerPriming = 200;
constexpr int toleratedErrors = 100;
} // namespace

void PlaybackFeed::setFrameDuration(int ms) {
    m_frameMs = ms;
    sizeChunks();
}

void PlaybackFeed::assumeRate(int rateHz) {
    m_pcm.assumeRate(rateHz);
    sizeChunks();
}

void PlaybackFeed::sizeChunks() {
    m_queue.setChunkSamples(int(qint64(m_frameMs) * rateHz() / 1000));
}

bool PlaybackFeed::open(const QString &device) {
    if (isOpen())
        return true;
    if (!m_pcm.open(device, m_frameMs))
        return false;
    sizeChunks();
    m_queue.unprime();
    return true;
}

void PlaybackFeed::drainAndClose() {
    m_pcm.drainAndClose();
    m_queue.clear();
}

bool PlaybackFeed::playChunk(int streamRateHz) {
    if (m_queue.prime())
        logPrimed(streamRateHz);
    // A device that consumes more slowly than sound comes in is full some day. The surplus then waits here, where what
    // is too old is dropped, and not the whole loop in a write.
    const bool isDue = m_queue.isPrimed() && m_pcm.hasRoomFor(m_queue.chunkSamples());
    const auto chunk = isDue ? m_queue.takeChunk() : std::span<const qint16>();
    return chunk.empty() || write(chunk);
}

void PlaybackFeed::logPrimed(int streamRateHz) const {
    const double ratio = double(rateHz()) / std::max(streamRateHz, 1);
    qInfo() << "[Audio] SW buffer primed"
            << "| serverSR:" << streamRateHz << "| outputRate:" << rateHz()
            << "| ratio:" << QByteArray::number(ratio, 'f', 2).constData() << "| bufSize:" << m_queue.sizeBytes()
            << "bytes";
}

/// An underrun is the ordinary end of a transmission: recovered at the next one's first chunk, which it costs.
bool PlaybackFeed::write(std::span<const qint16> chunk) {
    const snd_pcm_sframes_t written = m_pcm.write(chunk);
    if (written >= 0)
        return true;
    const bool recovered = m_pcm.recover(int(written));
    ++m_writeErrors;
    if (m_writeErrors % errorsPerPriming == 0) {
        m_queue.unprime();
        qDebug() << "[Audio] Re-priming after" << m_writeErrors << "underruns";
    }
    if (recovered || m_writeErrors <= toleratedErrors)
        return true;
    giveUp();
    return false;
}

void PlaybackFeed::giveUp() {
    qWarning() << "[Audio] Persistent write failure — stopping playback, will retry in 3s";
    m_pcm.close();
    m_writeErrors = 0;
    m_queue.unprime();
}

int PlaybackFeed::writeThrough(std::span<const qint16> interleaved, int channels) {
    return m_pcm.writeThrough(interleaved, channels);
}
