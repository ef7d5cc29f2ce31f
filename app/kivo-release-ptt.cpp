#include "app/LogOutput.h"
#include "config/AppliancePaths.h"
#include "config/ConfigStore.h"
#include "config/Settings.h"
#include "radio/ArduinoController.h"

#include <QCoreApplication>
#include <QTimer>

#include <chrono>
#include <cstdlib>

namespace {

constexpr std::chrono::milliseconds boardSettled{250};

/// Tells the board twice: at once, and when it knows its polarities again, because opening the port has restarted many
/// a board, and one that is wired inverted keys the transmitter until it is told so.
bool releaseTransmitter(const QJsonObject &config) {
    const ArduinoTiming timing;
    ArduinoController board(nullptr, timing);
    if (!board.openPort(Settings::serialPort(config), Settings::baudRate(config), Settings::cosLogicHigh(config),
                        Settings::pttInvert(config)))
        return false;
    board.setPtt(false);
    QTimer::singleShot(timing.firstConfig + boardSettled, [&board] {
        board.closePort(); // with another "PTT:0"
        QCoreApplication::quit();
    });
    QCoreApplication::exec();
    return true;
}

} // namespace

/// Releases the transmitter in place of a daemon that has ended, however it did. Fails when the board cannot be told.
int main(int argc, char **argv) {
    installLogOutput();
    const QCoreApplication application(argc, argv);
    ConfigStore config(AppliancePaths().configDir());
    if (Settings::serialPort(config.object()).isEmpty())
        return EXIT_SUCCESS;
    return releaseTransmitter(config.object()) ? EXIT_SUCCESS : EXIT_FAILURE;
}
