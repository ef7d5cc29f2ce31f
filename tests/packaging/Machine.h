#pragma once

#include <QByteArray>
#include <QLocalSocket>
#include <QProcess>
#include <QString>
#include <QTemporaryDir>

/// A whole emulated computer with its own kernel and systemd as init, on which the package is tried. It has a shell
/// that takes orders, a USB serial adapter whose line is a port of this machine, and reaches this machine's loopback
/// addresses as 10.0.2.2. What it writes to its disk is forgotten with it.
class Machine {
public:
    struct Parts {
        QString folder;     ///< holds "vmlinuz", "initrd.img" and "root.img"
        QString serialPort; ///< what the USB serial adapter is connected to
    };

    /// Switches it on; false when the emulator does not start or nobody answers in time.
    bool bringUp(const Parts &parts, int timeoutMs);
    ~Machine();

    struct Answer {
        int exitCode = -1; ///< -1: none in time
        QString output;    ///< of both kinds, without white space around it
    };
    /// Runs a command line of the shell, as root.
    Answer run(const QString &command, int timeoutMs = 60000);
    /// Has something done that goes on, or ends the machine.
    void start(const QString &command);
    /// Copies a file of the machine here, one that fits into memory.
    bool fetch(const QString &path, const QString &to);

    void unplugBoard() { order("device_del board"); }
    void plugBoard() { order("device_add usb-serial,id=board,chardev=line"); }
    /// Another USB sound interface, without a radio.
    void plugSoundInterface() { order("device_add usb-audio,id=sound,audiodev=none"); }

    bool isOn() const { return m_emulator.state() == QProcess::Running; }

private:
    void order(const QByteArray &line) { m_emulator.write(line + '\n'); }
    bool connectShell();

    QTemporaryDir m_folder;
    QProcess m_emulator;
    QLocalSocket m_shell;
    int m_orders = 0;
};
