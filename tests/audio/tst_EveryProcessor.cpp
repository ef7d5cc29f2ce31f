#include "audio/AutomaticGain.h"
#include "audio/Biquad.h"
#include "audio/Channels.h"
#include "audio/Gain.h"
#include "audio/LevelMeter.h"
#include "audio/Resampler.h"
#include "audio/ToneControl.h"
#include "audio/WarningTone.h"

#include <QCryptographicHash>
#include <QFile>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QtEndian>
#include <QtTest>

#include <algorithm>
#include <array>
#include <bit>
#include <span>
#include <vector>

namespace {

using Samples = std::vector<qint16>;

/// Test signals made in integers alone, so that they are the same on every processor whatever its mathematical library.
class Source {
public:
    /// Every sample value is as likely as any other.
    Samples noise(int count) {
        return make(count, [this](int) { return next(); });
    }
    /// Twenty frames as the stages meet them: loud, soft, clipped, with pauses; at 50 frames a second.
    static std::vector<Samples> talk(int rateHz) {
        Source source;
        std::vector<Samples> frames;
        for (const int loudness : {65536, 20000, 6000, 2000, 400, 50, 1, 0, 0, 30000}) {
            frames.push_back(scaled(source.noise(rateHz / 50), loudness));
            frames.push_back(scaled(triangle(rateHz / 50, rateHz), loudness));
        }
        return frames;
    }

private:
    template <class Value>
    static Samples make(int count, Value value) {
        Samples samples(count);
        for (int i = 0; i < count; ++i)
            samples[i] = static_cast<qint16>(value(i));
        return samples;
    }

    /// 437 Hz at full scale.
    static Samples triangle(int count, int rateHz) {
        return make(count, [rateHz](int i) {
            const int phase = int(qint64{i} * 437 * 131072 / rateHz % 131072);
            return std::clamp(std::abs(phase - 65536) - 32768, -32768, 32767);
        });
    }

    /// @param loudness  65536 is unity
    static Samples scaled(Samples samples, int loudness) {
        for (qint16 &sample : samples)
            sample = static_cast<qint16>(qint64{sample} * loudness / 65536);
        return samples;
    }

    /// G. Marsaglia's 32-bit xorshift, its upper half.
    int next() {
        m_state ^= m_state << 13;
        m_state ^= m_state >> 17;
        m_state ^= m_state << 5;
        return int(m_state >> 16);
    }

    quint32 m_state = 2463534242;
};

/// What all that was added comes to, the same on processors of either byte order.
class Digest {
public:
    void add(std::span<const qint16> samples) {
        for (const qint16 sample : samples)
            addInteger(sample);
    }
    void add(const QByteArray &nativeSamples) {
        add({reinterpret_cast<const qint16 *>(nativeSamples.constData()), std::size_t(nativeSamples.size()) / 2});
    }
    void add(int value) { addInteger(value); }
    void add(float value) { addInteger(std::bit_cast<quint32>(value)); }
    QString hex() const { return QString::fromLatin1(m_hash.result().toHex()); }

private:
    template <class Integer>
    void addInteger(Integer value) {
        const Integer bytes = qToLittleEndian(value);
        m_hash.addData(reinterpret_cast<const char *>(&bytes), sizeof(bytes));
    }

    QCryptographicHash m_hash{QCryptographicHash::Sha256};
};

constexpr std::array rates = {8000, 11025, 12000, 16000, 22050, 24000, 32000, 44100, 48000, 96000, 192000};
constexpr std::array tones = {-12.0F, -7.0F, -0.5F, 0.0F, 3.0F, 6.1F, 12.0F};

/// The C library has two sines for x86-64; the one for a processor that multiplies and adds in one step is the one of
/// 64-bit Arm.
bool hasSameSine() {
#ifdef __x86_64__
    return __builtin_cpu_supports("fma");
#else
    return true;
#endif
}

QByteArray littleEndian(quint32 value, int bytes) {
    const quint32 ordered = qToLittleEndian(value);
    return {reinterpret_cast<const char *>(&ordered), bytes};
}

/// A 16-bit PCM file of noise.
QByteArray wavFile(int rateHz, int channels) {
    const Samples samples = Source().noise(rateHz / 10 * channels);
    QByteArray data;
    for (const qint16 sample : samples)
        data += littleEndian(quint16(sample), 2);
    return "RIFF" + littleEndian(quint32(data.size() + 36), 4) + "WAVEfmt " + littleEndian(16, 4) + littleEndian(1, 2) +
           littleEndian(quint32(channels), 2) + littleEndian(quint32(rateHz), 4) +
           littleEndian(quint32(rateHz * channels * 2), 4) + littleEndian(quint32(channels * 2), 2) +
           littleEndian(16, 2) + "data" + littleEndian(quint32(data.size()), 4) + data;
}

} // namespace

/// Every processor gives the same samples: each stage is fed the same numbers and all that comes out is summed up in
/// one digest. The digests are those of an x86-64; that the samples are the right ones is for the other tests to show.
/// The codec is not among the stages: it is the distribution's library, tuned for each processor, and its last bits
/// differ.
class TestEveryProcessor : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void resamplesAlike_data();
    void resamplesAlike();
    void amplifiesAlike();
    void evensOutAlike();
    void designsFiltersAlike();
    void shapesAlike();
    void metersAlike();
    void mixesAlike();
    void makesTheSameBeeps();
    void playsTheSameWarningFile();
    void sendsAndPlaysAlike();
};

void TestEveryProcessor::resamplesAlike_data() {
    QTest::addColumn<int>("fromRate");
    QTest::addColumn<QString>("digest");
    const QString digests[] = {
        QStringLiteral("83b6e4cd799cbf23094e1c2737ea3b171bbce775c9c4bf62d9348e501d078563"),
        QStringLiteral("a7984cf14f2d77fe759e720d2fadf045c2a707274cfe2de921196cb422f00582"),
        QStringLiteral("53b3bdbed0d9eff16ca45cf7420ff9d225adcc4a3b2dc587b21cbac0cf539efa"),
        QStringLiteral("d9e056d1bc0b8ff0c0c0e21f21abc49367020e0d6fc5ba63c1c2663885cf9ca2"),
        QStringLiteral("9eebfff5b2fce0ed93c0b5b6e098f493aae1b0f725cb19bf9e39d9742b11a4c2"),
        QStringLiteral("7fb4b2380804dc21db2dc6c725cf522cb2aff36e22e5e4e4dbc89362684925e5"),
        QStringLiteral("44c46e840cc1558eaa86d11099a3917ce03618a746cce6b44353bf63b181fea1"),
        QStringLiteral("641b2664aaf3fa050ef6016c30e3de650c3db1b94388b654f5d51089b588c9c7"),
        QStringLiteral("0bcc85cffc1fdd25bc562ac8f150b397c7fd93fd113f08f1b8241cb37abe05a2"),
        QStringLiteral("4d2f620f2dabd68ead0ee053ecbbd9e8571432b3e1761b59d377a16dbaa261d4"),
        QStringLiteral("fefbd9d97ef8c1e6c389d8ea64cdaa93255620a81e2c6b2f2f171c69577df77e"),
    };
    for (std::size_t i = 0; i < rates.size(); ++i)
        QTest::addRow("from %d Hz", rates[i]) << rates[i] << digests[i];
}

void TestEveryProcessor::resamplesAlike() {
    QFETCH(int, fromRate);
    QFETCH(QString, digest);
    if (!hasSameSine())
        QSKIP("this processor's sine differs");
    Digest samples;
    Resampler resampler;
    Samples converted;
    for (const int toRate : rates) {
        for (const Samples &frame : Source::talk(fromRate)) {
            resampler.convert(frame, fromRate, toRate, converted);
            samples.add(converted);
        }
    }
    QCOMPARE(samples.hex(), digest);
}

void TestEveryProcessor::amplifiesAlike() {
    Digest samples;
    for (int percent = 0; percent <= 200; ++percent) {
        for (const int lowest : {-32767, -32768}) {
            Samples frame = Source().noise(960);
            applyGain(frame, percent, lowest);
            samples.add(frame);
        }
    }
    QCOMPARE(samples.hex(), QStringLiteral("74a1110f9e5d14084fc981c01e7fc1dde50c9a1d1c9d0fd8a20946e1c55d8e6d"));
}

void TestEveryProcessor::evensOutAlike() {
    Digest samples;
    AutomaticGain gain;
    for (const int rateHz : rates) {
        for (Samples &frame : Source::talk(rateHz)) {
            gain.process(frame);
            samples.add(frame);
            samples.add(gain.gain());
        }
    }
    QCOMPARE(samples.hex(), QStringLiteral("bfc39239f88dcce4bb5ace4a654ea14aca1390708071a20301ba3e994b856946"));
}

void TestEveryProcessor::designsFiltersAlike() {
    Digest coefficients;
    for (const int rateHz : rates) {
        for (const float gainDb : tones) {
            for (const Biquad &filter : {lowShelf(gainDb, 150.0F, rateHz), peaking(gainDb, 1000.0F, 0.9F, rateHz),
                                         highShelf(gainDb, 3000.0F, rateHz)}) {
                for (const float coefficient : {filter.b0, filter.b1, filter.b2, filter.a1, filter.a2})
                    coefficients.add(coefficient);
            }
        }
    }
    QCOMPARE(coefficients.hex(), QStringLiteral("a35290bf1c45888486c357026463de67ac4a45e95fa6f8ab57dc584bfde83506"));
}

void TestEveryProcessor::shapesAlike() {
    Digest samples;
    for (const int rateHz : rates) {
        for (const float bass : tones) {
            ToneControl tone;
            tone.set(bass, -bass / 2.0F, 12.0F - bass, rateHz);
            for (Samples &frame : Source::talk(rateHz)) {
                tone.process(frame);
                samples.add(frame);
            }
        }
    }
    QCOMPARE(samples.hex(), QStringLiteral("028074f3a9ac4973d3f546acc975cf0837071f09cde2a2eeb6552f2cf480817b"));
}

void TestEveryProcessor::metersAlike() {
    Digest levels;
    for (int level = 0; level <= 32767; ++level)
        levels.add(levelOf(std::array{qint16(level), qint16(-level / 2)}));
    for (const Samples &frame : Source::talk(48000))
        levels.add(levelOf(frame));
    QCOMPARE(levels.hex(), QStringLiteral("286dde9b04a72f8f3e8a7061701a9df3d3f086c3272eec1b68e83a9a90c9b142"));
}

void TestEveryProcessor::mixesAlike() {
    Digest samples;
    Samples storage;
    for (const int channels : {1, 2, 3, 6, 8}) {
        Samples frame = Source().noise(960 * channels);
        for (const int deviceChannels : {1, 2, 5})
            samples.add(fitChannels(frame, channels, deviceChannels, storage));
        samples.add(mixToMono(frame, channels));
    }
    QCOMPARE(samples.hex(), QStringLiteral("37883545a56e543d5a4121a0f8c34a8aa522b19f2d697127555bd4cadd5c46d5"));
}

void TestEveryProcessor::makesTheSameBeeps() {
    Digest samples;
    for (const int rateHz : rates) {
        for (const int channels : {1, 2})
            samples.add(syntheticWarningTone(rateHz, channels));
    }
    QCOMPARE(samples.hex(), QStringLiteral("85cfa8fd0ac63235bfcd2d76230b6427040133d742cd0268d8d727c3312c3fe0"));
}

void TestEveryProcessor::playsTheSameWarningFile() {
    if (!hasSameSine())
        QSKIP("this processor's sine differs");
    const QTemporaryDir folder;
    QFile file(folder.filePath(QStringLiteral("tone.wav")));
    Digest samples;
    Resampler resampler;
    for (const int channels : {1, 2}) {
        QVERIFY(file.open(QIODevice::WriteOnly));
        QVERIFY(file.write(wavFile(22050, channels)) > 44);
        file.close();
        for (const int rateHz : rates) {
            if (rateHz != 22050)
                QTest::ignoreMessage(QtInfoMsg, QRegularExpression(QStringLiteral("WAV resampled")));
            const auto tone = warningToneFromWav(file.fileName(), rateHz, 2, resampler);
            QVERIFY(tone);
            samples.add(tone->samples);
        }
    }
    QCOMPARE(samples.hex(), QStringLiteral("2dbd6e43965aa00b00b38e9f8664e94d04eea7daed32f09585b191a9f24d74a8"));
}

// As the engine strings the stages together, one direction after the other.
void TestEveryProcessor::sendsAndPlaysAlike() {
    if (!hasSameSine())
        QSKIP("this processor's sine differs");
    Digest samples;
    ToneControl txTone;
    txTone.set(3.0F, -2.0F, 5.0F, 48000);
    ToneControl rxTone;
    rxTone.set(-4.0F, 1.5F, 2.0F, 44100);
    AutomaticGain automaticGain;
    Resampler resampler;
    Samples received;
    for (Samples &frame : Source::talk(48000)) {
        applyGain(frame, 130, -32767);
        txTone.process(frame);
        samples.add(levelOf(frame));
        samples.add(frame);
        resampler.convert(frame, 48000, 44100, received);
        applyGain(received, 80, -32768);
        automaticGain.process(received);
        rxTone.process(received);
        samples.add(levelOf(received));
        samples.add(received);
    }
    QCOMPARE(samples.hex(), QStringLiteral("159ef3d7166bfdc6a33fed4f90da5b760661e7372461681d6ccf84e02a0741a9"));
}

QTEST_APPLESS_MAIN(TestEveryProcessor)
#include "tst_EveryProcessor.moc"
