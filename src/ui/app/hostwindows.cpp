#include "hostwindows.h"

#include "connecttohostdialog.h"
#include "prefs/cvprefshelper.h"
#include "prefs/userdefaults.h"
#include "remotesnapshotsource.h"
#include "ui/window/cvwindowcontroller.h"

#include <QPointer>

using namespace Qt::StringLiterals;

namespace {

// A setting of the window layer, like the main window's geometry.
const QString kHostsKey = u"MainWindow/Hosts"_s;
constexpr qsizetype kRememberedHosts = 10;
// Each new window steps down and right from the main window's place, so none hides another.
constexpr int kCascade = 32;

} // namespace

HostWindows::HostWindows(CVPrefsHelper& prefs, std::function<void(CVWindowController&)> setUp,
                         QObject* parent)
    : QObject(parent), m_prefs(prefs), m_setUp(std::move(setUp)),
      m_sourceFactory([](const HostSpec& host) -> std::unique_ptr<SnapshotSource> {
          return std::make_unique<RemoteSnapshotSource>(host);
      })
{
}

HostWindows::~HostWindows()
{
    // Windows first: each holds on to its source.
    for (auto& [key, host] : m_hosts)
        host.window.reset();
    m_hosts.clear();
    // A pass still under way is waited for here, up to its bound.
    for (SnapshotSource* source : m_parked)
        delete source;
}

void HostWindows::setSourceFactory(SourceFactory factory)
{
    m_sourceFactory = std::move(factory);
}

CVWindowController* HostWindows::connectToHost(const QString& text, QString* problem)
{
    const std::optional<HostSpec> host = HostSpec::parse(text.trimmed(), problem);
    if (!host)
        return nullptr;
    remember(host->text());
    CVWindowController* window = windowFor(host->text());
    if (!window) {
        Host opened;
        opened.source = m_sourceFactory(*host);
        opened.window = std::make_unique<CVWindowController>(*opened.source, m_prefs);
        window = opened.window.get();
        window->setHost(*host);
        const QString key = host->text();
        window->setCloseHandler([this, key] { closeWindow(key); });
        if (m_setUp)
            m_setUp(*window);
        const int step = kCascade * int(m_hosts.size() + 1);
        window->move(window->pos() + QPoint(step, step));
        m_hosts.emplace(key, std::move(opened));
    }
    if (window->isMinimized())
        window->showNormal();
    else
        window->show();
    window->raise();
    window->activateWindow();
    return window;
}

void HostWindows::showConnectDialog(QWidget* parent)
{
    ConnectToHostDialog dialog(rememberedHosts(), parent);
    dialog.setWindowModality(Qt::WindowModal);
    if (dialog.exec() == QDialog::Accepted)
        connectToHost(dialog.hostText());
}

CVWindowController* HostWindows::windowFor(const QString& text) const
{
    const auto found = m_hosts.find(text.trimmed());
    return found == m_hosts.end() ? nullptr : found->second.window.get();
}

QList<CVWindowController*> HostWindows::windows() const
{
    QList<CVWindowController*> windows;
    for (const auto& [key, host] : m_hosts)
        windows.append(host.window.get());
    return windows;
}

QStringList HostWindows::rememberedHosts() const
{
    return m_prefs.defaultsStore().objectForKey(kHostsKey).toStringList();
}

void HostWindows::remember(const QString& text)
{
    QStringList hosts = rememberedHosts();
    hosts.removeAll(text);
    hosts.prepend(text);
    m_prefs.defaultsStore().setObject(kHostsKey, hosts.mid(0, kRememberedHosts));
}

void HostWindows::closeWindow(const QString& key)
{
    const auto found = m_hosts.find(key);
    if (found == m_hosts.end())
        return;
    Host host = std::move(found->second);
    m_hosts.erase(found);
    // Called from the window's own close event: it goes once that has returned.
    host.window->hide();
    host.window.release()->deleteLater();
    SnapshotSource* source = host.source.release();
    const auto* remote = qobject_cast<RemoteSnapshotSource*>(source);
    if (!remote || !remote->isBusy()) {
        source->deleteLater();
        return;
    }
    // ssh may take up to its bound to give up; the GUI does not wait for it.
    m_parked.push_back(source);
    connect(source, &SnapshotSource::snapshotReady, this, [this, source] {
        std::erase(m_parked, source);
        source->deleteLater();
    });
}
