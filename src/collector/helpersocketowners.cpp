#include "helpersocketowners.h"

#include "privileged/helperconnection.h"
#include "privileged/ownersreply.h"

#include <algorithm>
#include <future>

using namespace Qt::StringLiterals;

namespace {

struct Outcome {
    std::optional<std::string> text;
    HelperConnection::Failure failure;
};

} // namespace

HelperSocketOwners::HelperSocketOwners(const QString& socketPath,
                                       std::chrono::milliseconds replyTimeout)
    : m_socketPath(socketPath.toStdString()), m_replyTimeout(replyTimeout)
{
}

HelperSocketOwners::~HelperSocketOwners() = default;

QString HelperSocketOwners::start()
{
    return ask({});
}

QString HelperSocketOwners::prefetch(const QList<quint64>& cookies)
{
    m_owners.clear();
    for (qsizetype first = 0; first < cookies.size(); first += HelperProtocol::kMaxOwnerCookies) {
        const qsizetype last =
            std::min(cookies.size(), first + qsizetype(HelperProtocol::kMaxOwnerCookies));
        if (QString why = ask({cookies.begin() + first, cookies.begin() + last}); !why.isEmpty())
            return why;
    }
    return {};
}

QString HelperSocketOwners::ask(std::vector<std::uint64_t> cookies)
{
    if (!m_connection || m_connection->isInvalidated())
        m_connection = std::make_unique<HelperConnection>(m_socketPath, m_replyTimeout);
    HelperProtocol::Request request(HelperProtocol::Operation::SocketOwners);
    request.cookies = std::move(cookies);
    // The connection calls exactly one of the two, within its reply time-out.
    auto outcome = std::make_shared<std::promise<Outcome>>();
    std::future<Outcome> answered = outcome->get_future();
    m_connection->send(
        request,
        [outcome](std::optional<std::string> text) {
            outcome->set_value({text, {}});
        },
        [outcome](const HelperConnection::Failure& failure) {
            outcome->set_value({std::nullopt, failure});
        });
    const Outcome result = answered.get();
    if (result.failure.busy)
        return {};
    if (!result.failure.message.empty())
        return u"it needs root, or the privileged helper, which cannot be asked: "_s +
               QString::fromStdString(result.failure.message);
    HelperProtocol::DecodeError error;
    const auto answer = OwnersReply::parse(result.text.value_or(std::string()), &error);
    if (!answer)
        return u"the privileged helper answered in a way this version does not read ("_s +
               QString::fromStdString(error.message) + u')';
    if (answer->unavailable)
        return u"the privileged helper: "_s + QString::fromStdString(*answer->unavailable);
    for (const OwnersReply::Owner& owner : answer->owners)
        m_owners.insert(owner.cookie,
                        Owner{int(owner.pid), owner.uid, QByteArray::fromStdString(owner.command)});
    return {};
}
