#include "sim/server/Rooms.h"

#include <algorithm>
#include <sodium.h>

namespace sim {

bool Rooms::add(const Room &room) {
    if (room.name.isEmpty() || find(room.name))
        return false;
    m_rooms.push_back(room);
    return true;
}

bool Rooms::remove(const QString &name) {
    return std::erase_if(m_rooms, [&](const Room &room) { return room.name == name; }) > 0;
}

Room *Rooms::find(const QString &name) {
    const auto it = std::find_if(m_rooms.begin(), m_rooms.end(), [&](const Room &room) { return room.name == name; });
    return it == m_rooms.end() ? nullptr : &*it;
}

void Rooms::sortBy(const QStringList &order) {
    const auto place = [&](const Room &room) {
        const int index = order.indexOf(room.name);
        return index < 0 ? order.size() : index;
    };
    std::stable_sort(m_rooms.begin(), m_rooms.end(), [&](const Room &a, const Room &b) { return place(a) < place(b); });
}

QStringList Rooms::names() const {
    QStringList names;
    for (const Room &room : m_rooms)
        names.append(room.name);
    return names;
}

QByteArray randomKey() {
    QByteArray key(crypto_secretbox_KEYBYTES, Qt::Uninitialized);
    randombytes_buf(key.data(), std::size_t(key.size()));
    return key;
}

} // namespace sim
