#pragma once

#include <QHash>
#include <QString>
#include <QStringList>

#include <optional>

// The [Desktop Entry] group of an XDG .desktop file of type Application: what naming a process
// needs (its names, icon and the programs it starts).
class DesktopEntry final {
public:
    // Null when the file cannot be read, has no [Desktop Entry] group, is not an application,
    // is hidden, or has no Name.
    static std::optional<DesktopEntry> fromFile(const QString& path, const QString& desktopId);
    static std::optional<DesktopEntry> fromText(QStringView text, const QString& path,
                                                const QString& desktopId);

    // Name[ll_CC], then Name[ll], then Name, for a locale written like "de_AT.UTF-8@euro".
    QString localizedName(QStringView locale) const;

    QString path() const { return m_path; }
    // The file name without ".desktop", subfolders joined by "-" ("kde-foo").
    QString desktopId() const { return m_desktopId; }
    QString name() const { return m_name; }
    QString iconName() const { return m_icon; }
    // File name of the program Exec starts: the first word, behind "env VAR=…" and, for a
    // Flatpak launcher, the `--command=` it names; null when Exec has none.
    QString execProgram() const { return m_execProgram; }
    QString tryExecProgram() const { return m_tryExecProgram; }
    QString startupWMClass() const { return m_startupWMClass; }
    // X-Flatpak, or the app id a "flatpak run" Exec starts.
    QString flatpakAppId() const { return m_flatpakAppId; }

    // The words of an Exec value, quotes and escapes undone.
    static QStringList execArguments(QStringView exec);

private:
    DesktopEntry() = default;

    QString m_path;
    QString m_desktopId;
    QString m_name;
    QHash<QString, QString> m_localizedNames;
    QString m_icon;
    QString m_execProgram;
    QString m_tryExecProgram;
    QString m_startupWMClass;
    QString m_flatpakAppId;
};
