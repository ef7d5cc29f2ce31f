#include "sim/show/Report.h"

#include <initializer_list>

namespace sim {
namespace {

QString row(const QString &first, const std::initializer_list<QString> &cells) {
    QString line = first.leftJustified(16);
    for (const QString &cell : cells)
        line += cell.rightJustified(13);
    return line + QLatin1Char('\n');
}

QString passageRow(const Passage &passage) {
    const Comparison &found = passage.comparison;
    if (!passage.wasHeard()) {
        // Delay and loss of something that is not what was said would be numbers without a meaning.
        return row(passage.direction,
                   {QStringLiteral("NO"), QStringLiteral("-"), QStringLiteral("%1 dBFS").arg(found.saidDbfs, 0, 'f', 1),
                    QStringLiteral("-"), QStringLiteral("-"), QString::number(found.similarity, 'f', 2)});
    }
    return row(passage.direction,
               {QStringLiteral("yes"), QStringLiteral("%1 ms").arg(found.delayMs, 0, 'f', 0),
                QStringLiteral("%1 dBFS").arg(found.saidDbfs, 0, 'f', 1),
                QStringLiteral("%1 dBFS").arg(found.heardDbfs, 0, 'f', 1),
                QStringLiteral("%1 %").arg(found.lossPercent, 0, 'f', 1), QString::number(found.similarity, 'f', 2)});
}

} // namespace

QString reportTable(const std::vector<Passage> &passages) {
    QString table = row(QStringLiteral("direction"),
                        {QStringLiteral("heard"), QStringLiteral("delay"), QStringLiteral("level said"),
                         QStringLiteral("level heard"), QStringLiteral("loss"), QStringLiteral("similarity")});
    for (const Passage &passage : passages)
        table += passageRow(passage);
    return table;
}

} // namespace sim
