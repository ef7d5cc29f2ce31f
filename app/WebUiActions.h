#pragma once

#include <QJsonObject>

class StateFiles;
struct Gateway;

/// Carries out one command of the Web UI. A command without a known "action", or whose precondition does not hold, does
/// nothing and logs nothing; values out of range are brought into it. No password ever reaches a log line.
void runWebUiCommand(Gateway &gateway, StateFiles &files, const QJsonObject &command);
