#include "sim/InputLines.h"

#include <array>
#include <cerrno>
#include <unistd.h>

namespace sim {

InputLines::InputLines(QObject *parent) : QObject(parent), m_notifier(STDIN_FILENO, QSocketNotifier::Read) {
    connect(&m_notifier, &QSocketNotifier::activated, this, &InputLines::onReadable);
}

void InputLines::onReadable() {
    std::array<char, 4096> chunk;
    const ssize_t count = read(STDIN_FILENO, chunk.data(), chunk.size());
    if (count < 0 && (errno == EINTR || errno == EAGAIN)) {
        return;
    }
    if (count <= 0) {
        m_notifier.setEnabled(false);
        Q_EMIT ended();
        return;
    }
    m_rest.append(chunk.data(), int(count));
    for (int end = m_rest.indexOf('\n'); end >= 0; end = m_rest.indexOf('\n')) {
        const QString text = QString::fromUtf8(m_rest.left(end)).trimmed();
        m_rest.remove(0, end + 1);
        Q_EMIT line(text);
    }
}

} // namespace sim
