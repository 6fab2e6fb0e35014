#include "profilescommand.h"

#include "filter/predicate.h"
#include "persistence/sqliteerror.h"
#include "persistence/sqliteinstancemanager.h"
#include "prefs/cvfilterprofileinfo.h"

#include <QDir>
#include <QFileInfo>

#include <variant>

using namespace Qt::StringLiterals;

namespace {

constexpr int kExitOk = 0;
constexpr int kExitFailed = 1;
constexpr int kExitUsage = 2;

const QString kUsage = u"usage: corvina profiles list | add NAME EXPRESSION | delete NAME|KEY"_s;

using ProfilePtr = std::shared_ptr<CVFilterProfileInfo>;

int fail(QTextStream& err, const QString& message, int status)
{
    err << "corvina: " << message << '\n';
    err.flush();
    return status;
}

// Whether the row of `pk` is in the file (the object map cannot tell: it answers for records
// whose write failed too).
bool rowExists(qint64 pk)
{
    return SQLitePersistentObject::countByCriteria(CVFilterProfileInfo::staticRecordClass(),
                                                   u"WHERE pk = %ld"_s, {pk}) == 1;
}

int listProfiles(QTextStream& out)
{
    const auto profiles = CVFilterProfileInfo::allObjects();
    if (profiles.isEmpty())
        out << "No saved searches.\n";
    for (const auto& profile : profiles)
        out << profile->pk() << '\t' << profile->profileName() << '\t'
            << profile->searchExpression() << '\n';
    out.flush();
    return kExitOk;
}

int addProfile(const QString& name, const QString& expression, const QString& path,
               QTextStream& out, QTextStream& err)
{
    const auto profile = CVFilterProfileInfo::create();
    profile->setProfileName(name);
    profile->setSearchExpression(expression);
    profile->save();
    if (!profile->existsInDB() || !rowExists(profile->pk())) {
        profile->deleteObject();
        return fail(err, u"could not store the profile in %1"_s.arg(path), kExitFailed);
    }
    out << profile->pk() << '\n';
    out.flush();
    return kExitOk;
}

// The profile `which` names: the one of that key when it is a key in use, else the one of
// that name. A name that several profiles share names none of them.
std::variant<ProfilePtr, int> profileNamed(const QString& which, QTextStream& err)
{
    bool isNumber = false;
    const qint64 pk = which.toLongLong(&isNumber);
    if (isNumber && pk > 0) {
        if (auto profile = CVFilterProfileInfo::findByPK(pk))
            return profile;
    }
    QList<ProfilePtr> named;
    QStringList keys;
    for (const auto& profile : CVFilterProfileInfo::allObjects()) {
        if (profile->profileName() == which) {
            named << profile;
            keys << QString::number(profile->pk());
        }
    }
    if (named.size() == 1)
        return named.first();
    if (named.isEmpty())
        return fail(err, u"no profile with the key or name '%1'"_s.arg(which), kExitFailed);
    return fail(err,
                u"%1 profiles are named '%2'; delete one by its key (%3)"_s.arg(named.size())
                    .arg(which, keys.join(u", "_s)),
                kExitUsage);
}

int deleteProfile(const QString& which, const QString& path, QTextStream& err)
{
    const auto found = profileNamed(which, err);
    if (const int* status = std::get_if<int>(&found))
        return *status;
    const auto profile = std::get<ProfilePtr>(found);
    const qint64 pk = profile->pk();
    profile->deleteObject();
    if (rowExists(pk))
        return fail(err, u"could not delete the profile from %1"_s.arg(path), kExitFailed);
    return kExitOk;
}

} // namespace

int runProfilesCommand(const QStringList& args, QTextStream& out, QTextStream& err)
{
    const QString action = args.value(0);
    if (action == u"list") {
        if (args.size() != 1)
            return fail(err, kUsage, kExitUsage);
    } else if (action == u"add") {
        if (args.size() != 3)
            return fail(err, kUsage, kExitUsage);
        if (args[1].trimmed().isEmpty())
            return fail(err, u"a profile needs a name"_s, kExitUsage);
        // A saved search that cannot be read would show everything, silently, when chosen.
        const auto parsed = Predicate::parse(args[2]);
        if (const auto* error = std::get_if<PredicateError>(&parsed))
            return fail(err, u"the expression is not valid: %1"_s.arg(error->toString()),
                        kExitUsage);
    } else if (action == u"delete") {
        if (args.size() != 2 || args[1].isEmpty())
            return fail(err,
                        u"delete needs the key or the name of a profile, as `profiles list` "
                        u"shows them"_s,
                        kExitUsage);
    } else {
        return fail(err, kUsage, kExitUsage);
    }

    SQLiteInstanceManager* manager = SQLitePersistentObject::manager();
    QString path;
    try {
        path = manager->databaseFilepath();
        // The manager never creates its folder; the application's edge does.
        const QString folder = QFileInfo(path).absolutePath();
        if (!QDir().mkpath(folder))
            return fail(err, u"cannot create the folder %1"_s.arg(folder), kExitFailed);
        if (action == u"list")
            return listProfiles(out);
        if (action == u"add")
            return addProfile(args[1], args[2], path, out, err);
        return deleteProfile(args[1], path, err);
    } catch (const SQLiteError& error) {
        return fail(err, u"cannot use the profile database %1: %2"_s.arg(path, error.message()),
                    kExitFailed);
    }
}
