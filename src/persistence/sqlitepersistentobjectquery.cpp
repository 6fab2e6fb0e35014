// Loading records, queries by criteria and by operation name, reports, revert and comparison.
#include "criteriaformat.h"
#include "numberstuff.h"
#include "recordlayerstate.h"
#include "sqliteerror.h"
#include "sqlitepersistence.h"
#include "sqlitepersistentobject.h"
#include "sqlitestatement.h"
#include "uppercasefirst.h"

#include "platform/systemlog.h"

#include <QDateTime>

#include <sqlite3.h>

#include <cmath>

using namespace Qt::StringLiterals;
using namespace RecordLayer;

SQLiteRecordList SQLitePersistentObject::findByCriteria(const SQLiteRecordClass& cls,
                                                        const QString& criteria,
                                                        const QVariantList& arguments)
{
    tableCheck(cls);
    SQLiteRecordList records;
    SQLiteStatement statement(
        database(), u"SELECT pk,* FROM %1 %2"_s.arg(tableName(cls),
                                                    CriteriaFormat::format(criteria, arguments)));
    if (!statement.isValid())
        return records;
    const auto& map = RecordLayerState::instance().objectMap;
    while (statement.step() == SQLITE_ROW) {
        const int pk = statement.columnInt(0);
        const auto mapped = map.constFind(memoryMapKeyForObject(cls.className(), pk));
        if (mapped != map.constEnd()) {
            records.append(*mapped);
            continue;
        }
        if (auto record = loadRow(cls, statement))
            records.append(record);
    }
    return records;
}

SQLitePersistentObjectPtr SQLitePersistentObject::loadRow(const SQLiteRecordClass& cls,
                                                          SQLiteStatement& row)
{
    SQLitePersistentObjectPtr record = cls.create();
    if (!record)
        return nullptr;
    record->m_pk = row.columnInt(0);
    // Registered before its values are read, so references back to it resolve to it.
    registerObjectInMemory(record);
    record->m_loading = true;
    const QMap<QString, QString> properties = cls.propertiesWithEncodedTypes();
    for (int column = 0; column < row.columnCount(); ++column) {
        const QString columnName = row.columnName(column);
        if (columnName == u"pk")
            continue;
        const QString property = stringAsPropertyString(columnName);
        if (!properties.contains(property))
            break;
        const QString code = properties.value(property);
        if (code == u"i" || code == u"l" || code == u"q" || code == u"s" || code == u"B") {
            record->setValue(property, QVariant::fromValue(row.columnInt64(column)));
        } else if (code == u"I" || code == u"L" || code == u"Q" || code == u"S") {
            record->setValue(property, QVariant::fromValue(quint64(row.columnInt64(column))));
        } else if (isFloatCode(code)) {
            record->setValue(property, QVariant::fromValue(float(row.columnDouble(column))));
        } else if (isCharCode(code)) {
            const QString text = row.columnText(column);
            if (text.isNull())
                continue;
            if (NumberStuff::holdsFloatingPointValue(text))
                record->setValue(property, SQLitePersistence::leadingDoubleValue(text));
            else if (NumberStuff::holdsIntegerValue(text))
                record->setValue(property, int(SQLitePersistence::leadingIntegerValue(text)));
            else
                record->setValue(property, text);
        } else if (code.startsWith(u'@')) {
            const QString className = SQLiteRecordClass::classNameOfCode(code);
            if (SQLiteRecordClass::forName(className)) {
                const QString reference = row.columnText(column);
                if (reference.isNull())
                    continue;
                const QStringList parts = reference.split(u'-');
                const SQLiteRecordClass* target = SQLiteRecordClass::forName(parts.value(0));
                const int pk = int(SQLitePersistence::leadingIntegerValue(parts.value(1)));
                const auto related = target ? findByPK(*target, pk) : nullptr;
                record->setValue(property, related ? QVariant::fromValue(related) : QVariant());
            } else if (SQLitePersistence::shouldBeStoredInBlob(className)) {
                record->setValue(property, SQLitePersistence::objectWithSQLBlobRepresentation(
                                               className, row.columnBlob(column)));
            } else {
                record->setValue(property, SQLitePersistence::objectWithSqlColumnRepresentation(
                                               className, row.columnText(column)));
            }
        }
    }
    loadCollections(record);
    record->m_loading = false;
    record->makeClean();
    return record;
}

QVariant SQLitePersistentObject::loadCollectionElement(qint64 fk, const QString& fkTableName,
                                                       SQLiteStatement& row, int dataColumn,
                                                       int classColumn)
{
    if (fk < 1) {
        const QString className = row.columnText(classColumn);
        if (SQLitePersistence::shouldBeStoredInBlob(className))
            return SQLitePersistence::objectWithSQLBlobRepresentation(className,
                                                                      row.columnBlob(dataColumn));
        return SQLitePersistence::objectWithSqlColumnRepresentation(className,
                                                                    row.columnText(dataColumn));
    }
    const SQLiteRecordClass* cls = SQLiteRecordClass::forName(classNameForTableName(fkTableName));
    if (!cls)
        return QVariant();
    const auto related = findFirstByCriteria(*cls, u"where pk = %d"_s, {fk});
    return related ? QVariant::fromValue(related) : QVariant();
}

void SQLitePersistentObject::loadCollections(const SQLitePersistentObjectPtr& record)
{
    const SQLiteRecordClass& cls = record->m_class;
    const QMap<QString, QString> properties = cls.propertiesWithEncodedTypes();
    for (auto it = properties.constBegin(); it != properties.constEnd(); ++it) {
        const QString className = SQLiteRecordClass::classNameOfCode(it.value());
        if (!SQLitePersistence::isCollectionKind(className))
            continue;
        const QString xref = tableName(cls) + u'_' + stringAsSQLColumnName(it.key());
        const QString pk = QString::number(record->m_pk);
        if (SQLitePersistence::isDictionaryKind(className)) {
            record->setValue(it.key(), QVariantMap());
            QVariantMap map;
            SQLiteStatement rows(
                database(),
                u"SELECT dictionary_key, fk, fk_table_name, object_data, object_class FROM %1 WHERE parent_pk = %2"_s
                    .arg(xref, pk));
            while (rows.isValid() && rows.step() == SQLITE_ROW) {
                const QVariant element =
                    loadCollectionElement(rows.columnInt(1), rows.columnText(2), rows, 3, 4);
                if (element.isValid())
                    map.insert(rows.columnText(0), element);
            }
            record->setValue(it.key(), map);
            continue;
        }
        const bool isArray = SQLitePersistence::isArrayKind(className);
        record->setValue(it.key(), QVariantList());
        QVariantList list;
        SQLiteStatement rows(
            database(),
            u"SELECT fk, fk_table_name, object_data, object_class FROM %1 WHERE parent_pk = %2%3"_s
                .arg(xref, pk, isArray ? u" order by array_index"_s : QString()));
        while (rows.isValid() && rows.step() == SQLITE_ROW) {
            const QVariant element =
                loadCollectionElement(rows.columnInt(0), rows.columnText(1), rows, 2, 3);
            // A set holds each value once.
            if (element.isValid() && (isArray || !list.contains(element)))
                list.append(element);
        }
        record->setValue(it.key(), list);
    }
}

SQLitePersistentObjectPtr SQLitePersistentObject::findFirstByCriteria(const SQLiteRecordClass& cls,
                                                                      const QString& criteria,
                                                                      const QVariantList& arguments)
{
    const SQLiteRecordList records =
        findByCriteria(cls, CriteriaFormat::format(criteria, arguments));
    return records.isEmpty() ? nullptr : records.first();
}

SQLitePersistentObjectPtr SQLitePersistentObject::findByPK(const SQLiteRecordClass& cls, qint64 pk)
{
    const auto& map = RecordLayerState::instance().objectMap;
    const auto mapped = map.constFind(memoryMapKeyForObject(cls.className(), pk));
    if (mapped != map.constEnd())
        return *mapped;
    return findFirstByCriteria(cls, u"WHERE pk = %ld"_s, {pk});
}

SQLiteRecordList SQLitePersistentObject::allObjects(const SQLiteRecordClass& cls)
{
    return findByCriteria(cls, QString());
}

int SQLitePersistentObject::countByCriteria(const SQLiteRecordClass& cls, const QString& criteria,
                                            const QVariantList& arguments)
{
    tableCheck(cls);
    const QString table = tableName(cls);
    SQLiteStatement statement(database(), u"SELECT COUNT(*) FROM %1 %2"_s.arg(
                                              table, CriteriaFormat::format(criteria, arguments)));
    if (!statement.isValid()) {
        SystemLog::write(u"Error determining count of rows in table %1"_s.arg(table));
        return 0;
    }
    return statement.step() == SQLITE_ROW ? statement.columnInt(0) : 0;
}

int SQLitePersistentObject::count(const SQLiteRecordClass& cls)
{
    return countByCriteria(cls, QString());
}

double SQLitePersistentObject::performSQLAggregation(const QString& statementText,
                                                     const QVariantList& arguments)
{
    SQLiteStatement statement(database(), CriteriaFormat::format(statementText, arguments));
    if (!statement.isValid() || statement.step() != SQLITE_ROW)
        return -1.0;
    return statement.columnDouble(0);
}

std::optional<QVariant> SQLitePersistentObject::performNamedOperation(const SQLiteRecordClass& cls,
                                                                      const QString& name,
                                                                      const QVariantList& arguments)
{
    const QMap<QString, QString> properties = cls.propertiesWithEncodedTypes();
    if (name.startsWith(u"findBy") && name.endsWith(u':') && name.size() > 7) {
        const QString property =
            UppercaseFirst::stringByLowercasingFirstLetter(name.mid(6, name.size() - 7));
        if (!properties.contains(property) || arguments.size() != 1)
            return std::nullopt;
        const QVariant& argument = arguments.first();
        const bool isNumber = SQLitePersistence::isNumber(argument);
        QString criteria = u"WHERE %1 like "_s.arg(stringAsSQLColumnName(property));
        if (!isNumber)
            criteria += u'\'';
        const QString valueClass = SQLitePersistence::classNameOfValue(argument);
        // A record is an archivable object, so it would be stored as a blob like any other.
        const bool blob = relatedRecord(argument) != nullptr ||
                          (SQLitePersistence::canBeStoredInSQLite(valueClass) &&
                           SQLitePersistence::shouldBeStoredInBlob(valueClass));
        if (blob) {
            SystemLog::write(u"*** Can't search on BLOB fields"_s);
            return QVariant();
        }
        if (SQLitePersistence::canBeStoredInSQLite(valueClass)) {
            criteria += SQLitePersistence::sqlColumnRepresentationOfSelf(argument);
        } else {
            criteria += argument.toString();
        }
        if (!isNumber)
            criteria += u'\'';
        return QVariant::fromValue(findByCriteria(cls, criteria));
    }

    const qsizetype of = name.indexOf(u"Of");
    if (of <= 0)
        return std::nullopt;
    QString function = name.left(of);
    static const QStringList functions = {u"sum"_s, u"avg"_s, u"average"_s,
                                          u"min"_s, u"max"_s, u"count"_s};
    if (!functions.contains(function))
        return std::nullopt;
    const qsizetype withCriteria = name.indexOf(u"WithCriteria");
    QString property;
    QString criteria;
    if (withCriteria >= 0) {
        if (arguments.size() != 1 || withCriteria <= of + 2)
            return std::nullopt;
        property = name.mid(of + 2, withCriteria - of - 2);
        criteria = arguments.first().toString();
    } else {
        if (!arguments.isEmpty() || name.size() <= of + 2)
            return std::nullopt;
        property = UppercaseFirst::stringByLowercasingFirstLetter(name.mid(of + 2));
    }
    if (!properties.contains(property))
        return std::nullopt;
    if (function == u"average")
        function = u"avg"_s;
    const QString statement = u"select %1(%2) from %3 %4"_s.arg(
        function, stringAsSQLColumnName(property), tableName(cls), criteria);
    return QVariant(performSQLAggregation(statement));
}

QMap<QString, QString>
SQLitePersistentObject::sortedFieldValuesWithKeysForProperty(const SQLiteRecordClass& cls,
                                                             const QString& property)
{
    tableCheck(cls);
    const QString column = stringAsSQLColumnName(property);
    QMap<QString, QString> values;
    SQLiteStatement statement(
        database(), u"SELECT pk, %1 FROM %2 ORDER BY %1, pk"_s.arg(column, tableName(cls)));
    while (statement.isValid() && statement.step() == SQLITE_ROW) {
        if (statement.columnIsNull(1))
            throw SQLiteError(
                u"No value of %1 in the row with pk %2"_s.arg(column).arg(statement.columnInt(0)));
        values.insert(QString::number(statement.columnInt(0)), statement.columnText(1));
    }
    return values;
}

QList<QVariantList> SQLitePersistentObject::pairedArraysForProperties(const SQLiteRecordClass& cls,
                                                                      const QStringList& properties,
                                                                      const QString& criteria,
                                                                      const QVariantList& arguments)
{
    tableCheck(cls);
    QString sql = u"select pk"_s;
    for (const QString& property : properties)
        sql += u", "_s + stringAsSQLColumnName(property);
    sql += u" FROM %1 %2 ORDER BY PK"_s.arg(tableName(cls),
                                            CriteriaFormat::format(criteria, arguments));
    SystemLog::write(u"query:"_s + sql);
    QList<QVariantList> lists(properties.size() + 1);
    SQLiteStatement statement(database(), sql);
    while (statement.isValid() && statement.step() == SQLITE_ROW) {
        lists[0].append(QVariant::fromValue(statement.columnInt64(0)));
        for (qsizetype i = 0; i < properties.size(); ++i) {
            const int column = int(i) + 1;
            lists[i + 1].append(statement.columnIsNull(column) ? QVariant()
                                                               : statement.columnText(column));
        }
    }
    return lists;
}

QList<QVariantList> SQLitePersistentObject::pairedArraySelect(const QString& statementText,
                                                              int fields)
{
    QList<QVariantList> lists(qMax(fields, 0));
    sqlite3* db = database();
    {
        SQLiteStatement statement(db, statementText);
        while (statement.isValid() && statement.step() == SQLITE_ROW) {
            for (int column = 0; column < fields; ++column)
                lists[column].append(statement.columnIsNull(column) ? QVariant()
                                                                    : statement.columnText(column));
        }
    }
    SystemLog::write(u"errmsg "_s + SQLiteStatement::errorMessage(db));
    return lists;
}

SQLiteRecordList SQLitePersistentObject::findRelatedForProperty(const SQLiteRecordClass& cls,
                                                                const QString& column,
                                                                const QString& filter,
                                                                const QVariantList& arguments) const
{
    QString criteria = u"WHERE %1 = \"%2\""_s.arg(column, memoryMapKey());
    const QString formatted = CriteriaFormat::format(filter, arguments);
    if (!formatted.isEmpty())
        criteria += u" AND "_s + formatted;
    return findByCriteria(cls, criteria);
}

SQLiteRecordList SQLitePersistentObject::findRelated(const SQLiteRecordClass& cls,
                                                     const QString& filter,
                                                     const QVariantList& arguments) const
{
    return findRelatedForProperty(cls, tableName(m_class),
                                  CriteriaFormat::format(filter, arguments));
}

SQLiteRecordList SQLitePersistentObject::findRelated(const SQLiteRecordClass& cls) const
{
    return findRelatedForProperty(cls, tableName(m_class), QString());
}

namespace {

bool isIdentical(const QVariant& a, const QVariant& b)
{
    if (SQLitePersistence::isAbsent(a) && SQLitePersistence::isAbsent(b))
        return true;
    const auto ra = relatedRecord(a);
    return ra && ra == relatedRecord(b);
}

} // namespace

void SQLitePersistentObject::revertKeys(const QStringList& keys)
{
    if (!existsInDB()) {
        SystemLog::write(u"Object must exist in database before it can be reverted."_s);
        return;
    }
    const SQLitePersistentObjectPtr self = weak_from_this().lock();
    unregisterObject(this);
    const auto copy = findByPK(m_class, m_pk);
    if (copy && copy.get() != this) {
        for (const QString& key : keys) {
            const QVariant stored = copy->value(key);
            if (!isIdentical(stored, value(key)))
                setValue(key, stored);
        }
    }
    registerObjectInMemory(self);
}

void SQLitePersistentObject::revert()
{
    revertKeys(m_class.propertiesWithEncodedTypes().keys());
}

void SQLitePersistentObject::revertProperty(const QString& property)
{
    revertKeys({property});
}

void SQLitePersistentObject::revertProperties(const QStringList& properties)
{
    revertKeys(properties);
}

bool SQLitePersistentObject::areAllPropertiesEqual(const SQLitePersistentObject& other) const
{
    if (!other.m_class.isSubclassOf(m_class))
        return false;
    auto& guard = RecordLayerState::instance().comparing;
    guard.insert(this);
    bool equal = true;
    const QStringList keys = m_class.propertiesWithEncodedTypes().keys();
    for (const QString& key : keys) {
        const QVariant a = value(key);
        const QVariant b = other.value(key);
        if (!SQLitePersistence::isAbsent(a) && !SQLitePersistence::isAbsent(b) && a != b) {
            if (SQLitePersistence::isNumber(a) && SQLitePersistence::isNumber(b)) {
                if (std::fabs(a.toFloat() - b.toFloat()) >= 0.001f)
                    equal = false;
            } else if (a.typeId() == QMetaType::QDateTime && b.typeId() == QMetaType::QDateTime) {
                if (std::abs(a.toDateTime().msecsTo(b.toDateTime())) >= 1)
                    equal = false;
            } else {
                equal = false;
            }
        }
        const auto ra = relatedRecord(a);
        const auto rb = relatedRecord(b);
        if (equal && ra && rb && !guard.contains(ra.get()) && !ra->areAllPropertiesEqual(*rb))
            equal = false;
        if (!equal)
            break;
    }
    guard.remove(this);
    return equal;
}
