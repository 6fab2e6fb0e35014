#include "persistencetestsupport.h"

#include "persistence/criteriaformat.h"
#include "persistence/multiplesort.h"
#include "persistence/numberstuff.h"
#include "persistence/sqlitepersistence.h"
#include "persistence/uppercasefirst.h"

#include <QDateTime>
#include <QPoint>

#include <stdexcept>

namespace {

TEST(NumberText, IntegerAndFloatingPointTests)
{
    const QLocale english(QLocale::English, QLocale::UnitedStates);
    const struct {
        const char16_t* text;
        bool integer;
        bool floating;
    } cases[] = {
        {u"", false, false},        {u"   ", true, false},   {u"42", true, false},
        {u" 42 ", true, false},     {u"-1", false, false},   {u"+1", false, false},
        {u"12", true, false},       {u"3.5", false, true},   {u"-1.5", false, false},
        {u"1,234.50", false, true}, {u"$1.25", false, true}, {u"1.2.3", false, false},
        {u"$", false, false},       {u".", false, true},     {u"4e5", false, false},
    };
    for (const auto& c : cases) {
        const QString text = QString::fromUtf16(c.text);
        EXPECT_EQ(NumberStuff::holdsIntegerValue(text), c.integer) << text.toStdString();
        EXPECT_EQ(NumberStuff::holdsFloatingPointValueForLocale(text, english), c.floating)
            << text.toStdString();
    }
    const QLocale german(QLocale::German, QLocale::Germany);
    EXPECT_TRUE(NumberStuff::holdsFloatingPointValueForLocale(u"1.234,5"_s, german));
    EXPECT_FALSE(NumberStuff::holdsFloatingPointValueForLocale(u"1234.5"_s, german));
}

TEST(FirstLetter, ChangesOnlyTheFirstCharacter)
{
    EXPECT_EQ(UppercaseFirst::stringByUppercasingFirstLetter(u"profileName"_s), u"ProfileName"_s);
    EXPECT_EQ(UppercaseFirst::stringByLowercasingFirstLetter(u"URLString"_s), u"uRLString"_s);
    EXPECT_EQ(UppercaseFirst::stringByLowercasingFirstLetter(u"x"_s), u"x"_s);
    EXPECT_THROW(UppercaseFirst::stringByLowercasingFirstLetter(QString()), std::out_of_range);
}

TEST(PairedSort, PairedListsFollowTheSortedListAndBadSelectorsRaise)
{
    QVariantList names = {u"Carol"_s, u"alice"_s, u"Bob"_s, u"Dave"_s, u"Alice"_s};
    QVariantList keys = {3, 1, 2, 4, 5};
    MultipleSort::sortArrayUsingSelector(names, u"caseInsensitiveCompare:"_s, {&keys});
    ASSERT_EQ(names.size(), 5);
    EXPECT_EQ(names.mid(2), (QVariantList{u"Bob"_s, u"Carol"_s, u"Dave"_s}));
    for (qsizetype i = 0; i < names.size(); ++i) {
        const QString name = names[i].toString();
        const int key = keys[i].toInt();
        const QMap<QString, int> pairs = {
            {u"Carol"_s, 3}, {u"alice"_s, 1}, {u"Bob"_s, 2}, {u"Dave"_s, 4}, {u"Alice"_s, 5}};
        EXPECT_EQ(pairs.value(name), key) << name.toStdString();
    }

    QVariantList numbers;
    QVariantList order;
    for (int i = 0; i < 50; ++i) {
        numbers.append((i * 37) % 50);
        order.append(i);
    }
    MultipleSort::sortArrayUsingSelector(numbers, u"compare:"_s, {&order});
    for (int i = 0; i < 50; ++i) {
        EXPECT_EQ(numbers[i].toInt(), i);
        EXPECT_EQ((order[i].toInt() * 37) % 50, i);
    }

    QVariantList empty;
    MultipleSort::sortArrayUsingSelector(empty, u"compare:"_s, {});
    EXPECT_TRUE(empty.isEmpty());

    // No selector, and one that does not fit the values, raise.
    QVariantList list = {2, 1};
    try {
        MultipleSort::sortArrayUsingSelector(list, QString(), {});
        FAIL();
    } catch (const std::invalid_argument& error) {
        EXPECT_STREQ(error.what(), "compare null selector given");
    }
    try {
        MultipleSort::sortArrayUsingSelector(list, u"caseInsensitiveCompare:"_s, {});
        FAIL();
    } catch (const std::runtime_error& error) {
        EXPECT_STREQ(error.what(), "invalid selector passed to compare");
    }
}

TEST(ValueConversions, ColumnForms)
{
    using namespace SQLitePersistence;
    EXPECT_EQ(sqlColumnRepresentationOfSelf(42), u"42"_s);
    EXPECT_EQ(sqlColumnRepresentationOfSelf(3.5), u"3.5"_s);
    EXPECT_EQ(sqlColumnRepresentationOfSelf(true), u"1"_s);
    // A whole number comes back as an integer, however large; any other as a double.
    const std::pair<QString, int> numbers[] = {{u"3.0"_s, QMetaType::LongLong},
                                               {u"1099511627776.0"_s, QMetaType::LongLong},
                                               {u"-2.75"_s, QMetaType::Double}};
    for (const auto& [text, type] : numbers) {
        const QVariant number = objectWithSqlColumnRepresentation(u"NSNumber"_s, text);
        EXPECT_EQ(number.typeId(), type) << text.toStdString();
        EXPECT_EQ(number.toDouble(), text.toDouble());
    }

    const QDateTime when(QDate(2023, 12, 31), QTime(23, 59, 59, 7));
    EXPECT_EQ(sqlColumnRepresentationOfSelf(when), u"2023-12-31 23:59:59.0070"_s);
    EXPECT_EQ(objectWithSqlColumnRepresentation(u"NSDate"_s, u"2023-12-31 23:59:59.0070"_s),
              QVariant(when));
    EXPECT_FALSE(
        objectWithSqlColumnRepresentation(u"NSDate"_s, u"2023-12-31 23:59:59"_s).isValid());
    EXPECT_FALSE(objectWithSqlColumnRepresentation(u"NSDate"_s, u"yesterday"_s).isValid());

    const QByteArray archive = sqlBlobRepresentationOfSelf(QPoint(3, -4));
    EXPECT_EQ(objectWithSQLBlobRepresentation(u"QPoint"_s, archive), QVariant(QPoint(3, -4)));
    EXPECT_FALSE(objectWithSQLBlobRepresentation(u"QSize"_s, archive).isValid())
        << "kept under another class name";
    EXPECT_FALSE(objectWithSQLBlobRepresentation(u"QPoint"_s, QByteArray()).isValid());
    EXPECT_FALSE(objectWithSQLBlobRepresentation(u"QPoint"_s, QByteArray("\x01", 1)).isValid());
}

TEST(CriteriaFormatting, PrintfStyleConversions)
{
    const struct {
        const char16_t* format;
        QVariantList arguments;
        const char16_t* result;
    } cases[] = {
        {u"WHERE pk = %ld", {7}, u"WHERE pk = 7"},
        {u"%@-%ld", {u"CVFilterProfileInfo"_s, 3}, u"CVFilterProfileInfo-3"},
        {u"100%%", {}, u"100%"},
        {u"like '50%'", {}, u"like '50%'"},
        {u"a %d b", {}, u"a  b"},
        {u"%.2f|%5d|%s", {1.005, 42, u"x"_s}, u"1.00|   42|x"},
        {u"%@", {QVariant()}, u"(null)"},
    };
    for (const auto& c : cases)
        EXPECT_EQ(CriteriaFormat::format(QString::fromUtf16(c.format), c.arguments),
                  QString::fromUtf16(c.result))
            << QString::fromUtf16(c.format).toStdString();
}

} // namespace
