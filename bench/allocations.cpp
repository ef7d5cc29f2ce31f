// Heap allocations per frame once a stream is running.

#include "../tests/support/CountedAllocations.h"
#include "Figures.h"
#include "Station.h"

#include <QCoreApplication>

namespace {

static_assert(KIVO_COUNTS_ALLOCATIONS, "what is not counted is no figure");

constexpr double limit = 3.0;

// The first pass lets every buffer grow to its size.
template <class Pass>
bool printAllocations(const char *what, std::size_t frames, Pass pass) {
    pass();
    return printFigure(what, static_cast<double>(allocationsOf(pass)) / static_cast<double>(frames), limit, "count");
}

bool countCaptured() {
    const auto engine = Station::engine(rateHz);
    if (!engine)
        return false;
    long packets = 0;
    QObject::connect(engine.get(), &AudioEngine::audioEncoded, [&packets] { ++packets; });
    const std::size_t frames = voice().size();
    const bool isKept = printAllocations("allocations per captured frame", frames, [&] {
        for (std::size_t i = 0; i < frames; ++i)
            engine->onInputReadyRead();
    });
    return isKept && packets > 0;
}

bool countReceived(const char *what, unsigned playbackRateHz) {
    const auto engine = Station::engine(playbackRateHz);
    const std::vector<QByteArray> packets = Station::sealedVoice();
    if (!engine || packets.empty())
        return false;
    const bool isKept = printAllocations(what, packets.size(), [&] {
        for (const QByteArray &packet : packets) {
            engine->onAudioReceivedFrom(packet, Station::talker);
            engine->onOutputBufferTimer();
        }
    });
    return isKept && engine->outputLevel() > 0;
}

} // namespace

int main(int argc, char **argv) {
    const QCoreApplication application(argc, argv);
    qInstallMessageHandler([](QtMsgType, const QMessageLogContext &, const QString &) {});
    const bool captured = countCaptured();
    const bool received = countReceived("allocations per received frame, 48000 Hz", rateHz);
    const bool resampled = countReceived("allocations per received frame, 44100 Hz", 44100);
    return captured && received && resampled ? 0 : 1;
}
