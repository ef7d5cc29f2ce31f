#include "audio/CapturePcm.h"

#include "audio/Channels.h"

#include <QDebug>

int CapturePcm::open(const QString &device, int wantedRateHz) {
    int error = 0;
    m_pcm = openPcm(device, SND_PCM_STREAM_CAPTURE, error);
    if (!m_pcm) {
        qWarning() << "[Audio] Capture open:" << snd_strerror(error);
        return 0;
    }
    snd_pcm_hw_params_t *params = nullptr;
    unsigned channels = 0;
    auto rateHz = unsigned(wantedRateHz);
    error = upToFirstError([&] { return snd_pcm_hw_params_malloc(&params); },
                           [&] {
                               m_params.reset(params);
                               return narrowToFrames(m_pcm.get(), params, channels);
                           },
                           [&] { return snd_pcm_hw_params_set_rate_near(m_pcm.get(), params, &rateHz, nullptr); });
    if (error < 0) {
        close();
        return 0;
    }
    m_channels = int(channels);
    m_rateHz = int(rateHz);
    return m_rateHz;
}

bool CapturePcm::start() {
    snd_pcm_t *pcm = m_pcm.get();
    auto bufferFrames = snd_pcm_uframes_t(m_rateHz) / 5;
    const int error =
        upToFirstError([&] { return snd_pcm_hw_params_set_buffer_size_near(pcm, m_params.get(), &bufferFrames); },
                       [&] { return snd_pcm_hw_params(pcm, m_params.get()); }, [&] { return snd_pcm_prepare(pcm); },
                       [&] { return snd_pcm_start(pcm); });
    m_params.reset();
    if (error < 0) {
        close();
        return false;
    }
    m_running = true;
    return true;
}

void CapturePcm::close() {
    m_running = false;
    m_params.reset();
    m_pcm.reset();
}

std::span<qint16> CapturePcm::readFrame(int samples) {
    const snd_pcm_sframes_t available = snd_pcm_avail_update(m_pcm.get());
    if (available < 0) {
        restartAfter(available);
        return {};
    }
    if (available < samples) {
        if (snd_pcm_state(m_pcm.get()) == SND_PCM_STATE_PREPARED) // it could not be started again
            snd_pcm_start(m_pcm.get());
        return {};
    }
    m_frame.resize(size_t(samples) * size_t(m_channels));
    const snd_pcm_sframes_t read = snd_pcm_readi(m_pcm.get(), m_frame.data(), snd_pcm_uframes_t(samples));
    if (read < 0)
        restartAfter(read);
    return read == samples ? mixToMono(m_frame, m_channels) : std::span<qint16>();
}

/// A device that cannot be set going is tried again at the next poll, where it shows the same error or has no frame.
void CapturePcm::restartAfter(snd_pcm_sframes_t error) {
    if (snd_pcm_recover(m_pcm.get(), int(error), 1) >= 0)
        snd_pcm_start(m_pcm.get());
}
