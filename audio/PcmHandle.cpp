#include "audio/PcmHandle.h"

namespace {

/// Called by ALSA instead of writing to standard error, where a line of its own would stand untagged among the log's.
/// What failed is logged by whoever called, with the same error text.
void saysNothing(const char *, int, const char *, int, const char *, ...) {}

} // namespace

void PcmCloser::operator()(snd_pcm_t *pcm) const {
    snd_pcm_close(pcm); // A failure leaves nothing to be done: the handle is gone either way.
}

PcmHandle openPcm(const QString &device, snd_pcm_stream_t direction, int &error) {
    const QByteArray name = device.isEmpty() ? QByteArrayLiteral("default") : device.toUtf8();
    snd_lib_error_set_handler(saysNothing); // cannot fail
    snd_pcm_t *pcm = nullptr;
    error = snd_pcm_open(&pcm, name.constData(), direction, 0);
    return PcmHandle(error < 0 ? nullptr : pcm);
}

int narrowToFrames(snd_pcm_t *pcm, snd_pcm_hw_params_t *params, unsigned &channels) {
    channels = 1;
    return upToFirstError([&] { return snd_pcm_hw_params_any(pcm, params); },
                          [&] { return snd_pcm_hw_params_set_access(pcm, params, SND_PCM_ACCESS_RW_INTERLEAVED); },
                          [&] { return snd_pcm_hw_params_set_format(pcm, params, SND_PCM_FORMAT_S16_LE); },
                          [&] { return snd_pcm_hw_params_set_channels_near(pcm, params, &channels); });
}
