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
    }
    void TearDown() override
    {
        CVUserScriptHelper::setScriptsFolderForTesting({});
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
