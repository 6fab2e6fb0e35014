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
