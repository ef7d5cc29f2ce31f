#include "../support/LogCapture.h"
#include "audio/OpusCodec.h"

#include <QTest>

#include <cmath>

namespace {

using Samples = std::vector<qint16>;
using Packet = std::vector<unsigned char>;

constexpr double twoPi = 6.283185307179586;

Samples sine(double hz, int rateHz, int samples, double amplitude = 8000.0) {
    Samples result(samples);
    for (int i = 0; i < samples; ++i)
        result[i] = qint16(std::lround(amplitude * std::sin(twoPi * hz * i / rateHz)));
    return result;
}

/// One second of a sine in packets of 20 ms, straight from the library.
std::vector<Packet> packetsOf(double hz, int rateHz = 48000, int channels = 1) {
    const int frame = rateHz / 50;
    OpusEncoder *encoder = opus_encoder_create(rateHz, channels, OPUS_APPLICATION_VOIP, nullptr);
    const Samples mono = sine(hz, rateHz, rateHz);
    Samples sound;
    for (qint16 sample : mono)
        sound.insert(sound.end(), channels, sample);
    std::vector<Packet> packets;
    for (int i = 0; i < 50; ++i) {
        Packet packet(4000);
        packet.resize(opus_encode(encoder, sound.data() + i * frame * channels, frame, packet.data(), 4000));
        packets.push_back(packet);
    }
    opus_encoder_destroy(encoder);
    return packets;
}

Samples decoded(VoiceDecoder &decoder, const Packet &packet) {
    Samples samples;
    return decoder.decode(packet, 960, samples) < 0 ? Samples() : samples;
}

Packet copy(std::span<const unsigned char> packet) {
    return {packet.begin(), packet.end()};
}

} // namespace

class TestOpusCodec : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void choosesTheNextRateThatOpusKnows_data();
    void choosesTheNextRateThatOpusKnows();
    void saysOnceWhichLibraryItUses();

    void encodesWhatTheLibraryDecodes();
    void encodesToNothingWithoutAnEncoder();
    void refusesRatesAndChannelsThatOpusLacks_data();
    void refusesRatesAndChannelsThatOpusLacks();
    void encodesAFrameOfAnotherLengthToNothing();
    void keepsAnEncoderWhoseSettingsAreRefused();
    void encodesFromAFreshStateAfterAReset();
    void encodesMonoOnTwoChannels();

    void decodesMonoFromTwoChannels();
    void reportsAPacketThatIsNoOpus();
    void givesEveryTalkerADecoder();
    void keepsInterleavedTalkersApart();
    void forgetsTalkersWhenRebuilt();
    void saysWhichTalkerCannotBeDecoded();
};

void TestOpusCodec::choosesTheNextRateThatOpusKnows_data() {
    QTest::addColumn<int>("rateHz");
    QTest::addColumn<int>("opusRateHz");
    for (int rate : {8000, 12000, 16000, 24000, 48000})
        QTest::newRow(qPrintable(QString::number(rate))) << rate << rate;
    QTest::newRow("above 8000") << 8001 << 12000;
    QTest::newRow("11025") << 11025 << 12000;
    QTest::newRow("22050") << 22050 << 24000;
    QTest::newRow("44100") << 44100 << 48000;
    QTest::newRow("beyond") << 96000 << 48000;
    QTest::newRow("huge") << 2147483647 << 48000;
    QTest::newRow("zero") << 0 << 8000;
    QTest::newRow("negative") << -1 << 8000;
}

void TestOpusCodec::choosesTheNextRateThatOpusKnows() {
    QFETCH(int, rateHz);
    QFETCH(int, opusRateHz);
    QCOMPARE(opusRateFor(rateHz), opusRateHz);
}

void TestOpusCodec::saysOnceWhichLibraryItUses() {
    LogCapture log;
    opusInit();
    opusInit();
    QCOMPARE(log.take(), QStringList{QStringLiteral("info [Opus] Linux mode - using system libopus")});
}

void TestOpusCodec::encodesWhatTheLibraryDecodes() {
    VoiceEncoder encoder;
    QVERIFY(encoder.create(48000, 1, 32000, 5));
    OpusDecoder *decoder = opus_decoder_create(48000, 1, nullptr);
    const Samples tone = sine(1000, 48000, 48000);
    double energy = 0;
    int bytes = 0;
    for (int i = 0; i < 50; ++i) {
        const auto packet = encoder.encode(std::span(tone).subspan(i * 960, 960));
        bytes += int(packet.size());
        Samples out(960);
        QCOMPARE(opus_decode(decoder, packet.data(), opus_int32(packet.size()), out.data(), 960, 0), 960);
        for (qint16 sample : out)
            energy += i >= 10 ? double(sample) * sample : 0;
    }
    opus_decoder_destroy(decoder);
    const double rms = std::sqrt(energy / (40 * 960));
    QVERIFY2(std::abs(rms - 8000 / std::sqrt(2.0)) < 300, qPrintable(QString::number(rms)));
    QVERIFY2(bytes > 3000 && bytes < 5000, qPrintable(QString::number(bytes))); // 32 kbit/s are 4000 bytes a second
}

void TestOpusCodec::encodesToNothingWithoutAnEncoder() {
    VoiceEncoder encoder;
    encoder.reset();
    QVERIFY(encoder.encode(Samples(960)).empty());
    QVERIFY(encoder.create(48000, 1, 32000, 5));
    QVERIFY(!encoder.create(44100, 1, 32000, 5));
    QVERIFY(encoder.encode(Samples(960)).empty());
}

void TestOpusCodec::refusesRatesAndChannelsThatOpusLacks_data() {
    QTest::addColumn<int>("rateHz");
    QTest::addColumn<int>("channels");
    QTest::newRow("44100 Hz") << 44100 << 1;
    QTest::newRow("0 Hz") << 0 << 1;
    QTest::newRow("negative") << -48000 << 1;
    QTest::newRow("huge") << 2147483647 << 1;
    QTest::newRow("no channels") << 48000 << 0;
    QTest::newRow("three channels") << 48000 << 3;
}

void TestOpusCodec::refusesRatesAndChannelsThatOpusLacks() {
    QFETCH(int, rateHz);
    QFETCH(int, channels);
    QVERIFY(!VoiceEncoder().create(rateHz, channels, 32000, 5));
    QVERIFY(!VoiceDecoder().create(rateHz, channels));
    QVERIFY(!TalkerDecoders().rebuild(rateHz, channels));
}

void TestOpusCodec::encodesAFrameOfAnotherLengthToNothing() {
    VoiceEncoder encoder;
    QVERIFY(encoder.create(48000, 1, 32000, 5));
    QVERIFY(encoder.encode(Samples(882)).empty());
    QVERIFY(encoder.encode({}).empty());
    QVERIFY(!encoder.encode(Samples(5760)).empty());
}

void TestOpusCodec::keepsAnEncoderWhoseSettingsAreRefused() {
    VoiceEncoder encoder;
    QVERIFY(encoder.create(48000, 1, 0, 99));
    QVERIFY(!encoder.encode(sine(1000, 48000, 960)).empty());
}

void TestOpusCodec::encodesFromAFreshStateAfterAReset() {
    const Samples tone = sine(700, 48000, 1920);
    const auto first = std::span(tone).first(960);
    const auto second = std::span(tone).last(960);
    VoiceEncoder fresh;
    QVERIFY(fresh.create(48000, 1, 24000, 3));
    const Packet expected = copy(fresh.encode(first));
    VoiceEncoder used;
    QVERIFY(used.create(48000, 1, 24000, 3));
    used.encode(second);
    QVERIFY(copy(used.encode(first)) != expected);
    used.reset();
    QCOMPARE(copy(used.encode(first)), expected);
}

void TestOpusCodec::encodesMonoOnTwoChannels() {
    VoiceEncoder encoder;
    QVERIFY(encoder.create(48000, 2, 64000, 5));
    VoiceDecoder decoder;
    QVERIFY(decoder.create(48000, 1));
    Samples out;
    const Samples tone = sine(1000, 48000, 9600);
    for (int i = 0; i < 10; ++i)
        out = decoded(decoder, copy(encoder.encode(std::span(tone).subspan(i * 960, 960))));
    QCOMPARE(int(out.size()), 960);
    QVERIFY(*std::max_element(out.begin(), out.end()) > 6000);
}

void TestOpusCodec::decodesMonoFromTwoChannels() {
    VoiceDecoder decoder;
    QVERIFY(decoder.create(48000, 2));
    Samples out;
    for (const Packet &packet : packetsOf(1000, 48000, 2)) {
        out = decoded(decoder, packet);
        QCOMPARE(int(out.size()), 960);
    }
    QVERIFY(*std::max_element(out.begin(), out.end()) > 6000);
}

void TestOpusCodec::reportsAPacketThatIsNoOpus() {
    VoiceDecoder decoder;
    QVERIFY(decoder.create(48000, 1));
    Samples out;
    QCOMPARE(decoder.decode(Packet(20, 0xFF), 960, out), OPUS_INVALID_PACKET);
    QCOMPARE(decoder.decode(packetsOf(1000)[0], 480, out), OPUS_BUFFER_TOO_SMALL);
    QCOMPARE(decoder.decode(packetsOf(1000)[0], 960, out), 0);
    QCOMPARE(int(out.size()), 960);
}

void TestOpusCodec::givesEveryTalkerADecoder() {
    TalkerDecoders decoders;
    QVERIFY(decoders.rebuild(48000, 1));
    LogCapture log;
    VoiceDecoder *talker42 = decoders.of(42);
    QCOMPARE(log.take(), QStringList{QStringLiteral("info [Audio] Decoder created userId: 42 SR: 48000 | total: 1")});
    QVERIFY(decoders.of(7) != talker42);
    QCOMPARE(log.take(), QStringList{QStringLiteral("info [Audio] Decoder created userId: 7 SR: 48000 | total: 2")});
    QCOMPARE(decoders.of(42), talker42);
    QVERIFY(log.lines().isEmpty());
}

void TestOpusCodec::keepsInterleavedTalkersApart() {
    const auto low = packetsOf(400);
    const auto high = packetsOf(1900);
    TalkerDecoders together;
    TalkerDecoders alone;
    QVERIFY(together.rebuild(48000, 1) && alone.rebuild(48000, 1));
    std::vector<Samples> lowAlone;
    std::vector<Samples> highAlone;
    for (const Packet &packet : low)
        lowAlone.push_back(decoded(*alone.of(1), packet));
    for (const Packet &packet : high)
        highAlone.push_back(decoded(*alone.of(4294967295U), packet));
    for (size_t i = 0; i < low.size(); ++i) {
        QCOMPARE(decoded(*together.of(1), low[i]), lowAlone[i]);
        QCOMPARE(decoded(*together.of(4294967295U), high[i]), highAlone[i]);
    }
}

void TestOpusCodec::forgetsTalkersWhenRebuilt() {
    TalkerDecoders decoders;
    QVERIFY(decoders.rebuild(48000, 1));
    decoders.of(1);
    decoders.of(2);
    QVERIFY(decoders.rebuild(16000, 1));
    LogCapture log;
    QVERIFY(decoders.of(2));
    QCOMPARE(log.take(), QStringList{QStringLiteral("info [Audio] Decoder created userId: 2 SR: 16000 | total: 1")});
}

void TestOpusCodec::saysWhichTalkerCannotBeDecoded() {
    TalkerDecoders decoders;
    QVERIFY(!decoders.rebuild(44100, 1));
    LogCapture log;
    QVERIFY(!decoders.of(5));
    QVERIFY(!decoders.of(5)); // tried again at every packet
    const auto line = QStringLiteral("warning [Audio] Decoder create failed userId 5 SR 44100");
    QCOMPARE(log.take(), QStringList({line, line}));
}

QTEST_APPLESS_MAIN(TestOpusCodec)
#include "tst_OpusCodec.moc"
