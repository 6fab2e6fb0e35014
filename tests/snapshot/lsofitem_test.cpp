#include "snapshot/lsofitem.h"

#include <gtest/gtest.h>

using namespace Qt::StringLiterals;

TEST(LsofItem, UnescapesProcessNames)
{
    LsofItem item;
    item.setProcessName(u"Mail\\x20Helper"_s);
    EXPECT_EQ(item.processName(), u"Mail Helper"_s);
    item.setProcessName(u"a%zz"_s);
    EXPECT_TRUE(item.processName().isNull());
}
