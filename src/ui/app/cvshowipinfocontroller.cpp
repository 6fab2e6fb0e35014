#include "cvshowipinfocontroller.h"

#include "ui/window/desktopactions.h"

#include <QCloseEvent>
#include <QLabel>
#include <QVBoxLayout>

#ifdef CORVINA_HAVE_WEBENGINE
#include <QWebEngineView>
#endif

using namespace Qt::StringLiterals;

namespace {

const QString kIPInfoService = u"https://geoiptool.com"_s;

CVShowIPInfoController*& sharedInstance()
{
    static CVShowIPInfoController* instance = nullptr;
    return instance;
}

} // namespace

CVShowIPInfoController::CVShowIPInfoController() : QWidget(nullptr, Qt::Window)
{
    setAttribute(Qt::WA_DeleteOnClose);
    setObjectName(u"CVShowIPInfoWindow"_s);
    auto* layout = new QVBoxLayout(this);
#ifdef CORVINA_HAVE_WEBENGINE
    layout->setContentsMargins(0, 0, 0, 0);
    m_webView = new QWebEngineView(this);
    layout->addWidget(m_webView);
    resize(900, 700);
#else
    m_link = new QLabel(this);
    m_link->setTextFormat(Qt::RichText);
    m_link->setTextInteractionFlags(Qt::TextBrowserInteraction);
    m_link->setWordWrap(true);
    connect(m_link, &QLabel::linkActivated, this,
            [](const QString& link) { DesktopActions::openUrl(QUrl(link)); });
    layout->addWidget(m_link);
    resize(480, 120);
#endif
    sharedInstance() = this;
}

CVShowIPInfoController::~CVShowIPInfoController()
{
    if (sharedInstance() == this)
        sharedInstance() = nullptr;
}

CVShowIPInfoController* CVShowIPInfoController::sharedController()
{
    return sharedInstance();
}

QUrl CVShowIPInfoController::urlForAddress(const QString& address)
{
    // The address goes in as it is, unescaped.
    return QUrl(kIPInfoService + u"/?IP="_s + address, QUrl::TolerantMode);
}

void CVShowIPInfoController::showIPInfo(const QString& address)
{
    CVShowIPInfoController* controller = sharedInstance();
    if (!controller)
        controller = new CVShowIPInfoController();
    controller->show();
    controller->raise();
    controller->activateWindow();
    controller->showIPInfoForAddress(address);
}

void CVShowIPInfoController::showIPInfoForAddress(const QString& address)
{
    m_url = urlForAddress(address);
    setWindowTitle(tr("IP Information: %1").arg(address));
#ifdef CORVINA_HAVE_WEBENGINE
    m_webView->load(m_url);
#else
    m_link->setText(
        tr("The information page for %1 opens in your web browser:<br><a href=\"%2\">%2</a>")
            .arg(address.toHtmlEscaped(), m_url.toString().toHtmlEscaped()));
    DesktopActions::openUrl(m_url);
#endif
}

void CVShowIPInfoController::closeEvent(QCloseEvent* event)
{
    // The next request creates a fresh window.
    if (sharedInstance() == this)
        sharedInstance() = nullptr;
    QWidget::closeEvent(event);
}
