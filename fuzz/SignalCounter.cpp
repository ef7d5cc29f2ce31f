#include "SignalCounter.h"

#include <QMetaMethod>

SignalCounter::SignalCounter(const QObject &object) {
    const QMetaObject *type = object.metaObject();
    const QMetaMethod slot = staticMetaObject.method(staticMetaObject.indexOfSlot("add()"));
    for (int i = type->methodOffset(); i < type->methodCount(); ++i) {
        const QMetaMethod method = type->method(i);
        if (method.methodType() == QMetaMethod::Signal)
            connect(&object, method, this, slot);
    }
}
