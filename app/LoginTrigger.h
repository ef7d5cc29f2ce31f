#pragma once

#include <QObject>
#include <QString>

struct Gateway;

/// Credentials from the Web UI, handed in by a file: stored in the settings and used to log in, first or anew.
class LoginTrigger : public QObject {
    Q_OBJECT

public:
    explicit LoginTrigger(Gateway &gateway);

    /// Looks for the file; called by a timer.
    void check();

private:
    void submit(const QString &callsign, const QString &password);
    void store(const QString &callsign, const QString &password);
    void logIn(const QString &callsign, const QString &password);

    Gateway &m_gateway;
    const QString m_path;
};
