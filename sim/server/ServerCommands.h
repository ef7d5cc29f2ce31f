#pragma once

#include "sim/server/Switchboard.h"

#include <QString>
#include <QStringList>

#include <span>

namespace sim {

enum class Right { Anyone, LoggedIn, Admin };

/// One command of the control protocol.
struct Command {
    const char *keyword;
    Right right;
    int minArguments;
    /// May end the session; it is not to be used after a hang-up.
    void (*run)(Switchboard &board, Session &session, const QStringList &arguments);
};

/// Carries out one line of a client and sends the answers.
void runCommand(Switchboard &board, int sessionId, const QString &line);

/// The commands of the administrators (sim/server/AdminCommands.cpp).
std::span<const Command> adminCommands();

/// Answers a command that cannot be carried out.
void refuse(Switchboard &board, const Session &session, const char *reason);
/// The arguments from one on as one text: names that are sent without quotes may hold blanks.
QString restFrom(const QStringList &arguments, int first);

} // namespace sim
