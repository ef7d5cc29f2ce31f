#include "app/DroppedFile.h"

#include "config/SharedFile.h"

#include <QFile>

#include <unistd.h>

namespace {

constexpr qint64 largestBytes = 1 << 20; // 1 MiB

} // namespace

std::optional<QByteArray> takeDroppedFile(const QString &path) {
    const UniqueFd file = SharedFile::openToRead(path);
    if (!file.isValid())
        return std::nullopt;
    const auto bytes = SharedFile::readAll(file, largestBytes);
    // What cannot be deleted must not be acted upon: it would be again and again.
    if (::unlink(QFile::encodeName(path).constData()) != 0)
        return std::nullopt;
    return bytes.value_or(QByteArray());
}
