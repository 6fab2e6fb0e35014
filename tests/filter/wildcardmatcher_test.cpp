#include "filter/textfolding.h"
#include "filter/wildcardmatcher.h"

#include <QList>

#include <gtest/gtest.h>

using namespace Qt::StringLiterals;

TEST(WildcardMatcher, MatchesStarsQuestionMarksAndEscapes)
{
    struct Case {
        QString pattern;
        QString text;
        bool matches;
    };
    const QList<Case> cases = {
        {u""_s, u""_s, true},
        {u""_s, u"a"_s, false},
        {u"*"_s, u""_s, true},
        {u"**"_s, u"x"_s, true},
        {u"?"_s, u""_s, false},
        {u"?"_s, u"é"_s, true},
        {u"a*b*c"_s, u"aXbYc"_s, true},
        {u"a*b*c"_s, u"aXbY"_s, false},
        {u"a*b*c"_s, u"abcabc"_s, true},
        {u"*ab"_s, u"aab"_s, true}, // the star has to give back what it took
        {u"*a?c"_s, u"xabcabd"_s, false},
        {u"*a?c"_s, u"xabdabc"_s, true},
        {u"abc"_s, u"abcd"_s, false},
        {u"a\\*"_s, u"a*"_s, true},
        {u"a\\*"_s, u"ab"_s, false},
        {u"\\?"_s, u"x"_s, false},
        {u"a\\"_s, u"a\\"_s, true}, // a trailing backslash stands for itself
        {u"192.168.*"_s, u"192.168.1.5"_s, true},
        {u"192.168.*"_s, u"192x168.1.5"_s, false}, // "." is no wildcard
    };
    for (const Case& c : cases)
        EXPECT_EQ(WildcardMatcher::matches(c.pattern, c.text), c.matches)
            << c.pattern.toStdString() << " vs " << c.text.toStdString();
}

TEST(WildcardMatcher, StaysPolynomialOnPatternsThatDefeatBacktracking)
{
    // Exponential for a naive recursive matcher; must simply answer here.
    const QString text(5000, u'a');
    EXPECT_FALSE(WildcardMatcher::matches(u"*a*a*a*a*a*a*a*a*a*a*b"_s, text));
    EXPECT_TRUE(WildcardMatcher::matches(u"*a*a*a*a*a*a*a*a*a*a*"_s, text));
}

TEST(TextFolding, FoldsCaseAndDiacriticsIndependently)
{
    EXPECT_EQ(TextFolding::fold(u"Ünïcödé"_s, false, true), u"Unicode"_s);
    EXPECT_EQ(TextFolding::fold(u"Ünïcödé"_s, true, false), u"ünïcödé"_s);
    EXPECT_EQ(TextFolding::fold(u"Ünïcödé"_s, true, true), u"unicode"_s);
    EXPECT_EQ(TextFolding::fold(u"e\u0301"_s, false, true), u"e"_s);
    EXPECT_EQ(TextFolding::fold(u"Plain ASCII"_s, false, true), u"Plain ASCII"_s);
    EXPECT_EQ(TextFolding::fold(u"日本"_s, true, true), u"日本"_s);
}
