#pragma once

#include "audio/AutomaticGain.h"
#include "audio/CapturePcm.h"
#include "audio/DueTicks.h"
#include "audio/FrameCipher.h"
#include "audio/OpusCodec.h"
#include "audio/PlaybackFeed.h"
#include "audio/Resampler.h"
#include "audio/TalkTimer.h"
#include "audio/ToneControl.h"
#include "base/EpochClock.h"

#include <QByteArray>
#include <QObject>
#include <QString>
#include <QTimer>

#include <chrono>
#include <span>
#include <vector>

/// The sound of the gateway: ALSA in and out, Opus, sealing, shaping, the talk time-out and its warning tone.
///
///   capture -> mono -> mic gain -> TX tone -> meter -> Opus -> seal -> audioEncoded
///
///   datagram -> talk timer -> open -> talker's decoder -> resample -> speaker gain -> AGC -> RX tone -> meter -> queue
///   queue -> playback
///
/// Inside, sound is mono, 16-bit, one Opus frame at a time. The encoder runs at the rate that the capture device
/// grants; what is received is decoded at the rate that the server announced and converted to the playback device's. A
/// direction whose device or codec cannot be had stays silent, the other goes on.
///
/// Everything happens on the thread of its event loop. It keeps the loop waiting only while a device plays out before
/// it is closed, while the warning tone is written, and for a chunk at a time on a device that holds less than one.
class AudioEngine : public QObject {
    Q_OBJECT

public:
    /// @param warningToneFile  optional 16-bit PCM WAV played before a time-out; a synthetic tone stands in for it
    explicit AudioEngine(QString warningToneFile = {}, QObject *parent = nullptr, EpochClock clock = steadyEpochMs);
    ~AudioEngine() override;

    /// Makes the codec, before the devices are opened: rate in Hz, bit rate in bit/s, complexity 0..10. A frame
    /// duration of 0 or less counts as 20 ms, one beyond Opus's longest as 120 ms. False, and logged, when Opus cannot
    /// run by these numbers: the engine works all the same, silent in that direction until the next change of quality.
    bool initialize(int sampleRate, int channels, int bitrate, int complexity, int frameDurationMs);
    /// ALSA names; empty means "default". For the next opening.
    void setDevices(const QString &captureDevice, const QString &playbackDevice);
    /// True when the device runs, newly or already.
    bool openPlayback();
    bool openCapture();
    /// Also call off a reopening that is under way.
    void stopPlayback();
    void stopCapture();
    /// Closes the devices, makes the codec anew by the server's numbers, whatever they are, and 100 ms later reopens
    /// what was open. Numbers that no codec can run leave that direction silent until the next change.
    void changeQuality(int sampleRate, int bitrate, int complexity, int frameDurationMs);

    /// Percent, 0..200, 100 is unity. The caller clamps.
    void setMicGain(int percent) { m_micGainPercent = percent; }
    void setSpeakerGain(int percent) { m_speakerGainPercent = percent; }
    /// Switching off resets the automatic-gain factor to 1.
    void setAgcEnabled(bool enabled);
    /// Seconds; 0 or less is unlimited. Takes effect at the next transmission.
    void setTotDuration(int seconds) { m_totSeconds = seconds; }
    /// Decibels, clamped to -12..+12; designed for the capture or playback rate of this moment.
    void setTxTone(float bass, float mid, float treble);
    void setRxTone(float bass, float mid, float treble);
    /// Muted, the capture device is not read.
    void setMicMuted(bool muted) { m_micMuted = muted; }
    /// Muted, received packets are dropped and nothing is played.
    void setSpkMuted(bool muted) { m_spkMuted = muted; }
    bool isMicMuted() const { return m_micMuted; }
    bool isSpkMuted() const { return m_spkMuted; }

    /// Whether anybody wants audioEncoded(); true until told otherwise. While false, frames are read, shaped and
    /// metered as ever but neither encoded nor sealed; the first frame after it turns true is encoded from a reset
    /// encoder.
    void setFramesWanted(bool wanted);

    /// Meters, 0..100: of the last frame, falling by 5 per frame duration while playback is open.
    int inputLevel() const { return m_inputLevel; }
    int outputLevel() const { return m_outputLevel; }

    /// Base64 of 32 bytes switches frame encryption on; any other length switches it off. Never logged.
    void setEncryptionKey(const QByteArray &keyBase64) { m_cipher.setKey(keyBase64); }
    /// Drops all queued audio, zeroes the write error count, unprimes.
    void clearBuffers();
    /// Re-creates the default decoder, forgets every talker's, drops queued audio.
    void resetDecoders();

    /// The packet encrypted and authenticated with the room's key; as it is while encryption is off.
    QByteArray sealFrame(const QByteArray &packet) const;
    /// The reverse. Empty when the packet was not sealed with this key: drop it.
    QByteArray openFrame(const QByteArray &packet) const { return m_cipher.open(packet); }
    /// Mono 16-bit samples at another rate, in Hz.
    QByteArray resample(const QByteArray &samples, int fromRate, int toRate) {
        return m_resampler.convert(samples, fromRate, toRate);
    }
    /// Writes interleaved samples straight to the playback device, past the queue, and waits for the device to take
    /// them.
    void playPcm(const QByteArray &samples, int channels);

    /// The same as from talker 0, who is unknown.
    Q_SLOT void onAudioReceived(const QByteArray &data);
    Q_SLOT void onAudioReceivedFrom(const QByteArray &data, quint32 userId);
    Q_SLOT void onInputReadyRead();
    Q_SLOT void onOutputBufferTimer();
    Q_SLOT void onTotExpired();
    Q_SLOT void onTotWarning();

Q_SIGNALS:
    /// One Opus packet per captured frame, sealed while encryption is on.
    void audioEncoded(QByteArray data);
    /// Never emitted: the meters are polled.
    void audioLevelChanged(int inputLevel, int outputLevel);
    /// Never emitted: failures are logged.
    void error(QString message);
    void totWarning();
    void totExpired();

private:
    void prepareTimer(QTimer &timer, const char *name, std::chrono::milliseconds interval, bool singleShot,
                      void (AudioEngine::*action)());
    void setFrameDuration(int ms);
    int frameSamples(int rateHz) const;
    bool createEncoder();
    bool rebuildDecoders();
    bool adoptCaptureRate(int rateHz);
    void closePlayback();
    void closeCapture();
    void reopenAfterQualityChange();
    void retryPlayback();
    void onOutputTimeout();
    void keepCaptureInStep();

    void emitEncoded(std::span<const qint16> frame);
    void timeTalker(quint32 userId);
    void startTotTimers(quint32 userId);
    bool decode(const QByteArray &packet, quint32 userId);
    void shapeReceived(std::span<qint16> frame);
    void playWarningTone();

    // The format, as announced by the server and granted by the capture device.
    int m_captureRateHz = 48000;
    int m_streamRateHz = 48000;
    int m_codecChannels = 1;
    int m_bitrate = 32000;
    int m_complexity = 5;
    int m_frameMs = 20;

    // From the radio to the network.
    QString m_captureDevice;
    CapturePcm m_capture;
    bool m_micMuted = false;
    int m_micGainPercent = 100;
    ToneControl m_txTone;
    int m_inputLevel = 0;
    bool m_framesWanted = true;
    VoiceEncoder m_encoder;

    // From the network to the radio.
    EpochClock m_clock;
    TalkTimer m_talk;
    int m_totSeconds = 0;
    QString m_warningToneFile;
    bool m_spkMuted = false;
    TalkerDecoders m_decoders;
    std::vector<qint16> m_decoded; ///< the frame at the stream's rate
    Resampler m_resampler;
    std::vector<qint16> m_received; ///< the frame at the device's rate
    int m_speakerGainPercent = 100;
    bool m_agcEnabled = false;
    AutomaticGain m_agc;
    ToneControl m_rxTone;
    int m_outputLevel = 0;
    QString m_playbackDevice;
    PlaybackFeed m_playback;

    FrameCipher m_cipher;

    QTimer m_capturePoll{this};
    QTimer m_outputTimer{this};
    DueTicks m_outputTicks;
    QTimer m_reopenTimer{this}; ///< runs from a quality change to the reopening
    bool m_reopenPlayback = false;
    bool m_reopenCapture = false;
    QTimer m_retryTimer{this}; ///< runs after a failing playback was given up
    QTimer m_totTimer{this};
    QTimer m_totWarningTimer{this};
};
