#pragma once

#include <QByteArray>

#include <optional>
#include <span>
#include <vector>

/// Converts mono 16-bit samples between rates: Lanczos kernel with a = 4 (8 taps) in double precision, normalised by
/// the sum of the weights.
///
/// Output n lies at input position p = n / (toRate / fromRate); tap k of -3..+4 weighs input floor(p) + k by
/// sinc(d) * sinc(d / 4), where d = p - floor(p) - k. Taps outside the input are skipped, sums are taken from k = -3
/// upward, the fraction of the quotient is cut off. Nothing is remembered of the samples from call to call.
///
/// The weights depend on rates and input length alone, and their sines cost far more than all else, so those of the
/// last frame are kept: from its second frame on a stream costs only its multiplications.
class Resampler {
public:
    Resampler();
    ~Resampler();
    Resampler(const Resampler &) = delete;
    Resampler &operator=(const Resampler &) = delete;

    /// Fills out with the converted samples, reusing its storage. They are the input's own when a rate is below 1, the
    /// rates are equal, the input has fewer than 2 samples, or the output would have none or more than
    /// maxOutputSamples.
    /// @param out  not the storage behind in
    void convert(std::span<const qint16> in, int fromRate, int toRate, std::vector<qint16> &out);
    /// The same on the bytes of native-endian samples. An odd last byte is no sample.
    QByteArray convert(const QByteArray &samples, int fromRate, int toRate);

    /// Samples that inputSamples are at the other rate, however many; inputSamples when a rate is below 1.
    static qint64 outputSamples(qint64 inputSamples, int fromRate, int toRate);
    /// Five minutes at 192000 Hz: a bound for the memory that odd rates can ask for, far above any sound of the
    /// gateway.
    static constexpr qint64 maxOutputSamples = 5LL * 60 * 192000;

private:
    struct Conversion {
        qint64 inputSamples;
        qint64 outputSamples;
        int fromRate;
        int toRate;
        bool operator==(const Conversion &) const = default;
    };
    struct OutputPair;
    class Kernel;

    /// Nothing when the input is to stay as it is.
    static std::optional<Conversion> conversionOf(qint64 inputSamples, int fromRate, int toRate);
    void run(const Conversion &conversion, std::span<const qint16> in, std::vector<qint16> &out);
    void runFrame(const Conversion &conversion, std::span<const qint16> in, std::span<qint16> out);

    Conversion m_tableFor{};
    std::vector<OutputPair> m_table; ///< the weights of every output of m_tableFor
    std::vector<double> m_source;    ///< the frame at hand
};
