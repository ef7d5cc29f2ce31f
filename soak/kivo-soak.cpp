// Keeps the gateway busy with everything at once for as long as one likes, and holds it to its promises meanwhile.
//
//   kivo-soak MINUTES [--seed N] [--journal FILE]
//
// Ends with 0 when every promise and every limit was kept, with 1 when not, with 2 when it could not begin.

#include "Events.h"
#include "Result.h"
#include "sim/MonotonicClock.h"

#include <QCommandLineParser>
#include <QCoreApplication>

#include <algorithm>
#include <cstdio>

using namespace sim;

namespace {

constexpr int mostStretches = 10;
constexpr int sampleIntervalMs = 30000; // the kernel holds the process's memory map for it

struct Options {
    int minutes = 0;
    quint32 seed = 0;
    QString journal;
};

Options optionsOf(const QCoreApplication &application) {
    const QString seed = QStringLiteral("seed");
    const QString journal = QStringLiteral("journal");
    QCommandLineParser parser;
    parser.addHelpOption();
    parser.addOptions({{seed, QStringLiteral("Draws the events of an earlier run."), QStringLiteral("number"),
                        QString::number(QRandomGenerator::system()->generate())},
                       {journal, QStringLiteral("What happens when, line by line."), QStringLiteral("file"),
                        QStringLiteral("soak.log")}});
    parser.addPositionalArgument(QStringLiteral("minutes"), QStringLiteral("How long."));
    parser.process(application);
    bool isNumber = false;
    Options options = {parser.positionalArguments().value(0).toInt(), parser.value(seed).toUInt(&isNumber),
                       parser.value(journal)};
    if (options.minutes < 1 || !isNumber)
        parser.showHelp(2);
    return options;
}

bool bringUp(Site &site) {
    return site.bringUp() && site.waitForLog(QStringLiteral("[Arduino] Config sent"), 10000);
}

/// One stretch of events; remembers the most that the daemon held meanwhile.
void run(Scene &scene, Events &events, std::int64_t durationNs, Figures &most) {
    const std::int64_t endNs = monotonicNs() + durationNs;
    events.begin();
    while (monotonicNs() < endNs && scene.site().daemon().isRunning()) {
        Site::waitFor([&] { return monotonicNs() >= endNs; }, sampleIntervalMs);
        const Figures now = figuresOf(scene.site().daemon().processId());
        most.residentMb = std::max(most.residentMb, now.residentMb);
        most.privateDirtyMb = std::max(most.privateDirtyMb, now.privateDirtyMb);
    }
    events.stop();
}

bool soak(Site &site, Journal &journal, const Options &options) {
    Scene scene(site, journal);
    Events events(scene, options.seed);
    Figures most;
    std::vector<Rest> rests = {comeToRest(scene)};
    const std::int64_t beginNs = monotonicNs();
    const int stretches = std::clamp(options.minutes, 2, mostStretches);
    for (int stretch = 0; stretch < stretches && site.daemon().isRunning(); ++stretch) {
        run(scene, events, std::int64_t(options.minutes) * 60'000'000'000 / stretches, most);
        rests.push_back(comeToRest(scene));
    }
    const double seconds = double(monotonicNs() - beginNs) / 1e9;
    loseBoard(scene);
    return Result(scene, rests, most, seconds).print();
}

} // namespace

int main(int argc, char **argv) {
    if (!enterPrivateSite())
        return 2;
    const QCoreApplication application(argc, argv);
    const Options options = optionsOf(application);
    Journal journal(options.journal);
    if (!journal.isOpen()) {
        std::fprintf(stderr, "cannot write %s\n", qPrintable(options.journal));
        return 2;
    }
    std::printf("seed %u, %d minutes, journal %s\n", options.seed, options.minutes, qPrintable(journal.path()));
    std::fflush(stdout);
    Site site;
    if (!bringUp(site)) {
        std::fprintf(stderr, "the daemon does not get into its room\n");
        return 2;
    }
    return soak(site, journal, options) ? 0 : 1;
}
