#include "sqliterecordclass.h"

#include <QHash>

namespace {

QHash<QString, const SQLiteRecordClass*>& classRegistry()
{
    static QHash<QString, const SQLiteRecordClass*> registry;
    return registry;
}

} // namespace

SQLiteRecordClass::SQLiteRecordClass(const QString& className, const SQLiteRecordClass* superclass,
                                     const QList<SQLitePropertyDeclaration>& declarations,
                                     Factory factory, const QStringList& transients,
                                     const QList<QStringList>& indices)
    : m_className(className), m_superclass(superclass), m_declarations(declarations),
      m_factory(std::move(factory)), m_transients(transients), m_indices(indices)
{
    // Declarations never change after construction, so the registry is built once.
    if (m_superclass)
        m_properties = m_superclass->propertiesWithEncodedTypes();
    for (const SQLitePropertyDeclaration& declaration : m_declarations) {
        if (!declaration.readOnly)
            m_properties.insert(declaration.name, declaration.code);
    }
    classRegistry().insert(className, this);
}

SQLiteRecordClass::~SQLiteRecordClass()
{
    auto& registry = classRegistry();
    if (registry.value(m_className) == this)
        registry.remove(m_className);
}

bool SQLiteRecordClass::isSubclassOf(const SQLiteRecordClass& other) const
{
    for (const SQLiteRecordClass* cls = this; cls; cls = cls->m_superclass) {
        if (cls == &other)
            return true;
    }
    return false;
}

std::shared_ptr<SQLitePersistentObject> SQLiteRecordClass::create() const
{
    return m_factory ? m_factory() : nullptr;
}

const SQLiteRecordClass* SQLiteRecordClass::forName(const QString& className)
{
    return classRegistry().value(className);
}

QString SQLiteRecordClass::classNameOfCode(const QString& code)
{
    if (!code.startsWith(u'@') || code.size() < 3)
        return QString();
    return code.mid(2, code.size() - 3);
}
