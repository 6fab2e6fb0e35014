#pragma once

#include "sqliterecordclass.h"

#include <QHash>
#include <QList>
#include <QMap>
#include <QMetaType>
#include <QString>
#include <QVariant>

#include <memory>
#include <optional>

struct sqlite3;
class SQLiteInstanceManager;
class SQLiteStatement;
class SQLitePersistentObject;

using SQLitePersistentObjectPtr = std::shared_ptr<SQLitePersistentObject>;
using SQLiteRecordList = QList<SQLitePersistentObjectPtr>;

Q_DECLARE_METATYPE(SQLitePersistentObjectPtr)
Q_DECLARE_METATYPE(SQLiteRecordList)

// Base of every stored record: a row of the table named after the class, with a 64-bit key
// `pk` (-1 until first saved). Values live under their property names and are read and written
// by name; a related record is held as a QVariant of SQLitePersistentObjectPtr, an array or set
// as a QVariantList, a dictionary as a QVariantMap. Records are made through their class's
// factory (shared_ptr), so that one stored row is one object while the object map holds it.
// SQLite failures are logged and the operation goes on; only the manager raises (SQLiteError).
class SQLitePersistentObject : public std::enable_shared_from_this<SQLitePersistentObject> {
public:
    explicit SQLitePersistentObject(const SQLiteRecordClass& recordClass);
    virtual ~SQLitePersistentObject();
    SQLitePersistentObject(const SQLitePersistentObject&) = delete;
    SQLitePersistentObject& operator=(const SQLitePersistentObject&) = delete;

    const SQLiteRecordClass& recordClass() const { return m_class; }
    QString className() const { return m_class.className(); }

    // The manager every record reads and writes through; null means the shared one. Changing
    // it empties the object map and the list of checked tables.
    static SQLiteInstanceManager* manager();
    static void setManager(SQLiteInstanceManager* manager);
    static sqlite3* database();

    // Naming and schema.
    static QString tableName(const SQLiteRecordClass& cls);
    static QString classNameForTableName(const QString& tableName);
    static QString stringAsSQLColumnName(const QString& propertyName);
    static QString stringAsPropertyString(const QString& columnName);
    static QStringList tableColumns(const SQLiteRecordClass& cls);
    static void tableCheck(const SQLiteRecordClass& cls);

    // Key-value access. `setValue`, `takeValue` and `takeValuesFromDictionary` mark the record
    // dirty first; unknown keys are tolerated and ignored.
    QVariant value(const QString& key) const;
    void setValue(const QString& key, const QVariant& value);
    void takeValue(const QVariant& value, const QString& key);
    void takeValuesFromDictionary(const QVariantMap& values);

    void markDirty() { m_dirty = true; }
    void makeClean() { m_dirty = false; }
    bool isDirty() const { return m_dirty; }
    qint64 pk() const { return m_pk; }
    void setPk(int pk) { m_pk = pk; }
    bool existsInDB() const { return m_pk > 0; }

    // Saving and deleting.
    void save();
    void deleteObject() { deleteObjectCascade(false); }
    void deleteObjectCascade(bool cascade);
    static void deleteObject(const SQLiteRecordClass& cls, qint64 pk, bool cascade);

    // Loading and queries. Criteria are a format text and its arguments (see CriteriaFormat),
    // placed after the table name without quoting.
    static SQLiteRecordList findByCriteria(const SQLiteRecordClass& cls, const QString& criteria,
                                           const QVariantList& arguments = {});
    static SQLitePersistentObjectPtr findFirstByCriteria(const SQLiteRecordClass& cls,
                                                         const QString& criteria,
                                                         const QVariantList& arguments = {});
    static SQLitePersistentObjectPtr findByPK(const SQLiteRecordClass& cls, qint64 pk);
    static SQLiteRecordList allObjects(const SQLiteRecordClass& cls);
    static int countByCriteria(const SQLiteRecordClass& cls, const QString& criteria,
                               const QVariantList& arguments = {});
    static int count(const SQLiteRecordClass& cls);
    static double performSQLAggregation(const QString& statement,
                                        const QVariantList& arguments = {});
    // The operations a class answers by name: findBy<Property>:, and sum/avg/average/min/max/
    // countOf<Property> with or without WithCriteria:. Null when the name does not resolve.
    // findBy answers a SQLiteRecordList (invalid on a BLOB search); the others a double.
    static std::optional<QVariant> performNamedOperation(const SQLiteRecordClass& cls,
                                                         const QString& name,
                                                         const QVariantList& arguments = {});

    // Reports.
    static QMap<QString, QString> sortedFieldValuesWithKeysForProperty(const SQLiteRecordClass& cls,
                                                                       const QString& property);
    static QList<QVariantList> pairedArraysForProperties(const SQLiteRecordClass& cls,
                                                         const QStringList& properties,
                                                         const QString& criteria = QString(),
                                                         const QVariantList& arguments = {});
    static QList<QVariantList> pairedArraySelect(const QString& statement, int fields);

    // The object map: one record per stored row.
    static void registerObjectInMemory(const SQLitePersistentObjectPtr& record);
    static void unregisterObject(const SQLitePersistentObject* record);
    static QString memoryMapKeyForObject(const QString& className, qint64 pk);
    QString memoryMapKey() const;
    static void clearCache();

    void revert();
    void revertProperty(const QString& property);
    void revertProperties(const QStringList& properties);
    SQLiteRecordList findRelated(const SQLiteRecordClass& cls) const;
    SQLiteRecordList findRelated(const SQLiteRecordClass& cls, const QString& filter,
                                 const QVariantList& arguments = {}) const;
    SQLiteRecordList findRelatedForProperty(const SQLiteRecordClass& cls, const QString& column,
                                            const QString& filter,
                                            const QVariantList& arguments = {}) const;
    bool areAllPropertiesEqual(const SQLitePersistentObject& other) const;

protected:
    // Every value change is reported here (the observation of the record's own properties).
    // The base marks the record dirty; a subclass may replace that.
    virtual void observeValueChange(const QString& key);
    // The plain setter behind a subclass's accessors: stores and reports, marks nothing.
    void setPropertyValue(const QString& key, const QVariant& value);

private:
    // The steps of tableCheck: the table with its key sequence row, the indices, and the
    // columns an older file lacks.
    static void createTable(const SQLiteRecordClass& cls);
    static void createIndices(const SQLiteRecordClass& cls);
    static void addMissingColumns(const SQLiteRecordClass& cls);
    static SQLitePersistentObjectPtr loadRow(const SQLiteRecordClass& cls, SQLiteStatement& row);
    static void loadCollections(const SQLitePersistentObjectPtr& record);
    static QVariant loadCollectionElement(qint64 fk, const QString& fkTableName,
                                          SQLiteStatement& row, int dataColumn, int classColumn);
    bool hasDirtyRelatedRecords() const;
    void allocatePk();
    void bindValue(SQLiteStatement& statement, int index, const QString& code,
                   const QVariant& value);
    void saveCollection(const QString& column, const QString& className, const QVariant& value);
    void deleteCollectionRows(const QString& column, bool cascade);
    void revertKeys(const QStringList& keys);

    const SQLiteRecordClass& m_class;
    QHash<QString, QVariant> m_values;
    qint64 m_pk = -1;
    bool m_dirty = true;
    bool m_alreadySaving = false;
    bool m_alreadyDeleting = false;
    bool m_loading = false;
};
