#include "ui/window/segmentedcontrol.h"

#include <gtest/gtest.h>

using namespace Qt::StringLiterals;

TEST(SegmentedControl, RestoresOnlySegmentsThatExist)
{
    const QList<std::pair<QString, QString>> cases{
        {u"1,7"_s, u"1"_s}, // 7 is past the three segments
        {u""_s, u""_s},     // an empty state deselects all
        {u"0,2"_s, u"0,2"_s},   {u"2,0"_s, u"0,2"_s},
        {u"-1"_s, u""_s},       {u"x"_s, u"0"_s}, // not a number reads as 0
        {u"2 , 1"_s, u"1,2"_s},
    };
    for (const auto& [stored, expected] : cases) {
        SegmentedControl control({u"TCP"_s, u"UDP"_s, u"Other"_s});
        for (int i = 0; i < control.segmentCount(); ++i)
            control.setSelected(true, i);
        control.restoreState(stored);
        EXPECT_EQ(control.stateText(), expected) << stored.toStdString();
    }
}
