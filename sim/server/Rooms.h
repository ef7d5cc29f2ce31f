#pragma once

#include <QByteArray>
#include <QString>
#include <QStringList>

#include <vector>

namespace sim {

struct Room {
    QString name;
    QByteArray key; ///< 32 raw bytes; empty: audio in clear
    int maxMembers = 50;
};

/// The server's rooms, in the order in which they are listed. A pointer is good until rooms are added, removed or
/// sorted.
class Rooms {
public:
    /// False when the name is empty or taken.
    bool add(const Room &room);
    bool remove(const QString &name);
    Room *find(const QString &name);
    /// The named rooms first, in that order; the others follow as they stood. Unknown names are skipped.
    void sortBy(const QStringList &order);
    QStringList names() const;

private:
    std::vector<Room> m_rooms;
};

/// A fresh room key.
QByteArray randomKey();

} // namespace sim
