#pragma once

#include <QString>

/// The folders of the appliance, and those of its files that more than one place must know. Handed down by value, so
/// that a test can give another root; the program itself always uses the default.
struct AppliancePaths {
    QString root = QStringLiteral("/opt/kivo-appliance");

    QString configDir() const { return root + QStringLiteral("/config"); }
    QString exchangeDir() const { return root + QStringLiteral("/tmp"); }
    QString vuFile() const { return exchangeDir() + QStringLiteral("/kivo-vu.json"); }
    QString statusFile() const { return exchangeDir() + QStringLiteral("/kivo-status.json"); }
    QString loginTriggerFile() const { return exchangeDir() + QStringLiteral("/login-cred.json"); }
    QString warningToneFile() const { return root + QStringLiteral("/sounds/tot_warning.wav"); }
};
