#pragma once

#include "sim/card/CardFile.h"

#include <alsa/asoundlib.h>
#include <alsa/pcm_external.h>
#include <memory>
#include <vector>

namespace sim {

/// One open direction of a simulated sound card, as ALSA's external I/O plugin sees it.
///
/// The position follows the clock alone, in frames since the start that never wrap, so that a buffer that ran over or
/// empty shows however late it is asked for. Captured frames are read from the site's ring at the moment they passed
/// the jack. Played frames are written to the site's ring at the moment at which they will pass, and taken back when
/// the stream stops before that; so the site hears them on time although this end runs only when the daemon calls.
class CardStream {
public:
    /// Opens a stream. On success ALSA owns it, and the handle is in pcm.
    /// @return 0 or a negative error code
    static int open(snd_pcm_t **pcm, const std::string &folder, long card, const char *name, snd_pcm_stream_t stream,
                    int mode);
    ~CardStream();
    CardStream(const CardStream &) = delete;
    CardStream &operator=(const CardStream &) = delete;

    // ALSA's callbacks.
    int prepare();
    int start();
    int stop();
    snd_pcm_sframes_t position();
    snd_pcm_sframes_t transfer(const snd_pcm_channel_area_t *areas, snd_pcm_uframes_t offset, snd_pcm_uframes_t count);
    int takeHardwareParameters();
    int takeSoftwareParameters(snd_pcm_sw_params_t *params);
    unsigned short readyEvents();

private:
    CardStream(std::unique_ptr<CardFile> file, snd_pcm_stream_t stream);
    int attach(const char *name, snd_pcm_stream_t stream, int mode);
    int constrain();

    bool isPlayback() const { return &m_side == &m_card.playback; }
    bool isUnplugged() const { return m_card.unplugs.load() != m_unplugsAtOpen; }
    bool cannotWrite() const { return isPlayback() && m_card.failingWrites.load() != 0; }
    bool isMoving() const { return m_running && m_card.stalled.load() == 0; }
    bool isXrunOrdered() const { return m_side.xrunsOrdered.load() != m_xrunsOrderedAtStart; }
    std::int64_t airNow() const { return airIndex(monotonicNs(), m_io.rate); }
    std::int64_t airOffset(std::int64_t frame) const;
    std::int64_t frameAt(std::int64_t airOffset) const;
    std::int64_t currentPosition() const;
    snd_pcm_uframes_t available(std::int64_t position) const;
    bool hasRunOut(std::int64_t position) const;
    void halt();
    void armTimer();

    void capture(std::int16_t *frames, std::int64_t count) const;
    void play(const std::int16_t *frames, std::int64_t count);
    void putOnAir();

    std::unique_ptr<CardFile> m_file;
    CardMemory &m_card;
    CardSide &m_side;
    snd_pcm_ioplug_t m_io{};
    int m_timer = -1;
    std::uint32_t m_unplugsAtOpen = 0;
    std::uint32_t m_xrunsOrderedAtStart = 0;
    std::int64_t m_clockErrorPpb = 0;
    snd_pcm_uframes_t m_stopThreshold = 0;
    snd_pcm_uframes_t m_availMin = 1;

    bool m_running = false;
    std::int64_t m_startIndex = 0;       ///< air index of the stream's first frame
    std::int64_t m_position = 0;         ///< frames since the start, as last told
    std::int64_t m_placed = 0;           ///< frames that are on the air ring, past and to come
    std::vector<std::int16_t> m_waiting; ///< written before the start, whose moment is not known yet
};

} // namespace sim
