#pragma once

#include <QList>
#include <QMap>
#include <QString>
#include <QStringList>

#include <functional>
#include <memory>

class SQLitePersistentObject;

// One persisted property as a record class declares it: its name and its storage-type code
// ("i", "q", "d", "B", "c", @"NSString", @"NSArray", @"SomeRecordClass", ...).
struct SQLitePropertyDeclaration {
    QString name;
    QString code;
    bool readOnly = false; // read-only properties are never registered
};

// What the record layer knows of a record class: its name, superclass, declared properties,
// its two hooks (transients, indices) and how to make an instance. Each record class keeps one
// of these for the process (a function-local static), which registers itself by class name so
// stored references ("CVFilterProfileInfo-3") and cross-reference rows find their class.
class SQLiteRecordClass final {
public:
    using Factory = std::function<std::shared_ptr<SQLitePersistentObject>()>;

    SQLiteRecordClass(const QString& className, const SQLiteRecordClass* superclass,
                      const QList<SQLitePropertyDeclaration>& declarations, Factory factory,
                      const QStringList& transients = {}, const QList<QStringList>& indices = {});
    ~SQLiteRecordClass();
    SQLiteRecordClass(const SQLiteRecordClass&) = delete;
    SQLiteRecordClass& operator=(const SQLiteRecordClass&) = delete;

    QString className() const { return m_className; }
    const SQLiteRecordClass* superclass() const { return m_superclass; }
    // The superclass's registry plus this class's writable declarations: name -> code.
    QMap<QString, QString> propertiesWithEncodedTypes() const { return m_properties; }
    QStringList transients() const { return m_transients; }
    QList<QStringList> indices() const { return m_indices; }
    bool isSubclassOf(const SQLiteRecordClass& other) const;
    std::shared_ptr<SQLitePersistentObject> create() const;

    // The registered record class of that name, or null.
    static const SQLiteRecordClass* forName(const QString& className);
    // The class name inside an object code (@"NSString" -> NSString); empty for scalar codes.
    static QString classNameOfCode(const QString& code);

private:
    QString m_className;
    const SQLiteRecordClass* m_superclass;
    QList<SQLitePropertyDeclaration> m_declarations;
    Factory m_factory;
    QStringList m_transients;
    QList<QStringList> m_indices;
    QMap<QString, QString> m_properties;
};
