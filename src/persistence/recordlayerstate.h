#pragma once

#include "sqlitepersistentobject.h"

#include <QHash>
#include <QSet>
#include <QString>

// Process-wide state of the record layer, shared by its translation units. Main thread only.
struct RecordLayerState {
    SQLiteInstanceManager* manager = nullptr;
    QHash<QString, SQLitePersistentObjectPtr> objectMap;
    QHash<QString, QString> tableNames;
    QHash<QString, QString> classNames;
    QSet<QString> checkedClasses;
    QSet<const SQLitePersistentObject*> comparing;

    static RecordLayerState& instance();
};

namespace RecordLayer {

bool isIntegerCode(const QString& code);
bool isFloatCode(const QString& code);
bool isCharCode(const QString& code);
bool isScalarNumberCode(const QString& code);
// The record a value holds, or null.
SQLitePersistentObjectPtr relatedRecord(const QVariant& value);

} // namespace RecordLayer
