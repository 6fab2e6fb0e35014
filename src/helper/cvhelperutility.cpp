#include "cvhelperutility.h"

#include "privileged/helperinstallation.h"

using namespace Qt::StringLiterals;

CVHelperUtility* CVHelperUtility::sharedUtility(const Environment& environment)
{
    static CVHelperUtility* const shared = new CVHelperUtility(environment);
    return shared;
}

QString CVHelperUtility::helperToolServiceName() const
{
    return QString::fromLatin1(HelperInstallation::kServiceName);
}

QString CVHelperUtility::bundledHelperVersion() const
{
    return u"1.0"_s;
}

void CVHelperUtility::runLsofWithReply(BytesReply reply)
{
    sendBytesRequest(HelperProtocol::Operation::RunLsof, std::move(reply));
}

void CVHelperUtility::runCollectorWithReply(BytesReply reply)
{
    sendBytesRequest(HelperProtocol::Operation::RunCollector, std::move(reply));
}

void CVHelperUtility::closeConnection(const SocketIdentity& request, CloseReply reply)
{
    // The daemon would end the connection over it: said here, without asking.
    if (std::string why = request.validationError(); !why.empty()) {
        reply(SocketDestroyer::Result{SocketDestroyer::Outcome::Invalid, std::move(why)});
        return;
    }
    sendBytesRequest({HelperProtocol::Operation::CloseConnection, request},
                     [reply = std::move(reply)](std::optional<QByteArray> text) {
                         if (!text) {
                             reply(std::nullopt);
                             return;
                         }
                         reply(HelperProtocol::parseCloseOutcome(
                             std::string_view(text->constData(), std::size_t(text->size()))));
                     });
}
