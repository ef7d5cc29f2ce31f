#pragma once

#include <QObject>
#include <QString>
#include <QStringList>

#include <chrono>

class StateFiles;
struct Gateway;

/// Commands of the Web UI, each handed in by a file: found, taken and carried out one after the other in the order of
/// their names.
///
/// A crowd of files is worked off in short turns, so that audio flows on meanwhile; the folder is looked at again when
/// all that were found are done.
class CommandIntake : public QObject {
    Q_OBJECT

public:
    /// @param turn  how long at a stretch; the usual one is well below the shortest period of the audio path
    CommandIntake(Gateway &gateway, StateFiles &files, std::chrono::milliseconds turn = std::chrono::milliseconds(4));

    /// Looks for files; called by a timer.
    void scan();

private:
    void workOff();
    void carryOut(const QString &fileName);

    Gateway &m_gateway;
    StateFiles &m_files;
    const QString m_folder;
    const std::chrono::milliseconds m_turn;
    QStringList m_waiting;
};
