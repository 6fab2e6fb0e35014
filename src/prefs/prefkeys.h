#pragma once

#include <QString>
#include <QStringList>

// Every setting key of the application. Nothing else spells these texts.
namespace PrefKeys {

inline const QString AutoRefreshSetting = QStringLiteral("CV:AutoRefreshSetting");
inline const QString ListFontSize = QStringLiteral("CV:ListFontSize");
inline const QString ListBackgroundColor = QStringLiteral("CV:ListBackgroundColor");
inline const QString ListTextColor = QStringLiteral("CV:ListTextColor");
inline const QString NewConnectionBackgroundColor =
    QStringLiteral("CV:NewConnectionBackgroundColor");
inline const QString StateChangedConnectionBackgroundColor =
    QStringLiteral("CV:StateChangedConnectionBackgroundColor");
inline const QString ClosedConnectionBackgroundColor =
    QStringLiteral("CV:ClosedConnectionBackgroundColor");
inline const QString NotifyNewConnections = QStringLiteral("CV:NotifyNewConnections");
inline const QString NotifyConnectionsStateChange =
    QStringLiteral("CV:NotifyConnectionsStateChange");
inline const QString ResolveRemoteAddressInGrowl = QStringLiteral("CV:ResolveRemoteAddressInGrowl");
inline const QString ExcludeAppsForGrowl = QStringLiteral("CV:ExcludeAppsForGrowl");
inline const QString LogNewConnectionToCSVFiles = QStringLiteral("CV:LogNewConnectionToCSVFiles");
inline const QString LogConnectionStateChangeToCSVFiles =
    QStringLiteral("CV:LogConnectionStateChangeToCSVFiles");
inline const QString LogNewConnectionToSystemConsole =
    QStringLiteral("CV:LogNewConnectionToSystemConsole");
inline const QString LogConnectionStateChangeToSystemConsole =
    QStringLiteral("CV:LogConnectionStateChangeToSystemConsole");
inline const QString CSVFilesLogSplitEveryDay = QStringLiteral("CV:CSVFilesLogSplitEveryDay");
// Which collector takes a snapshot: "native" (the kernel's socket dump, lsof where the kernel
// refuses it) or "lsof".
inline const QString SnapshotCollector = QStringLiteral("CV:SnapshotCollector");

// No registered default: their absence means something to their readers.
inline const QString ColumnsUserDefault = QStringLiteral("CV:ColumnsUserDefault");
inline const QString ToolbarAddressAndPortItemState =
    QStringLiteral("CVToolbarAddressAndPortItemState");

// Every key above, in the order the settings are presented.
inline const QStringList All = {
    AutoRefreshSetting,
    ListFontSize,
    ListBackgroundColor,
    ListTextColor,
    NewConnectionBackgroundColor,
    StateChangedConnectionBackgroundColor,
    ClosedConnectionBackgroundColor,
    NotifyNewConnections,
    NotifyConnectionsStateChange,
    ResolveRemoteAddressInGrowl,
    ExcludeAppsForGrowl,
    LogNewConnectionToCSVFiles,
    LogConnectionStateChangeToCSVFiles,
    LogNewConnectionToSystemConsole,
    LogConnectionStateChangeToSystemConsole,
    CSVFilesLogSplitEveryDay,
    SnapshotCollector,
    ColumnsUserDefault,
    ToolbarAddressAndPortItemState,
};

} // namespace PrefKeys
