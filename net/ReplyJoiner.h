#pragma once

#include <QString>

#include <optional>

/// Puts replies together again that the server sends in two lines.
///
/// Some replies come as a bare keyword line with the JSON text on the next line; the two become "keyword|text".
class ReplyJoiner {
public:
    /// The reply that this line completes, or nothing when the line has to wait for its continuation.
    std::optional<QString> add(const QString &line);

    /// Forgets a waiting first half, as for a new connection.
    void clear();

private:
    QString m_pending; ///< empty when nothing waits: the framer hands out no empty lines
};
