#include "audio/AudioEngine.h"

#include "audio/Gain.h"
#include "audio/LevelMeter.h"
#include "audio/WarningTone.h"

#include <QDebug>

#include <algorithm>
#include <limits>
#include <utility>

using namespace std::chrono_literals;

namespace {

constexpr int largestNonAudioPacket = 9;
constexpr int meterFallPerTick = 5;
constexpr int totWarningSeconds = 10;
constexpr std::chrono::milliseconds capturePollInterval = 10ms;

std::span<const unsigned char> bytesOf(const QByteArray &array) {
    return {reinterpret_cast<const unsigned char *>(array.constData()), size_t(array.size())};
}

std::span<const qint16> samplesOf(const QByteArray &array) {
    return {reinterpret_cast<const qint16 *>(array.constData()), size_t(array.size()) / sizeof(qint16)};
}

void startSeconds(QTimer &timer, int seconds) {
    constexpr int longestMs = std::numeric_limits<int>::max();
    timer.start(seconds > longestMs / 1000 ? longestMs : seconds * 1000);
}

} // namespace

AudioEngine::AudioEngine(QString warningToneFile, QObject *parent, EpochClock clock)
    : QObject(parent),
      m_clock(std::move(clock)),
      m_warningToneFile(std::move(warningToneFile)) {
    prepareTimer(m_outputTimer, "output", 20ms, false, &AudioEngine::onOutputTimeout);
    prepareTimer(m_capturePoll, "capturePoll", capturePollInterval, false, &AudioEngine::onInputReadyRead);
    prepareTimer(m_reopenTimer, "reopen", 100ms, true, &AudioEngine::reopenAfterQualityChange);
    prepareTimer(m_retryTimer, "retry", 3000ms, true, &AudioEngine::retryPlayback);
    prepareTimer(m_totTimer, "tot", 0ms, true, &AudioEngine::onTotExpired);
    prepareTimer(m_totWarningTimer, "totWarning", 0ms, true, &AudioEngine::onTotWarning);
    qDebug() << "[Audio] Engine created (Linux headless)";
}

AudioEngine::~AudioEngine() {
    stopPlayback();
    stopCapture();
}

void AudioEngine::prepareTimer(QTimer &timer, const char *name, std::chrono::milliseconds interval, bool singleShot,
                               void (AudioEngine::*action)()) {
    timer.setObjectName(QLatin1String(name));
    timer.setTimerType(Qt::PreciseTimer);
    timer.setInterval(interval);
    timer.setSingleShot(singleShot);
    connect(&timer, &QTimer::timeout, this, action);
}

// Codec and devices

bool AudioEngine::initialize(int sampleRate, int channels, int bitrate, int complexity, int frameDurationMs) {
    m_captureRateHz = sampleRate;
    m_streamRateHz = sampleRate;
    m_playback.assumeRate(sampleRate);
    m_codecChannels = channels;
    m_bitrate = bitrate;
    m_complexity = complexity;
    setFrameDuration(frameDurationMs);
    if (!createEncoder()) {
        qWarning() << "[Audio] Encoder error";
        return false;
    }
    if (!rebuildDecoders()) {
        qWarning() << "[Audio] Decoder error";
        return false;
    }
    qInfo() << "[Audio] Initialized:" << sampleRate << "Hz," << bitrate << "bps fd:" << frameDurationMs << "ms";
    return true;
}

/// Held to what Opus knows, so that no announcement makes a frame, a chunk or a timer of absurd size.
void AudioEngine::setFrameDuration(int ms) {
    m_frameMs = ms <= 0 ? 20 : std::min(ms, longestOpusFrameMs);
    m_playback.setFrameDuration(m_frameMs);
}

int AudioEngine::frameSamples(int rateHz) const {
    return int(qint64(m_frameMs) * rateHz / 1000);
}

bool AudioEngine::createEncoder() {
    return m_encoder.create(m_captureRateHz, m_codecChannels, m_bitrate, m_complexity);
}

bool AudioEngine::rebuildDecoders() {
    return m_decoders.rebuild(m_streamRateHz, m_codecChannels);
}

void AudioEngine::setDevices(const QString &captureDevice, const QString &playbackDevice) {
    m_captureDevice = captureDevice;
    m_playbackDevice = playbackDevice;
}

bool AudioEngine::openPlayback() {
    if (m_playback.isOpen())
        return true;
    if (!m_playback.open(m_playbackDevice))
        return false;
    m_outputTimer.start(m_frameMs);
    m_outputTicks.start(m_clock(), m_frameMs);
    return true;
}

bool AudioEngine::openCapture() {
    if (m_capture.isOpen())
        return true;
    const int rateHz = m_capture.open(m_captureDevice, opusRateFor(m_captureRateHz));
    if (rateHz == 0)
        return false;
    if (!adoptCaptureRate(rateHz)) {
        m_capture.close();
        return false;
    }
    if (!m_capture.start())
        return false;
    m_capturePoll.start();
    return true;
}

/// The encoder runs at the rate that the device grants; false when Opus does not know that rate.
bool AudioEngine::adoptCaptureRate(int rateHz) {
    if (rateHz == m_captureRateHz)
        return true;
    m_captureRateHz = rateHz;
    const bool encoderMade = createEncoder();
    rebuildDecoders(); // A stream that cannot be decoded is logged at its packets.
    return encoderMade;
}

void AudioEngine::stopPlayback() {
    m_reopenPlayback = false;
    m_retryTimer.stop();
    closePlayback();
}

void AudioEngine::closePlayback() {
    if (m_playback.isOpen()) {
        m_outputTimer.stop();
        m_playback.drainAndClose();
    }
}

void AudioEngine::stopCapture() {
    m_reopenCapture = false;
    closeCapture();
}

void AudioEngine::closeCapture() {
    m_capturePoll.stop();
    m_capture.close();
}

void AudioEngine::changeQuality(int sampleRate, int bitrate, int complexity, int frameDurationMs) {
    qInfo() << "[Audio] Quality change → SR:" << sampleRate << "BR:" << bitrate << "fd:" << frameDurationMs << "ms";
    // A change that follows before the reopening must not forget what was open before the first.
    m_reopenCapture = m_reopenCapture || m_capture.isOpen();
    m_reopenPlayback = m_reopenPlayback || m_playback.isOpen();
    closeCapture();
    closePlayback();
    m_captureRateHz = sampleRate;
    m_streamRateHz = sampleRate;
    m_bitrate = bitrate;
    m_complexity = complexity;
    setFrameDuration(frameDurationMs);
    createEncoder();   // Without one, frames encode to nothing until the next change.
    rebuildDecoders(); // A stream that cannot be decoded is logged at its packets.
    m_playback.clear();
    if (!m_reopenTimer.isActive())
        m_reopenTimer.start();
}

void AudioEngine::reopenAfterQualityChange() {
    if (std::exchange(m_reopenPlayback, false))
        openPlayback();
    if (std::exchange(m_reopenCapture, false))
        openCapture();
}

// Settings

void AudioEngine::setAgcEnabled(bool enabled) {
    m_agcEnabled = enabled;
    if (!enabled)
        m_agc.reset();
}

void AudioEngine::setTxTone(float bass, float mid, float treble) {
    m_txTone.set(bass, mid, treble, m_captureRateHz);
    qInfo() << "[Audio] TX Tone Bass:" << m_txTone.bass() << "Mid:" << m_txTone.mid() << "Treble:" << m_txTone.treble();
}

void AudioEngine::setRxTone(float bass, float mid, float treble) {
    m_rxTone.set(bass, mid, treble, m_playback.rateHz());
    qInfo() << "[Audio] RX Tone Bass:" << m_rxTone.bass() << "Mid:" << m_rxTone.mid() << "Treble:" << m_rxTone.treble();
}

void AudioEngine::setFramesWanted(bool wanted) {
    if (wanted && !m_framesWanted)
        m_encoder.reset();
    m_framesWanted = wanted;
}

void AudioEngine::clearBuffers() {
    m_playback.clear();
    m_playback.forgetErrors();
}

void AudioEngine::resetDecoders() {
    rebuildDecoders(); // A stream that cannot be decoded is logged at its packets.
    m_playback.clear();
}

QByteArray AudioEngine::sealFrame(const QByteArray &packet) const {
    return m_cipher.seal(bytesOf(packet));
}

// Radio to network

void AudioEngine::onInputReadyRead() {
    if (!m_capture.isOpen() || m_micMuted)
        return;
    const std::span<qint16> frame = m_capture.readFrame(frameSamples(m_captureRateHz));
    if (frame.empty())
        return;
    applyGain(frame, m_micGainPercent, -32767);
    m_txTone.process(frame);
    m_inputLevel = levelOf(frame);
    if (m_framesWanted)
        emitEncoded(frame);
}

void AudioEngine::emitEncoded(std::span<const qint16> frame) {
    const auto packet = m_encoder.encode(frame);
    if (packet.empty())
        return;
    Q_EMIT audioEncoded(m_cipher.isOn()
                            ? m_cipher.seal(packet)
                            : QByteArray(reinterpret_cast<const char *>(packet.data()), int(packet.size())));
}

// Network to radio

void AudioEngine::onAudioReceived(const QByteArray &data) {
    onAudioReceivedFrom(data, 0);
}

void AudioEngine::onAudioReceivedFrom(const QByteArray &data, quint32 userId) {
    if (m_spkMuted || !m_playback.isOpen() || data.size() <= largestNonAudioPacket)
        return;
    timeTalker(userId);
    const QByteArray packet = m_cipher.isOn() ? m_cipher.open(data) : data;
    if (packet.isEmpty() || !decode(packet, userId))
        return;
    m_resampler.convert(m_decoded, m_streamRateHz, m_playback.rateHz(), m_received);
    shapeReceived(m_received);
    m_playback.forgetErrors();
    m_outputLevel = levelOf(m_received);
    m_playback.append(m_received);
}

bool AudioEngine::decode(const QByteArray &packet, quint32 userId) {
    VoiceDecoder *decoder = m_decoders.of(userId);
    if (!decoder)
        return false;
    const int result = decoder->decode(bytesOf(packet), frameSamples(m_streamRateHz), m_decoded);
    if (result < 0)
        qWarning() << "[Audio] Decode err userId" << userId << ":" << opus_strerror(result);
    return result >= 0;
}

void AudioEngine::shapeReceived(std::span<qint16> frame) {
    applyGain(frame, m_speakerGainPercent, -32768);
    if (m_agcEnabled)
        m_agc.process(frame);
    m_rxTone.process(frame);
}

/// No packet is dropped here: a talker whose time was over starts a new transmission with his next packet.
void AudioEngine::timeTalker(quint32 userId) {
    if (m_talk.packet(userId, m_clock()))
        startTotTimers(userId);
}

void AudioEngine::startTotTimers(quint32 userId) {
    m_totTimer.stop();
    m_totWarningTimer.stop();
    if (m_totSeconds <= 0)
        return;
    startSeconds(m_totTimer, m_totSeconds);
    if (m_totSeconds > totWarningSeconds)
        startSeconds(m_totWarningTimer, m_totSeconds - totWarningSeconds);
    qInfo() << "[TOT] Timer started:" << m_totSeconds << "s untuk userId" << userId;
}

void AudioEngine::onTotExpired() {
    m_talk.expire();
    qInfo() << "[TOT] Batas waktu tercapai (" << m_totSeconds << "s) — downlink di-mute untuk userId"
            << m_talk.talker();
    Q_EMIT totExpired();
}

void AudioEngine::onTotWarning() {
    qInfo() << "[TOT] Warning — 10 detik lagi downlink di-mute (userId" << m_talk.talker() << ")";
    Q_EMIT totWarning();
    if (!m_playback.isOpen() || m_spkMuted) {
        qWarning() << "[TOT] Warning tone tidak bisa diputar: ALSA tidak siap atau speaker muted";
        return;
    }
    const qint64 beginMs = m_clock();
    playWarningTone();
    // A tone that is waited for would else pass for the end of the talk, and the talker's time start anew each time.
    m_talk.heldUp(m_clock() - beginMs);
}

void AudioEngine::playWarningTone() {
    const int channels = m_playback.channels() >= 2 ? 2 : 1;
    const auto wav = warningToneFromWav(m_warningToneFile, m_playback.rateHz(), channels, m_resampler);
    if (wav) {
        playPcm(wav->samples, channels);
        qInfo() << "[TOT] Warning tone dari WAV:" << m_warningToneFile << "| SR:" << wav->rateHz
                << "| ch:" << wav->channels << "| size:" << wav->samples.size() << "bytes | boost:" << wavBoost << "x";
        return;
    }
    const QByteArray tone = syntheticWarningTone(m_playback.rateHz(), channels);
    if (!tone.isEmpty()) {
        playPcm(tone, channels);
        qInfo() << "[TOT] Warning tone sintetis 880Hz, 3 beep, 90% vol";
    }
}

void AudioEngine::playPcm(const QByteArray &samples, int channels) {
    if (!m_playback.isOpen() || channels < 1)
        return;
    const int error = m_playback.writeThrough(samplesOf(samples), channels);
    if (error < 0)
        qWarning() << "[TOT] ALSA write error:" << snd_strerror(error);
}

// Playback feed

/// The device takes a chunk per frame duration whatever becomes of the ticks: each that is left out would bring it a
/// chunk nearer to running empty.
void AudioEngine::onOutputTimeout() {
    for (int due = m_outputTicks.take(m_clock()); due > 0 && m_outputTimer.isActive(); --due)
        onOutputBufferTimer();
    keepCaptureInStep();
}

/// A loop that was held up for longer than the shorter interval leaves the two timers out of step for good, and from
/// then on wakes up half as often again.
void AudioEngine::keepCaptureInStep() {
    constexpr int intervalMs = int(capturePollInterval.count());
    if (!m_capturePoll.isActive() || !m_outputTimer.isActive() || m_frameMs % intervalMs != 0)
        return;
    const int remainingMs = m_capturePoll.remainingTime();
    if (remainingMs == 0) // due, so it shares this wake-up; what its phase is cannot be told
        return;
    // Remaining times are whole milliseconds, hence one either way.
    const int aheadMs = (m_outputTimer.remainingTime() - remainingMs + intervalMs) % intervalMs;
    if (aheadMs <= 1 || aheadMs >= intervalMs - 1)
        return;
    // Now instead of in a few milliseconds: a loop that is held up again and again must not lose looks by it.
    m_capturePoll.start();
    onInputReadyRead();
}

void AudioEngine::onOutputBufferTimer() {
    m_inputLevel = std::max(m_inputLevel - meterFallPerTick, 0);
    m_outputLevel = std::max(m_outputLevel - meterFallPerTick, 0);
    if (!m_playback.isOpen() || m_spkMuted)
        return;
    if (!m_playback.playChunk(m_streamRateHz)) {
        m_outputTimer.stop();
        m_retryTimer.start();
    }
}

void AudioEngine::retryPlayback() {
    if (!m_playback.isOpen()) {
        qInfo() << "[Audio] Retrying playback open...";
        openPlayback();
    }
}
