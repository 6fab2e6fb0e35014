#include "desktopactions.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDesktopServices>
#include <QFileInfo>
#include <QGuiApplication>

#ifdef CORVINA_HAVE_XCB
#include <QtGui/qguiapplication_platform.h>
#include <xcb/xcb.h>
#endif

#include <cerrno>
#include <csignal>
#include <cstring>

using namespace Qt::StringLiterals;

namespace {

const QString kWebSearchBase = u"https://www.google.com/search"_s;

std::function<bool(const QUrl&)>& urlOpener()
{
    static std::function<bool(const QUrl&)> opener;
    return opener;
}

#ifdef CORVINA_HAVE_XCB
xcb_atom_t internAtom(xcb_connection_t* connection, const char* name)
{
    xcb_intern_atom_cookie_t cookie =
        xcb_intern_atom(connection, 0, uint16_t(std::strlen(name)), name);
    xcb_intern_atom_reply_t* reply = xcb_intern_atom_reply(connection, cookie, nullptr);
    const xcb_atom_t atom = reply ? reply->atom : xcb_atom_t(XCB_ATOM_NONE);
    free(reply);
    return atom;
}

QList<xcb_window_t> windowProperty(xcb_connection_t* connection, xcb_window_t window,
                                   xcb_atom_t property)
{
    QList<xcb_window_t> windows;
    xcb_get_property_cookie_t cookie =
        xcb_get_property(connection, 0, window, property, XCB_ATOM_WINDOW, 0, 65536);
    xcb_get_property_reply_t* reply = xcb_get_property_reply(connection, cookie, nullptr);
    if (reply && reply->format == 32) {
        const auto* values = static_cast<const xcb_window_t*>(xcb_get_property_value(reply));
        const int count = xcb_get_property_value_length(reply) / int(sizeof(xcb_window_t));
        for (int i = 0; i < count; ++i)
            windows.append(values[i]);
    }
    free(reply);
    return windows;
}

qint64 windowPid(xcb_connection_t* connection, xcb_window_t window, xcb_atom_t pidAtom)
{
    qint64 pid = -1;
    xcb_get_property_cookie_t cookie =
        xcb_get_property(connection, 0, window, pidAtom, XCB_ATOM_CARDINAL, 0, 1);
    xcb_get_property_reply_t* reply = xcb_get_property_reply(connection, cookie, nullptr);
    if (reply && reply->format == 32 && xcb_get_property_value_length(reply) >= 4)
        pid = *static_cast<const uint32_t*>(xcb_get_property_value(reply));
    free(reply);
    return pid;
}
#endif

} // namespace

QUrl DesktopActions::webSearchUrl(const QString& term)
{
    const QString escaped = QString::fromLatin1(QUrl::toPercentEncoding(term));
    return QUrl(kWebSearchBase + u"?sourceid=corvina&ie=UTF-8&q="_s + escaped, QUrl::StrictMode);
}

bool DesktopActions::showInFileManager(const QString& path)
{
    if (path.isEmpty())
        return false;
    const QUrl file = QUrl::fromLocalFile(path);
    QDBusMessage call = QDBusMessage::createMethodCall(
        u"org.freedesktop.FileManager1"_s, u"/org/freedesktop/FileManager1"_s,
        u"org.freedesktop.FileManager1"_s, u"ShowItems"_s);
    call << QStringList{file.toString()} << QString();
    const QDBusMessage reply = QDBusConnection::sessionBus().call(call, QDBus::Block, 3000);
    if (reply.type() == QDBusMessage::ReplyMessage)
        return true;
    return QDesktopServices::openUrl(QUrl::fromLocalFile(QFileInfo(path).absolutePath()));
}

QString DesktopActions::bringToFrontUnavailableReason()
{
#ifdef CORVINA_HAVE_XCB
    if (auto* x11 = qApp ? qApp->nativeInterface<QNativeInterface::QX11Application>() : nullptr) {
        if (x11->connection())
            return {};
    }
    return QObject::tr("Bringing another application forward needs an X11 or XWayland session; "
                       "this desktop does not let one application raise another.");
#else
    return QObject::tr("This build of Corvina cannot raise other applications' windows.");
#endif
}

bool DesktopActions::bringToFront(qint64 pid)
{
#ifdef CORVINA_HAVE_XCB
    auto* x11 = qApp ? qApp->nativeInterface<QNativeInterface::QX11Application>() : nullptr;
    xcb_connection_t* connection = x11 ? x11->connection() : nullptr;
    if (!connection || pid <= 0)
        return false;
    xcb_screen_t* screen = xcb_setup_roots_iterator(xcb_get_setup(connection)).data;
    const xcb_atom_t clientList = internAtom(connection, "_NET_CLIENT_LIST");
    const xcb_atom_t wmPid = internAtom(connection, "_NET_WM_PID");
    const xcb_atom_t activeWindow = internAtom(connection, "_NET_ACTIVE_WINDOW");
    if (!screen || clientList == XCB_ATOM_NONE || activeWindow == XCB_ATOM_NONE)
        return false;
    bool found = false;
    for (xcb_window_t window : windowProperty(connection, screen->root, clientList)) {
        if (windowPid(connection, window, wmPid) != pid)
            continue;
        found = true;
        xcb_map_window(connection, window);
        xcb_client_message_event_t message{};
        message.response_type = XCB_CLIENT_MESSAGE;
        message.format = 32;
        message.window = window;
        message.type = activeWindow;
        message.data.data32[0] = 2; // source: a pager-like tool acting for the user
        message.data.data32[1] = XCB_CURRENT_TIME;
        xcb_send_event(connection, 0, screen->root,
                       XCB_EVENT_MASK_SUBSTRUCTURE_REDIRECT | XCB_EVENT_MASK_SUBSTRUCTURE_NOTIFY,
                       reinterpret_cast<const char*>(&message));
    }
    xcb_flush(connection);
    return found;
#else
    Q_UNUSED(pid);
    return false;
#endif
}

QString DesktopActions::terminate(qint64 pid, const QString& appName)
{
    if (pid <= 0)
        return QObject::tr("\"%1\" has no process id that could be asked to quit.").arg(appName);
    if (::kill(pid_t(pid), SIGTERM) == 0)
        return {};
    if (errno == EPERM)
        return QObject::tr("You are not allowed to terminate \"%1\" (process %2): it belongs "
                           "to another user.")
            .arg(appName)
            .arg(pid);
    if (errno == ESRCH)
        return QObject::tr("\"%1\" (process %2) is no longer running.").arg(appName).arg(pid);
    return QObject::tr("Could not terminate \"%1\": %2")
        .arg(appName, QString::fromLocal8Bit(std::strerror(errno)));
}

bool DesktopActions::openUrl(const QUrl& url)
{
    if (urlOpener())
        return urlOpener()(url);
    return QDesktopServices::openUrl(url);
}

void DesktopActions::setUrlOpener(std::function<bool(const QUrl&)> opener)
{
    urlOpener() = std::move(opener);
}
