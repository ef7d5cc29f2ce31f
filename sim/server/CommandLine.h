#pragma once

#include <QString>
#include <QStringList>

namespace sim {

/// A control line cut into words at single blanks. A word in double quotes may hold blanks and may be empty; it ends at
/// the quote that a blank or the end of the line follows, so that a quote inside it stays. The quotes are not part of
/// the word.
QStringList splitCommand(const QString &line);

} // namespace sim
