#include "persistencetestsupport.h"

#include "persistence/sqliteerror.h"

namespace {

class QueriesTest : public PersistenceTest {
protected:
    void addTag(const QString& name, qint64 weight)
    {
        auto tag = TestTag::create();
        tag->setValue(u"name"_s, name);
        tag->setValue(u"weight"_s, weight);
        tag->save();
    }
    static const SQLiteRecordClass& tags() { return TestTag::recordClass(); }
    static QStringList names(const QVariant& result)
    {
        QStringList list;
        for (const auto& record : result.value<SQLiteRecordList>())
            list.append(record->value(u"name"_s).toString());
        return list;
    }
};

TEST_F(QueriesTest, FindByPropertyMatchesWithLike)
{
    addTag(u"Work"_s, 1);
    addTag(u"work"_s, 2);
    addTag(u"Home"_s, 3);
    addTag(u"50%"_s, 4);
    const auto byName =
        SQLitePersistentObject::performNamedOperation(tags(), u"findByName:"_s, {u"WORK"_s});
    ASSERT_TRUE(byName);
    EXPECT_EQ(names(*byName), (QStringList{u"Work"_s, u"work"_s})) << "like ignores case";
    EXPECT_EQ(
        names(*SQLitePersistentObject::performNamedOperation(tags(), u"findByWeight:"_s, {3})),
        QStringList{u"Home"_s});
    EXPECT_EQ(
        names(*SQLitePersistentObject::performNamedOperation(tags(), u"findByName:"_s, {u"W%"_s})),
        (QStringList{u"Work"_s, u"work"_s}))
        << "a percent sign is a pattern";
    // A quote makes invalid SQL: nothing is found, nothing raised.
    const auto quoted =
        SQLitePersistentObject::performNamedOperation(tags(), u"findByName:"_s, {u"it's"_s});
    ASSERT_TRUE(quoted);
    EXPECT_TRUE(quoted->value<SQLiteRecordList>().isEmpty());

    // Bytes and records are blobs: no search, no result, one log line each.
    auto related = TestTag::create();
    related->save();
    for (const QVariant& blobArgument :
         {QVariant(QByteArray("x")), QVariant::fromValue(SQLitePersistentObjectPtr(related))}) {
        const auto blob =
            SQLitePersistentObject::performNamedOperation(tags(), u"findByName:"_s, {blobArgument});
        ASSERT_TRUE(blob);
        EXPECT_FALSE(blob->isValid());
    }
    EXPECT_EQ(m_log.count(u"*** Can't search on BLOB fields"_s), 2);
}

TEST_F(QueriesTest, NamesThatDoNotResolve)
{
    const char16_t* names[] = {u"findByColour:",
                               u"findByName",
                               u"findBy:",
                               u"medianOfWeight",
                               u"sumOfColour",
                               u"sumOf",
                               u"sumOfWeightWithCriteria:",
                               u"Of",
                               u"save"};
    for (const char16_t* name : names) {
        const QVariantList arguments =
            QString::fromUtf16(name).endsWith(u':') ? QVariantList{u"x"_s} : QVariantList{};
        EXPECT_FALSE(SQLitePersistentObject::performNamedOperation(tags(), QString::fromUtf16(name),
                                                                   arguments))
            << QString::fromUtf16(name).toStdString();
    }
    EXPECT_FALSE(SQLitePersistentObject::performNamedOperation(tags(), u"findByName:"_s, {}))
        << "wrong number of arguments";
}

TEST_F(QueriesTest, AggregatesByName)
{
    SQLitePersistentObject::tableCheck(tags());
    const auto run = [](const QString& name, const QVariantList& arguments = {}) {
        const auto result = SQLitePersistentObject::performNamedOperation(tags(), name, arguments);
        return result ? result->toDouble() : -99.0;
    };
    EXPECT_EQ(run(u"countOfName"_s), 0.0);
    EXPECT_EQ(run(u"averageOfWeight"_s), 0.0) << "NULL of an empty table reads as 0";
    addTag(u"a"_s, 2);
    addTag(u"b"_s, 4);
    addTag(u"c"_s, 9);
    exec(u"INSERT INTO test_tag (pk, name, weight) VALUES (10, NULL, 1)"_s);
    EXPECT_EQ(run(u"countOfName"_s), 3.0) << "NULL names are not counted";
    EXPECT_EQ(run(u"sumOfWeight"_s), 16.0);
    EXPECT_EQ(run(u"avgOfWeight"_s), 4.0);
    EXPECT_EQ(run(u"averageOfWeight"_s), 4.0);
    EXPECT_EQ(run(u"minOfWeight"_s), 1.0);
    EXPECT_EQ(run(u"maxOfWeight"_s), 9.0);
    // With criteria the property keeps its first letter as written.
    EXPECT_EQ(run(u"sumOfweightWithCriteria:"_s, {u"WHERE weight > 3"_s}), 13.0);
    EXPECT_EQ(run(u"sumOfweightWithCriteria:"_s, {u"WHERE nonsense >"_s}), -1.0);
    EXPECT_EQ(SQLitePersistentObject::count(tags()), 4);
    EXPECT_EQ(SQLitePersistentObject::countByCriteria(tags(), u"WHERE weight >= %d"_s, {4}), 2);
    EXPECT_EQ(SQLitePersistentObject::countByCriteria(tags(), u"WHERE oops oops"_s), 0);
    EXPECT_TRUE(m_log.contains(u"Error determining count of rows in table test_tag"_s));
}

TEST_F(QueriesTest, CriteriaAreFormattedAgainWhenHandedOn)
{
    addTag(u"100%d"_s, 1);
    addTag(u"100"_s, 2);
    // Formatted once: "%%" is a literal percent sign, so only the exact name matches.
    const SQLiteRecordList exact =
        SQLitePersistentObject::findByCriteria(tags(), u"WHERE name = '100%%d'"_s);
    ASSERT_EQ(exact.size(), 1);
    EXPECT_EQ(exact.first()->value(u"name"_s), QVariant(u"100%d"_s));
    // Handed on, the finished text is formatted a second time: "%d" now wants an argument.
    const auto first =
        SQLitePersistentObject::findFirstByCriteria(tags(), u"WHERE name = '100%%d'"_s);
    ASSERT_TRUE(first);
    EXPECT_EQ(first->value(u"name"_s), QVariant(u"100"_s));
    EXPECT_EQ(SQLitePersistentObject::findByCriteria(tags(), u"WHERE name = %@ ORDER BY pk"_s,
                                                     {u"'100'"_s})
                  .size(),
              1);
}

TEST_F(QueriesTest, Reports)
{
    addTag(u"b"_s, 1);
    addTag(u"a"_s, 2);
    const QMap<QString, QString> expected = {{u"1"_s, u"b"_s}, {u"2"_s, u"a"_s}};
    EXPECT_EQ(SQLitePersistentObject::sortedFieldValuesWithKeysForProperty(tags(), u"name"_s),
              expected);
    exec(u"INSERT INTO test_tag (pk, weight) VALUES (5, 7)"_s);
    EXPECT_THROW(SQLitePersistentObject::sortedFieldValuesWithKeysForProperty(tags(), u"name"_s),
                 SQLiteError);

    const QList<QVariantList> paired = SQLitePersistentObject::pairedArraysForProperties(
        tags(), {u"name"_s, u"weight"_s}, u"WHERE weight < %d"_s, {10});
    ASSERT_EQ(paired.size(), 3);
    EXPECT_EQ(paired[0], (QVariantList{1, 2, 5}));
    EXPECT_EQ(paired[1], (QVariantList{u"b"_s, u"a"_s, QVariant()}));
    EXPECT_EQ(paired[2], (QVariantList{u"1"_s, u"2"_s, u"7"_s}));
    EXPECT_TRUE(m_log.contains(
        u"query:select pk, name, weight FROM test_tag WHERE weight < 10 ORDER BY PK"_s));

    const QList<QVariantList> selected = SQLitePersistentObject::pairedArraySelect(
        u"select name, pk from test_tag order by pk"_s, 2);
    ASSERT_EQ(selected.size(), 2);
    EXPECT_EQ(selected[0], (QVariantList{u"b"_s, u"a"_s, QVariant()}));
    EXPECT_EQ(m_log.last(), u"errmsg not an error"_s);
}

TEST_F(QueriesTest, RevertRestoresStoredValues)
{
    auto tag = TestTag::create();
    tag->setValue(u"name"_s, u"stored"_s);
    tag->revert();
    EXPECT_EQ(m_log, QStringList{u"Object must exist in database before it can be reverted."_s});
    EXPECT_EQ(tag->value(u"name"_s), QVariant(u"stored"_s));

    tag->save();
    tag->setValue(u"name"_s, u"edited"_s);
    tag->setValue(u"weight"_s, 5);
    tag->revertProperty(u"weight"_s);
    EXPECT_EQ(tag->value(u"weight"_s).toLongLong(), 0);
    EXPECT_EQ(tag->value(u"name"_s), QVariant(u"edited"_s));
    tag->revert();
    EXPECT_EQ(tag->value(u"name"_s), QVariant(u"stored"_s));
    EXPECT_TRUE(tag->isDirty()) << "values were set through the key-value setter";
    EXPECT_EQ(SQLitePersistentObject::findByPK(tags(), tag->pk()), tag)
        << "the record is back in the object map";
}

TEST_F(QueriesTest, DeepComparisonIsLenient)
{
    auto a = TestNote::create();
    auto b = TestNote::create();
    a->setValue(u"title"_s, u"same"_s);
    b->setValue(u"title"_s, u"same"_s);
    a->setValue(u"amount"_s, 1.0);
    b->setValue(u"amount"_s, 1.0005);
    a->setValue(u"link"_s, u"only on one side"_s);
    EXPECT_TRUE(a->areAllPropertiesEqual(*b));
    b->setValue(u"amount"_s, 1.01);
    EXPECT_FALSE(a->areAllPropertiesEqual(*b));
    b->setValue(u"amount"_s, 1.0);
    b->setValue(u"title"_s, u"other"_s);
    EXPECT_FALSE(a->areAllPropertiesEqual(*b));
    EXPECT_FALSE(a->areAllPropertiesEqual(*TestTag::create())) << "another class";

    // Records referring to each other do not recurse for ever.
    b->setValue(u"title"_s, u"same"_s);
    a->setValue(u"partner"_s, QVariant::fromValue<SQLitePersistentObjectPtr>(a));
    b->setValue(u"partner"_s, QVariant::fromValue<SQLitePersistentObjectPtr>(a));
    EXPECT_TRUE(a->areAllPropertiesEqual(*b));
    a->setValue(u"partner"_s, QVariant());
}

TEST_F(QueriesTest, RelatedRecordsByReference)
{
    const SQLiteRecordClass reply(
        u"TestReply"_s, nullptr,
        {{u"testTag"_s, u"@\"TestTag\""_s}, {u"body"_s, u"@\"NSString\""_s}},
        [&reply] { return std::make_shared<SQLitePersistentObject>(reply); });
    auto tag = TestTag::create();
    tag->save();
    for (const QString& body : {u"one"_s, u"two"_s}) {
        auto record = reply.create();
        record->setValue(u"body"_s, body);
        record->setValue(u"testTag"_s, QVariant::fromValue<SQLitePersistentObjectPtr>(tag));
        record->save();
    }
    EXPECT_EQ(tag->findRelated(reply).size(), 2);
    const SQLiteRecordList two = tag->findRelated(reply, u"body = '%@'"_s, {u"two"_s});
    ASSERT_EQ(two.size(), 1);
    EXPECT_EQ(two.first()->value(u"body"_s), QVariant(u"two"_s));
}

} // namespace
