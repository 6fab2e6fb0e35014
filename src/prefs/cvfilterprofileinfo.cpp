#include "cvfilterprofileinfo.h"

using namespace Qt::StringLiterals;

namespace {

const QString kProfileName = u"profileName"_s;
const QString kSearchExpression = u"searchExpression"_s;

} // namespace

const SQLiteRecordClass& CVFilterProfileInfo::staticRecordClass()
{
    static const SQLiteRecordClass recordClass(
        u"CVFilterProfileInfo"_s, nullptr,
        {{kProfileName, u"@\"NSString\""_s}, {kSearchExpression, u"@\"NSString\""_s}},
        [] { return CVFilterProfileInfo::create(); });
    return recordClass;
}

CVFilterProfileInfo::CVFilterProfileInfo(const SQLiteRecordClass& recordClass)
    : SQLitePersistentObject(recordClass)
{
}

std::shared_ptr<CVFilterProfileInfo> CVFilterProfileInfo::create()
{
    return std::make_shared<CVFilterProfileInfo>(staticRecordClass());
}

QString CVFilterProfileInfo::profileName() const
{
    return value(kProfileName).toString();
}

void CVFilterProfileInfo::setProfileName(const QString& name)
{
    setPropertyValue(kProfileName, name);
}

QString CVFilterProfileInfo::searchExpression() const
{
    return value(kSearchExpression).toString();
}

void CVFilterProfileInfo::setSearchExpression(const QString& expression)
{
    setPropertyValue(kSearchExpression, expression);
}

void CVFilterProfileInfo::observeValueChange(const QString& key)
{
    Q_UNUSED(key);
    // Replaces the base's handler on purpose: a notice never marks the record dirty, so only a
    // key-value set (which marks it first) is written by this save.
    if (pk() < 1)
        return;
    save();
}

QList<std::shared_ptr<CVFilterProfileInfo>> CVFilterProfileInfo::allObjects()
{
    QList<std::shared_ptr<CVFilterProfileInfo>> profiles;
    for (const SQLitePersistentObjectPtr& record :
         SQLitePersistentObject::allObjects(staticRecordClass())) {
        if (auto profile = std::dynamic_pointer_cast<CVFilterProfileInfo>(record))
            profiles.append(profile);
    }
    return profiles;
}

std::shared_ptr<CVFilterProfileInfo> CVFilterProfileInfo::findByPK(qint64 pk)
{
    return std::dynamic_pointer_cast<CVFilterProfileInfo>(
        SQLitePersistentObject::findByPK(staticRecordClass(), pk));
}
