// Heap allocations per frame once a stream is running.

#include "Figures.h"
#include "Station.h"

#include <QCoreApplication>

#include <cstdio>
#include <cstdlib>

namespace {

long allocations = 0;

} // namespace

// The program's own definitions come before the library's, for every library of the process.
extern "C" {

// NOLINTBEGIN(bugprone-reserved-identifier, readability-identifier-naming): the C library's second names.
void *__libc_malloc(size_t size);
void *__libc_calloc(size_t count, size_t size);
void *__libc_realloc(void *block, size_t size);
// NOLINTEND(bugprone-reserved-identifier, readability-identifier-naming)

void *malloc(size_t size) {
    ++allocations;
    return __libc_malloc(size);
}

void *calloc(size_t count, size_t size) {
    ++allocations;
    return __libc_calloc(count, size);
}

void *realloc(void *block, size_t size) {
    ++allocations;
    return __libc_realloc(block, size);
}
}

namespace {

constexpr double limit = 3.0;

// The first pass lets every buffer grow to its size.
template <class Pass>
bool printAllocations(const char *what, std::size_t frames, Pass pass) {
    pass();
    const long before = allocations;
    pass();
    return printFigure(what, static_cast<double>(allocations - before) / static_cast<double>(frames), limit, "count");
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
