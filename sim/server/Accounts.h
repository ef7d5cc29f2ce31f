#pragma once

#include "sim/server/Account.h"

#include <QJsonArray>
#include <QJsonObject>

#include <functional>
#include <map>

namespace sim {

/// The server's user directory, in order of user id. Pointers stay good until that account is removed.
class Accounts {
public:
    /// Adds the account, or replaces the one of the same id.
    void add(const Account &account);
    void remove(int id);

    Account *byId(int id);
    Account *byCallsign(const QString &callsign);
    /// The account that a text names by callsign or by decimal id.
    Account *named(const QString &callsignOrId);

    /// The records of the accounts that the filter keeps.
    QJsonArray records(const std::function<bool(const Account &)> &keep) const;

private:
    std::map<int, Account> m_accounts;
};

QJsonObject accountRecord(const Account &account);

} // namespace sim
