#include "sim/server/Accounts.h"

namespace sim {

namespace {

struct TextColumn {
    const char *key;
    QString Account::*text;
};

constexpr TextColumn textColumns[] = {
    {"callsign", &Account::callsign},
    {"name", &Account::name},
    {"gateway_name", &Account::gatewayName},
    {"frequency", &Account::frequency},
    {"location", &Account::location},
    {"email", &Account::email},
    {"whatsapp", &Account::whatsapp},
    {"responsible_name", &Account::responsibleName},
    {"responsible_callsign", &Account::responsibleCallsign},
    {"status", &Account::status},
    {"registered_hwid", &Account::hwid},
    {"date", &Account::date},
};

struct FlagColumn {
    const char *key;
    bool Account::*flag;
};

constexpr FlagColumn flagColumns[] = {
    {"approved", &Account::approved},
    {"is_admin", &Account::isAdmin},
    {"is_muted", &Account::muted},
};

} // namespace

void Accounts::add(const Account &account) {
    m_accounts[account.id] = account;
}

void Accounts::remove(int id) {
    m_accounts.erase(id);
}

Account *Accounts::byId(int id) {
    const auto it = m_accounts.find(id);
    return it == m_accounts.end() ? nullptr : &it->second;
}

Account *Accounts::byCallsign(const QString &callsign) {
    for (auto &[id, account] : m_accounts) {
        if (account.callsign == callsign)
            return &account;
    }
    return nullptr;
}

Account *Accounts::named(const QString &callsignOrId) {
    Account *account = byCallsign(callsignOrId);
    return account ? account : byId(callsignOrId.toInt());
}

QJsonArray Accounts::records(const std::function<bool(const Account &)> &keep) const {
    QJsonArray records;
    for (const auto &[id, account] : m_accounts) {
        if (keep(account))
            records.append(accountRecord(account));
    }
    return records;
}

QJsonObject accountRecord(const Account &account) {
    QJsonObject record{{QStringLiteral("id"), account.id}};
    for (const TextColumn &column : textColumns)
        record.insert(QLatin1String(column.key), account.*column.text);
    for (const FlagColumn &column : flagColumns)
        record.insert(QLatin1String(column.key), account.*column.flag);
    return record;
}

} // namespace sim
