#include "ovprivilegeutilitybase.h"

#include "authorizationform.h"
#include "helperinstallation.h"
#include "peerpolicy.h"
#include "platform/systemlog.h"

#include <QCoreApplication>
#include <QFileInfo>
#include <QPointer>
#include <QProcess>
#include <QThread>

using namespace Qt::StringLiterals;
using HelperProtocol::Operation;

namespace {

// The user may spend a while in the password dialog; a forgotten one must not hang us for ever.
constexpr int kInstallTimeoutMs = 10 * 60 * 1000;
constexpr int kProbeTimeoutMs = 5000;

bool isMainThread()
{
    const QCoreApplication* app = QCoreApplication::instance();
    return app == nullptr || QThread::currentThread() == app->thread();
}

} // namespace

OVPrivilegeUtilityBase::OVPrivilegeUtilityBase(Environment environment, QObject* parent)
    : QObject(parent), m_environment(std::move(environment))
{
    if (m_environment.socketPath.isEmpty())
        m_environment.socketPath = defaultSocketPath();
    if (m_environment.helperExecutable.isEmpty())
        m_environment.helperExecutable = defaultHelperExecutable();
    const auto form = AuthorizationForm::forCurrentProcess();
    if (!form)
        qFatal("Assertion failed: (err == errAuthorizationSuccess)");
    const auto bytes = form->toBytes();
    m_authorization =
        QByteArray(reinterpret_cast<const char*>(bytes.data()), qsizetype(bytes.size()));
    // Queued, so creating the shared instance is what makes the first offer, once the
    // subclass is complete.
    if (m_environment.offerInstall)
        QMetaObject::invokeMethod(this, &OVPrivilegeUtilityBase::checkAndPromptInstallHelper,
                                  Qt::QueuedConnection);
}

OVPrivilegeUtilityBase::~OVPrivilegeUtilityBase()
{
    // The connection's thread may be inside a reply that still writes helperVersion; ending
    // the connection first waits for it while every member is alive.
    std::shared_ptr<HelperConnection> connection;
    {
        std::lock_guard lock(m_lock);
        connection = std::move(m_connection);
    }
    connection.reset();
}

QString OVPrivilegeUtilityBase::helperToolServiceName() const
{
    throw PrivilegeUtilityException(u"Must specified the helper tool class"_s);
}

QString OVPrivilegeUtilityBase::bundledHelperVersion() const
{
    throw PrivilegeUtilityException(u"bundledHelperVersion not implemented"_s);
}

QString OVPrivilegeUtilityBase::defaultSocketPath()
{
    return QString::fromLatin1(HelperInstallation::kSocketPath);
}

QString OVPrivilegeUtilityBase::defaultHelperExecutable()
{
    const QString appDir =
        QCoreApplication::instance() ? QCoreApplication::applicationDirPath() : QString();
    const QStringList candidates = {appDir + u"/corvina-helper"_s,
                                    appDir + u"/helper/corvina-helper"_s,
                                    appDir + u"/../libexec/corvina/corvina-helper"_s,
                                    QString::fromLatin1(HelperInstallation::kExecutable)};
    for (const QString& candidate : candidates) {
        if (!appDir.isEmpty() && QFileInfo(candidate).isExecutable())
            return QFileInfo(candidate).canonicalFilePath();
    }
    return candidates.last();
}

QString OVPrivilegeUtilityBase::lastOfferedVersionKey() const
{
    return u"%1.%2"_s.arg(u"OVLastCheckedHelperVersion"_s, helperToolServiceName());
}

QByteArray OVPrivilegeUtilityBase::authorization() const
{
    std::lock_guard lock(m_lock);
    return m_authorization;
}

std::optional<QString> OVPrivilegeUtilityBase::helperVersion() const
{
    std::lock_guard lock(m_lock);
    return m_helperVersion;
}

void OVPrivilegeUtilityBase::checkAndPromptInstallHelper()
{
    // Without a store we could not remember the offer and would ask at every start.
    if (!m_environment.settings.read || !m_environment.settings.write)
        return;
    const QString key = lastOfferedVersionKey();
    if (m_environment.settings.read(key) == bundledHelperVersion())
        return;
    if (promptForInstallingHelper())
        installHelper();
    m_environment.settings.write(key, bundledHelperVersion());
}

bool OVPrivilegeUtilityBase::installHelper()
{
    QProcess process;
    process.setProgram(m_environment.elevateProgram);
    process.setArguments({m_environment.helperExecutable, u"--install"_s});
    process.setProcessChannelMode(QProcess::MergedChannels);
    process.start();
    bool ok = process.waitForStarted() && process.waitForFinished(kInstallTimeoutMs);
    QString failure;
    if (!ok) {
        failure = process.errorString();
        process.kill();
        process.waitForFinished(1000);
    } else if (process.exitStatus() != QProcess::NormalExit || process.exitCode() != 0) {
        ok = false;
        const QString output = QString::fromUtf8(process.readAll()).trimmed();
        failure = u"%1 exited with status %2%3"_s.arg(m_environment.elevateProgram)
                      .arg(process.exitCode())
                      .arg(output.isEmpty() ? QString() : u": "_s + output);
    }
    if (!ok)
        SystemLog::write(u"install helper failed "_s + failure);
    // The installer adds the user to the group the daemon admits.
    forgetRefusal();

    std::shared_ptr<HelperConnection> old;
    {
        std::lock_guard lock(m_lock);
        old = std::move(m_connection);
    }
    if (old)
        old->invalidate();
    return ok;
}

bool OVPrivilegeUtilityBase::removeHelper()
{
    promtpForRemoveHelper();
    return true;
}

bool OVPrivilegeUtilityBase::checkHelperInstalled() const
{
    if (m_environment.installedProbe)
        return m_environment.installedProbe();
    QProcess process;
    process.start(u"systemctl"_s, {u"is-enabled"_s, smJobLabel() + u".socket"_s});
    if (!process.waitForStarted(kProbeTimeoutMs) || !process.waitForFinished(kProbeTimeoutMs)) {
        process.kill();
        process.waitForFinished(1000);
        return false;
    }
    return process.exitStatus() == QProcess::NormalExit && process.exitCode() == 0 &&
           process.readAllStandardOutput().trimmed() == "enabled";
}

std::shared_ptr<HelperConnection> OVPrivilegeUtilityBase::connectToHelperTool()
{
    Q_ASSERT_X(isMainThread(), "connectToHelperTool", "[NSThread isMainThread]");
    std::lock_guard lock(m_lock);
    if (m_connection && !m_connection->isInvalidated())
        return m_connection;
    auto connection = std::make_shared<HelperConnection>(m_environment.socketPath.toStdString(),
                                                         m_environment.replyTimeout);
    // The handler runs on the connection's thread; the main thread does the forgetting.
    QPointer<OVPrivilegeUtilityBase> self(this);
    std::weak_ptr<HelperConnection> weak = connection;
    connection->setInvalidationHandler([self, weak] {
        if (!self)
            return;
        QMetaObject::invokeMethod(
            self.data(),
            [self, weak] {
                if (self)
                    self->dropConnection(weak.lock());
            },
            Qt::QueuedConnection);
    });
    m_connection = connection;
    return connection;
}

void OVPrivilegeUtilityBase::dropConnection(const std::shared_ptr<HelperConnection>& connection)
{
    std::shared_ptr<HelperConnection> dropped;
    {
        std::lock_guard lock(m_lock);
        if (connection && m_connection == connection)
            dropped = std::move(m_connection);
    }
}

void OVPrivilegeUtilityBase::sendRequest(const HelperProtocol::Request& request, TextReply reply,
                                         std::function<void()> onError)
{
    sendBytesRequest(
        request,
        [reply](std::optional<QByteArray> bytes) {
            reply(bytes ? std::optional<QString>(QString::fromUtf8(*bytes)) : std::nullopt);
        },
        std::move(onError));
}

std::optional<QString> OVPrivilegeUtilityBase::refusal() const
{
    std::lock_guard lock(m_lock);
    return m_refusal;
}

void OVPrivilegeUtilityBase::forgetRefusal()
{
    std::lock_guard lock(m_lock);
    m_refusal.reset();
}

QString OVPrivilegeUtilityBase::refusalAdvice()
{
    return u"Join the group %1 (sudo usermod -aG %1 $USER) and log in again."_s.arg(
        QString::fromLatin1(PeerPolicy::kDefaultGroup));
}

void OVPrivilegeUtilityBase::noteFailure(const HelperConnection::Failure& failure)
{
    const QString message = QString::fromStdString(failure.message);
    if (!failure.refused) {
        SystemLog::write(u"connect error "_s + message);
        return;
    }
    // Asking again would be refused again, a connection and a log line every refresh.
    bool logNow = false;
    {
        std::lock_guard lock(m_lock);
        m_refusal = message;
        logNow = !std::exchange(m_refusalLogged, true);
    }
    if (logNow)
        SystemLog::write(u"connect error "_s + message + u". "_s + refusalAdvice());
}

void OVPrivilegeUtilityBase::sendBytesRequest(const HelperProtocol::Request& request,
                                              BytesReply reply, std::function<void()> onError)
{
    if (refusal()) {
        if (onError)
            onError();
        reply(std::nullopt);
        return;
    }
    const auto connection = connectToHelperTool();
    connection->send(
        request,
        [reply](std::optional<std::string> text) {
            reply(text
                      ? std::optional<QByteArray>(QByteArray(text->data(), qsizetype(text->size())))
                      : std::nullopt);
        },
        [this, reply, onError](const HelperConnection::Failure& failure) {
            noteFailure(failure);
            if (onError)
                onError();
            reply(std::nullopt);
        });
}

void OVPrivilegeUtilityBase::getVersion(TextReply reply)
{
    sendRequest(
        Operation::GetVersion,
        [this, reply](std::optional<QString> version) {
            reply(version);
            std::lock_guard lock(m_lock);
            m_helperVersion = version;
        },
        [this] {
            std::lock_guard lock(m_lock);
            m_helperVersion.reset();
        });
}
