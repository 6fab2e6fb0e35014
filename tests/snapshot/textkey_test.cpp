#include "snapshot/textkey.h"

#include <QHash>
#include <QSet>
#include <QStringList>

#include <gtest/gtest.h>

using namespace Qt::StringLiterals;

TEST(TextKey, EqualTextsHashAlikeAndNearTextsApart)
{
    // Equal texts from different storage, null and empty alike: the same key.
    const QString pid = u"4007"_s;
    const QString sameAgain = QString::fromRawData(u"x4007"_s.constData() + 1, 4);
    EXPECT_EQ(qHash(TextKey{pid}, 7), qHash(TextKey{QString(pid.constData(), 4)}, 7));
    EXPECT_TRUE(TextKey{QString()} == TextKey{u""_s});
    EXPECT_EQ(qHash(TextKey{QString()}, 7), qHash(TextKey{u""_s}, 7));

    // The kind of texts pooled and cached: process ids, descriptors, addresses, from one to
    // twenty characters, many differing in the last character only (the part past the last
    // whole eight bytes).
    QSet<size_t> hashes;
    int texts = 0;
    for (int i = 0; i < 20000; ++i) {
        for (const QString& text : QStringList{QString::number(i), QString::number(i) + u'u',
                                               u"10.0.%1.%2"_s.arg(i / 250).arg(i % 250)}) {
            hashes.insert(qHash(TextKey{text}, 0x5eed));
            ++texts;
        }
    }
    EXPECT_GE(hashes.size(), texts - 2) << "64-bit hashes of distinct texts should not collide";
    // The seed changes every hash: what collides under one seed says nothing of another.
    EXPECT_NE(qHash(TextKey{pid}, 1), qHash(TextKey{pid}, 2));

    QHash<TextKey, int> byText;
    byText.insert(TextKey{pid}, 1);
    EXPECT_EQ(byText.value(TextKey{sameAgain}), 1);
}
