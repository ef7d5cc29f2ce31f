#include "Fuzz.h"
#include "Promise.h"
#include "Script.h"
#include "Surroundings.h"
#include "app/Gateway.h"
#include "audio/ToneControl.h"
#include "config/ConfigStore.h"
#include "config/Settings.h"

#include <QDir>
#include <QFile>
#include <QJsonDocument>

#include <cmath>

namespace {

void put(const QString &path, const QByteArray &bytes) {
    QFile file(path);
    promise(file.open(QIODevice::WriteOnly) && file.write(bytes) == bytes.size(), "set-up: file");
}

bool isWithin(int least, int value, int most) {
    return value >= least && value <= most;
}

void checkTone(const Settings::Tone &tone) {
    ToneControl control;
    control.set(static_cast<float>(tone.bass), static_cast<float>(tone.mid), static_cast<float>(tone.treble), 48000);
    for (const float gainDb : {control.bass(), control.mid(), control.treble()})
        promise(std::abs(gainDb) <= 12, "a tone control keeps to its range");
    std::vector<qint16> frame(48, 20000);
    control.process(frame);
}

/// Every setting is read, as start-up does, and is something that the gateway can work with.
void checkSettings(const QJsonObject &config) {
    promise(isWithin(1, Settings::serverPort(config), 65535), "the port is a port");
    promise(Settings::baudRate(config) >= 1, "the line has a speed");
    promise(isWithin(0, Gateway::gainPercent(Settings::micGainPercent(config)), 200), "the gain is a gain");
    promise(isWithin(0, Gateway::gainPercent(Settings::speakerGainPercent(config)), 200), "the gain is a gain");
    checkTone(Settings::txTone(config));
    checkTone(Settings::rxTone(config));
    for (const auto text : {Settings::serverAddress, Settings::audioInput, Settings::serialPort, Settings::hwid,
                            Settings::callsign, Settings::password, Settings::lastRoom, Settings::defaultRoom,
                            Settings::gatewayName, Settings::frequency, Settings::location, Settings::whatsapp,
                            Settings::responsibleName, Settings::responsibleCallsign, Settings::email})
        promise(text(config).size() <= 1 << 20, "a text is no longer than its file");
    for (const auto flag : {Settings::cosLogicHigh, Settings::pttInvert, Settings::agcEnabled})
        (void)flag(config);
    (void)Settings::totDurationSeconds(config);
}

/// What has been saved is what a restart finds, and nothing is lost on the way.
void checkSaving(ConfigStore &store, const QString &folder) {
    store.object().insert(QStringLiteral("callsign"), QStringLiteral("ab1cd"));
    const QJsonObject before = store.object();
    promise(store.save(), "the settings can be saved");
    for (auto entry = before.begin(); entry != before.end(); ++entry)
        promise(store.object().value(entry.key()) == entry.value(), "saving loses no setting");
    const QJsonObject saved = store.object();
    ConfigStore next(folder);
    for (auto entry = saved.begin(); entry != saved.end(); ++entry)
        promise(entry.value().isNull() || next.object().value(entry.key()) == entry.value(),
                "what was saved is what is loaded");
    checkSettings(next.object());
}

} // namespace

/// The settings file, as found at start-up and, after each 0xFF and any letter, as somebody else has written it before
/// the next save.
void fuzz(const QByteArray &input) {
    Surroundings &around = Surroundings::instance();
    const QString folder = around.file("config");
    const QString path = folder + QStringLiteral("/config.json");
    QDir().mkpath(folder);
    const std::vector<Step> files = scriptOf(input, 'w');
    put(path, files.front().bytes);
    ConfigStore store(folder);
    checkSettings(store.object());
    for (const Step &file : files) {
        put(path, file.bytes);
        checkSaving(store, folder);
    }
}
