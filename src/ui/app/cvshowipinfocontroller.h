#pragma once

#include <QUrl>
#include <QWidget>

class QLabel;
#ifdef CORVINA_HAVE_WEBENGINE
class QWebEngineView;
#endif

// The window that shows a geolocation page for one remote address. There is at most one: a
// second request reuses it, and closing it lets the next request create a fresh one.
// Without Qt WebEngine the window shows the address and its link, and the page opens in the
// default browser.
class CVShowIPInfoController final : public QWidget {
    Q_OBJECT
public:
    // False when the page was to open in a browser and none could be started.
    static bool showIPInfo(const QString& address);
    // The open window, or null.
    static CVShowIPInfoController* sharedController();
    static QUrl urlForAddress(const QString& address);

    ~CVShowIPInfoController() override;
    Q_DISABLE_COPY_MOVE(CVShowIPInfoController)

    bool showIPInfoForAddress(const QString& address);
    QUrl currentUrl() const { return m_url; }

protected:
    void closeEvent(QCloseEvent* event) override;
    void keyPressEvent(QKeyEvent* event) override;

private:
    CVShowIPInfoController();

    QUrl m_url;
#ifdef CORVINA_HAVE_WEBENGINE
    QWebEngineView* m_webView;
#else
    QLabel* m_link;
#endif
};
