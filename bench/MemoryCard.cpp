#include "MemoryCard.h"

#include <algorithm>
#include <alsa/asoundlib.h>

namespace {

constexpr unsigned channels = 2;

std::vector<Frame> stereoFrames;
std::size_t turn = 0;
unsigned playbackRateHz = rateHz;

} // namespace

void MemoryCard::load(const std::vector<Frame> &voice) {
    stereoFrames.clear();
    for (const Frame &mono : voice) {
        Frame stereo;
        for (const std::int16_t sample : mono)
            stereo.insert(stereo.end(), channels, sample);
        stereoFrames.push_back(std::move(stereo));
    }
    turn = 0;
}

void MemoryCard::setPlaybackRate(unsigned rate) {
    playbackRateHz = rate;
}

// The program's own definitions come before the library's.
extern "C" {

int snd_pcm_hw_params_set_channels_near(snd_pcm_t *pcm, snd_pcm_hw_params_t *params, unsigned *value) {
    *value = channels;
    return snd_pcm_hw_params_set_channels(pcm, params, channels);
}

int snd_pcm_hw_params_set_rate_near(snd_pcm_t *pcm, snd_pcm_hw_params_t *params, unsigned *value, int *) {
    *value = snd_pcm_stream(pcm) == SND_PCM_STREAM_PLAYBACK ? playbackRateHz : rateHz;
    return snd_pcm_hw_params_set_rate(pcm, params, *value, 0);
}

snd_pcm_sframes_t snd_pcm_avail_update(snd_pcm_t *) {
    return frameSamples;
}

snd_pcm_sframes_t snd_pcm_readi(snd_pcm_t *, void *buffer, snd_pcm_uframes_t size) {
    const Frame &frame = stereoFrames[turn++ % stereoFrames.size()];
    std::copy_n(frame.begin(), size * channels, static_cast<std::int16_t *>(buffer));
    return static_cast<snd_pcm_sframes_t>(size);
}
}
