#include "ovmodule.h"

#include <QAction>
#include <QCoreApplication>
#include <QDesktopServices>
#include <QDir>
#include <QMenu>
#include <QStandardPaths>
#include <QSysInfo>

using namespace Qt::StringLiterals;

OVModule::BundleInfo OVModule::BundleInfo::fromApplication()
{
    BundleInfo info;
    info.name = QCoreApplication::applicationName();
    info.shortVersion = QCoreApplication::applicationVersion();
    info.version = QStringLiteral(CORVINA_VERSION);
    if (const QCoreApplication* app = QCoreApplication::instance())
        info.productAppleID = app->property(kProductIdProperty).toString();
    info.operatingSystemVersion =
        u"%1 (kernel %2)"_s.arg(QSysInfo::prettyProductName(), QSysInfo::kernelVersion());
    return info;
}

OVModule::OVModule(BundleInfo info, QObject* parent) : QObject(parent), m_info(std::move(info)) {}

OVModule& OVModule::sharedModule()
{
    static OVModule* const module = new OVModule(BundleInfo::fromApplication());
    return *module;
}

QString OVModule::applicationSupportPath() const
{
    const QString base = QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation);
    return QDir(base).filePath(m_info.name);
}

QAction* OVModule::createMenuItem(const QString& title, void (OVModule::*action)(), QObject* parent)
{
    auto* item = new QAction(title, parent);
    item->setShortcut(QKeySequence());
    connect(item, &QAction::triggered, this, action);
    return item;
}

void OVModule::setupHelpMenu(QMenu* helpMenu)
{
    QList<QAction*> items;
    if (!m_info.productAppleID.isEmpty())
        items << createMenuItem(tr("Rate in App Store"), &OVModule::rateInAppStore, helpMenu);
    items << createMenuItem(tr("Send Feedback"), &OVModule::sendFeedback, helpMenu);
    const auto separator = [helpMenu] {
        auto* item = new QAction(helpMenu);
        item->setSeparator(true);
        return item;
    };
    items << separator();
    items << createMenuItem(tr("Visit %1").arg(kMakerDomain), &OVModule::visitOrvanecom, helpMenu);
    items << createMenuItem(tr("Follow Us on Twitter"), &OVModule::followUsOnTwitter, helpMenu);
    items << separator();

    const QList<QAction*> own = helpMenu->actions();
    QAction* before = own.isEmpty() ? nullptr : own.constFirst();
    helpMenu->insertActions(before, items);
}

QUrl OVModule::escapedURL(const QString& text)
{
    // Reserved characters stay as they are, so the address keeps its shape; everything else
    // that may not stand in an address (blanks, line feeds, non-ASCII) is escaped.
    const QByteArray escaped = QUrl::toPercentEncoding(text, ":/?#[]@!$&'()*+,;=");
    return QUrl::fromEncoded(escaped, QUrl::StrictMode);
}

bool OVModule::openURL(const QString& text)
{
    const QUrl url = escapedURL(text);
    const bool opened = m_opener ? m_opener(url) : QDesktopServices::openUrl(url);
    if (!opened)
        Q_EMIT openFailed(url);
    return opened;
}

void OVModule::setUrlOpener(std::function<bool(const QUrl&)> opener)
{
    m_opener = std::move(opener);
}

QString OVModule::feedbackMailText() const
{
    // "Infomation" is spelled so on purpose.
    const QString body = u"\n\n\nInfomation:\n%1: %2 (%3)\nLinux: %4\n"_s.arg(
        m_info.name, m_info.shortVersion, m_info.version, m_info.operatingSystemVersion);
    return u"mailto:%1?subject=%2&body=%3"_s.arg(kSupportMailbox, m_info.name + u" Feedback"_s,
                                                 body);
}

void OVModule::openAppStoreURL()
{
    openURL(kAppStoreHost + u"/app/id"_s + m_info.productAppleID);
}

void OVModule::rateInAppStore()
{
    openAppStoreURL();
}

void OVModule::sendFeedback()
{
    openURL(feedbackMailText());
}

void OVModule::visitOrvanecom()
{
    openURL(kHomePage);
}

void OVModule::followUsOnTwitter()
{
    openURL(kTwitterPage);
}
