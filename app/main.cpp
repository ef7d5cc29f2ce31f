#include "app/Appliance.h"
#include "app/LogOutput.h"

#include <QCoreApplication>
#include <QDebug>

namespace {

void logBanner() {
    qInfo() << "============================================";
    qInfo() << "  Kivo Darvi Linux Appliance v" << QCoreApplication::applicationVersion();
    qInfo() << "  Mode: Headless (Arduino COS/PTT)";
    qInfo() << "============================================";
}

} // namespace

int main(int argc, char **argv) {
    installLogOutput();
    const QCoreApplication application(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("Kivo-Darvi-Appliance"));
    QCoreApplication::setApplicationVersion(QStringLiteral(KIVO_VERSION));
    logBanner();

    // Never deleted: the process runs until it is killed, and there is no orderly way to take a radio site apart.
    static auto *const appliance = new Appliance;
    appliance->start();
    qInfo() << "[Appliance] Kivo Darvi Appliance berjalan";
    return QCoreApplication::exec();
}
