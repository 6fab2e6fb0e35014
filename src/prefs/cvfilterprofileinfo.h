#pragma once

#include "persistence/sqlitepersistentobject.h"

#include <QList>
#include <QString>

#include <memory>

// A saved search: the name the user chose and its search expression, one row of
// `c_v_filter_profile_info`. A stored profile (pk >= 1) saves itself at once on every change
// notice; only key-value sets (`setValue`, `takeValue`, `takeValuesFromDictionary`) mark it
// dirty, so an edit through the plain setters of a stored profile is noticed but not written.
class CVFilterProfileInfo final : public SQLitePersistentObject {
public:
    // Use create(): records must be owned by a shared_ptr for the object map.
    static std::shared_ptr<CVFilterProfileInfo> create();
    explicit CVFilterProfileInfo(const SQLiteRecordClass& recordClass);

    static const SQLiteRecordClass& staticRecordClass();

    QString profileName() const;
    void setProfileName(const QString& name);
    QString searchExpression() const;
    void setSearchExpression(const QString& expression);

    // Every stored profile, in the order the table yields its rows; the same objects while
    // they are alive.
    static QList<std::shared_ptr<CVFilterProfileInfo>> allObjects();
    static std::shared_ptr<CVFilterProfileInfo> findByPK(qint64 pk);

protected:
    void observeValueChange(const QString& key) override;
};
