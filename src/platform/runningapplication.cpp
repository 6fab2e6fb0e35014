#include "runningapplication.h"

#include "platform/desktopentryindex.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QHash>
#include <QLocale>
#include <QMutex>

#include <unistd.h>

#include <chrono>
#include <optional>

using namespace Qt::StringLiterals;

namespace {

// Long enough to serve every item of a refresh from one read, short enough that a reused
// process id is soon read again.
constexpr auto kRecordLifetime = std::chrono::seconds(3);
constexpr qsizetype kMaxCachedRecords = 4096;
// /proc files we read are small; environ and cmdline are bounded by the kernel's ARG_MAX.
constexpr qint64 kMaxProcFileSize = 4 << 20;

QByteArray readSmallFile(const QString& path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly | QIODevice::Unbuffered))
        return {};
    return file.read(kMaxProcFileSize);
}

QString fileName(const QString& path)
{
    return path.mid(path.lastIndexOf(u'/') + 1);
}

QString linkTarget(const QString& path)
{
    const QByteArray local = QFile::encodeName(path);
    QByteArray target(4096, Qt::Uninitialized);
    const ssize_t length = ::readlink(local.constData(), target.data(), target.size());
    if (length <= 0 || length >= target.size())
        return {};
    target.truncate(length);
    QString text = QFile::decodeName(target);
    // The kernel marks a replaced executable; the path is still the one the user knows.
    if (text.endsWith(u" (deleted)"_s))
        text.chop(10);
    return text;
}

// Values of one "[Group]" of an INI-style text, such as .flatpak-info.
QHash<QString, QString> iniGroup(const QByteArray& text, QStringView group)
{
    QHash<QString, QString> values;
    bool inGroup = false;
    for (const QByteArray& raw : text.split('\n')) {
        const QString line = QString::fromUtf8(raw).trimmed();
        if (line.startsWith(u'[')) {
            inGroup = QStringView(line).mid(1, line.size() - 2) == group;
        } else if (inGroup) {
            const qsizetype equals = line.indexOf(u'=');
            if (equals > 0)
                values.insert(line.left(equals).trimmed(), line.mid(equals + 1).trimmed());
        }
    }
    return values;
}

QString processDirectory(const RunningApplication::Sources& sources, qint64 pid)
{
    return sources.procRoot + u'/' + QString::number(pid);
}

// The process's start time (clock ticks after boot), 0 when stat does not say; nothing when
// the process has no stat at all.
std::optional<quint64> readStartTime(const QString& processDir)
{
    QFile file(processDir + u"/stat"_s);
    if (!file.open(QIODevice::ReadOnly | QIODevice::Unbuffered))
        return std::nullopt;
    const QByteArray stat = file.read(kMaxProcFileSize);
    // The command name may hold blanks and parentheses: fields count from the last ')'.
    const qsizetype close = stat.lastIndexOf(')');
    if (close < 0)
        return 0;
    const QList<QByteArray> fields = stat.mid(close + 2).split(' ');
    // starttime is field 22 of stat, the 20th after the command name.
    return fields.size() > 19 ? fields[19].toULongLong() : 0;
}

struct CachedRecord {
    std::shared_ptr<const RunningApplication> record;
    std::chrono::steady_clock::time_point readAt;
};

} // namespace

QStringList RunningApplication::defaultFlatpakInstallations()
{
    return {QDir::homePath() + u"/.local/share/flatpak"_s, u"/var/lib/flatpak"_s};
}

QString RunningApplication::messageLocale()
{
    for (const char* variable : {"LC_ALL", "LC_MESSAGES", "LANG"}) {
        const QString value = qEnvironmentVariable(variable);
        if (!value.isEmpty())
            return value;
    }
    return QLocale::system().name();
}

std::shared_ptr<const RunningApplication>
RunningApplication::runningApplicationWithProcessIdentifier(qint64 pid)
{
    return runningApplicationWithProcessIdentifier(pid, Sources{});
}

std::shared_ptr<const RunningApplication>
RunningApplication::runningApplicationWithProcessIdentifier(qint64 pid, const Sources& sources)
{
    static QMutex lock;
    static QHash<QString, CachedRecord> records;
    const QString dir = processDirectory(sources, pid);
    const auto now = std::chrono::steady_clock::now();
    {
        QMutexLocker locker(&lock);
        const auto it = records.constFind(dir);
        if (it != records.cend()) {
            // A kept record answers only for the very process it was read from: a process id
            // reused, or no longer there, is read again.
            if (now - it->readAt < kRecordLifetime &&
                readStartTime(dir) == std::optional(it->record->startTime()))
                return it->record;
            records.remove(dir);
        }
    }
    auto record = read(pid, sources);
    // A miss is not kept: the process may appear by the next call.
    if (!record)
        return record;
    QMutexLocker locker(&lock);
    if (records.size() >= kMaxCachedRecords)
        records.clear();
    records.insert(dir, CachedRecord{record, now});
    return record;
}

std::shared_ptr<const RunningApplication> RunningApplication::read(qint64 pid,
                                                                   const Sources& sources)
{
    if (pid <= 0)
        return {};
    const QString dir = processDirectory(sources, pid);
    if (!QFileInfo(dir).isDir())
        return {};

    std::shared_ptr<RunningApplication> app(new RunningApplication);
    app->m_pid = pid;
    app->m_processName = QString::fromUtf8(readSmallFile(dir + u"/comm"_s)).trimmed();
    app->m_executablePath = linkTarget(dir + u"/exe"_s);
    const QByteArray cmdline = readSmallFile(dir + u"/cmdline"_s);
    for (const QByteArray& argument : cmdline.split('\0')) {
        if (!argument.isEmpty())
            app->m_commandLine.append(QString::fromLocal8Bit(argument));
    }
    app->m_startTime = readStartTime(dir).value_or(0);

    app->readFlatpakInfo(dir, sources.flatpakInstallations);
    if (app->m_bundlePath.isEmpty()) {
        for (const QByteArray& variable : readSmallFile(dir + u"/environ"_s).split('\0')) {
            if (variable.startsWith("APPIMAGE=") && variable.size() > 9) {
                app->m_bundlePath = QFile::decodeName(variable.mid(9));
                break;
            }
        }
    }
    DesktopEntryIndex& index =
        sources.desktopEntries ? *sources.desktopEntries : DesktopEntryIndex::sharedIndex();
    app->matchDesktopEntry(index, sources.locale.isEmpty() ? messageLocale() : sources.locale);
    return app;
}

void RunningApplication::readFlatpakInfo(const QString& processDir,
                                         const QStringList& installations)
{
    // Readable through the process's root only for our own processes; the cgroup names the
    // app for the others too.
    const QByteArray info = readSmallFile(processDir + u"/root/.flatpak-info"_s);
    QString appPath;
    if (!info.isEmpty()) {
        m_flatpakAppId = iniGroup(info, u"Application").value(u"name"_s);
        appPath = iniGroup(info, u"Instance").value(u"app-path"_s);
    }
    if (m_flatpakAppId.isEmpty()) {
        const QString cgroup = QString::fromUtf8(readSmallFile(processDir + u"/cgroup"_s));
        const qsizetype start = cgroup.indexOf(u"app-flatpak-"_s);
        if (start >= 0) {
            const qsizetype from = start + 12;
            const qsizetype end = cgroup.indexOf(u".scope"_s, from);
            QString unit = cgroup.mid(from, end < 0 ? -1 : end - from);
            // "app-flatpak-<app id>-<instance>.scope"
            if (const qsizetype dash = unit.lastIndexOf(u'-'); dash > 0)
                unit.truncate(dash);
            m_flatpakAppId = unit;
        }
    }
    if (m_flatpakAppId.isEmpty())
        return;

    const QString marker = u"/app/"_s + m_flatpakAppId;
    if (const qsizetype at = appPath.indexOf(marker + u'/'); at > 0) {
        m_bundlePath = appPath.left(at + marker.size());
        return;
    }
    for (const QString& installation : installations) {
        const QString folder = installation + marker;
        if (QFileInfo(folder).isDir()) {
            m_bundlePath = folder;
            return;
        }
    }
}

void RunningApplication::matchDesktopEntry(DesktopEntryIndex& index, const QString& locale)
{
    DesktopEntryIndex::EntryPtr entry = index.entryForFlatpakApp(m_flatpakAppId);
    for (const QString& program :
         {fileName(m_executablePath), m_processName,
          m_commandLine.isEmpty() ? QString() : fileName(m_commandLine.front())}) {
        if (entry)
            break;
        entry = index.entryForProgram(program);
    }
    if (!entry)
        return;
    m_localizedName = entry->localizedName(locale);
    m_iconName = entry->iconName().isEmpty() ? QString() : entry->iconName();
    m_desktopEntryPath = entry->path();
}
