#pragma once

#include <QString>

/// Every path of the appliance below its folder. Handed down by value, so that a test can give another root; the
/// program itself always uses the default.
struct AppliancePaths {
    QString root = QStringLiteral("/opt/kivo-appliance");

    QString configDir() const { return root + QStringLiteral("/config"); }
    QString exchangeDir() const { return root + QStringLiteral("/tmp"); }
    QString vuFile() const { return exchangeDir() + QStringLiteral("/kivo-vu.json"); }
    QString statusFile() const { return exchangeDir() + QStringLiteral("/kivo-status.json"); }
    QString loginTriggerFile() const { return exchangeDir() + QStringLiteral("/login-cred.json"); }
    QString warningToneFile() const { return root + QStringLiteral("/sounds/tot_warning.wav"); }
};
