// Lets SIGTERM end the daemon's event loop, and with it main(): what is only told at an orderly end, leaks and what was
// executed, is told then. Built into the daemon where one of these is looked for (KIVO_ORDERLY_END), and nowhere else.

#include <QCoreApplication>
#include <QSocketNotifier>

#include <csignal>
#include <sys/signalfd.h>

namespace {

void endOnSigterm() {
    sigset_t terminate;
    sigemptyset(&terminate);
    sigaddset(&terminate, SIGTERM);
    const int fd = pthread_sigmask(SIG_BLOCK, &terminate, nullptr) == 0
                       ? signalfd(-1, &terminate, SFD_CLOEXEC | SFD_NONBLOCK)
                       : -1;
    if (fd < 0)
        qFatal("no orderly end");
    auto *notifier = new QSocketNotifier(fd, QSocketNotifier::Read, QCoreApplication::instance());
    QObject::connect(notifier, &QSocketNotifier::activated, [] { QCoreApplication::quit(); });
}

Q_COREAPP_STARTUP_FUNCTION(endOnSigterm)

} // namespace
