#include "lsofdata.h"
#include "snapshot/lsoffetcher.h"

#include <QFile>
#include <QTemporaryDir>

#include <gtest/gtest.h>

namespace {

// An lsof stand-in on the real command runner. What it does on each run is read from a file
// beside it, so one path can succeed, print garbage, hang, fail or vanish in turn.
class FakeLsof {
public:
    FakeLsof()
    {
        QFile script(path());
        script.open(QIODevice::WriteOnly);
        script.write("#!/bin/sh\n"
                     "dir=$(dirname \"$0\")\n"
                     "case $(cat \"$dir/mode\") in\n"
                     "good) cat \"$dir/good.txt\" ;;\n"
                     "garbage) head -c 3000 /dev/urandom | tr -c 'A-Za-z0-9 \\n' ' ' ;;\n"
                     "hang) sleep 30 ;;\n"
                     "fail) echo 'lsof: WARNING: cannot stat' >&2; exit 1 ;;\n"
                     "esac\n");
        script.close();
        script.setPermissions(QFileDevice::ReadOwner | QFileDevice::ExeOwner);
        QFile good(m_dir.filePath(u"good.txt"_s));
        good.open(QIODevice::WriteOnly);
        good.write(lsofData("sequence-1.txt").toUtf8());
    }

    QString path() const { return m_dir.filePath(u"lsof"_s); }
    void setMode(const char* mode)
    {
        QFile file(m_dir.filePath(u"mode"_s));
        file.open(QIODevice::WriteOnly | QIODevice::Truncate);
        file.write(mode);
    }
    void remove() { QFile::remove(path()); }

    AcquisitionRoads roads()
    {
        AcquisitionRoads r = AcquisitionRoads::system();
        r.sandboxed = [] { return false; };
        r.run = [this](const QString&, const QStringList& arguments, GACommandRunner::Road road) {
            return GACommandRunner::runCommandSync(path(), arguments, road, 500ms);
        };
        return r;
    }

private:
    QTemporaryDir m_dir;
};

class PassCounter final : public ChangeReporting {
public:
    int passes = 0;
    qsizetype changed = 0;
    bool needsNotifyOrLogNewConnections() const override { return true; }
    bool needsNotifyOrLogConnectionStateChange() const override { return false; }
    void notifyNewItems(const LsofItemList& items) override
    {
        ++passes;
        for (const LsofItemPtr& item : items)
            changed += item->status() != 0 ? 1 : 0;
    }
    void notifyChangedItems(const LsofItemList&) override {}
};

} // namespace

// A failed lsof run of any kind gives an empty snapshot and leaves the previous one alone: no
// pass is reported for it, nothing is marked closed, and the next good run finds every
// connection where it was.
TEST(LsofFaults, AFailedRunGivesNothingAndForgetsNothing)
{
    FakeLsof lsof;
    LsofFetcher fetcher;
    fetcher.setRoads(lsof.roads());
    PassCounter reporter;
    fetcher.setReporter(&reporter);

    lsof.setMode("good");
    const qsizetype connections = fetcher.getCurrentItems().size();
    ASSERT_EQ(connections, 5);
    ASSERT_EQ(reporter.passes, 1);

    struct Fault {
        const char* mode;
        const char* problem; // part of the reason given, or empty when none is expected
    };
    const Fault faults[] = {
        {"garbage", ""},
        {"hang", "did not finish"},
        {"fail", ""},
        {"missing", "was not found"},
    };
    for (const Fault& fault : faults) {
        SCOPED_TRACE(fault.mode);
        if (QByteArray(fault.mode) == "missing")
            lsof.remove();
        else
            lsof.setMode(fault.mode);
        EXPECT_TRUE(fetcher.getCurrentItems().isEmpty());
        EXPECT_TRUE(fetcher.lastProblem().contains(QString::fromUtf8(fault.problem)))
            << fetcher.lastProblem().toStdString();
        EXPECT_EQ(reporter.passes, 1) << "an empty snapshot is not a pass";
        EXPECT_EQ(fetcher.previousSnapshot().size(), connections);
    }

    FakeLsof again;
    again.setMode("good");
    fetcher.setRoads(again.roads());
    const LsofItemList items = fetcher.getCurrentItems();
    EXPECT_EQ(items.size(), connections);
    EXPECT_EQ(reporter.passes, 2);
    EXPECT_EQ(reporter.changed, 0) << "no connection came or went";
}
