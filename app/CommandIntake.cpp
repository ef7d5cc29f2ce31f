#include "app/CommandIntake.h"

#include "app/DroppedFile.h"
#include "app/Gateway.h"
#include "app/WebUiActions.h"

#include <QElapsedTimer>
#include <QFile>
#include <QJsonDocument>
#include <QTimer>

#include <algorithm>
#include <dirent.h>
#include <memory>
#include <string_view>

namespace {

/// A process that takes all it can get is made to wait once others want the processor too, and its audio with it.
constexpr int restMs = 10;

bool isCommandName(std::string_view name) {
    constexpr std::string_view start = "kivo-cmd-";
    constexpr std::string_view end = ".json";
    return name.size() >= start.size() + end.size() && name.starts_with(start) && name.ends_with(end);
}

struct FolderCloser {
    // There is nothing to lose by closing a folder that was only read.
    void operator()(DIR *folder) const { (void)::closedir(folder); }
};

/// A file system that does not tell the type leaves the question to whoever opens the file.
bool mayBeCommand(const dirent &entry) {
    return (entry.d_type == DT_REG || entry.d_type == DT_UNKNOWN) && isCommandName(entry.d_name);
}

/// Names of the command files in the folder, sorted. Links, FIFOs and the like are not among them.
///
/// QDir would make itself a picture of each file first, which for a crowd of them takes five times as long.
QStringList commandFilesIn(const QString &path) {
    QStringList names;
    const std::unique_ptr<DIR, FolderCloser> folder(::opendir(QFile::encodeName(path).constData()));
    while (const dirent *entry = folder ? ::readdir(folder.get()) : nullptr) {
        if (mayBeCommand(*entry))
            names.append(QFile::decodeName(entry->d_name));
    }
    std::sort(names.begin(), names.end());
    return names;
}

} // namespace

CommandIntake::CommandIntake(Gateway &gateway, StateFiles &files, std::chrono::milliseconds turn)
    : m_gateway(gateway),
      m_files(files),
      m_folder(gateway.paths.exchangeDir()),
      m_turn(turn) {}

void CommandIntake::scan() {
    if (!m_waiting.isEmpty())
        return;
    m_waiting = commandFilesIn(m_folder);
    workOff();
}

void CommandIntake::workOff() {
    QElapsedTimer turn;
    turn.start();
    while (!m_waiting.isEmpty() && turn.elapsed() < m_turn.count())
        carryOut(m_waiting.takeFirst());
    if (!m_waiting.isEmpty())
        QTimer::singleShot(restMs, Qt::PreciseTimer, this, &CommandIntake::workOff);
}

void CommandIntake::carryOut(const QString &fileName) {
    const auto content = takeDroppedFile(m_folder + QLatin1Char('/') + fileName);
    if (!content)
        return;
    const QJsonDocument command = QJsonDocument::fromJson(*content);
    if (command.isObject())
        runWebUiCommand(m_gateway, m_files, command.object());
}
