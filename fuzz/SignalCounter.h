#pragma once

#include <QObject>

/// Is connected to every signal of an object, so that none is raised into nothing.
class SignalCounter : public QObject {
    Q_OBJECT

public:
    explicit SignalCounter(const QObject &object);

    int count() const { return m_count; }

private Q_SLOTS:
    void add() { ++m_count; }

private:
    int m_count = 0;
};
