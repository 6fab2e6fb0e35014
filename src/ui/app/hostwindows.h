#pragma once

#include "remote/hostspec.h"

#include <QObject>
#include <QStringList>

#include <functional>
#include <map>
#include <memory>
#include <vector>

class CVPrefsHelper;
class CVWindowController;
class QWidget;
class SnapshotSource;

// The windows of other machines: one per host, each over a snapshot source of its own, closed
// one by one. The hosts connected to are remembered and offered again by the dialog; their
// windows are not opened again at start, since that would log in to machines the user did not
// ask for this time.
class HostWindows final : public QObject {
    Q_OBJECT
public:
    using SourceFactory = std::function<std::unique_ptr<SnapshotSource>(const HostSpec& host)>;

    // `setUp` is run on every new window (the application's menus, its icon).
    HostWindows(CVPrefsHelper& prefs, std::function<void(CVWindowController&)> setUp,
                QObject* parent = nullptr);
    ~HostWindows() override;
    Q_DISABLE_COPY_MOVE(HostWindows)

    // Where each window's snapshots come from; by default ssh to the host.
    void setSourceFactory(SourceFactory factory);

    // Shows the window of the host written as [user@]HOST[:port], opening it if need be. Null,
    // with `problem` set, when the text names no host.
    CVWindowController* connectToHost(const QString& text, QString* problem = nullptr);
    // Asks for a host, over `parent`, and shows its window.
    void showConnectDialog(QWidget* parent);

    CVWindowController* windowFor(const QString& text) const;
    QList<CVWindowController*> windows() const;
    // Most recent first.
    QStringList rememberedHosts() const;

private:
    struct Host {
        std::unique_ptr<SnapshotSource> source;
        std::unique_ptr<CVWindowController> window;
    };
    void remember(const QString& text);
    void closeWindow(const QString& key);

    CVPrefsHelper& m_prefs;
    std::function<void(CVWindowController&)> m_setUp;
    SourceFactory m_sourceFactory;
    std::map<QString, Host> m_hosts;
    // Sources of closed windows whose pass is still under way; each goes when its pass ends.
    std::vector<SnapshotSource*> m_parked;
};
