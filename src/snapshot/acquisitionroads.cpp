#include "acquisitionroads.h"

#include "helper/cvhelperutility.h"
#include "platform/sandbox.h"
#include "prefs/userdefaults.h"
#include "userscript/cvuserscripthelper.h"

#include <QThread>

#include <optional>

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
        roads.runLsofThroughHelper =
            [utility](const std::function<void(const QByteArray&)>& reply) {
                auto send = [utility, reply] {
                    // No reply is null; an empty one is not (the client never makes it so).
                    utility->runLsofWithReply([reply](std::optional<QByteArray> output) {
                        reply(output.value_or(QByteArray()));
                    });
                };
                // The client's connection is made on its own thread; the reply comes on another.
                if (QThread::currentThread() == utility->thread())
                    send();
                else
                    QMetaObject::invokeMethod(utility, send, Qt::QueuedConnection);
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
