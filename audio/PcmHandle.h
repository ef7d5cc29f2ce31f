#pragma once

#include <QString>

#include <alsa/asoundlib.h>
#include <memory>

struct PcmCloser {
    void operator()(snd_pcm_t *pcm) const;
};

/// An open ALSA PCM; closes what was opened.
using PcmHandle = std::unique_ptr<snd_pcm_t, PcmCloser>;

/// Opens a PCM in blocking mode. On failure the handle is null and `error` holds the negative ALSA code.
/// @param device  ALSA name; empty means "default"
PcmHandle openPcm(const QString &device, snd_pcm_stream_t direction, int &error);

/// Takes ALSA calls in order up to the first that fails. Returns its negative code, else the last call's result.
template <class... Steps>
int upToFirstError(Steps... steps) {
    int result = 0;
    static_cast<void>(((result = steps(), result >= 0) && ...));
    return result;
}

/// Every configuration of the device, narrowed to interleaved 16-bit frames and the fewest channels it has.
/// @param channels  set to what the device grants
int narrowToFrames(snd_pcm_t *pcm, snd_pcm_hw_params_t *params, unsigned &channels);
