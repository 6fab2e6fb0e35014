#pragma once

#include "changes/changereporter.h"
#include "changes/connectionlog.h"
#include "platform/systemlog.h"
#include "prefs/cvprefshelper.h"
#include "prefs/prefkeys.h"
#include "prefs/userdefaults.h"
#include "snapshot/lsofdata.h"

#include <QFile>
#include <QTemporaryDir>

#include <gtest/gtest.h>

// Change reporting as a refresh runs it: settings and a log folder in a temporary folder, lsof's
// lines through change detection, and what goes to the system log kept.
class ReportingTest : public ::testing::Test {
protected:
    ReportingTest()
    {
        m_prefs.setLogFolder(folder());
        m_fetcher.setReporter(&m_reporter);
        SystemLog::setEcho([this](const QString& message) { m_logged << message; });
    }
    ~ReportingTest() override { SystemLog::setEcho({}); }

    QString folder() const { return m_dir.filePath(QStringLiteral("Logs")); }
    LsofItemList pass(const QStringList& lines)
    {
        return detectPass(m_fetcher, kLsofHeader + u'\n' + lines.join(u'\n'));
    }

    QTemporaryDir m_dir;
    UserDefaults m_store{m_dir.filePath(QStringLiteral("Corvina.conf"))};
    CVPrefsHelper m_prefs{m_store};
    ConnectionLog m_log{m_prefs};
    ChangeReporter m_reporter{m_prefs, m_log};
    LsofFetcher m_fetcher;
    QStringList m_logged;
};
