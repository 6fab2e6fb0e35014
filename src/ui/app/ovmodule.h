#pragma once

#include <QObject>
#include <QString>
#include <QUrl>

#include <functional>

class QAction;
class QMenu;

// The maker's entries at the top of every one of its applications' Help menu (rating, feedback
// by mail, the web site, the Twitter page), and the application's support folder.
class OVModule final : public QObject {
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(OVModule)

public:
    static inline const QString kMakerDomain = QStringLiteral("brindle-labs.net");
    static inline const QString kHomePage = QStringLiteral("https://brindle-labs.net/");
    static inline const QString kTwitterPage = QStringLiteral("https://twitter.com/brindlelabs");
    static inline const QString kSupportMailbox = QStringLiteral("support@brindle-labs.net");
    static inline const QString kAppStoreHost = QStringLiteral("https://apps.apple.com");
    // The application property that carries the store's product identifier, when there is one.
    static inline const char* const kProductIdProperty = "OrvaneProductAppleID";

    // What the module knows of the application.
    struct BundleInfo {
        QString name;
        QString shortVersion;
        QString version;
        // Empty: the application is not in the store.
        QString productAppleID;
        QString operatingSystemVersion;

        // From the application object (name, version, kProductIdProperty) and the system.
        static BundleInfo fromApplication();
    };

    explicit OVModule(BundleInfo info, QObject* parent = nullptr);

    // The application's module, made on first use from BundleInfo::fromApplication() (GUI thread).
    static OVModule& sharedModule();

    const BundleInfo& bundleInfo() const { return m_info; }

    // The per-user data folder named after the application; not created here.
    QString applicationSupportPath() const;

    QAction* createMenuItem(const QString& title, void (OVModule::*action)(), QObject* parent);
    // Inserts the maker's entries at the top of `helpMenu`, above its own items.
    void setupHelpMenu(QMenu* helpMenu);

    // The whole text percent-escaped once, then opened with the user's default handler. False,
    // and openFailed(), when no program could be started for it.
    bool openURL(const QString& text);
    static QUrl escapedURL(const QString& text);
    // Tests collect the addresses instead of starting programs; empty restores the desktop.
    void setUrlOpener(std::function<bool(const QUrl&)> opener);

    QString feedbackMailText() const;
    void openAppStoreURL();

    void rateInAppStore();
    void sendFeedback();
    void visitOrvanecom();
    void followUsOnTwitter();

Q_SIGNALS:
    void openFailed(const QUrl& url);

private:
    BundleInfo m_info;
    std::function<bool(const QUrl&)> m_opener;
};
