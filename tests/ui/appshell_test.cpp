#include "platform/sandbox.h"
#include "ui/app/cvinstalluserscriptcontroller.h"
#include "ui/app/cvshowhelpwindowcontroller.h"
#include "ui/app/ovmodule.h"
#include "userscript/cvuserscripthelper.h"

#include <QAction>
#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QMainWindow>
#include <QMenu>
#include <QPushButton>
#include <QTemporaryDir>
#include <QTextBrowser>
#include <QUrlQuery>

#include <gtest/gtest.h>

namespace {

OVModule::BundleInfo bundle(const QString& productId = {})
{
    return {u"Corvina Net"_s, u"1.2"_s, u"1.2.0"_s, productId, u"Debian GNU/Linux 12"_s};
}

QStringList titles(const QMenu& menu)
{
    QStringList result;
    for (const QAction* item : menu.actions())
        result << (item->isSeparator() ? u"---"_s : item->text());
    return result;
}

TEST(HelpMenu, TheMakersEntriesGoAboveTheMenusOwnWithRatingOnlyForAStoreProduct)
{
    const QString visit = u"Visit "_s + OVModule::kMakerDomain;
    struct Case {
        QString productId;
        QStringList expected;
    };
    const QList<Case> cases = {
        {{},
         {u"Send Feedback"_s, u"---"_s, visit, u"Follow Us on Twitter"_s, u"---"_s,
          u"Corvina Help"_s}},
        {u"123456789"_s,
         {u"Rate in App Store"_s, u"Send Feedback"_s, u"---"_s, visit, u"Follow Us on Twitter"_s,
          u"---"_s, u"Corvina Help"_s}},
    };
    for (const Case& c : cases) {
        OVModule module(bundle(c.productId));
        QList<QUrl> opened;
        module.setUrlOpener([&](const QUrl& url) {
            opened << url;
            return true;
        });
        QMenu help;
        help.addAction(u"Corvina Help"_s);
        module.setupHelpMenu(&help);
        EXPECT_EQ(titles(help), c.expected) << c.productId.toStdString();

        for (QAction* item : help.actions()) {
            if (!item->isSeparator() && item->text() != u"Corvina Help")
                item->trigger();
        }
        ASSERT_EQ(opened.size(), c.productId.isEmpty() ? 3 : 4);
        if (!c.productId.isEmpty()) {
            EXPECT_EQ(opened.front().toString(), u"https://apps.apple.com/app/id123456789"_s);
        }
        EXPECT_EQ(opened.last().toString(), OVModule::kTwitterPage);
        EXPECT_EQ(opened.at(opened.size() - 2).toString(), OVModule::kHomePage);
    }
}

TEST(HelpMenu, TheFeedbackMailCarriesTheApplicationAndSystemAndIsEscapedOnce)
{
    OVModule module(bundle());
    EXPECT_EQ(module.feedbackMailText(),
              u"mailto:"_s + OVModule::kSupportMailbox +
                  u"?subject=Corvina Net Feedback&body=\n\n\nInfomation:\nCorvina Net: 1.2 "
                  "(1.2.0)\nLinux: Debian GNU/Linux 12\n"_s);

    QList<QUrl> opened;
    module.setUrlOpener([&](const QUrl& url) {
        opened << url;
        return true;
    });
    module.sendFeedback();
    ASSERT_EQ(opened.size(), 1);
    const QUrl& mail = opened.front();
    EXPECT_TRUE(mail.isValid());
    EXPECT_EQ(mail.scheme(), u"mailto"_s);
    EXPECT_EQ(mail.path(), OVModule::kSupportMailbox);
    const QByteArray encoded = mail.toEncoded();
    EXPECT_TRUE(encoded.contains("subject=Corvina%20Net%20Feedback")) << encoded.constData();
    EXPECT_TRUE(encoded.contains("body=%0A%0A%0AInfomation:%0A")) << encoded.constData();
    const QUrlQuery query(mail);
    EXPECT_EQ(query.queryItemValue(u"subject"_s, QUrl::FullyDecoded), u"Corvina Net Feedback"_s);
    EXPECT_TRUE(query.queryItemValue(u"body"_s, QUrl::FullyDecoded)
                    .endsWith(u"Linux: Debian GNU/Linux 12\n"_s));
}

TEST(HelpMenu, OpeningEscapesEverythingButTheAddressesOwnPunctuation)
{
    struct Case {
        QString text;
        QByteArray encoded;
    };
    const QList<Case> cases = {
        {u"https://host.example/a b?q=1&r=ü"_s, "https://host.example/a%20b?q=1&r=%C3%BC"},
        // A percent sign in the text is a character, not an escape.
        {u"https://host.example/?p=100%"_s, "https://host.example/?p=100%25"},
        {u"mailto:a@b.example?body=x\ny"_s, "mailto:a@b.example?body=x%0Ay"},
    };
    for (const Case& c : cases)
        EXPECT_EQ(OVModule::escapedURL(c.text).toEncoded(), c.encoded) << c.text.toStdString();
}

TEST(HelpWindow, OneWindowShowsTheProgramsHelpWithMargins)
{
    CVShowHelpWindowController* first = CVShowHelpWindowController::sharedController();
    CVShowHelpWindowController::showHelp();
    CVShowHelpWindowController::showHelp();
    EXPECT_EQ(CVShowHelpWindowController::sharedController(), first);
    EXPECT_TRUE(first->isVisible());
    EXPECT_EQ(first->textView()->document()->documentMargin(), 10);
    const QString text = first->textView()->toPlainText();
    for (const QString& topic : {u"Saved searches"_s, u"corvina helper install"_s, u"BEGINSWITH"_s,
                                 u"CorvinaLog"_s, u"corvina list"_s})
        EXPECT_TRUE(text.contains(topic)) << topic.toStdString();
    first->hide();
}

class ScriptSheet : public ::testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_TRUE(m_dir.isValid());
        CVUserScriptHelper::setScriptsFolderForTesting(m_dir.filePath(u"Scripts"_s));
        Sandbox::overrideKind(Sandbox::Kind::Flatpak);
    }
    void TearDown() override
    {
        if (auto* sheet = CVInstallUserScriptController::sharedController(&m_window))
            sheet->hide();
        CVUserScriptHelper::setScriptsFolderForTesting({});
        Sandbox::overrideKind(std::nullopt);
    }

    bool sheetShownAfterCheck()
    {
        CVInstallUserScriptController* sheet =
            CVInstallUserScriptController::sharedController(&m_window);
        sheet->hide();
        CVInstallUserScriptController::checkAndInstallScript(&m_window);
        QCoreApplication::processEvents();
        return sheet->isVisible();
    }

    QTemporaryDir m_dir;
    QMainWindow m_window;
};

TEST_F(ScriptSheet, IsShownWhenTheScriptIsMissingWrongOrAFolder)
{
    const QString path = CVUserScriptHelper::scriptPath();
    QDir().mkpath(CVUserScriptHelper::scriptsFolder());
    EXPECT_TRUE(sheetShownAfterCheck()) << "missing";

    QDir().mkpath(path);
    EXPECT_TRUE(sheetShownAfterCheck()) << "a folder of that name";
    QDir(path).removeRecursively();

    QFile file(path);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    file.write("#!/bin/sh\n/usr/sbin/lsof $*\n");
    file.close();
    EXPECT_TRUE(sheetShownAfterCheck()) << "without the final empty line";

    ASSERT_TRUE(CVUserScriptHelper::writeScriptFile(path));
    EXPECT_FALSE(sheetShownAfterCheck()) << "correct";

    QFile::remove(path);
    Sandbox::overrideKind(Sandbox::Kind::None);
    EXPECT_FALSE(sheetShownAfterCheck()) << "not confined";
}

TEST_F(ScriptSheet, ClosesOnlyOnceTheScriptIsSavedWhereItBelongs)
{
    CVInstallUserScriptController* sheet =
        CVInstallUserScriptController::sharedController(&m_window);
    EXPECT_EQ(sheet->windowModality(), Qt::WindowModal);
    QString answer;
    QString offeredFolder;
    QString offeredName;
    sheet->setSavePathChooser([&](QWidget*, const QString& folder, const QString& name) {
        offeredFolder = folder;
        offeredName = name;
        return answer;
    });
    sheet->open();

    sheet->installButton()->click(); // cancelled
    EXPECT_TRUE(sheet->isVisible());
    EXPECT_EQ(offeredFolder, CVUserScriptHelper::scriptsFolder());
    EXPECT_EQ(offeredName, u"user_script.sh"_s);
    EXPECT_TRUE(QFileInfo(offeredFolder).isDir()) << "the dialog opens in an existing folder";

    answer = QDir(offeredFolder).filePath(u"other_name.sh"_s);
    sheet->installButton()->click();
    EXPECT_TRUE(QFileInfo::exists(answer));
    EXPECT_TRUE(sheet->isVisible());

    sheet->reject(); // Escape does not dismiss it
    EXPECT_TRUE(sheet->isVisible());

    answer = CVUserScriptHelper::scriptPath();
    sheet->installButton()->click();
    EXPECT_TRUE(CVUserScriptHelper::lsofScriptCorrect());
    EXPECT_FALSE(sheet->isVisible());
}

} // namespace
