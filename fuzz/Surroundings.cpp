#include "Surroundings.h"

#include "Promise.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>

// The disk is not what is tried here: nothing waits for it. The program's own definitions come before the library's.
extern "C" int fsync(int) {
    return 0;
}
extern "C" int fdatasync(int) {
    return 0;
}

namespace {

void keep(QtMsgType type, const QMessageLogContext &context, const QString &text) {
    keepLogLine(qFormatLogMessage(type, context, text).toUtf8());
}

/// A bare root may lack it; then the fuzzers are only slower.
QString placeInMemory() {
    const QString memory = QStringLiteral("/dev/shm");
    return QFileInfo(memory).isWritable() ? memory : QDir::tempPath();
}

/// Real cards of the machine stay out of it.
void forbidSoundCards(const QString &configuration) {
    QFile file(configuration);
    promise(file.open(QIODevice::WriteOnly) && file.write("pcm.null { type null }\n") > 0, "set-up: sound");
    qputenv("ALSA_CONFIG_PATH", QFile::encodeName(configuration));
}

} // namespace

Surroundings &Surroundings::instance() {
    static Surroundings one;
    return one;
}

Surroundings::Surroundings() : m_time(new VirtualTime) {
    static int argc = 1;
    static char name[] = "kivo-fuzz";
    static char *argv[] = {name, nullptr};
    QCoreApplication::setEventDispatcher(m_time);
    static const QCoreApplication application(argc, argv);
    qInstallMessageHandler(keep);
    static const QTemporaryDir folder(placeInMemory() + QStringLiteral("/kivo-fuzz-XXXXXX"));
    promise(folder.isValid(), "set-up: folder");
    m_folder = folder.path();
    forbidSoundCards(file("asound.conf"));
}
