#include "audio/PlaybackPcm.h"

#include "audio/Channels.h"

#include <QDebug>

#include <algorithm>

namespace {

constexpr snd_pcm_uframes_t startPeriods = 5;
constexpr size_t pieceFrames = 320;

bool isInterruption(snd_pcm_sframes_t result) {
    return result == -EPIPE || result == -ESTRPIPE;
}

} // namespace

bool PlaybackPcm::open(const QString &device, int periodMs) {
    int error = 0;
    m_pcm = openPcm(device, SND_PCM_STREAM_PLAYBACK, error);
    if (!m_pcm) {
        qWarning() << "[Audio] Playback open:" << snd_strerror(error);
        return false;
    }
    error = setHardware(periodMs);
    if (error < 0) {
        qWarning() << "[Audio] Playback hw_params:" << snd_strerror(error);
        close();
        return false;
    }
    error = setSoftware();
    if (error < 0) // It plays all the same, with thresholds of its own.
        qWarning() << "[Audio] Playback sw_params:" << snd_strerror(error);
    fillWithSilence();
    return true;
}

int PlaybackPcm::setHardware(int periodMs) {
    snd_pcm_t *pcm = m_pcm.get();
    snd_pcm_hw_params_t *params = nullptr;
    snd_pcm_hw_params_alloca(&params);
    unsigned channels = 0;
    unsigned rateHz = 48000;
    const int error = upToFirstError([&] { return narrowToFrames(pcm, params, channels); },
                                     [&] { return snd_pcm_hw_params_set_rate_near(pcm, params, &rateHz, nullptr); });
    if (error < 0)
        return error;
    m_channels = int(channels);
    m_rateHz = int(rateHz);
    m_bufferFrames = rateHz / 2;
    m_periodFrames = snd_pcm_uframes_t(periodMs) * rateHz / 1000;
    return upToFirstError([&] { return snd_pcm_hw_params_set_buffer_size_near(pcm, params, &m_bufferFrames); },
                          [&] { return snd_pcm_hw_params_set_period_size_near(pcm, params, &m_periodFrames, nullptr); },
                          [&] { return snd_pcm_hw_params(pcm, params); },
                          [&] { return snd_pcm_get_params(pcm, &m_bufferFrames, &m_periodFrames); });
}

int PlaybackPcm::setSoftware() {
    snd_pcm_t *pcm = m_pcm.get();
    snd_pcm_sw_params_t *params = nullptr;
    snd_pcm_sw_params_alloca(&params);
    return upToFirstError([&] { return snd_pcm_sw_params_current(pcm, params); },
                          [&] { return snd_pcm_sw_params_set_start_threshold(pcm, params, startFrames()); },
                          [&] { return snd_pcm_sw_params_set_avail_min(pcm, params, m_periodFrames); },
                          [&] { return snd_pcm_sw_params_set_stop_threshold(pcm, params, m_bufferFrames); },
                          [&] { return snd_pcm_sw_params(pcm, params); });
}

/// Five periods, or as many as the buffer holds: a device that waits for more than fits would never start, and the
/// write that fills it never return.
snd_pcm_uframes_t PlaybackPcm::startFrames() const {
    const snd_pcm_uframes_t periods = m_bufferFrames / std::max<snd_pcm_uframes_t>(m_periodFrames, 1);
    return std::min(startPeriods, periods) * m_periodFrames;
}

void PlaybackPcm::fillWithSilence() {
    m_fitted.assign(startFrames() * size_t(m_channels), 0);
    writeFrames(m_fitted); // A device that refuses even this shows it again at the first chunk.
}

void PlaybackPcm::drainAndClose() {
    const snd_pcm_state_t state = snd_pcm_state(m_pcm.get());
    if (state == SND_PCM_STATE_RUNNING || state == SND_PCM_STATE_PREPARED) // Anything else plays nothing out.
        snd_pcm_drain(m_pcm.get());                                        // It is closed whatever comes of it.
    close();
}

bool PlaybackPcm::hasRoomFor(size_t frames) {
    const snd_pcm_sframes_t room = snd_pcm_avail_update(m_pcm.get());
    if (room < 0 || size_t(room) >= frames || m_bufferFrames <= startFrames())
        return true;
    // Filled anew after an underrun, it may be too full for a whole chunk while it waits for more to start with.
    if (snd_pcm_state(m_pcm.get()) == SND_PCM_STATE_PREPARED)
        snd_pcm_start(m_pcm.get()); // a failure comes to light with the next write
    return false;
}

snd_pcm_sframes_t PlaybackPcm::write(std::span<const qint16> mono) {
    return writeFrames(fitChannels(mono, 1, m_channels, m_fitted));
}

bool PlaybackPcm::recover(int error) {
    return snd_pcm_recover(m_pcm.get(), error, 1) >= 0;
}

int PlaybackPcm::writeThrough(std::span<const qint16> interleaved, int channels) {
    const snd_pcm_state_t state = snd_pcm_state(m_pcm.get());
    if (state == SND_PCM_STATE_XRUN || state == SND_PCM_STATE_SUSPENDED)
        recover(state == SND_PCM_STATE_XRUN ? -EPIPE : -ESTRPIPE); // Shows in the first piece if it failed.
    auto rest = fitChannels(interleaved, channels, m_channels, m_fitted);
    while (rest.size() >= size_t(m_channels)) {
        const auto piece = rest.first(std::min(rest.size(), pieceFrames * size_t(m_channels)));
        snd_pcm_sframes_t written = writeFrames(piece);
        if (isInterruption(written) && recover(int(written)))
            written = writeFrames(piece);
        if (written <= 0)
            return int(written);
        rest = rest.subspan(size_t(written) * size_t(m_channels));
    }
    return 0;
}

snd_pcm_sframes_t PlaybackPcm::writeFrames(std::span<const qint16> interleaved) {
    return snd_pcm_writei(m_pcm.get(), interleaved.data(), interleaved.size() / size_t(m_channels));
}
