#pragma once

#include "ui/window/cvwindowcontroller.h"
#include "uitestsupport.h"

#include "prefs/userdefaults.h"

#include <gtest/gtest.h>

#include <memory>

// A main window over scripted snapshots and settings in a temporary folder.
class WindowTest : public testing::Test {
protected:
    std::unique_ptr<CVWindowController> makeWindow()
    {
        auto window = std::make_unique<CVWindowController>(source, *settings.prefs);
        if (source.pending())
            source.deliver({});
        return window;
    }
    UserDefaults& defaults() { return *settings.defaults; }

    TestSettings settings;
    FakeSnapshotSource source;
};

inline LsofItemPtr tcp(const QString& app, const QString& pid, qint32 status = 0)
{
    using namespace Qt::StringLiterals;
    ItemSpec spec{app, pid};
    spec.remoteAddress = u"93.184.216.34"_s;
    spec.remotePort = u"443"_s;
    spec.state = u"ESTABLISHED"_s;
    spec.status = status;
    return makeItem(spec);
}

inline LsofItemPtr udp(const QString& app, const QString& pid)
{
    using namespace Qt::StringLiterals;
    ItemSpec spec{app, pid};
    spec.protocol = u"UDP"_s;
    return makeItem(spec);
}

inline QStringList savedColumnTitles(const UserDefaults& defaults)
{
    using namespace Qt::StringLiterals;
    QStringList titles;
    for (const QVariant& entry : defaults.objectForKey(u"CV:ColumnsUserDefault"_s).toList())
        titles.append(entry.toMap().value(u"title"_s).toString());
    return titles;
}
