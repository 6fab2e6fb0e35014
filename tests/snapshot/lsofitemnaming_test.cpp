#include "platform/runningapplication.h"
#include "snapshot/hostnameresolver.h"
#include "snapshot/lsofitem.h"

#include <QFileInfo>

#include <gtest/gtest.h>

#include <unistd.h>

namespace {

// Above the kernel's largest pid_max: never a running process.
const QString kNoSuchPid = u"1073741823"_s;

std::unique_ptr<LsofItem> itemFor(const QString& processId, const QString& processName)
{
    auto item = std::make_unique<LsofItem>();
    item->setProcessId(processId);
    item->setProcessName(processName);
    return item;
}

} // namespace

TEST(LsofItemNaming, PortNamesComeFromTheShippedTable)
{
    LsofItem item;
    item.setProtocol(u"TCP"_s);
    item.setLocalPort(u"443"_s);
    item.setRemotePort(u"22"_s);
    EXPECT_EQ(item.localPortName(), u"https"_s);
    EXPECT_EQ(item.remotePortName(), u"ssh"_s);
    EXPECT_EQ(item.value(LsofItem::Key::localPortName), QVariant(u"https"_s));

    // Computed on every call, so a changed port shows at once.
    item.setLocalPort(u"*"_s);
    EXPECT_TRUE(item.localPortName().isNull());
    item.setRemotePort(QString());
    EXPECT_TRUE(item.remotePortName().isNull());

    EXPECT_EQ(LsofItem::nameForPort(u"53"_s, u"UDP"_s), u"domain"_s);
    EXPECT_FALSE(LsofItem::descriptionForPort(u"22"_s, u"TCP"_s).isEmpty());
}

TEST(LsofItemNaming, ThisProcessIsNamedFromProc)
{
    const QString pid = QString::number(::getpid());
    const auto item = itemFor(pid, u"corvina tests"_s);
    const QString binary =
        QFileInfo(QStringLiteral(CORVINA_BINARY_DIR "/tests/snapshot/corvina_tests_snapshot"))
            .canonicalFilePath();

    const auto app = item->runningApplication();
    ASSERT_TRUE(app);
    EXPECT_EQ(app->processIdentifier(), ::getpid());
    EXPECT_EQ(item->runningApplication(), app) << "kept in the item once found";
    EXPECT_EQ(item->processPath(), binary);
    // No desktop entry starts the test binary: the lsof name stands in.
    EXPECT_EQ(item->localizedAppName(), u"corvina tests"_s);
    EXPECT_EQ(item->processIcon(), u"application-x-executable"_s);
}

TEST(LsofItemNaming, RecordsAreReadAheadOncePerProcess)
{
    const QString pid = QString::number(::getpid());
    const LsofItemList items{itemFor(pid, u"a"_s), itemFor(pid, u"b"_s),
                             itemFor(kNoSuchPid, u"gone"_s)};
    LsofItem::readProcessRecords(items);
    ASSERT_TRUE(items.at(0)->runningApplication());
    EXPECT_EQ(items.at(0)->runningApplication(), items.at(1)->runningApplication())
        << "one record for the process's sockets";
    EXPECT_EQ(items.at(0)->runningApplication()->processIdentifier(), ::getpid());
    EXPECT_FALSE(items.at(2)->runningApplication());

    // An item that has its record keeps it.
    const auto kept = items.at(0)->runningApplication();
    LsofItem::readProcessRecords(items);
    EXPECT_EQ(items.at(0)->runningApplication(), kept);
}

TEST(LsofItemNaming, GoneProcessFallsBackToItsNameAndReusedPidsKeepTheirPath)
{
    const auto gone = itemFor(kNoSuchPid, u"ghost"_s);
    EXPECT_FALSE(gone->runningApplication());
    EXPECT_EQ(gone->processPath(), u"ghost"_s);
    EXPECT_EQ(gone->localizedAppName(), u"ghost"_s);
    EXPECT_EQ(gone->processIcon(), u"application-x-executable"_s);

    // Path is kept per process id, so a second process under the same id is shown with the
    // first one's path; the name is computed per call.
    const auto reused = itemFor(kNoSuchPid, u"newcomer"_s);
    EXPECT_EQ(reused->processPath(), u"ghost"_s);
    EXPECT_EQ(reused->localizedAppName(), u"newcomer"_s);

    const auto nameless = itemFor(u"1073741822"_s, QString());
    EXPECT_TRUE(nameless->processPath().isNull());
    EXPECT_TRUE(nameless->localizedAppName().isNull());
}

// 127.0.0.1 is named by /etc/hosts, so no query leaves the machine.
TEST(LsofItemNaming, RemoteHostnameUsesTheSharedCache)
{
    HostnameResolver::setEnabled(false);
    LsofItem item;
    item.setRemoteAddress(u"127.0.0.1"_s);
    EXPECT_TRUE(item.remoteHostname().isNull());

    item.resolveHostname(u"127.0.0.1"_s);
    const QString name = item.remoteHostname();
    EXPECT_FALSE(name.isNull());
    EXPECT_EQ(name, HostnameResolver::systemLookup(u"127.0.0.1"_s).value_or(u""_s));

    HostnameResolver::setEnabled(true);
}

TEST(LsofItem, UnescapesProcessNames)
{
    LsofItem item;
    item.setProcessName(u"Mail\\x20Helper"_s);
    EXPECT_EQ(item.processName(), u"Mail Helper"_s);
    item.setProcessName(u"a%zz"_s);
    EXPECT_TRUE(item.processName().isNull());
}
