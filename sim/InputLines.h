#pragma once

#include <QByteArray>
#include <QObject>
#include <QSocketNotifier>
#include <QString>

namespace sim {

/// Standard input, line by line, without ever waiting for it.
class InputLines : public QObject {
    Q_OBJECT

public:
    explicit InputLines(QObject *parent = nullptr);

Q_SIGNALS:
    void line(QString text);
    void ended();

private:
    void onReadable();

    QSocketNotifier m_notifier;
    QByteArray m_rest;
};

} // namespace sim
