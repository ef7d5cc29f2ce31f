#include "app/CommandIntake.h"

#include "app/DroppedFile.h"
#include "app/Gateway.h"
#include "app/WebUiActions.h"

#include <QDir>
#include <QElapsedTimer>
#include <QJsonDocument>
#include <QTimer>

namespace {

/// Well below the shortest period of the audio path.
constexpr qint64 turnMs = 4;

} // namespace

CommandIntake::CommandIntake(Gateway &gateway, StateFiles &files)
    : m_gateway(gateway),
      m_files(files),
      m_folder(gateway.paths.exchangeDir()) {}

void CommandIntake::scan() {
    if (!m_waiting.isEmpty())
        return;
    m_waiting = QDir(m_folder).entryList({QStringLiteral("kivo-cmd-*.json")},
                                         QDir::Files | QDir::NoSymLinks | QDir::CaseSensitive, QDir::Name);
    workOff();
}

void CommandIntake::workOff() {
    QElapsedTimer turn;
    turn.start();
    while (!m_waiting.isEmpty() && turn.elapsed() < turnMs)
        carryOut(m_waiting.takeFirst());
    if (!m_waiting.isEmpty())
        QTimer::singleShot(0, this, &CommandIntake::workOff);
}

void CommandIntake::carryOut(const QString &fileName) {
    const auto content = takeDroppedFile(m_folder + QLatin1Char('/') + fileName);
    if (!content)
        return;
    const QJsonDocument command = QJsonDocument::fromJson(*content);
    if (command.isObject())
        runWebUiCommand(m_gateway, m_files, command.object());
}
