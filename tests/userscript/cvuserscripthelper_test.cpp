#include "platform/sandbox.h"
#include "snapshot/gacommandrunner.h"
#include "userscript/cvuserscripthelper.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <sys/stat.h>

using namespace Qt::StringLiterals;

namespace {

class UserScript : public ::testing::Test {
protected:
    void SetUp() override
    {
        CVUserScriptHelper::setScriptsFolderForTesting(m_dir.filePath(u"Scripts"_s));
        CVUserScriptHelper::setHostQueryForTesting([this](const QStringList& command) {
            m_hostCommands << command.join(u' ');
            return m_hostAnswer;
        });
    }
    void TearDown() override
    {
        CVUserScriptHelper::setScriptsFolderForTesting({});
        CVUserScriptHelper::setHostQueryForTesting({});
        Sandbox::overrideKind(std::nullopt);
    }
    static void write(const QByteArray& bytes)
    {
        QDir().mkpath(CVUserScriptHelper::scriptsFolder());
        QFile file(CVUserScriptHelper::scriptPath());
        ASSERT_TRUE(file.open(QIODevice::WriteOnly));
        file.write(bytes);
    }
    QTemporaryDir m_dir;
    QStringList m_hostCommands;
    QString m_hostAnswer = u"/usr/bin/lsof\n"_s;
};

} // namespace

TEST_F(UserScript, OnlyTheExactContentCounts)
{
    EXPECT_FALSE(CVUserScriptHelper::lsofScriptCorrect());

    const QByteArray right = "#!/bin/sh\n" + GACommandRunner::lsofPath().toUtf8() + " $*\n\n";
    write(right);
    EXPECT_TRUE(CVUserScriptHelper::lsofScriptCorrect());

    write(right.chopped(1));
    EXPECT_TRUE(CVUserScriptHelper::lsofScriptExists());
    EXPECT_FALSE(CVUserScriptHelper::lsofScriptCorrect()) << "the final empty line is missing";

    write("#!/bin/sh\n\xff\xfe\n");
    EXPECT_FALSE(CVUserScriptHelper::lsofScriptContentCorrect());

    QFile::remove(CVUserScriptHelper::scriptPath());
    QDir().mkpath(CVUserScriptHelper::scriptPath());
    EXPECT_FALSE(CVUserScriptHelper::lsofScriptExists()) << "a folder is no script";
}

TEST_F(UserScript, WrittenScriptHasItsBytesAndMode)
{
    ASSERT_TRUE(CVUserScriptHelper::writeScriptFile(CVUserScriptHelper::scriptPath()));
    EXPECT_TRUE(CVUserScriptHelper::lsofScriptCorrect());
    struct stat info {};
    ASSERT_EQ(stat(QFile::encodeName(CVUserScriptHelper::scriptPath()).constData(), &info), 0);
    EXPECT_EQ(info.st_mode & 07777, 0755u);

    // Saved elsewhere: written, but the script the application runs is still missing.
    QFile::remove(CVUserScriptHelper::scriptPath());
    ASSERT_TRUE(CVUserScriptHelper::writeScriptFile(m_dir.filePath(u"elsewhere.sh"_s)));
    EXPECT_FALSE(CVUserScriptHelper::lsofScriptCorrect());
}

TEST_F(UserScript, SheetOnlyWhenConfinedAndTheScriptIsWrong)
{
    int shown = 0;
    const auto show = [&] { ++shown; };
    Sandbox::overrideKind(Sandbox::Kind::None);
    CVUserScriptHelper::checkAndInstallScript(show);
    EXPECT_EQ(shown, 0);

    Sandbox::overrideKind(Sandbox::Kind::Flatpak);
    CVUserScriptHelper::checkAndInstallScript(show);
    EXPECT_EQ(shown, 1);

    CVUserScriptHelper::writeScriptFile(CVUserScriptHelper::scriptPath());
    CVUserScriptHelper::checkAndInstallScript(show);
    EXPECT_EQ(shown, 1);
}

// In a Flatpak the script runs on the host, so it names the host's lsof, asked of the host
// once; anywhere else it names this system's.
TEST_F(UserScript, AFlatpakScriptNamesTheHostsLsof)
{
    Sandbox::overrideKind(Sandbox::Kind::None);
    EXPECT_EQ(CVUserScriptHelper::scriptContent(),
              u"#!/bin/sh\n"_s + GACommandRunner::lsofPath() + u" $*\n\n"_s);
    EXPECT_TRUE(m_hostCommands.isEmpty());

    Sandbox::overrideKind(Sandbox::Kind::Flatpak);
    EXPECT_EQ(CVUserScriptHelper::scriptContent(), u"#!/bin/sh\n/usr/bin/lsof $*\n\n"_s);
    ASSERT_TRUE(CVUserScriptHelper::writeScriptFile(CVUserScriptHelper::scriptPath()));
    EXPECT_TRUE(CVUserScriptHelper::lsofScriptCorrect());
    ASSERT_EQ(m_hostCommands.size(), 1) << "the host is asked once";
    EXPECT_TRUE(m_hostCommands[0].contains(u"-x /usr/sbin/lsof"_s))
        << m_hostCommands[0].toStdString();

    // An answer that is none of the two places, or none at all, gives the usual place.
    for (const QString& answer : {u"/tmp/lsof; rm -rf ~"_s, QString()}) {
        m_hostAnswer = answer;
        CVUserScriptHelper::setHostQueryForTesting(
            [this](const QStringList&) { return m_hostAnswer; });
        EXPECT_EQ(CVUserScriptHelper::hostLsofPath(), u"/usr/sbin/lsof"_s);
    }
}
