#pragma once

#include "sim/card/SoundCard.h"

#include <QTemporaryDir>
#include <QtTest>

#include <algorithm>
#include <alsa/asoundlib.h>
#include <cstdint>
#include <vector>

inline constexpr snd_pcm_stream_t capture = SND_PCM_STREAM_CAPTURE;
inline constexpr snd_pcm_stream_t playback = SND_PCM_STREAM_PLAYBACK;

using Samples = std::vector<std::int16_t>;

/// An ALSA handle as the daemon holds one.
class Handle {
public:
    explicit Handle(snd_pcm_stream_t stream, const char *name = "hw:0,0") {
        m_error = snd_pcm_open(&m_pcm, name, stream, 0);
    }
    ~Handle() { close(); }
    Handle(const Handle &) = delete;
    Handle &operator=(const Handle &) = delete;

    operator snd_pcm_t *() const { return m_pcm; }
    int error() const { return m_error; }
    unsigned rateHz = 48000;
    unsigned channels = 1;
    snd_pcm_uframes_t bufferFrames = 24000;
    snd_pcm_uframes_t periodFrames = 960;

    /// Asks for what stands in the fields; they then hold what was granted.
    int configure() {
        snd_pcm_hw_params_t *params = nullptr;
        snd_pcm_hw_params_alloca(&params);
        snd_pcm_hw_params_any(m_pcm, params);
        snd_pcm_hw_params_set_access(m_pcm, params, SND_PCM_ACCESS_RW_INTERLEAVED);
        snd_pcm_hw_params_set_format(m_pcm, params, SND_PCM_FORMAT_S16_LE);
        snd_pcm_hw_params_set_channels_near(m_pcm, params, &channels);
        snd_pcm_hw_params_set_rate_near(m_pcm, params, &rateHz, nullptr);
        snd_pcm_hw_params_set_buffer_size_near(m_pcm, params, &bufferFrames);
        snd_pcm_hw_params_set_period_size_near(m_pcm, params, &periodFrames, nullptr);
        return snd_pcm_hw_params(m_pcm, params);
    }

    int setThresholds(snd_pcm_uframes_t start, snd_pcm_uframes_t availMin) {
        snd_pcm_sw_params_t *params = nullptr;
        snd_pcm_sw_params_alloca(&params);
        snd_pcm_sw_params_current(m_pcm, params);
        snd_pcm_sw_params_set_start_threshold(m_pcm, params, start);
        snd_pcm_sw_params_set_avail_min(m_pcm, params, availMin);
        return snd_pcm_sw_params(m_pcm, params);
    }

    snd_pcm_sframes_t write(const Samples &samples) {
        return snd_pcm_writei(m_pcm, samples.data(), samples.size() / channels);
    }

    Samples read(std::size_t frames) {
        Samples samples(frames * channels);
        const snd_pcm_sframes_t got = snd_pcm_readi(m_pcm, samples.data(), frames);
        samples.resize(std::size_t(std::max<snd_pcm_sframes_t>(got, 0)) * channels);
        return samples;
    }

    void close() {
        if (m_pcm != nullptr) {
            snd_pcm_close(m_pcm);
            m_pcm = nullptr;
        }
    }

private:
    snd_pcm_t *m_pcm = nullptr;
    int m_error = 0;
};

/// Sound without a zero and without a repetition within 30,000 samples.
inline Samples ramp(std::size_t count) {
    Samples samples(count);
    for (std::size_t i = 0; i < count; ++i)
        samples[i] = std::int16_t(i % 30000 + 1);
    return samples;
}

inline bool isSilent(const Samples &samples) {
    return std::all_of(samples.begin(), samples.end(), [](std::int16_t sample) { return sample == 0; });
}

/// Fixture: a folder for simulated cards, where ALSA looks for them.
class CardBench : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void initTestCase() {
        QVERIFY(m_folder.isValid());
        QVERIFY(sim::SoundCard::installAlsaConfig(m_folder.path()));
    }

protected:
    QTemporaryDir m_folder;
};
