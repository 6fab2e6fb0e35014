#include "closecommand.h"

#include "collector/nativecollector.h"
#include "collector/socketidentityof.h"
#include "helper/cvhelperutility.h"
#include "snapshot/lsofitem.h"

#include <algorithm>
#include <future>

using namespace Qt::StringLiterals;

namespace CloseCommand {
namespace {

constexpr int kExitOk = 0;
constexpr int kExitNotClosed = 1;
constexpr int kExitUsage = 2;

int say(QTextStream& stream, const QString& line, int status)
{
    stream << (status == kExitOk ? QString() : u"corvina: "_s) << line << '\n';
    stream.flush();
    return status;
}

std::optional<SocketDestroyer::Result> closeThroughHelper(const SocketIdentity& socket,
                                                          const QString& helperSocket)
{
    CVHelperUtility::Environment environment;
    environment.offerInstall = false;
    environment.socketPath = helperSocket;
    CVHelperUtility utility(environment);
    auto answer = std::make_shared<std::promise<std::optional<SocketDestroyer::Result>>>();
    auto future = answer->get_future();
    utility.closeConnection(socket, [answer](std::optional<SocketDestroyer::Result> result) {
        answer->set_value(std::move(result));
    });
    // The client bounds the wait itself.
    return future.get();
}

} // namespace

QString usage()
{
    return u"usage: corvina close IDENTIFIER [--helper-socket PATH]\n"
           "Closes one TCP connection: the one whose identifier (the 'identifier' key of\n"
           "'corvina list --format json') is IDENTIFIER. As root the kernel is asked directly;\n"
           "otherwise the helper daemon closes connections of the user's own processes.\n"
           "  --helper-socket PATH    ask the helper daemon on PATH\n"_s;
}

int run(const QStringList& args, QTextStream& out, QTextStream& err)
{
    QString identifier;
    QString helperSocket;
    for (qsizetype i = 0; i < args.size(); ++i) {
        if (args[i] == u"--help" || args[i] == u"-h")
            return say(out, usage().chopped(1), kExitOk);
        if (args[i] == u"--helper-socket" && i + 1 >= args.size())
            return say(err, u"option --helper-socket needs a value"_s, kExitUsage);
        if (args[i] == u"--helper-socket")
            helperSocket = args[++i];
        else if (args[i].startsWith(u"--") || !identifier.isNull())
            return say(err, u"unexpected argument '%1'\n"_s.arg(args[i]) + usage().chopped(1),
                       kExitUsage);
        else
            identifier = args[i];
    }
    if (identifier.isEmpty())
        return say(err, u"close needs a connection's identifier\n"_s + usage().chopped(1),
                   kExitUsage);

    NativeCollector collector;
    const SocketRecords records = collector.collect();
    if (records.isEmpty() && !collector.refusal().isEmpty())
        return say(err, collector.refusal(), kExitNotClosed);
    const auto record = std::find_if(records.begin(), records.end(), [&](const SocketRecord& r) {
        return LsofItem::identifierOf(r) == identifier;
    });
    if (record == records.end())
        return say(
            err,
            u"already gone: no socket in a fresh snapshot has the identifier %1"_s.arg(identifier),
            kExitNotClosed);
    QString why;
    const std::optional<SocketIdentity> socket = socketIdentityOf(*record, &why);
    if (!socket)
        return say(err, u"%1: %2"_s.arg(identifier, why), kExitUsage);

    std::optional<SocketDestroyer::Result> result;
    if (canDestroySocketsDirectly())
        result = SocketDestroyer::destroy(*socket);
    else
        result = closeThroughHelper(*socket, helperSocket);
    if (!result)
        return say(err,
                   u"not permitted: closing a connection needs root (CAP_NET_ADMIN) or the "
                   "Corvina helper, which did not answer (see 'corvina helper status')"_s,
                   kExitNotClosed);
    const QString line = QString::fromStdString(SocketDestroyer::describe(*result));
    if (result->outcome == SocketDestroyer::Outcome::Closed)
        return say(out, line, kExitOk);
    return say(err, line, kExitNotClosed);
}

} // namespace CloseCommand
