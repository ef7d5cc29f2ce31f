#pragma once

#include <QString>

namespace sim {

/// A registered user of the voice network.
struct Account {
    int id = 0;
    QString callsign;
    QString password;
    QString name;
    bool isAdmin = false;
    /// An account that waits for approval may log in and listen, but not talk.
    bool approved = true;
    /// When not empty, only this hardware id may log in.
    QString hwid;
    /// Gateway profile as the server's JSON records carry it.
    QString gatewayName, frequency, location, email, whatsapp, responsibleName, responsibleCallsign;
    QString status = QStringLiteral("active");
    QString date; ///< a date text of the user administration, kept as given
    bool muted = false;
};

} // namespace sim
