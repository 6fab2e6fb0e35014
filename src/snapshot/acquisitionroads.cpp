#include "acquisitionroads.h"

#include "collector/nativecollector.h"
#include "helper/cvhelperutility.h"
#include "platform/sandbox.h"
#include "prefs/userdefaults.h"
#include "userscript/cvuserscripthelper.h"

#include <QThread>

#include <optional>

using namespace Qt::StringLiterals;

namespace {

CVHelperUtility* helperUtility(const AcquisitionRoads::HelperChoice& helper)
{
    using Mode = AcquisitionRoads::HelperChoice::Mode;
    OVPrivilegeUtilityBase::Environment environment;
    environment.offerInstall = helper.offerInstall;
    if (helper.mode == Mode::Socket) {
        environment.socketPath = helper.socketPath;
        environment.offerInstall = false;
        // Lives as long as the process, like the shared one.
        return new CVHelperUtility(environment);
    }
    environment.settings.read = [](const QString& key) {
        return UserDefaults::standardUserDefaults().stringForKey(key);
    };
    environment.settings.write = [](const QString& key, const QString& value) {
        UserDefaults::standardUserDefaults().setString(key, value);
    };
    return CVHelperUtility::sharedUtility(environment);
}

// Sends one request to the helper, from the thread its client lives on; the reply (null on any
// failure) comes on another thread.
void askHelper(CVHelperUtility* utility, const AcquisitionRoads::HelperReply& reply,
               void (CVHelperUtility::*request)(CVHelperUtility::BytesReply))
{
    // Refused: the local road runs at once, on this thread, without asking again.
    if (utility->refusal()) {
        reply(QByteArray());
        return;
    }
    auto send = [utility, reply, request] {
        // No reply is null; an empty one is not (the client never makes it so).
        (utility->*request)(
            [reply](std::optional<QByteArray> output) { reply(output.value_or(QByteArray())); });
    };
    if (QThread::currentThread() == utility->thread())
        send();
    else
        QMetaObject::invokeMethod(utility, send, Qt::QueuedConnection);
}

} // namespace

AcquisitionRoads AcquisitionRoads::system()
{
    return system(HelperChoice());
}

AcquisitionRoads AcquisitionRoads::system(const HelperChoice& helper)
{
    AcquisitionRoads roads;
    roads.helperInstalled = [] { return false; };
    roads.runLsofThroughHelper = [](const std::function<void(const QByteArray&)>& reply) {
        reply(QByteArray());
    };
    if (helper.mode != HelperChoice::Mode::Off) {
        CVHelperUtility* utility = helperUtility(helper);
        const bool taken = helper.mode == HelperChoice::Mode::Socket;
        roads.helperInstalled = [utility, taken] {
            return taken || utility->checkHelperInstalled();
        };
        // A change of the settings may be the user's answer to the refusal; ask once more then.
        QObject::connect(&UserDefaults::standardUserDefaults(), &UserDefaults::didChange, utility,
                         [utility] { utility->forgetRefusal(); });
        roads.helperProblem = [utility]() -> QString {
            if (!utility->refusal())
                return QString();
            return u"The privileged helper refuses this user, so only your own processes' "
                   u"connections are shown. "_s +
                   OVPrivilegeUtilityBase::refusalAdvice();
        };
        roads.runLsofThroughHelper = [utility](const HelperReply& reply) {
            askHelper(utility, reply, &CVHelperUtility::runLsofWithReply);
        };
        roads.runCollectorThroughHelper = [utility](const HelperReply& reply) {
            askHelper(utility, reply, &CVHelperUtility::runCollectorWithReply);
        };
    }
    // One collector for the roads' life: it keeps what each pass learned, and listens for the
    // sockets that close between passes from its first pass on.
    // Its short-lived sockets' owners come from the helper this road would ask, if any.
    QString helperSocket;
    if (helper.mode == HelperChoice::Mode::Socket)
        helperSocket = helper.socketPath;
    else if (helper.mode == HelperChoice::Mode::Auto)
        helperSocket = OVPrivilegeUtilityBase::defaultSocketPath();
    std::shared_ptr<NativeCollector> collector = NativeCollector::listening(helperSocket);
    roads.collect = [collector] {
        Collected collected;
        collected.records = collector->collect();
        collected.closed = collector->closed();
        collected.refusal = collector->refusal();
        collected.problem = collector->problem();
        return collected;
    };
    if (helper.mode != HelperChoice::Mode::Off) {
        roads.closedAmong = [collector](const SocketRecords& listed) {
            Collected collected;
            collected.closed = collector->closedAmong(listed);
            collected.problem = collector->problem();
            return collected;
        };
    }
    roads.sandboxed = [] { return Sandbox::isSandboxed(); };
    roads.scriptPath = [] { return CVUserScriptHelper::scriptPath(); };
    roads.run = [](const QString& program, const QStringList& arguments,
                   GACommandRunner::Road road) {
        return GACommandRunner::runCommandSync(program, arguments, road,
                                               road == GACommandRunner::Road::Script
                                                   ? GACommandRunner::kScriptBound
                                                   : GACommandRunner::kShellBound);
    };
    return roads;
}
