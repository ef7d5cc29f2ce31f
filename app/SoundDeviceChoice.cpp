#include "app/SoundDeviceChoice.h"

#include "audio/PcmHandle.h"

#include <QDebug>

namespace {

QString firstCard(const CaptureProbe &opens) {
    for (int card = 0; card <= 3; ++card) {
        QString device = QStringLiteral("hw:%1,0").arg(card);
        if (opens(device))
            return device;
    }
    return QStringLiteral("hw:1,0");
}

} // namespace

QString chooseSoundDevice(const QString &configured, const CaptureProbe &opens) {
    if (opens(configured)) {
        qDebug() << "[Appliance] Audio device from config:" << configured;
        return configured;
    }
    qWarning() << "[Appliance] Config device" << configured << "not available, auto-detecting...";
    QString detected = firstCard(opens);
    qDebug() << "[Appliance] Auto-detected audio device:" << detected;
    return detected;
}

bool opensForCapture(const QString &device) {
    int error = 0;
    return openPcm(device, SND_PCM_STREAM_CAPTURE, error) != nullptr;
}
