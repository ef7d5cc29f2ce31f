#include "audio/Channels.h"

#include <algorithm>
#include <numeric>

std::span<qint16> mixToMono(std::span<qint16> interleaved, int channels) {
    if (channels == 1)
        return interleaved;
    const size_t frames = interleaved.size() / channels;
    for (size_t i = 0; i < frames; ++i) {
        const auto frame = interleaved.subspan(i * channels, channels);
        interleaved[i] = qint16(std::accumulate(frame.begin(), frame.end(), 0) / channels);
    }
    return interleaved.first(frames);
}

std::span<const qint16> fitChannels(std::span<const qint16> interleaved, int from, int to,
                                    std::vector<qint16> &storage) {
    if (from == to)
        return interleaved;
    const size_t frames = interleaved.size() / from;
    storage.resize(frames * to);
    for (size_t i = 0; i < frames; ++i)
        for (int channel = 0; channel < to; ++channel)
            storage[i * to + channel] = interleaved[i * from + std::min(channel, from - 1)];
    return storage;
}
