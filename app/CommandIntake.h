#pragma once

#include <QObject>
#include <QString>
#include <QStringList>

class StateFiles;
struct Gateway;

/// Commands of the Web UI, each handed in by a file: found, taken and carried out one after the other in the order of
/// their names.
///
/// A crowd of files is worked off a few milliseconds at a time, so that audio flows on meanwhile; the folder is looked
/// at again when all that were found are done.
class CommandIntake : public QObject {
    Q_OBJECT

public:
    CommandIntake(Gateway &gateway, StateFiles &files);

    /// Looks for files; called by a timer.
    void scan();

private:
    void workOff();
    void carryOut(const QString &fileName);

    Gateway &m_gateway;
    StateFiles &m_files;
    const QString m_folder;
    QStringList m_waiting;
};
