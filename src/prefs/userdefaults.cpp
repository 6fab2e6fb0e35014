#include "userdefaults.h"

#include "platform/systemlog.h"

#include <QDir>
#include <QFileInfo>
#include <QFileSystemWatcher>
#include <QSettings>
#include <QStandardPaths>
#include <QTimer>

#include <optional>

using namespace Qt::StringLiterals;

namespace {

// Bursts of file events (a rename-over save gives several) collapse into one re-read.
constexpr int kReloadDelayMs = 20;

bool isIntegral(const QVariant& value)
{
    switch (value.typeId()) {
    case QMetaType::Int:
    case QMetaType::UInt:
    case QMetaType::Long:
    case QMetaType::ULong:
    case QMetaType::LongLong:
    case QMetaType::ULongLong:
    case QMetaType::Short:
    case QMetaType::UShort:
        return true;
    default:
        return false;
    }
}

std::optional<bool> asBool(const QVariant& value)
{
    if (value.typeId() == QMetaType::Bool)
        return value.toBool();
    if (isIntegral(value))
        return value.toLongLong() != 0;
    if (value.typeId() == QMetaType::QString) {
        const QString text = value.toString().trimmed().toLower();
        if (text == u"true" || text == u"yes" || text == u"1")
            return true;
        if (text == u"false" || text == u"no" || text == u"0")
            return false;
    }
    return std::nullopt;
}

std::optional<qint64> asInteger(const QVariant& value)
{
    if (isIntegral(value) || value.typeId() == QMetaType::Bool)
        return value.toLongLong();
    if (value.typeId() == QMetaType::Double) {
        const double number = value.toDouble();
        if (number >= -9.0e18 && number <= 9.0e18 && qint64(number) == number)
            return qint64(number);
        return std::nullopt;
    }
    if (value.typeId() == QMetaType::QString) {
        bool ok = false;
        const qint64 number = value.toString().trimmed().toLongLong(&ok);
        if (ok)
            return number;
    }
    return std::nullopt;
}

std::optional<QString> asText(const QVariant& value)
{
    if (value.typeId() == QMetaType::QString)
        return value.toString();
    if (isIntegral(value) || value.typeId() == QMetaType::Bool ||
        value.typeId() == QMetaType::Double)
        return value.toString();
    return std::nullopt;
}

// The INI file cannot tell a one-element list from a text, and writes an empty list as an
// invalid value; both read back as lists here.
std::optional<QVariantList> asList(const QVariant& value)
{
    if (!value.isValid())
        return QVariantList();
    if (value.typeId() == QMetaType::QVariantList)
        return value.toList();
    if (value.typeId() == QMetaType::QStringList) {
        QVariantList list;
        for (const QString& text : value.toStringList())
            list << text;
        return list;
    }
    if (value.typeId() == QMetaType::QString)
        return QVariantList{value};
    return std::nullopt;
}

std::optional<QStringList> asStringList(const QVariant& value)
{
    const std::optional<QVariantList> list = asList(value);
    if (!list)
        return std::nullopt;
    QStringList texts;
    for (const QVariant& element : *list) {
        const std::optional<QString> text = asText(element);
        if (!text)
            return std::nullopt;
        texts << *text;
    }
    return texts;
}

// `stored` in the type of `registered`, or nothing when it cannot be read as that type.
std::optional<QVariant> convertLike(const QVariant& stored, const QVariant& registered)
{
    switch (registered.typeId()) {
    case QMetaType::Bool:
        if (const auto flag = asBool(stored))
            return QVariant(*flag);
        return std::nullopt;
    case QMetaType::QString:
        if (const auto text = asText(stored))
            return QVariant(*text);
        return std::nullopt;
    case QMetaType::QStringList:
        if (const auto texts = asStringList(stored))
            return QVariant(*texts);
        return std::nullopt;
    case QMetaType::QVariantList:
        if (const auto list = asList(stored))
            return QVariant(*list);
        return std::nullopt;
    default:
        if (isIntegral(registered)) {
            if (const auto number = asInteger(stored))
                return QVariant(*number);
            return std::nullopt;
        }
        return stored;
    }
}

const char* typeName(const QVariant& registered)
{
    if (registered.typeId() == QMetaType::Bool)
        return "a boolean";
    if (isIntegral(registered))
        return "an integer";
    if (registered.typeId() == QMetaType::QString)
        return "a text";
    return "a list";
}

QString describe(const QVariant& value)
{
    if (!value.isValid())
        return u"(none)"_s;
    if (value.canConvert<QStringList>() && value.typeId() != QMetaType::QString)
        return u"["_s + value.toStringList().join(u", "_s) + u"]"_s;
    return value.toString();
}

} // namespace

UserDefaults::UserDefaults(const QString& filePath, QObject* parent)
    : QObject(parent), m_filePath(QFileInfo(filePath).absoluteFilePath())
{
    QDir().mkpath(QFileInfo(m_filePath).absolutePath());
    m_stored = readFile();

    m_reloadTimer = new QTimer(this);
    m_reloadTimer->setSingleShot(true);
    m_reloadTimer->setInterval(kReloadDelayMs);
    connect(m_reloadTimer, &QTimer::timeout, this, [this] {
        watchFile();
        synchronize();
    });
    m_watcher = new QFileSystemWatcher(this);
    const auto scheduleReload = [this] { m_reloadTimer->start(); };
    connect(m_watcher, &QFileSystemWatcher::fileChanged, this, scheduleReload);
    connect(m_watcher, &QFileSystemWatcher::directoryChanged, this, scheduleReload);
    watchFile();
}

UserDefaults::~UserDefaults() = default;

QString UserDefaults::standardFilePath()
{
    return QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation) +
           u"/Corvina/Corvina.conf"_s;
}

UserDefaults& UserDefaults::standardUserDefaults()
{
    // Lives until the process ends, like the settings of any running application.
    static UserDefaults* const instance = new UserDefaults(standardFilePath());
    return *instance;
}

void UserDefaults::watchFile()
{
    const QString folder = QFileInfo(m_filePath).absolutePath();
    if (!m_watcher->directories().contains(folder) && QFileInfo::exists(folder))
        m_watcher->addPath(folder);
    // A save replaces the file, which ends the watch on the old one.
    if (!m_watcher->files().contains(m_filePath) && QFileInfo::exists(m_filePath))
        m_watcher->addPath(m_filePath);
}

QVariantMap UserDefaults::readFile() const
{
    QSettings settings(m_filePath, QSettings::IniFormat);
    QVariantMap values;
    for (const QString& key : settings.allKeys())
        values.insert(key, settings.value(key));
    return values;
}

void UserDefaults::registerDefaults(const QVariantMap& defaults)
{
    QMutexLocker locker(&m_lock);
    for (auto it = defaults.cbegin(); it != defaults.cend(); ++it)
        m_registered.insert(it.key(), it.value());
}

QStringList UserDefaults::registeredKeys() const
{
    QMutexLocker locker(&m_lock);
    return m_registered.keys();
}

QVariant UserDefaults::registeredDefault(const QString& key) const
{
    QMutexLocker locker(&m_lock);
    return m_registered.value(key);
}

QString UserDefaults::lastWriteError() const
{
    QMutexLocker locker(&m_lock);
    return m_lastWriteError;
}

bool UserDefaults::hasStoredValue(const QString& key) const
{
    QMutexLocker locker(&m_lock);
    return m_stored.contains(key);
}

QVariant UserDefaults::objectForKey(const QString& key) const
{
    QMutexLocker locker(&m_lock);
    const QVariant registered = m_registered.value(key);
    const auto stored = m_stored.constFind(key);
    if (stored == m_stored.cend())
        return registered;
    if (!registered.isValid())
        return stored->isValid() ? *stored : QVariant(QVariantList());
    if (const std::optional<QVariant> converted = convertLike(*stored, registered))
        return *converted;
    const QVariant bad = *stored;
    locker.unlock();
    reportGarbage(key, bad, typeName(registered));
    return registered;
}

void UserDefaults::reportGarbage(const QString& key, const QVariant& stored,
                                 const char* expected) const
{
    {
        QMutexLocker locker(&m_lock);
        const auto reported = m_reportedGarbage.constFind(key);
        if (reported != m_reportedGarbage.cend() && *reported == stored)
            return;
        m_reportedGarbage.insert(key, stored);
    }
    SystemLog::write(u"setting %1 holds %2, which is not %3; using its default"_s.arg(
        key, describe(stored), QLatin1StringView(expected)));
}

bool UserDefaults::boolForKey(const QString& key) const
{
    const QVariant value = objectForKey(key);
    if (!value.isValid())
        return false;
    if (const auto flag = asBool(value))
        return *flag;
    reportGarbage(key, value, "a boolean");
    return false;
}

qint64 UserDefaults::integerForKey(const QString& key) const
{
    const QVariant value = objectForKey(key);
    if (!value.isValid())
        return 0;
    if (const auto number = asInteger(value))
        return *number;
    reportGarbage(key, value, "an integer");
    return 0;
}

QString UserDefaults::stringForKey(const QString& key) const
{
    const QVariant value = objectForKey(key);
    if (!value.isValid())
        return QString();
    if (const auto text = asText(value))
        return *text;
    reportGarbage(key, value, "a text");
    return QString();
}

QVariantList UserDefaults::arrayForKey(const QString& key) const
{
    const QVariant value = objectForKey(key);
    if (!value.isValid())
        return QVariantList();
    if (const auto list = asList(value))
        return *list;
    reportGarbage(key, value, "a list");
    return QVariantList();
}

QStringList UserDefaults::stringArrayForKey(const QString& key) const
{
    const QVariant value = objectForKey(key);
    if (!value.isValid())
        return QStringList();
    if (const auto texts = asStringList(value))
        return *texts;
    reportGarbage(key, value, "a list of texts");
    return QStringList();
}

void UserDefaults::setObject(const QString& key, const QVariant& value)
{
    if (!value.isValid()) {
        removeObjectForKey(key);
        return;
    }
    writeValue(key, &value);
}

void UserDefaults::removeObjectForKey(const QString& key)
{
    writeValue(key, nullptr);
}

void UserDefaults::writeValue(const QString& key, const QVariant* value)
{
    QString failure;
    {
        QMutexLocker locker(&m_lock);
        QSettings settings(m_filePath, QSettings::IniFormat);
        if (value)
            settings.setValue(key, *value);
        else
            settings.remove(key);
        settings.sync();
        if (settings.status() != QSettings::NoError)
            failure = u"cannot write the settings file %1"_s.arg(m_filePath);
        m_stored = readFile();
        // An unwritable file still holds the setting for the rest of this run.
        if (value)
            m_stored.insert(key, *value);
        else
            m_stored.remove(key);
        m_reportedGarbage.clear();
        m_lastWriteError = failure;
    }
    if (!failure.isEmpty())
        SystemLog::write(failure);
    emit didChange();
}

void UserDefaults::synchronize()
{
    {
        QMutexLocker locker(&m_lock);
        QVariantMap values = readFile();
        if (values == m_stored)
            return;
        m_stored = std::move(values);
        m_reportedGarbage.clear();
    }
    emit didChange();
}
