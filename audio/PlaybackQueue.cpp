#include "audio/PlaybackQueue.h"

#include <algorithm>

namespace {
constexpr size_t startChunks = 5;
constexpr size_t mostChunks = 10;
} // namespace

void PlaybackQueue::setChunkSamples(int samples) {
    m_chunkSamples = size_t(std::max(samples, 1));
}

void PlaybackQueue::clear() {
    m_samples.clear();
    m_taken = 0;
    m_primed = false;
}

void PlaybackQueue::append(std::span<const qint16> samples) {
    m_samples.erase(m_samples.begin(), m_samples.begin() + std::ptrdiff_t(m_taken));
    m_taken = 0;
    m_samples.insert(m_samples.end(), samples.begin(), samples.end());
    dropSurplus();
}

bool PlaybackQueue::prime() {
    if (m_primed || size() < startChunks * m_chunkSamples)
        return false;
    m_primed = true;
    return true;
}

std::span<const qint16> PlaybackQueue::takeChunk() {
    if (size() < m_chunkSamples)
        return {};
    dropSurplus();
    const auto chunk = std::span<const qint16>(m_samples).subspan(m_taken, m_chunkSamples);
    m_taken += m_chunkSamples;
    return chunk;
}

void PlaybackQueue::dropSurplus() {
    while (size() > mostChunks * m_chunkSamples) {
        m_taken += m_chunkSamples;
        ++m_droppedChunks;
    }
}
