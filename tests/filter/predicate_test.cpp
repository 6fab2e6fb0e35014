#include "filter/predicate.h"
#include "filter/predicateparser.h"
#include "filter/textfolding.h"
#include "filter/wildcardmatcher.h"
#include "filtertestitems.h"

#include <gtest/gtest.h>

namespace {

std::set<QString> matching(const QString& expression, const LsofItemList& items = fixtureItems())
{
    const auto parsed = Predicate::parse(expression);
    if (const auto* error = std::get_if<PredicateError>(&parsed)) {
        ADD_FAILURE() << expression.toStdString() << ": " << error->toString().toStdString();
        return {};
    }
    std::set<QString> ids;
    for (const auto& item : items) {
        const auto result = std::get<Predicate>(parsed).evaluate(*item);
        if (const auto* error = std::get_if<PredicateError>(&result))
            ADD_FAILURE() << expression.toStdString() << ": " << error->toString().toStdString();
        else if (std::get<bool>(result))
            ids.insert(item->processId());
    }
    return ids;
}

std::optional<PredicateError> parseError(const QString& expression)
{
    const auto parsed = Predicate::parse(expression);
    if (const auto* error = std::get_if<PredicateError>(&parsed))
        return *error;
    return std::nullopt;
}

struct MatchCase {
    QString expression;
    std::set<QString> expected;
};

const std::set<QString> kAll{u"1234"_s, u"1"_s, u"777"_s, u"99999"_s};

} // namespace

TEST(Predicate, EvaluatesEveryConstruct)
{
    const QList<MatchCase> cases = {
        // Equality and its spellings; a null value differs from every string.
        {u"processName == 'firefox'"_s, {u"1234"_s}},
        {u"processName = \"firefox\""_s, {u"1234"_s}},
        {u"processName == \"FIREFOX\""_s, {}},
        {u"processName ==[c] \"FIREFOX\""_s, {u"1234"_s}},
        {u"processName != \"firefox\""_s, {u"1"_s, u"777"_s, u"99999"_s}},
        {u"processName <> \"firefox\""_s, {u"1"_s, u"777"_s, u"99999"_s}},
        // Ordering, numeric, with the key on either side and signed or decimal literals.
        {u"PID < 1000"_s, {u"1"_s, u"777"_s}},
        {u"PID <= 777"_s, {u"1"_s, u"777"_s}},
        {u"PID =< 777"_s, {u"1"_s, u"777"_s}},
        {u"PID > 1234"_s, {u"99999"_s}},
        {u"PID >= 1234"_s, {u"1234"_s, u"99999"_s}},
        {u"PID => 1234"_s, {u"1234"_s, u"99999"_s}},
        {u"443 == remotePortNumber"_s, {u"1234"_s}},
        {u"400 < remotePortNumber"_s, {u"1234"_s}},
        {u"PID == 1.0"_s, {u"1"_s}},
        {u"PID < 1.5"_s, {u"1"_s}},
        {u"PID > -1"_s, kAll},
        {u"PID < +2"_s, {u"1"_s}},
        {u"localPortNumber >= 5e3"_s, {u"1234"_s, u"777"_s}},
        {u"processId < \"2\""_s, {u"1234"_s, u"1"_s}}, // strings order as text
        // String operators and the [c] and [d] options.
        {u"processName BEGINSWITH \"fire\""_s, {u"1234"_s}},
        {u"processName beginswith[c] \"FIRE\""_s, {u"1234"_s}},
        {u"processName ENDSWITH \"d\""_s, {u"1"_s}},
        {u"processName CONTAINS \"efo\""_s, {u"1234"_s}},
        {u"processName CONTAINS \"Cafe\""_s, {}},
        {u"processName CONTAINS[d] \"Cafe\""_s, {u"777"_s}},
        {u"processName CONTAINS[c] \"CAFE\""_s, {}},
        {u"processName CONTAINS[cd] \"CAFE\""_s, {u"777"_s}},
        {u"processName BEGINSWITH[c] \"CAFÉ\""_s, {u"777"_s}},
        {u"processName == \"Cafe\\u0301 Sync\""_s, {}},
        {u"processName ==[d] \"Cafe\\u0301 Sync\""_s, {u"777"_s}},
        {u"processName LIKE \"f*x\""_s, {u"1234"_s}},
        {u"processName LIKE \"s?hd\""_s, {u"1"_s}},
        {u"processName LIKE \"s?d\""_s, {}},
        {u"processName LIKE[c] \"*SYNC\""_s, {u"777"_s}},
        {u"processName LIKE[c] \"CAFÉ*\""_s, {u"777"_s}},
        {u"processName LIKE[cd] \"CAFE*\""_s, {u"777"_s}},
        {u"processName LIKE \"CAFE*\""_s, {}},
        {u"processName MATCHES \"fire.*\""_s, {u"1234"_s}},
        {u"processName MATCHES \"fire\""_s, {}}, // the whole text must match
        {u"processName MATCHES \"ss|fire\""_s, {}},
        {u"processName MATCHES[c] \"FIRE.*\""_s, {u"1234"_s}},
        {u"processName MATCHES \"\\w+d\""_s, {u"1"_s}},
        {u"processName MATCHES \"\\\\w+d\""_s, {u"1"_s}},
    };
    for (const MatchCase& c : cases)
        EXPECT_EQ(matching(c.expression), c.expected) << c.expression.toStdString();
}

TEST(Predicate, EvaluatesListsCompoundsAndLiterals)
{
    const QList<MatchCase> cases = {
        // Integers in hexadecimal, octal and binary, prefixes in either case.
        {u"remotePortNumber == 0x1BB"_s, {u"1234"_s}},
        {u"PID == 0X4d2 OR localPortNumber == 0b10110"_s, {u"1234"_s, u"1"_s}},
        {u"PID IN {0o1411, 0B1}"_s, {u"1"_s, u"777"_s}},
        {u"PID > -0x1 AND PID < 0O303237"_s, {u"1234"_s, u"1"_s, u"777"_s}},
        // IN over lists (equality) and over strings (containment), BETWEEN inclusive.
        {u"protocol IN {\"TCP\", \"UDP\"}"_s, {u"1234"_s, u"1"_s, u"777"_s}},
        {u"protocol IN[c] {\"tcp\"}"_s, {u"1234"_s, u"1"_s}},
        {u"PID IN {1, 777}"_s, {u"1"_s, u"777"_s}},
        {u"PID IN {\"1\"}"_s, {}},
        {u"PID IN {}"_s, {}},
        {u"processName IN {nil, \"sshd\"}"_s, {u"1"_s, u"99999"_s}},
        {u"\"fire\" IN processName"_s, {u"1234"_s}},
        {u"processName IN \"firefox sshd\""_s, {u"1234"_s, u"1"_s}},
        {u"PID BETWEEN {777, 1234}"_s, {u"1234"_s, u"777"_s}},
        {u"localPortNumber BETWEEN {22, 22}"_s, {u"1"_s}},
        {u"processName BETWEEN {\"a\", \"t\"}"_s, {u"1234"_s, u"1"_s}},
        // Compounds, precedence (NOT over AND over OR), keywords in any case.
        {u"processName == \"sshd\" AND state == \"LISTEN\""_s, {u"1"_s}},
        {u"processName == \"sshd\" && state == \"ESTABLISHED\""_s, {}},
        {u"processName == \"sshd\" or PID == 777"_s, {u"1"_s, u"777"_s}},
        {u"processName == \"sshd\" || PID == 777"_s, {u"1"_s, u"777"_s}},
        {u"processName == \"sshd\" OR processName == \"firefox\" AND state == \"LISTEN\""_s,
         {u"1"_s}},
        {u"(processName == \"sshd\" OR processName == \"firefox\") AND state == \"ESTABLISHED\""_s,
         {u"1234"_s}},
        {u"NOT processName == \"sshd\""_s, {u"1234"_s, u"777"_s, u"99999"_s}},
        {u"!(processName == \"sshd\")"_s, {u"1234"_s, u"777"_s, u"99999"_s}},
        {u"not not processName == \"sshd\""_s, {u"1"_s}},
        {u"NOT PID > 1 AND protocol == \"TCP\""_s, {u"1"_s}},
        {u"TRUEPREDICATE"_s, kAll},
        {u"falsepredicate OR PID == 1"_s, {u"1"_s}},
        // Booleans are the numbers 1 and 0; "#" makes any word a key.
        {u"status == NO"_s, kAll},
        {u"status == YES OR status == TRUE"_s, {}},
        {u"#processName == \"sshd\""_s, {u"1"_s}},
        // A text field never equals a number, even when it reads like one.
        {u"localPort == \"22\""_s, {u"1"_s}},
        {u"localPort == 22"_s, {}},
        {u"localPort != 22"_s, kAll},
    };
    for (const MatchCase& c : cases)
        EXPECT_EQ(matching(c.expression), c.expected) << c.expression.toStdString();
}

TEST(Predicate, NullValuesEqualNilAndFailEverythingElse)
{
    const QList<MatchCase> cases = {
        {u"remoteAddress == nil"_s, {u"1"_s, u"99999"_s}},
        {u"remoteAddress == NULL"_s, {u"1"_s, u"99999"_s}},
        {u"nil == remoteAddress"_s, {u"1"_s, u"99999"_s}},
        {u"remoteAddress == \"\""_s, {u"777"_s}}, // empty is not null
        {u"remoteAddress != nil"_s, {u"1234"_s, u"777"_s}},
        {u"nil == nil"_s, kAll},
        {u"nil != nil"_s, {}},
        {u"remotePortNumber != 443"_s, {u"1"_s, u"777"_s, u"99999"_s}},
        {u"remotePortNumber < 100000"_s, {u"1234"_s}},
        {u"remotePortNumber >= 0"_s, {u"1234"_s}},
        {u"NOT remotePortNumber < 0"_s, kAll},
        {u"remotePortNumber BETWEEN {0, 100000}"_s, {u"1234"_s}},
        {u"processName LIKE \"*\" OR processName CONTAINS \"\""_s, {u"1234"_s, u"1"_s, u"777"_s}},
        {u"processName MATCHES \".*\""_s, {u"1234"_s, u"1"_s, u"777"_s}},
        {u"processName IN \"firefox\" OR \"firefox\" CONTAINS processName"_s, {u"1234"_s}},
        {u"processName BEGINSWITH nil"_s, {}},
        {u"processName < \"zzz\""_s, {u"1234"_s, u"1"_s, u"777"_s}},
    };
    for (const MatchCase& c : cases)
        EXPECT_EQ(matching(c.expression), c.expected) << c.expression.toStdString();
}

TEST(Predicate, RefusesBadTextsWithThePositionOfTheFault)
{
    struct ErrorCase {
        QString expression;
        qsizetype position;
        QString messagePart;
    };
    const QList<ErrorCase> cases = {
        {u""_s, 0, u"empty"_s},
        {u"   "_s, 0, u"empty"_s},
        {u"processName =="_s, 14, u"Expected a key name or a value"_s},
        {u"pid == 1"_s, 0, u"Unknown key “pid”; did you mean “PID”?"_s},
        {u"remoteHost == \"x\""_s, 0, u"Unknown key “remoteHost”"_s},
        {u"#AND == 1"_s, 0, u"Unknown key “AND”"_s},
        {u"# == 1"_s, 0, u"#"_s},
        {u"processName == \"x"_s, 15, u"Unterminated string"_s},
        {u"processName == \"\\u12\""_s, 16, u"four hexadecimal digits"_s},
        {u"PID > \"5\""_s, 4, u"Cannot order a string against a number"_s},
        {u"\"a\" <= 5"_s, 4, u"Cannot order"_s},
        {u"PID CONTAINS \"1\""_s, 4, u"CONTAINS needs strings"_s},
        {u"processName LIKE 5"_s, 12, u"LIKE needs strings"_s},
        {u"PID IN \"123\""_s, 4, u"IN needs a list"_s},
        {u"processName BETWEEN {1}"_s, 20, u"BETWEEN needs a list of two"_s},
        {u"processName BETWEEN \"a\""_s, 20, u"BETWEEN needs a list of two"_s},
        {u"processName BETWEEN {1, 2}"_s, 12, u"Cannot order"_s},
        {u"{1, 2} == PID"_s, 0, u"A list may only stand right"_s},
        {u"processName == {\"a\"}"_s, 15, u"A list may only stand right"_s},
        {u"PID IN {1, PID}"_s, 11, u"Expected a key name or a value"_s},
        {u"PID IN {1 2}"_s, 10, u"Expected “,” or “}”"_s},
        {u"processName MATCHES \"(\""_s, 20, u"Invalid regular expression"_s},
        {u"processName ==[x] \"a\""_s, 14, u"[c], [d] or [cd]"_s},
        {u"processName ==[cc] \"a\""_s, 14, u"[c], [d] or [cd]"_s},
        {u"processName == \"a\" AND"_s, 22, u"Expected"_s},
        {u"(processName == \"a\""_s, 19, u"Expected “)”"_s},
        {u"processName == \"a\")"_s, 18, u"Expected AND, OR or the end"_s},
        {u"processName == \"a\" processName"_s, 19, u"Expected AND, OR"_s},
        {u"processName"_s, 11, u"Expected a comparison operator"_s},
        {u"processName.length == 1"_s, 11, u"Unexpected character “.”"_s},
        {u"$name == 1"_s, 0, u"Variables are not supported"_s},
        {u"PID == 12abc"_s, 7, u"Malformed number"_s},
        {u"PID == 0x"_s, 7, u"Malformed number"_s},
        {u"PID == 0b102"_s, 7, u"Malformed number"_s},
        {u"PID == -0o8"_s, 7, u"Malformed number"_s},
        {u"PID == 0x8000000000000000"_s, 7, u"Number out of range"_s},
        {u"processName == \"a\" & PID == 1"_s, 19, u"Unexpected character “&”"_s},
        {u"AND PID == 1"_s, 0, u"Expected a key name or a value"_s},
    };
    for (const ErrorCase& c : cases) {
        const auto error = parseError(c.expression);
        ASSERT_TRUE(error) << c.expression.toStdString();
        EXPECT_EQ(error->position(), c.position) << c.expression.toStdString();
        EXPECT_TRUE(error->error().contains(c.messagePart))
            << c.expression.toStdString() << " -> " << error->error().toStdString();
    }
}

TEST(Predicate, EveryTruncatedPrefixIsAnErrorNotACrash)
{
    const QStringList expressions = {
        u"((processName BEGINSWITH[cd] \"fi\" && PID BETWEEN {1, 2000}) "
        u"|| NOT (remotePortNumber IN {443, -8.5e1} OR #state MATCHES[c] 'est.*\\''))"_s,
        u"(localAddress LIKE \"192.*\" AND NOT remoteAddress == nil OR TRUEPREDICATE)"_s,
    };
    for (const QString& expression : expressions) {
        ASSERT_FALSE(parseError(expression)) << expression.toStdString();
        for (qsizetype length = 0; length < expression.size(); ++length) {
            const QString prefix = expression.left(length);
            const auto error = parseError(prefix);
            ASSERT_TRUE(error) << prefix.toStdString();
            EXPECT_GE(error->position(), 0) << prefix.toStdString();
            EXPECT_LE(error->position(), prefix.size()) << prefix.toStdString();
        }
    }
}

TEST(Predicate, BoundsLengthAndNesting)
{
    const int limit = PredicateParser::kMaxNestingDepth;
    const auto nested = [](int depth, const QString& open, const QString& close) -> QString {
        return open.repeated(depth) + u"PID == 1"_s + close.repeated(depth);
    };
    EXPECT_EQ(matching(nested(limit, u"("_s, u")"_s)), std::set<QString>{u"1"_s});
    EXPECT_EQ(matching(nested(limit, u"NOT "_s, QString())), std::set<QString>{u"1"_s});
    EXPECT_TRUE(parseError(nested(limit + 1, u"("_s, u")"_s)));
    EXPECT_TRUE(parseError(nested(limit + 1, u"!"_s, QString())));
    // Far past the limit the parser must refuse rather than run out of stack.
    EXPECT_TRUE(parseError(nested(100000, u"("_s, u")"_s)));

    QString longest = u"processName == \"\""_s;
    longest.insert(16, QString(PredicateParser::kMaxExpressionLength - longest.size(), u'x'));
    EXPECT_FALSE(parseError(longest));
    const auto tooLong = parseError(longest + u' ');
    ASSERT_TRUE(tooLong);
    EXPECT_TRUE(tooLong->error().contains(u"longer"_s));
}

TEST(Predicate, ReportsAPatternReadFromAnItemThatDoesNotCompile)
{
    LsofItem item;
    item.setProcessName(u"(unclosed"_s);
    const auto parsed = Predicate::parse(u"\"abc\" MATCHES processName"_s);
    ASSERT_TRUE(std::holds_alternative<Predicate>(parsed));
    const Predicate& predicate = std::get<Predicate>(parsed);
    const auto result = predicate.evaluate(item);
    ASSERT_TRUE(std::holds_alternative<PredicateError>(result));
    EXPECT_TRUE(std::get<PredicateError>(result).error().contains(u"(unclosed"_s));
    EXPECT_FALSE(predicate.matches(item));

    item.setProcessName(u"a.c"_s);
    EXPECT_TRUE(predicate.matches(item));
}

TEST(Predicate, RegularExpressionsStopMatchingOnceTheBudgetIsSpent)
{
    LsofItem item;
    item.setProcessName(u"firefox"_s);
    const auto parsed = Predicate::parse(u"processName MATCHES \"fire.*\" OR PID == 0"_s);
    const Predicate& predicate = std::get<Predicate>(parsed);
    MatchBudget spent(std::chrono::milliseconds(0));
    // The regular expression is skipped, the rest of the predicate still counts.
    EXPECT_EQ(std::get<bool>(predicate.evaluate(item, &spent)), true);
    EXPECT_TRUE(spent.exhausted());
    item.setProcessId(u"5"_s);
    EXPECT_EQ(std::get<bool>(predicate.evaluate(item, &spent)), false);
    EXPECT_TRUE(predicate.matches(item));
}

TEST(Predicate, TokenSoupNeverCrashes)
{
    // Random sequences of the language's own pieces reach far more parser and evaluator
    // states than hand-written cases; each must end in a value or an error, never a crash.
    const QStringList pieces =
        uR"(( ) { } , == != < >= =< AND || NOT ! IN BETWEEN LIKE MATCHES CONTAINS BEGINSWITH [cd] [c]
            PID processName remotePortNumber #state "a*" '(x' ".*" 42 -1.5 nil YES TRUEPREDICATE
            "\u00e9")"_s.simplified()
            .split(u' ');
    const LsofItemList items = fixtureItems();
    quint32 seed = 12345;
    const auto next = [&seed] {
        seed = seed * 1664525u + 1013904223u;
        return seed >> 8;
    };
    int parsed = 0;
    for (int round = 0; round < 20000; ++round) {
        QString text;
        const int length = 1 + int(next() % 9);
        for (int i = 0; i < length; ++i)
            text += pieces[qsizetype(next() % quint32(pieces.size()))] + u' ';
        const auto result = Predicate::parse(text);
        if (const auto* error = std::get_if<PredicateError>(&result)) {
            ASSERT_GE(error->position(), 0) << text.toStdString();
            ASSERT_LE(error->position(), text.size()) << text.toStdString();
            continue;
        }
        ++parsed;
        for (const auto& item : items)
            std::get<Predicate>(result).evaluate(*item);
    }
    EXPECT_GT(parsed, 100); // the soup must also reach evaluation
}

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
