#include "sim/show/InputLines.h"

#include <array>
#include <cerrno>
#include <unistd.h>

namespace sim {

InputLines::InputLines(int fd, QObject *parent) : QObject(parent), m_notifier(fd, QSocketNotifier::Read) {
    connect(&m_notifier, &QSocketNotifier::activated, this, &InputLines::onReadable);
}

void InputLines::onReadable() {
    std::array<char, 4096> chunk{};
    const ssize_t count = read(int(m_notifier.socket()), chunk.data(), chunk.size());
    if (count > 0) {
        m_rest.append(chunk.data(), int(count));
        takeLines();
    } else if (count == 0 || (errno != EINTR && errno != EAGAIN)) {
        end();
    }
}

void InputLines::takeLines() {
    for (int end = m_rest.indexOf('\n'); end >= 0; end = m_rest.indexOf('\n')) {
        const QString text = QString::fromUtf8(m_rest.left(end)).trimmed();
        m_rest.remove(0, end + 1);
        Q_EMIT line(text);
    }
}

void InputLines::end() {
    m_notifier.setEnabled(false);
    if (!m_rest.isEmpty()) {
        m_rest.append('\n');
        takeLines();
    }
    Q_EMIT ended();
}

} // namespace sim
