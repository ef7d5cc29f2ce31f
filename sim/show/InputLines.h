#pragma once

#include <QByteArray>
#include <QObject>
#include <QSocketNotifier>
#include <QString>

namespace sim {

/// What comes in through a descriptor, line by line, without ever waiting for it. A last line need not end with a line
/// feed; blanks around a line are dropped.
class InputLines : public QObject {
    Q_OBJECT

public:
    /// @param fd  stays the caller's
    explicit InputLines(int fd, QObject *parent = nullptr);

Q_SIGNALS:
    void line(QString text);
    void ended();

private:
    void onReadable();
    void takeLines();
    void end();

    QSocketNotifier m_notifier;
    QByteArray m_rest;
};

} // namespace sim
