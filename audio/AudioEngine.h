#pragma once

#include "base/EpochClock.h"

#include <QByteArray>
#include <QObject>
#include <QString>

/// The sound of the gateway: ALSA in and out, Opus, sealing, shaping, the talk time-out and its warning tone.
class AudioEngine : public QObject {
    Q_OBJECT

public:
    /// @param warningToneFile  optional 16-bit PCM WAV played before a time-out; a synthetic tone stands in for it
    explicit AudioEngine(QString warningToneFile = {}, QObject *parent = nullptr, EpochClock clock = steadyEpochMs);
    ~AudioEngine() override;

    bool initialize(int sampleRate, int channels, int bitrate, int complexity, int frameDurationMs);
    /// ALSA names; empty means "default".
    void setDevices(const QString &captureDevice, const QString &playbackDevice);
    bool openPlayback();
    bool openCapture();
    void stopPlayback();
    void stopCapture();
    void changeQuality(int sampleRate, int bitrate, int complexity, int frameDurationMs);

    /// Percent, 0..200, 100 is unity. The caller clamps.
    void setMicGain(int percent);
    void setSpeakerGain(int percent);
    /// Switching off resets the automatic-gain factor to 1.
    void setAgcEnabled(bool enabled);
    /// Seconds; 0 or less is unlimited. Takes effect at the next transmission.
    void setTotDuration(int seconds);
    void setTxTone(float bass, float mid, float treble);
    void setRxTone(float bass, float mid, float treble);
    void setMicMuted(bool muted);
    void setSpkMuted(bool muted);
    bool isMicMuted() const;
    bool isSpkMuted() const;

    /// Whether anybody wants audioEncoded(); true until told otherwise. While false, frames are read, shaped and metered
    /// as ever but neither encoded nor sealed; the first frame after it turns true is encoded from a reset encoder.
    void setFramesWanted(bool wanted);

    /// Meters, 0..100.
    int inputLevel() const;
    int outputLevel() const;

    /// Base64 of 32 bytes switches frame encryption on; any other length switches it off. Never logged.
    void setEncryptionKey(const QByteArray &keyBase64);
    /// Drops all queued audio, zeroes the write error count, unprimes.
    void clearBuffers();
    /// Re-creates the default decoder, forgets every talker's, drops queued audio.
    void resetDecoders();

    QByteArray sealFrame(const QByteArray &packet) const;
    QByteArray openFrame(const QByteArray &packet) const;
    QByteArray resample(const QByteArray &samples, int fromRate, int toRate);
    void playPcm(const QByteArray &samples, int channels);

public Q_SLOTS:
    void onAudioReceived(QByteArray data);
    void onAudioReceivedFrom(QByteArray data, quint32 userId);
    void onInputReadyRead();
    void onOutputBufferTimer();
    void onTotExpired();
    void onTotWarning();

Q_SIGNALS:
    void audioEncoded(QByteArray data);
    void audioLevelChanged(int inputLevel, int outputLevel);
    void error(QString message);
    void totWarning();
    void totExpired();
};
