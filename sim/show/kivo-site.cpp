#include "sim/show/Show.h"
#include "sim/sound/Voices.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QSocketNotifier>

#include <array>
#include <csignal>
#include <cstdio>
#include <fcntl.h>
#include <unistd.h>

namespace {

struct CommandLine {
    sim::Show::Options show;
    QString fromRadio;
    QString fromRoom;
};

CommandLine commandLineOf(const QCoreApplication &app) {
    const QString stay = QStringLiteral("stay");
    const QString out = QStringLiteral("out");
    const QString daemon = QStringLiteral("daemon");
    QCommandLineParser parser;
    parser.setApplicationDescription(QStringLiteral("A simulated site around the real gateway."));
    parser.addHelpOption();
    parser.addOptions({{stay, QStringLiteral("Leave the site up afterwards, with a prompt.")},
                       {out, QStringLiteral("Where recordings and picture go."), QStringLiteral("folder"), out},
                       {daemon, QStringLiteral("Another gateway than the one that was built with this program."),
                        QStringLiteral("program")}});
    parser.addPositionalArgument(QStringLiteral("radio"), QStringLiteral("What the radio hears: FILE.wav or words."));
    parser.addPositionalArgument(QStringLiteral("room"), QStringLiteral("What the room says: FILE.wav or words."));
    parser.process(app);
    const QStringList sentences = parser.positionalArguments();
    if (sentences.size() != 2)
        parser.showHelp(2);
    return {{parser.values(daemon), parser.value(out), parser.isSet(stay), {}}, sentences[0], sentences[1]};
}

/// What another shell puts in front of a command to run it in this process's namespaces.
QString lookInside(bool asRoot) {
    const QString user = asRoot ? QString() : QStringLiteral("--user --preserve-credentials ");
    return QStringLiteral("nsenter --target %1 %2--mount --root --net").arg(getpid()).arg(user);
}

int signalPipe[2];

/// SIGINT and SIGTERM end the event loop, so that the site is taken down in order.
void quitOnSignals() {
    if (pipe2(signalPipe, O_CLOEXEC | O_NONBLOCK) != 0) {
        return; // the signals then end the process at once, as they would anyway
    }
    auto *notifier = new QSocketNotifier(signalPipe[0], QSocketNotifier::Read, QCoreApplication::instance());
    QObject::connect(notifier, &QSocketNotifier::activated, [] { QCoreApplication::exit(1); });
    const auto tell = [](int) {
        const char byte = 0;
        [[maybe_unused]] const ssize_t written = write(signalPipe[1], &byte, 1); // full: it has been told already
    };
    std::signal(SIGINT, tell);
    std::signal(SIGTERM, tell);
    // Whoever read the output has gone; writing then fails, and the site is still taken down in order.
    std::signal(SIGPIPE, SIG_IGN);
}

} // namespace

int main(int argc, char **argv) {
    const bool asRoot = geteuid() == 0;
    if (!sim::enterPrivateSite())
        return 1;
    const QCoreApplication app(argc, argv);
    CommandLine commandLine = commandLineOf(app);
    commandLine.show.lookInside = lookInside(asRoot);
    QString problem;
    const auto fromRadio = sim::sentence(commandLine.fromRadio, sim::radioVoice, &problem);
    const auto fromRoom = sim::sentence(commandLine.fromRoom, sim::roomVoice, &problem);
    if (!fromRadio || !fromRoom) {
        std::fprintf(stderr, "%s\n", problem.toUtf8().constData());
        return 2;
    }
    sim::Show show(commandLine.show);
    if (!show.bringUp())
        return 1;
    quitOnSignals(); // until here they end the process at once, and the daemon does not outlive it
    show.play(*fromRadio, *fromRoom);
    const int ended = QCoreApplication::exec();
    return ended == 0 && show.everybodyWasHeard() ? 0 : 1;
}
