#include "sqlitepersistentobject.h"

#include "recordlayerstate.h"
#include "sqliteinstancemanager.h"
#include "sqlitepersistence.h"
#include "sqlitestatement.h"

#include "platform/systemlog.h"

#include <sqlite3.h>

using namespace Qt::StringLiterals;

RecordLayerState& RecordLayerState::instance()
{
    // Never destroyed: records left in the map at exit must not outlive their map.
    static auto* state = new RecordLayerState;
    return *state;
}

namespace RecordLayer {

bool isIntegerCode(const QString& code)
{
    static const QStringList codes = {u"i"_s, u"I"_s, u"l"_s, u"L"_s, u"q"_s,
                                      u"Q"_s, u"s"_s, u"S"_s, u"B"_s};
    return codes.contains(code);
}

bool isFloatCode(const QString& code)
{
    return code == u"f" || code == u"d";
}

bool isCharCode(const QString& code)
{
    return code == u"c" || code == u"C";
}

bool isScalarNumberCode(const QString& code)
{
    return isIntegerCode(code) || isFloatCode(code) || isCharCode(code);
}

SQLitePersistentObjectPtr relatedRecord(const QVariant& value)
{
    return value.metaType() == QMetaType::fromType<SQLitePersistentObjectPtr>()
               ? value.value<SQLitePersistentObjectPtr>()
               : nullptr;
}

} // namespace RecordLayer

using namespace RecordLayer;

SQLitePersistentObject::SQLitePersistentObject(const SQLiteRecordClass& recordClass)
    : m_class(recordClass)
{
}

SQLitePersistentObject::~SQLitePersistentObject() = default;

SQLiteInstanceManager* SQLitePersistentObject::manager()
{
    SQLiteInstanceManager* manager = RecordLayerState::instance().manager;
    return manager ? manager : SQLiteInstanceManager::sharedManager();
}

void SQLitePersistentObject::setManager(SQLiteInstanceManager* manager)
{
    RecordLayerState::instance().manager = manager;
    clearCache();
}

sqlite3* SQLitePersistentObject::database()
{
    return manager()->database();
}

namespace {

// Each later character equal to its own upper-case form (digits and "_" included) becomes
// "_" plus its lower-case form; the first is lower-cased.
QString underscoreName(const QString& name)
{
    QString result;
    for (qsizetype i = 0; i < name.size(); ++i) {
        const QChar c = name[i];
        if (i == 0)
            result.append(c.toLower());
        else if (c == c.toUpper())
            result.append(u'_').append(c.toLower());
        else
            result.append(c);
    }
    return result;
}

void logSQLiteError(sqlite3* db, const QString& sql, const QString& prefix)
{
    QString error;
    if (!SQLiteStatement::execute(db, sql, &error))
        SystemLog::write(prefix + error);
}

} // namespace

QString SQLitePersistentObject::tableName(const SQLiteRecordClass& cls)
{
    auto& cache = RecordLayerState::instance().tableNames;
    const QString className = cls.className();
    auto found = cache.constFind(className);
    if (found != cache.constEnd())
        return *found;
    const QString name = underscoreName(className);
    cache.insert(className, name);
    return name;
}

QString SQLitePersistentObject::classNameForTableName(const QString& tableName)
{
    auto& cache = RecordLayerState::instance().classNames;
    auto found = cache.constFind(tableName);
    if (found != cache.constEnd())
        return *found;
    QString name;
    bool upperNext = true;
    for (const QChar c : tableName) {
        if (c == u'_') {
            upperNext = true;
            continue;
        }
        name.append(upperNext ? c.toUpper() : c);
        upperNext = false;
    }
    cache.insert(tableName, name);
    return name;
}

QString SQLitePersistentObject::stringAsSQLColumnName(const QString& propertyName)
{
    if (propertyName == propertyName.toLower())
        return propertyName;
    return underscoreName(propertyName);
}

QString SQLitePersistentObject::stringAsPropertyString(const QString& columnName)
{
    if (!columnName.contains(u'_'))
        return columnName;
    QString name;
    bool upperNext = false;
    for (const QChar c : columnName) {
        if (c == u'_') {
            upperNext = true;
            continue;
        }
        name.append(upperNext ? c.toUpper() : c);
        upperNext = false;
    }
    return name;
}

QStringList SQLitePersistentObject::tableColumns(const SQLiteRecordClass& cls)
{
    QStringList columns;
    SQLiteStatement statement(database(), u"pragma table_info(%1);"_s.arg(tableName(cls)));
    if (!statement.isValid())
        return columns;
    while (statement.step() == SQLITE_ROW)
        columns.append(statement.columnText(1));
    return columns;
}

namespace {

const QString kErrorPrefix = u"Error Message: "_s;

// Collections live in cross-reference tables named after the table and the column, each
// shape kept exactly as older files have it.
void createCrossReferenceTable(sqlite3* db, const QString& table, const QString& column,
                               const QString& className)
{
    QString shape;
    if (SQLitePersistence::isArrayKind(className))
        shape =
            u"(parent_pk, array_index INTEGER, fk INTEGER, fk_table_name TEXT, object_data TEXT, object_class BLOB, PRIMARY KEY (parent_pk, array_index))"_s;
    else if (SQLitePersistence::isDictionaryKind(className))
        shape =
            u"(parent_pk integer, dictionary_key TEXT, fk INTEGER, fk_table_name TEXT, object_data BLOB, object_class TEXT, PRIMARY KEY (parent_pk, dictionary_key))"_s;
    else
        shape =
            u"(parent_pk INTEGER, fk INTEGER, fk_table_name TEXT, object_data BLOB, object_class TEXT)"_s;
    logSQLiteError(db, u"CREATE TABLE IF NOT EXISTS %1_%2 %3"_s.arg(table, column, shape),
                   kErrorPrefix);
}

// The column's part of CREATE TABLE (", name TYPE"), or nothing for a property with no
// column: a collection (whose cross-reference table is made here) or a class that cannot be
// stored.
QString columnDefinition(sqlite3* db, const QString& table, const QString& column,
                         const QString& code)
{
    if (isIntegerCode(code))
        return u", %1 INTEGER"_s.arg(column);
    if (isCharCode(code))
        return u", %1 TEXT"_s.arg(column);
    if (isFloatCode(code))
        return u", %1 REAL"_s.arg(column);
    if (!code.startsWith(u'@'))
        return {};
    const QString className = SQLiteRecordClass::classNameOfCode(code);
    if (SQLitePersistence::isCollectionKind(className)) {
        createCrossReferenceTable(db, table, column, className);
        return {};
    }
    if (SQLiteRecordClass::forName(className))
        return u", %1 TEXT"_s.arg(column);
    if (SQLitePersistence::canBeStoredInSQLite(className))
        return u", %1 %2"_s.arg(column, SQLitePersistence::columnTypeForObjectStorage(className));
    return {};
}

// The type a column added to an older table gets, or nothing for a collection.
std::optional<QString> addedColumnType(const QString& code)
{
    if (code.startsWith(u'@')) {
        const QString className = SQLiteRecordClass::classNameOfCode(code);
        if (SQLitePersistence::isCollectionKind(className))
            return std::nullopt;
        if (SQLiteRecordClass::forName(className))
            return u"TEXT"_s;
        if (SQLitePersistence::canBeStoredInSQLite(className))
            return SQLitePersistence::columnTypeForObjectStorage(className);
        return u"(null)"_s; // an absent type, written as the platform wrote it
    }
    if (isIntegerCode(code))
        return u"INTEGER"_s;
    if (isFloatCode(code))
        return u"REAL"_s;
    return u"TEXT"_s;
}

} // namespace

void SQLitePersistentObject::tableCheck(const SQLiteRecordClass& cls)
{
    auto& checked = RecordLayerState::instance().checkedClasses;
    if (checked.contains(cls.className()))
        return;
    checked.insert(cls.className());

    createTable(cls);
    createIndices(cls);
    addMissingColumns(cls);
}

void SQLitePersistentObject::createTable(const SQLiteRecordClass& cls)
{
    sqlite3* db = database();
    const QString table = tableName(cls);
    const QMap<QString, QString> properties = cls.propertiesWithEncodedTypes();
    const QStringList transients = cls.transients();
    QString create = u"CREATE TABLE IF NOT EXISTS %1 (pk INTEGER PRIMARY KEY"_s.arg(table);
    for (auto it = properties.constBegin(); it != properties.constEnd(); ++it) {
        if (!transients.contains(it.key()))
            create += columnDefinition(db, table, stringAsSQLColumnName(it.key()), it.value());
    }
    create += u")"_s;
    logSQLiteError(db, create, kErrorPrefix);
    logSQLiteError(
        db, u"CREATE TABLE IF NOT EXISTS SQLITESEQUENCE (name TEXT PRIMARY KEY, seq INTEGER)"_s,
        kErrorPrefix);
    logSQLiteError(db,
                   u"INSERT OR IGNORE INTO SQLITESEQUENCE (name,seq) VALUES ('%1', 0)"_s.arg(table),
                   kErrorPrefix);
}

void SQLitePersistentObject::createIndices(const SQLiteRecordClass& cls)
{
    const QString table = tableName(cls);
    for (const QStringList& index : cls.indices()) {
        QString indexName = table;
        QStringList columns;
        for (const QString& member : index) {
            const QString column = stringAsSQLColumnName(member);
            indexName += u'_' + column;
            columns.append(column);
        }
        logSQLiteError(database(),
                       u"create index if not exists %1 on %2 (%3)"_s.arg(indexName, table,
                                                                         columns.join(u", "_s)),
                       u"Error creating indices on %1: "_s.arg(table));
    }
}

void SQLitePersistentObject::addMissingColumns(const SQLiteRecordClass& cls)
{
    const QString table = tableName(cls);
    const QMap<QString, QString> properties = cls.propertiesWithEncodedTypes();
    const QStringList transients = cls.transients();
    const QStringList existing = tableColumns(cls);
    for (auto it = properties.constBegin(); it != properties.constEnd(); ++it) {
        const QString column = stringAsSQLColumnName(it.key());
        if (transients.contains(it.key()) || existing.contains(column))
            continue;
        if (const std::optional<QString> type = addedColumnType(it.value()))
            manager()->executeUpdateSQL(
                u"alter table %1 add column %2 %3"_s.arg(table, column, *type));
    }
}

QVariant SQLitePersistentObject::value(const QString& key) const
{
    auto found = m_values.constFind(key);
    if (found != m_values.constEnd())
        return *found;
    // Scalar properties always have a value: zero until set.
    const QString code = m_class.propertiesWithEncodedTypes().value(key);
    if (code == u"B")
        return false;
    if (isIntegerCode(code) || isCharCode(code))
        return QVariant::fromValue(qint64(0));
    if (code == u"f")
        return 0.0f;
    if (code == u"d")
        return 0.0;
    return QVariant();
}

void SQLitePersistentObject::setValue(const QString& key, const QVariant& value)
{
    markDirty();
    setPropertyValue(key, value);
}

void SQLitePersistentObject::takeValue(const QVariant& value, const QString& key)
{
    setValue(key, value);
}

void SQLitePersistentObject::takeValuesFromDictionary(const QVariantMap& values)
{
    for (auto it = values.constBegin(); it != values.constEnd(); ++it)
        setValue(it.key(), it.value());
}

void SQLitePersistentObject::setPropertyValue(const QString& key, const QVariant& value)
{
    if (!m_class.propertiesWithEncodedTypes().contains(key))
        return;
    m_values.insert(key, value);
    if (!m_loading)
        observeValueChange(key);
}

void SQLitePersistentObject::observeValueChange(const QString& key)
{
    Q_UNUSED(key);
    markDirty();
}

void SQLitePersistentObject::registerObjectInMemory(const SQLitePersistentObjectPtr& record)
{
    if (record)
        RecordLayerState::instance().objectMap.insert(record->memoryMapKey(), record);
}

void SQLitePersistentObject::unregisterObject(const SQLitePersistentObject* record)
{
    if (!record)
        return;
    auto& map = RecordLayerState::instance().objectMap;
    const QString key = record->memoryMapKey();
    auto found = map.find(key);
    if (found != map.end() && found->get() == record)
        map.erase(found);
}

QString SQLitePersistentObject::memoryMapKeyForObject(const QString& className, qint64 pk)
{
    return u"%1-%2"_s.arg(className).arg(pk);
}

QString SQLitePersistentObject::memoryMapKey() const
{
    return memoryMapKeyForObject(className(), m_pk);
}

void SQLitePersistentObject::clearCache()
{
    auto& state = RecordLayerState::instance();
    // Records released here may hold others; let them go only after the map is empty.
    QHash<QString, SQLitePersistentObjectPtr> released;
    released.swap(state.objectMap);
    state.checkedClasses.clear();
    released.clear();
}
