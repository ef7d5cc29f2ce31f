#pragma once

#include <QJsonDocument>
#include <QList>
#include <QMetaMethod>
#include <QObject>
#include <QStringList>
#include <QVariantMap>

#include <utility>

/// Writes down what an object does, in order: every signal it declares as "name(arguments)", every log line as
/// "level text". One at a time. Lists and maps are written as JSON.
class SignalJournal : public QObject {
public:
    explicit SignalJournal(QObject *sender) : m_previous(qInstallMessageHandler(&SignalJournal::recordLine)) {
        qRegisterMetaType<QList<QVariantMap>>();
        entries().clear();
        const QMetaObject *const meta = sender->metaObject();
        for (int i = meta->methodOffset(); i < meta->methodCount(); ++i) {
            if (meta->method(i).methodType() != QMetaMethod::Signal)
                continue;
            QMetaObject::connect(sender, i, this, QObject::staticMetaObject.methodCount() + m_signals.size(),
                                 Qt::DirectConnection);
            m_signals.append(meta->method(i));
        }
    }
    ~SignalJournal() override { qInstallMessageHandler(m_previous); }

    /// The entries so far, which are then forgotten.
    QStringList take() { return std::exchange(entries(), QStringList()); }
    const QStringList &seen() const { return entries(); }
    int count(const char *entry) const { return entries().count(QString::fromUtf8(entry)); }

    int qt_metacall(QMetaObject::Call call, int id, void **arguments) override {
        id = QObject::qt_metacall(call, id, arguments);
        if (id < 0 || call != QMetaObject::InvokeMetaMethod)
            return id;
        entries().append(describe(m_signals[id], arguments + 1));
        return -1;
    }

private:
    static QString describe(const QMetaMethod &signal, void **arguments) {
        QStringList texts;
        for (int i = 0; i < signal.parameterCount(); ++i)
            texts.append(describe(QVariant(signal.parameterType(i), arguments[i])));
        return QString::fromLatin1(signal.name()) + QLatin1Char('(') + texts.join(QStringLiteral(", ")) +
               QLatin1Char(')');
    }

    static QString describe(const QVariant &argument) {
        if (argument.userType() == qMetaTypeId<QList<QVariantMap>>()) {
            QVariantList list;
            for (const QVariantMap &map : argument.value<QList<QVariantMap>>())
                list.append(map);
            return describe(QVariant(list));
        }
        if (argument.canConvert<QString>() && argument.type() != QVariant::StringList)
            return argument.toString();
        return QString::fromUtf8(QJsonDocument::fromVariant(argument).toJson(QJsonDocument::Compact));
    }

    static void recordLine(QtMsgType type, const QMessageLogContext &, const QString &text) {
        const char *const levels[] = {"debug", "warning", "critical", "fatal", "info"};
        entries().append(QString::fromLatin1(levels[type]) + QLatin1Char(' ') + text);
    }

    static QStringList &entries() {
        static QStringList collected;
        return collected;
    }

    QList<QMetaMethod> m_signals;
    QtMessageHandler m_previous;
};

/// A journal's expected entries.
inline QStringList entries(std::initializer_list<const char *> texts) {
    QStringList list;
    for (const char *text : texts)
        list.append(QString::fromUtf8(text));
    return list;
}
