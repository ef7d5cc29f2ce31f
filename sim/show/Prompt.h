#pragma once

#include "sim/member/Handset.h"
#include "sim/show/Display.h"
#include "sim/site/Radio.h"
#include "sim/site/Site.h"

#include <QObject>
#include <QString>

#include <vector>

namespace sim {

/// The commands with which a user plays with a running site.
class Prompt : public QObject {
    Q_OBJECT

public:
    /// All must outlive the prompt. Commands of the server (kick, mute, move) go to the gateway.
    Prompt(Site &site, Radio &radio, Handset &handset, Display &display, QObject *parent = nullptr);

    void execute(const QString &line);
    static QString help();

Q_SIGNALS:
    void quitRequested();

private:
    struct Command;
    static const std::vector<Command> &commands();

    void showHelp(const QString &);
    void showStatus(const QString &);
    void joinMember(const QString &room);
    void sayFromRadio(const QString &words);
    void sayFromRoom(const QString &words);
    void moveSquelch(const QString &how);
    void kick(const QString &reason);
    void mute(const QString &how);
    void move(const QString &room);
    void announceQuality(const QString &numbers);
    void disturbBoard(const QString &how);
    void disturbCard(const QString &how);
    void disturbServer(const QString &how);
    void drop(const QString &json);
    void show(const QString &what);
    void showLog(const QString &words);
    void quit(const QString &);
    void complain(const QString &problem);

    Site &m_site;
    Radio &m_radio;
    Handset &m_handset;
    Display &m_display;
    int m_dropped = 0; ///< numbers the command files
};

} // namespace sim
