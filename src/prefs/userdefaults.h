#pragma once

#include <QHash>
#include <QMutex>
#include <QObject>
#include <QString>
#include <QStringList>
#include <QVariant>
#include <QVariantMap>

class QFileSystemWatcher;
class QTimer;

// The per-user settings store: an INI file read through QSettings, with registered defaults held
// in memory that answer for keys never set. A stored value is read back in the type of its
// registered default; the INI file keeps only text, so "11" and "true" are the usual stored forms.
//
// Reads are safe from any thread. Writes and the file watcher belong to the thread that owns the
// object, which for the application's store is the thread that first asks for it: the GUI thread.
// `didChange()` follows every write and removal made here, and every change another process makes
// to the file.
class UserDefaults final : public QObject {
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(UserDefaults)

public:
    explicit UserDefaults(const QString& filePath, QObject* parent = nullptr);
    ~UserDefaults() override;

    // The application's store, ~/.config/Corvina/Corvina.conf.
    static UserDefaults& standardUserDefaults();
    static QString standardFilePath();

    QString filePath() const { return m_filePath; }

    // Adds to (and replaces entries of) the registered defaults; never written to disk.
    void registerDefaults(const QVariantMap& defaults);
    QStringList registeredKeys() const;
    QVariant registeredDefault(const QString& key) const;

    // The stored value in the type of the key's registered default; the registered default when
    // nothing usable is stored; an invalid QVariant when neither exists.
    QVariant objectForKey(const QString& key) const;
    bool boolForKey(const QString& key) const;
    qint64 integerForKey(const QString& key) const;
    QString stringForKey(const QString& key) const;
    QVariantList arrayForKey(const QString& key) const;
    QStringList stringArrayForKey(const QString& key) const;
    bool hasStoredValue(const QString& key) const;

    void setObject(const QString& key, const QVariant& value);
    void setBool(const QString& key, bool value) { setObject(key, value); }
    void setInteger(const QString& key, qint64 value) { setObject(key, value); }
    void setString(const QString& key, const QString& value) { setObject(key, value); }
    void removeObjectForKey(const QString& key);
    // Why the last write did not reach the file (the value still holds for this run); null
    // when it did.
    QString lastWriteError() const;

    // Re-reads the file; emits didChange() when what it holds differs from what was read last.
    void synchronize();

signals:
    void didChange();

private:
    QVariantMap readFile() const;
    void writeValue(const QString& key, const QVariant* value);
    void watchFile();
    void reportGarbage(const QString& key, const QVariant& stored, const char* expected) const;

    const QString m_filePath;
    mutable QMutex m_lock;
    QVariantMap m_registered;
    QVariantMap m_stored;
    QString m_lastWriteError;
    // Keys whose unusable stored value was already logged; forgotten when the store changes.
    mutable QHash<QString, QVariant> m_reportedGarbage;
    QFileSystemWatcher* m_watcher = nullptr;
    QTimer* m_reloadTimer = nullptr;
};
