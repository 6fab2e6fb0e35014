#include "profilescommand.h"

#include "persistence/sqliteerror.h"
#include "persistence/sqliteinstancemanager.h"
#include "prefs/cvfilterprofileinfo.h"

#include <QDir>
#include <QFileInfo>

using namespace Qt::StringLiterals;

namespace {

constexpr int kExitOk = 0;
constexpr int kExitFailed = 1;
constexpr int kExitUsage = 2;

const QString kUsage = u"usage: corvina profiles list | add NAME EXPRESSION | delete PK"_s;

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
    for (const auto& profile : CVFilterProfileInfo::allObjects())
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

int deleteProfile(qint64 pk, const QString& path, QTextStream& err)
{
    const auto profile = CVFilterProfileInfo::findByPK(pk);
    if (!profile)
        return fail(err, u"no profile with key %1"_s.arg(pk), kExitFailed);
    profile->deleteObject();
    if (rowExists(pk))
        return fail(err, u"could not delete the profile from %1"_s.arg(path), kExitFailed);
    return kExitOk;
}

} // namespace

int runProfilesCommand(const QStringList& args, QTextStream& out, QTextStream& err)
{
    const QString action = args.value(0);
    qint64 pk = 0;
    if (action == u"list") {
        if (args.size() != 1)
            return fail(err, kUsage, kExitUsage);
    } else if (action == u"add") {
        if (args.size() != 3)
            return fail(err, kUsage, kExitUsage);
        if (args[1].trimmed().isEmpty())
            return fail(err, u"a profile needs a name"_s, kExitUsage);
    } else if (action == u"delete") {
        bool ok = false;
        pk = args.value(1).toLongLong(&ok);
        if (args.size() != 2 || !ok || pk < 1)
            return fail(err, u"delete needs the key of a profile, as `profiles list` shows it"_s,
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
        return deleteProfile(pk, path, err);
    } catch (const SQLiteError& error) {
        return fail(err, u"cannot use the profile database %1: %2"_s.arg(path, error.message()),
                    kExitFailed);
    }
}
