#pragma once
// Stand-in until the prefs branch is merged; deleted then.
#include <QObject>
#include <QSettings>
#include <QVariant>

class UserDefaults : public QObject {
    Q_OBJECT
public:
    explicit UserDefaults(const QString& path, QObject* parent = nullptr)
        : QObject(parent), m_settings(path, QSettings::IniFormat)
    {
    }
    QVariant objectForKey(const QString& key) const { return m_settings.value(key); }
    qint64 integerForKey(const QString& key) const
    {
        return m_settings.value(key, key == QStringLiteral("CV:AutoRefreshSetting") ? 1 : 0)
            .toLongLong();
    }
    QString stringForKey(const QString& key) const { return m_settings.value(key).toString(); }
    QVariantList arrayForKey(const QString& key) const { return m_settings.value(key).toList(); }
    void setObject(const QString& key, const QVariant& value)
    {
        m_settings.setValue(key, value);
        Q_EMIT didChange();
    }
    void removeObjectForKey(const QString& key)
    {
        m_settings.remove(key);
        Q_EMIT didChange();
    }
    void synchronize() { m_settings.sync(); }
Q_SIGNALS:
    void didChange();

private:
    QSettings m_settings;
};
