#include "filter/itemfields.h"
#include "filter/itemfilter.h"
#include "filter/keywordverdicts.h"
#include "filtertestitems.h"
#include "snapshot/hostnameresolver.h"

#include <gtest/gtest.h>

namespace {

const std::set<QString> kAll{u"1234"_s, u"1"_s, u"777"_s, u"99999"_s};

ItemFilter keyword(const QString& text)
{
    ItemFilter filter;
    filter.searchText = text;
    return filter;
}

// Items whose process name sends backtracking regular expressions into exponential time.
LsofItemList hostileItems(int count)
{
    LsofItemList items;
    for (int i = 0; i < count; ++i) {
        auto item = std::make_shared<LsofItem>();
        item->setProcessName(QString(40, u'a') + u'!');
        item->setProcessId(QString::number(i));
        items.append(item);
    }
    return items;
}

} // namespace

TEST(ItemFilter, AnEmptyFilterKeepsTheListAsItIs)
{
    const LsofItemList items = fixtureItems();
    const ItemFilter::Result result = ItemFilter().apply(items);
    EXPECT_EQ(result.items, items); // the same objects, in the same order
    EXPECT_FALSE(result.expressionError);
    EXPECT_TRUE(result.keywordError.isEmpty());
    EXPECT_FALSE(result.gaveUp);
}

TEST(ItemFilter, ASavedSearchWinsOverExpressionModeTextAndSegments)
{
    ItemFilter filter;
    filter.profileExpression = u"processName == \"sshd\" OR PID == 99999"_s;
    filter.searchText = u"firefox"_s;
    filter.hiddenProtocols = {u"TCP"_s, u"Other"_s};
    filter.hiddenTypes = {u"IPv6"_s};
    filter.remoteOnly = true;
    EXPECT_EQ(idsOf(filter.filterItems(fixtureItems())), (std::set<QString>{u"1"_s, u"99999"_s}));

    filter.useSearchExpression = true;
    filter.searchText = u"PID == 777"_s;
    EXPECT_EQ(idsOf(filter.filterItems(fixtureItems())), (std::set<QString>{u"1"_s, u"99999"_s}));

    // A chosen saved search whose expression is empty shows everything.
    filter.profileExpression = u""_s;
    EXPECT_EQ(idsOf(filter.filterItems(fixtureItems())), kAll);
}

TEST(ItemFilter, ExpressionModeReadsTheSearchTextAndIgnoresSegments)
{
    ItemFilter filter;
    filter.useSearchExpression = true;
    filter.searchText = u"protocol != \"UDP\""_s;
    filter.hiddenProtocols = {u"TCP"_s};
    filter.remoteOnly = true;
    EXPECT_EQ(idsOf(filter.filterItems(fixtureItems())),
              (std::set<QString>{u"1234"_s, u"1"_s, u"99999"_s}));

    filter.useSearchExpression = false;
    EXPECT_TRUE(filter.filterItems(fixtureItems()).isEmpty()); // now a keyword
}

TEST(ItemFilter, AnExpressionThatFailsShowsEverythingAndSaysWhy)
{
    const LsofItemList items = fixtureItems();
    ItemFilter filter;
    filter.useSearchExpression = true;
    filter.hiddenTypes = {u"IPv4"_s};

    for (const QString& text : {u""_s, u"processName =="_s, u"nosuchkey == 1"_s}) {
        filter.searchText = text;
        const ItemFilter::Result result = filter.apply(items);
        EXPECT_EQ(result.items, items) << text.toStdString();
        EXPECT_TRUE(result.expressionError) << text.toStdString();
        EXPECT_TRUE(filter.matches(*items.front())) << text.toStdString();
    }

    // Failing on the third item still shows all of them, including the first two.
    auto odd = fixtureItem(u"(odd|5"_s);
    const LsofItemList withOdd = {items[0], items[1], odd, items[3]};
    filter.searchText = u"\"x\" MATCHES processName AND PID > 0"_s;
    const ItemFilter::Result result = filter.apply(withOdd);
    EXPECT_EQ(result.items, withOdd);
    ASSERT_TRUE(result.expressionError);
    EXPECT_TRUE(result.expressionError->error().contains(u"(odd"_s));
}

TEST(ItemFilter, KeywordsAreCaseInsensitivePatternsWithCommasAsAlternatives)
{
    const struct {
        QString keyword;
        std::set<QString> expected;
    } cases[] = {
        {u"FIREFOX"_s, {u"1234"_s}},
        {u"café"_s, {u"777"_s}},
        {u"sshd,firefox"_s, {u"1234"_s, u"1"_s}},
        {u","_s, kAll},
        {u"^fire"_s, {u"1234"_s}},
        {u"listen$"_s, {}},      // "$" ends the joined text, and State is not the last column
        {u"0xdead"_s, {u"1"_s}}, // the Device column
        {u"IPv[6]"_s, {u"1"_s, u"99999"_s}},
        {u"443"_s, {u"1234"_s}},
        // Fields are joined by NUL: a literal run cannot cross from User into Protocol, but
        // "." matches the NUL itself.
        {u"annaTCP"_s, {}},
        {u"anna.TCP"_s, {u"1234"_s}},
        {u"anna\\x00udp"_s, {u"777"_s}},
    };
    for (const auto& c : cases)
        EXPECT_EQ(idsOf(keyword(c.keyword).filterItems(fixtureItems())), c.expected)
            << c.keyword.toStdString();
}

TEST(ItemFilter, KeywordsSearchOnlyTheGivenKeysHiddenColumnsIncluded)
{
    const LsofItemList items = fixtureItems();
    items[1]->setSizeAndOffset(u"0t0marker"_s);
    EXPECT_TRUE(keyword(u"marker"_s).filterItems(items).isEmpty());

    ItemFilter filter = keyword(u"firefox"_s);
    filter.keywordKeys = {LsofItem::Key::user, LsofItem::Key::state};
    EXPECT_TRUE(filter.filterItems(items).isEmpty());
    filter.searchText = u"root.*listen"_s;
    EXPECT_EQ(idsOf(filter.filterItems(items)), std::set<QString>{u"1"_s});
}

TEST(ItemFilter, AnInvalidKeywordShowsNothing)
{
    const ItemFilter::Result result = keyword(u"fire(fox"_s).apply(fixtureItems());
    EXPECT_TRUE(result.items.isEmpty());
    EXPECT_FALSE(result.keywordError.isEmpty());
    EXPECT_FALSE(keyword(u"[a"_s).matches(*fixtureItems().front()));
}

TEST(ItemFilter, SegmentsHideTypesProtocolsAndPeerlessSockets)
{
    const struct {
        QStringList hiddenTypes;
        QStringList hiddenProtocols;
        bool remoteOnly;
        std::set<QString> expected;
    } cases[] = {
        {{u"IPv6"_s}, {}, false, {u"1234"_s, u"777"_s}},
        {{u"IPv4"_s, u"IPv6"_s}, {}, false, {}},
        {{}, {u"TCP"_s}, false, {u"777"_s, u"99999"_s}},
        {{}, {u"Other"_s}, false, {u"1234"_s, u"1"_s, u"777"_s}},
        {{}, {u"UDP"_s, u"Other"_s}, false, {u"1234"_s, u"1"_s}},
        {{}, {}, true, {u"1234"_s}}, // an empty remote address counts as none
        {{u"IPv6"_s}, {u"TCP"_s}, false, {u"777"_s}},
    };
    for (const auto& c : cases) {
        ItemFilter filter;
        filter.hiddenTypes = c.hiddenTypes;
        filter.hiddenProtocols = c.hiddenProtocols;
        filter.remoteOnly = c.remoteOnly;
        EXPECT_EQ(idsOf(filter.filterItems(fixtureItems())), c.expected)
            << c.hiddenTypes.join(u',').toStdString() << " / "
            << c.hiddenProtocols.join(u',').toStdString();
    }

    // "Other" also hides an item that names no protocol at all.
    auto bare = fixtureItem(u"x|2"_s);
    ItemFilter filter;
    filter.hiddenProtocols = {u"Other"_s};
    EXPECT_FALSE(filter.matches(*bare));

    // The keyword narrows first, the segments then apply to what is left.
    filter = keyword(u"anna"_s);
    filter.hiddenProtocols = {u"UDP"_s};
    EXPECT_EQ(idsOf(filter.filterItems(fixtureItems())), std::set<QString>{u"1234"_s});
}

TEST(ItemFilter, GivesUpOnHostilePatternsInsteadOfFreezing)
{
    const LsofItemList items = hostileItems(10000);

    ItemFilter expression;
    expression.useSearchExpression = true;
    expression.searchText = u"processName MATCHES \"(a|aa)+(b|c)+\" OR PID == 9999"_s;
    const ItemFilter::Result byExpression = expression.apply(items);
    EXPECT_TRUE(byExpression.gaveUp);
    EXPECT_FALSE(byExpression.expressionError);
    // Item 9999 passes without the pattern, but the pass never got that far.
    EXPECT_TRUE(byExpression.items.isEmpty());

    const ItemFilter::Result byKeyword = keyword(u"(a|aa)+(b|c)+$"_s).apply(items);
    EXPECT_TRUE(byKeyword.gaveUp);
    EXPECT_TRUE(byKeyword.items.isEmpty());

    // LIKE needs no budget: it answers for every row.
    expression.searchText = u"processName LIKE \"*a*a*a*a*a*a*a*b\" OR PID == 9999"_s;
    const ItemFilter::Result byLike = expression.apply(items);
    EXPECT_FALSE(byLike.gaveUp);
    EXPECT_EQ(idsOf(byLike.items), std::set<QString>{u"9999"_s});
}

TEST(ItemFilter, AnExhaustedBudgetDropsTheRestOnlyWhenPatternsAreInvolved)
{
    const LsofItemList items = fixtureItems();
    const std::chrono::milliseconds none(0);

    const ItemFilter::Result byKeyword = keyword(u"a"_s).apply(items, none);
    EXPECT_TRUE(byKeyword.gaveUp);
    EXPECT_TRUE(byKeyword.items.isEmpty());

    ItemFilter filter;
    filter.useSearchExpression = true;
    filter.searchText = u"PID > 1 AND processName LIKE \"*a*\""_s;
    const ItemFilter::Result withoutPatterns = filter.apply(items, none);
    EXPECT_FALSE(withoutPatterns.gaveUp);
    EXPECT_EQ(idsOf(withoutPatterns.items), std::set<QString>{u"777"_s});

    filter.hiddenTypes = {u"IPv4"_s};
    filter.useSearchExpression = false;
    filter.searchText.clear();
    EXPECT_FALSE(filter.apply(items, none).gaveUp);
}

TEST(ItemFields, ReadEveryKeyAsTheItemsOwnKeyValueAccessDoes)
{
    LsofItemList items = fixtureItems();
    // Process ids that are not a number's own text: the PID prints the number.
    for (const QString& id : {u"0123"_s, u"00"_s, u"+7"_s, u"-5"_s, u" 42"_s, u"4x"_s, u""_s}) {
        items.append(std::make_shared<LsofItem>());
        items.back()->setProcessId(id);
    }
    items[0]->setStatus(3);
    items[0]->setOldState(u"SYN_SENT"_s);
    items[0]->setSizeAndOffset(u"0t0"_s);
    items[0]->setTraffic({1500, 900, 120, 0, 0.25});
    items[0]->setShortLived(true);
    for (const auto& item : items) {
        for (const LsofItem::Key key : LsofItem::allKeys()) {
            const QVariant value = item->value(key);
            const QString name = LsofItem::nameForKey(key);
            EXPECT_EQ(ItemFields::text(*item, key).isNull(), !value.isValid())
                << name.toStdString();
            EXPECT_EQ(ItemFields::text(*item, key), item->text(key)) << name.toStdString();
            if (!value.isValid())
                continue;
            const bool numeric = value.typeId() == QMetaType::LongLong ||
                                 value.typeId() == QMetaType::Double ||
                                 value.typeId() == QMetaType::Bool;
            EXPECT_EQ(ItemFields::isNumeric(key), numeric) << name.toStdString();
            const auto number = ItemFields::number(*item, key);
            EXPECT_EQ(number.has_value(), numeric) << name.toStdString();
            if (number) {
                EXPECT_EQ(number->toDouble(), value.toDouble()) << name.toStdString();
            }
        }
    }
}

// Rows keep the text and verdict of the pass before; what changes between two refreshes (a
// state, a host name that arrived, the pattern) must still be seen by the next pass.
// The window keeps each row's verdict from one refresh to the next; a row whose state, host
// name or traffic moved is searched again, and another search starts afresh.
TEST(ItemFilter, RepeatedPassesFollowWhatChangedOnTheRows)
{
    HostnameResolver::setEnabled(false);
    KeywordVerdicts verdicts;
    const auto filtered = [&](const QString& text, const LsofItemList& rows) {
        return keyword(text).apply(rows, MatchBudget::kDefaultLimit, &verdicts).items;
    };
    const LsofItemList items = fixtureItems();
    items[0]->setRemoteAddress(u"127.0.0.1"_s);
    const bool nameKnownBefore = !items[0]->cachedRemoteHostname().isNull();

    for (int pass = 0; pass < 2; ++pass) {
        EXPECT_EQ(idsOf(filtered(u"established"_s, items)), std::set<QString>{u"1234"_s});
        EXPECT_EQ(idsOf(filtered(u"sshd,listen"_s, items)), std::set<QString>{u"1"_s});
    }
    items[0]->setState(u"CLOSE_WAIT"_s);
    EXPECT_TRUE(filtered(u"established"_s, items).isEmpty());
    EXPECT_EQ(idsOf(filtered(u"close_wait"_s, items)), std::set<QString>{u"1234"_s});

    // A host name that arrives between two passes is searched in the next one.
    items[0]->resolveHostname(u"127.0.0.1"_s);
    const QString name = items[0]->cachedRemoteHostname();
    if (!nameKnownBefore && !name.isEmpty()) {
        EXPECT_EQ(idsOf(filtered(QRegularExpression::escape(name), items)),
                  std::set<QString>{u"1234"_s});
    }

    items[0]->setTraffic({std::nullopt, std::nullopt, 987654, std::nullopt, std::nullopt});
    for (int pass = 0; pass < 2; ++pass)
        EXPECT_EQ(idsOf(filtered(u"987654"_s, items)), std::set<QString>{u"1234"_s});
    items[0]->setTraffic({std::nullopt, std::nullopt, 12, std::nullopt, std::nullopt});
    EXPECT_TRUE(filtered(u"987654"_s, items).isEmpty());

    // Each pass gives what a pass over rows never filtered before gives.
    const QStringList patterns = {u"anna"_s, u"tcp"_s, u"^x"_s, u"ANNA"_s, u"udp,sshd"_s};
    for (const QString& pattern : patterns)
        EXPECT_EQ(filtered(pattern, items).size(),
                  keyword(pattern).filterItems(fixtureItems()).size())
            << pattern.toStdString();
    HostnameResolver::setEnabled(true);
}

// Half a surrogate pair (a field cut through a character) is searched as U+FFFD: the row
// still matches on its other fields, and nothing reads past the text.
TEST(ItemFilter, HalfACharacterInAFieldIsSearchedSafely)
{
    const LsofItemList items = fixtureItems();
    items[0]->setProcessName(u"fire"_s + QChar(0xD83D) + u"fox"_s);
    items[1]->setProcessName(QString(QChar(0xDE00)) + u"sshd"_s);
    EXPECT_EQ(idsOf(keyword(u"fox"_s).filterItems(items)), std::set<QString>{u"1234"_s});
    EXPECT_EQ(idsOf(keyword(u"fire\\x{FFFD}fox,\\x{FFFD}sshd"_s).filterItems(items)),
              (std::set<QString>{u"1234"_s, u"1"_s}));
}

// Every typed prefix is a new pattern. Rows remember their verdict by a number given to each
// pattern, and those numbers must stay apart after the filter has seen thousands of patterns.
TEST(ItemFilter, VerdictsStayRightAfterThousandsOfPatterns)
{
    const LsofItemList items = fixtureItems();
    for (int i = 0; i < 5000; ++i) {
        // Each text is new; the second alternative never matches.
        const bool sshd = i % 2;
        const QString pattern = (sshd ? u"sshd|zz"_s : u"firefox|zz"_s) + QString::number(i);
        ASSERT_EQ(idsOf(keyword(pattern).filterItems(items)),
                  std::set<QString>{sshd ? u"1"_s : u"1234"_s})
            << pattern.toStdString();
    }
}
