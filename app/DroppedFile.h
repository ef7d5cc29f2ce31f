#pragma once

#include <QByteArray>
#include <QString>

#include <optional>

/// Takes what the Web UI has left in its file for us: the content, with the file already deleted, so that a bad one is
/// never met twice. Empty when there is nothing worth parsing: an empty file, or one of absurd size, which is not read.
///
/// Nothing (errno tells why) when the file cannot be opened or deleted; it is then left for the next time.
std::optional<QByteArray> takeDroppedFile(const QString &path);
