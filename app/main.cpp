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
    // Qt's own event loop: GLib's costs a sixth more at a hundred timers a second, and nothing here needs it.
    qputenv("QT_NO_GLIB", "1");
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
