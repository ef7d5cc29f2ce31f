#pragma once

#include "audio/PcmHandle.h"

#include <span>
#include <vector>

/// The sound device that hears the radio's receiver: 16-bit, 200 ms of buffer, read only when a whole frame is there.
///
/// It is opened in two steps, because what a frame is depends on the rate that the device grants.
class CapturePcm {
public:
    /// Opens the device and settles its rate, not yet running. Returns the rate it grants, or 0 when it cannot be had
    /// (a device that cannot be opened at all is logged).
    int open(const QString &device, int wantedRateHz);
    /// Sets the rest up and starts; false, and closed, on failure.
    bool start();
    void close();
    bool isOpen() const { return m_running; }

    /// The oldest frame, mixed to mono, valid until the next call. Empty when there is none yet, and when an overrun or
    /// error lost it; the device is then set going again where it can be. Never waits.
    std::span<qint16> readFrame(int samples);

private:
    struct ParamsFreer {
        void operator()(snd_pcm_hw_params_t *params) const { snd_pcm_hw_params_free(params); }
    };

    void restartAfter(snd_pcm_sframes_t error);

    PcmHandle m_pcm;
    std::unique_ptr<snd_pcm_hw_params_t, ParamsFreer> m_params; ///< between open() and start()
    bool m_running = false;
    int m_rateHz = 0;
    int m_channels = 1;
    std::vector<qint16> m_frame;
};
