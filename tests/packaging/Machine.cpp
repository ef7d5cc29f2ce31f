#include "Machine.h"

#include "sim/site/Site.h"

#include <QDebug>
#include <QFile>

using sim::Site;

namespace {

QStringList arguments(const Machine::Parts &parts, const QString &shellSocket) {
    const QString text = QStringLiteral("-machine q35 -cpu max -m 768 -display none -no-reboot -nodefaults "
                                        "-kernel %1/vmlinuz -initrd %1/initrd.img "
                                        "-drive file=%1/root.img,if=virtio,format=raw,snapshot=on "
                                        "-netdev user,id=net -device virtio-net-pci,netdev=net "
                                        "-device virtio-serial -chardev socket,id=shell,path=%2,server=on,wait=off "
                                        "-device virtserialport,chardev=shell,name=shell "
                                        "-device qemu-xhci -chardev serial,id=line,path=%3 "
                                        "-device usb-serial,id=board,chardev=line "
                                        "-audiodev none,id=none -monitor stdio -serial file:%1/console.log")
                             .arg(parts.folder, shellSocket, parts.serialPort);
    return text.split(QLatin1Char(' ')) << QStringLiteral("-append")
                                        << QStringLiteral("root=/dev/vda rw console=ttyS0 net.ifnames=0");
}

} // namespace

bool Machine::bringUp(const Parts &parts, int timeoutMs) {
    m_emulator.setStandardErrorFile(parts.folder + QStringLiteral("/emulator.log"));
    m_emulator.start(QStringLiteral("qemu-system-x86_64"),
                     arguments(parts, m_folder.filePath(QStringLiteral("shell"))));
    if (!m_emulator.waitForStarted()) {
        qWarning() << m_emulator.errorString();
        return false;
    }
    return Site::waitFor([this] { return connectShell(); }, 10000) &&
           run(QStringLiteral("systemctl is-system-running --wait"), timeoutMs).exitCode >= 0;
}

Machine::~Machine() {
    m_emulator.kill();
    m_emulator.waitForFinished();
}

bool Machine::connectShell() {
    if (m_shell.state() == QLocalSocket::UnconnectedState)
        m_shell.connectToServer(m_folder.filePath(QStringLiteral("shell")));
    return m_shell.state() == QLocalSocket::ConnectedState;
}

void Machine::start(const QString &command) {
    m_shell.write(command.toUtf8() + '\n');
}

Machine::Answer Machine::run(const QString &command, int timeoutMs) {
    const QByteArray end = "order " + QByteArray::number(++m_orders) + " ended with ";
    m_shell.readAll();
    start(QStringLiteral("{ %1\n} </dev/null 2>&1; echo '%2'$?").arg(command, QString::fromLatin1(end)));
    QByteArray said;
    const auto isOver = [&] {
        said += m_shell.readAll();
        return said.endsWith('\n') && said.contains(end);
    };
    if (!Site::waitFor(isOver, timeoutMs))
        return {-1, QString::fromUtf8(said).trimmed()};
    const int at = said.indexOf(end);
    return {said.mid(at + end.size()).trimmed().toInt(), QString::fromUtf8(said.left(at)).trimmed()};
}

bool Machine::fetch(const QString &path, const QString &to) {
    const Answer answer = run(QStringLiteral("base64 '%1'").arg(path));
    QFile file(to);
    const QByteArray bytes = QByteArray::fromBase64(answer.output.toLatin1());
    return answer.exitCode == 0 && file.open(QIODevice::WriteOnly) && file.write(bytes) == bytes.size();
}
