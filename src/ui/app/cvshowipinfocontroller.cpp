#include "cvshowipinfocontroller.h"

#include "ui/window/desktopactions.h"

#include <QCloseEvent>
#include <QKeyEvent>
#include <QLabel>
#include <QPushButton>
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
    m_link->setAlignment(Qt::AlignLeft | Qt::AlignTop);
    connect(m_link, &QLabel::linkActivated, this,
            [](const QString& link) { DesktopActions::openUrl(QUrl(link)); });
    auto* close = new QPushButton(tr("Close"), this);
    connect(close, &QPushButton::clicked, this, &QWidget::close);
    layout->setContentsMargins(16, 16, 16, 12);
    layout->addWidget(m_link, 1);
    layout->addWidget(close, 0, Qt::AlignRight);
    resize(560, 200);
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

bool CVShowIPInfoController::showIPInfo(const QString& address)
{
    CVShowIPInfoController* controller = sharedInstance();
    if (!controller)
        controller = new CVShowIPInfoController();
    controller->show();
    controller->raise();
    controller->activateWindow();
    return controller->showIPInfoForAddress(address);
}

bool CVShowIPInfoController::showIPInfoForAddress(const QString& address)
{
    m_url = urlForAddress(address);
    setWindowTitle(tr("IP Information: %1").arg(address));
#ifdef CORVINA_HAVE_WEBENGINE
    m_webView->load(m_url);
    return true;
#else
    const QString link = m_url.toString().toHtmlEscaped();
    if (DesktopActions::openUrl(m_url)) {
        m_link->setText(tr("The information page for %1 opens in your web browser:<br><br>"
                           "<a href=\"%2\">%2</a>")
                            .arg(address.toHtmlEscaped(), link));
        return true;
    }
    m_link->setText(tr("No web browser could be started for the information page of %1. "
                       "Open this address yourself:<br><br><a href=\"%2\">%2</a>")
                        .arg(address.toHtmlEscaped(), link));
    return false;
#endif
}

void CVShowIPInfoController::keyPressEvent(QKeyEvent* event)
{
    // A small window of information: Escape puts it away, as it would a dialog.
    if (event->matches(QKeySequence::Cancel)) {
        close();
        return;
    }
    QWidget::keyPressEvent(event);
}

void CVShowIPInfoController::closeEvent(QCloseEvent* event)
{
    // The next request creates a fresh window.
    if (sharedInstance() == this)
        sharedInstance() = nullptr;
    QWidget::closeEvent(event);
}
