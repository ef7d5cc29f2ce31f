#include "Card.h"

#include <algorithm>
#include <alsa/asoundlib.h>
#include <cerrno>
#include <map>

namespace {

unsigned grantedRateHz = 48000;
unsigned grantedChannels = 2;
int failingWrites = 0;
std::int64_t writeCount = 0;
std::int64_t mostFrames = 0;
std::int16_t loudest = 0;
std::map<snd_pcm_t *, unsigned> channelsOf;

} // namespace

void Card::grant(unsigned rateHz, unsigned channels) {
    grantedRateHz = rateHz;
    grantedChannels = channels;
}

void Card::failWrites(int count) {
    failingWrites = count;
}

std::int64_t Card::writes() {
    return writeCount;
}

std::int64_t Card::largestWrite() {
    return mostFrames;
}

void Card::forget() {
    writeCount = mostFrames = failingWrites = 0;
}

// The program's own definitions come before the library's.
extern "C" {

int snd_pcm_hw_params_set_channels_near(snd_pcm_t *pcm, snd_pcm_hw_params_t *params, unsigned *value) {
    *value = grantedChannels;
    channelsOf[pcm] = grantedChannels;
    return snd_pcm_hw_params_set_channels(pcm, params, grantedChannels);
}

int snd_pcm_hw_params_set_rate_near(snd_pcm_t *pcm, snd_pcm_hw_params_t *params, unsigned *value, int *) {
    *value = grantedRateHz;
    return snd_pcm_hw_params_set_rate(pcm, params, grantedRateHz, 0);
}

snd_pcm_sframes_t snd_pcm_avail_update(snd_pcm_t *) {
    return grantedRateHz;
}

snd_pcm_sframes_t snd_pcm_readi(snd_pcm_t *pcm, void *buffer, snd_pcm_uframes_t size) {
    auto *samples = static_cast<std::int16_t *>(buffer);
    std::uint32_t noise = 1;
    std::generate_n(samples, size * channelsOf[pcm], [&noise] {
        noise = noise * 1664525U + 1013904223U;
        return static_cast<std::int16_t>(noise >> 16U);
    });
    return static_cast<snd_pcm_sframes_t>(size);
}

/// Every sample is looked at, so that one beyond the end of its memory shows.
snd_pcm_sframes_t snd_pcm_writei(snd_pcm_t *pcm, const void *buffer, snd_pcm_uframes_t size) {
    const auto *samples = static_cast<const std::int16_t *>(buffer);
    const std::size_t count = size * channelsOf[pcm];
    if (count > 0)
        loudest = std::max(loudest, *std::max_element(samples, samples + count));
    ++writeCount;
    mostFrames = std::max(mostFrames, static_cast<std::int64_t>(size));
    if (failingWrites > 0) {
        --failingWrites;
        return -EPIPE;
    }
    return static_cast<snd_pcm_sframes_t>(size);
}
}
