#include "helpercommand.h"

#include "helper/cvhelperutility.h"
#include "privileged/helperinstallation.h"

#include <future>

using namespace Qt::StringLiterals;

namespace {

constexpr int kExitOk = 0;
constexpr int kExitFailed = 1;
constexpr int kExitUsage = 2;

int usage(QTextStream& err, const QString& message)
{
    err << "corvina: " << message << '\n'
        << "usage: corvina helper status|install|remove-instructions [--helper-socket PATH]\n";
    err.flush();
    return kExitUsage;
}

QString latin(const char* text)
{
    return QString::fromLatin1(text);
}

std::optional<QString> askVersion(CVHelperUtility& utility)
{
    auto answer = std::make_shared<std::promise<std::optional<QString>>>();
    std::future<std::optional<QString>> future = answer->get_future();
    utility.getVersion([answer](std::optional<QString> version) { answer->set_value(version); });
    // The client bounds the wait itself; this only returns what it answered.
    return future.get();
}

} // namespace

QStringList helperRemoveCommands()
{
    using namespace HelperInstallation;
    const QString units = latin(kUnitDirectory);
    return {
        u"sudo systemctl disable --now %1 %2"_s.arg(latin(kSocketUnit), latin(kServiceUnit)),
        u"sudo rm -f %1/%2 %1/%3"_s.arg(units, latin(kSocketUnit), latin(kServiceUnit)),
        u"sudo systemctl daemon-reload"_s,
        u"sudo rm -f %1/%2"_s.arg(latin(kPolicyDirectory), latin(kPolicyFile)),
        u"sudo rm -rf %1"_s.arg(latin(kInstallDirectory)),
        u"sudo groupdel %1"_s.arg(latin(kGroup)),
    };
}

int runHelperCommand(const QStringList& args, QTextStream& out, QTextStream& err)
{
    QString action;
    CVHelperUtility::Environment environment;
    environment.offerInstall = false;
    for (qsizetype i = 0; i < args.size(); ++i) {
        if (args[i] == u"--helper-socket") {
            if (i + 1 >= args.size())
                return usage(err, u"option --helper-socket needs a value"_s);
            environment.socketPath = args[++i];
        } else if (args[i].startsWith(u'-')) {
            return usage(err, u"unknown option '%1'"_s.arg(args[i]));
        } else if (action.isEmpty()) {
            action = args[i];
        } else {
            return usage(err, u"unexpected argument '%1'"_s.arg(args[i]));
        }
    }
    if (action.isEmpty())
        return usage(err, u"missing helper action"_s);

    if (action == u"remove-instructions") {
        out << "To remove the Corvina helper (the daemon and corvina-sockets, the units, the "
               "policy and the group), run:\n";
        for (const QString& command : helperRemoveCommands())
            out << "  " << command << '\n';
        out.flush();
        return kExitOk;
    }
    if (action != u"status" && action != u"install")
        return usage(err, u"unknown helper action '%1'"_s.arg(action));

    CVHelperUtility utility(environment);
    if (action == u"install") {
        out << "Installing " << utility.environment().helperExecutable << " (you may be asked "
            << "for an administrator's password)...\n";
        out.flush();
        const bool installed = utility.installHelper();
        out << (installed ? "installed\n" : "installation failed; see the system log\n");
        out.flush();
        return installed ? kExitOk : kExitFailed;
    }

    const bool installed = utility.checkHelperInstalled();
    out << "installed: " << (installed ? "yes" : "no") << " ("
        << latin(HelperInstallation::kSocketUnit) << (installed ? " enabled" : " not enabled")
        << ")\n";
    out << "socket: " << utility.environment().socketPath << '\n';
    const std::optional<QString> version = askVersion(utility);
    if (version)
        out << "answers: yes, version " << *version << '\n';
    else
        out << "answers: no\n";
    out.flush();
    return version ? kExitOk : kExitFailed;
}
