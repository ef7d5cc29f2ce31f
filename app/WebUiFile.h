#pragma once

#include <QByteArray>
#include <QJsonDocument>
#include <QString>

/// Rewrites a file that the Web UI reads, in place: truncated, written, then mode 0664, owner root and group "www-data"
/// where the system has that group. Failures are silent, since the next tick or reply writes the file again.
///
/// A file that there is no room for is left empty.
///
/// The folder belongs to the Web UI as much as to us, so whatever else stands under the name (a link, a FIFO, an empty
/// folder, a second name of another file) is taken away. What it leads to is left as it is.
void writeWebUiFile(const QString &path, const QByteArray &bytes);

/// The same with an object or array, indented.
template <typename Json>
void writeWebUiJson(const QString &path, const Json &json) {
    writeWebUiFile(path, QJsonDocument(json).toJson());
}
