#pragma once

#include "ui/window/cvwindowcontroller.h"
#include "uitestsupport.h"

// The window's parts the tests reach into.
#include "prefs/userdefaults.h"
#include "ui/window/connectiontablemodel.h"
#include "ui/window/connectiontableview.h"
#include "ui/window/rowcommands.h"
#include "ui/window/searchfield.h"
#include "ui/window/segmentedcontrol.h"
#include "ui/window/tablecolumnsmenu.h"

#include <QHeaderView>
#include <QMenu>
#include <QStatusBar>

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
    // The next snapshot: a refresh the source answers with `items`.
    void refresh(CVWindowController& window, const LsofItemList& items, const QString& problem = {})
    {
        window.reloadTableViewData();
        source.deliver(items, problem);
    }
    UserDefaults& defaults() { return *settings.defaults; }

    TestSettings settings;
    FakeSnapshotSource source;
};

inline QStringList savedColumnTitles(const UserDefaults& defaults)
{
    using namespace Qt::StringLiterals;
    QStringList titles;
    for (const QVariant& entry : defaults.objectForKey(u"CV:ColumnsUserDefault"_s).toList())
        titles.append(entry.toMap().value(u"title"_s).toString());
    return titles;
}
