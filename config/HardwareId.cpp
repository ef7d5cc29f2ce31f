#include "config/HardwareId.h"

#include <QCryptographicHash>
#include <QFile>
#include <QNetworkInterface>
#include <QStringList>
#include <QSysInfo>

#include <algorithm>

namespace {

constexpr int idLength = 32;

const QString &noAddress() {
    static const QString zeros = QStringLiteral("00:00:00:00:00:00");
    return zeros;
}

bool identifiesTheBox(const InterfaceTraits &interface) {
    return interface.isUp && interface.isRunning && !interface.isLoopBack && !interface.hardwareAddress.isEmpty() &&
           interface.hardwareAddress != noAddress();
}

QVector<InterfaceTraits> interfacesOfThisBox() {
    QVector<InterfaceTraits> interfaces;
    const auto listed = QNetworkInterface::allInterfaces();
    for (const QNetworkInterface &one : listed) {
        const auto flags = one.flags();
        interfaces.append({flags.testFlag(QNetworkInterface::IsUp), flags.testFlag(QNetworkInterface::IsRunning),
                           flags.testFlag(QNetworkInterface::IsLoopBack), one.hardwareAddress()});
    }
    return interfaces;
}

QString machineIdOfThisBox() {
    return machineIdentifier({QStringLiteral("/etc/machine-id"), QStringLiteral("/sys/class/dmi/id/product_uuid")},
                             QSysInfo::currentCpuArchitecture());
}

} // namespace

QString computeHardwareId() {
    return hardwareIdOf({QSysInfo::machineHostName(), primaryNetworkAddress(interfacesOfThisBox()),
                         machineIdOfThisBox(), QSysInfo::productType(), QSysInfo::kernelVersion()});
}

QString hardwareIdOf(const HardwareTraits &traits) {
    const QStringList texts = {traits.hostName, traits.networkAddress, traits.machineId, traits.productType,
                               traits.kernelVersion};
    const QByteArray digest =
        QCryptographicHash::hash(texts.join(QLatin1Char('|')).toUtf8(), QCryptographicHash::Sha256);
    return QString::fromLatin1(digest.toHex().left(idLength));
}

QString primaryNetworkAddress(const QVector<InterfaceTraits> &interfaces) {
    const auto found = std::find_if(interfaces.begin(), interfaces.end(), identifiesTheBox);
    return found == interfaces.end() ? noAddress() : found->hardwareAddress;
}

QString machineIdentifier(const QStringList &paths, const QString &fallback) {
    for (const QString &path : paths) {
        QFile file(path);
        if (!file.open(QIODevice::ReadOnly))
            continue;
        QString text = QString::fromUtf8(file.readAll()).trimmed();
        if (!text.isEmpty())
            return text;
    }
    return fallback;
}
