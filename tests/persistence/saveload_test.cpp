#include "persistencetestsupport.h"

#include <QDateTime>

namespace {

class SaveLoadTest : public PersistenceTest {
protected:
    static std::shared_ptr<TestNote> note(const QString& title)
    {
        auto record = TestNote::create();
        record->setValue(u"title"_s, title);
        return record;
    }
    static std::shared_ptr<TestNote> loaded(qint64 pk)
    {
        return std::dynamic_pointer_cast<TestNote>(
            SQLitePersistentObject::findByPK(TestNote::recordClass(), pk));
    }
};

TEST_F(SaveLoadTest, KeysComeFromTheSequenceAndAreNeverReused)
{
    auto first = note(u"a"_s);
    EXPECT_EQ(first->pk(), -1);
    EXPECT_TRUE(first->isDirty());
    EXPECT_FALSE(first->existsInDB());
    first->save();
    EXPECT_EQ(first->pk(), 1);
    EXPECT_FALSE(first->isDirty());
    auto second = note(u"b"_s);
    second->save();
    auto third = note(u"c"_s);
    third->save();
    EXPECT_EQ(second->pk(), 2);
    EXPECT_EQ(third->pk(), 3);

    third->deleteObject();
    EXPECT_TRUE(third->existsInDB()) << "a deleted record keeps its key";
    auto fourth = note(u"d"_s);
    fourth->save();
    EXPECT_EQ(fourth->pk(), 4);
    EXPECT_EQ(rows(u"select pk, title from test_note order by pk"_s),
              Rows({{u"1"_s, u"a"_s}, {u"2"_s, u"b"_s}, {u"4"_s, u"d"_s}}));
    EXPECT_EQ(rows(u"select seq from SQLITESEQUENCE where name = 'test_note'"_s), Rows({{u"4"_s}}));
}

TEST_F(SaveLoadTest, OnlyDirtyRecordsAreWritten)
{
    auto record = note(u"first"_s);
    record->save();
    // Changed behind the record's back: a clean save must not overwrite it.
    exec(u"UPDATE test_note SET title = 'outside' WHERE pk = 1"_s);
    record->save();
    EXPECT_EQ(rows(u"select title from test_note"_s), Rows({{u"outside"_s}}));

    auto never = TestNote::create();
    never->makeClean();
    never->save();
    EXPECT_EQ(never->pk(), -1) << "a clean new record allocates no key";

    record->setValue(u"title"_s, u"second"_s);
    record->save();
    EXPECT_EQ(rows(u"select pk, title from test_note"_s), Rows({{u"1"_s, u"second"_s}}));

    // A dirty related record makes its clean owner write again.
    auto tag = TestTag::create();
    record->setValue(u"mainTag"_s, QVariant::fromValue<SQLitePersistentObjectPtr>(tag));
    record->save();
    tag->setValue(u"name"_s, u"renamed"_s);
    exec(u"UPDATE test_note SET title = 'outside' WHERE pk = 1"_s);
    record->save();
    EXPECT_EQ(rows(u"select title, main_tag from test_note"_s),
              Rows({{u"second"_s, u"TestTag-1"_s}}));
    EXPECT_EQ(rows(u"select name from test_tag"_s), Rows({{u"renamed"_s}}));
}

TEST_F(SaveLoadTest, UninitialisedKeyIsLoggedAndBlocksLaterSaves)
{
    auto record = note(u"x"_s);
    record->setPk(0);
    record->save();
    EXPECT_EQ(
        m_log,
        QStringList{
            u"Object of type 'TestNote' seems to be uninitialised, perhaps init does not call super init."_s});
    record->setPk(5);
    record->save();
    EXPECT_TRUE(rows(u"select * from test_note"_s).isEmpty());
}

TEST_F(SaveLoadTest, CrossReferenceRowsAreRewrittenOnEverySave)
{
    auto record = note(u"n"_s);
    record->setValue(u"tags"_s, QVariantList{u"red"_s, u"green"_s, u"blue"_s});
    record->setValue(u"attributes"_s, QVariantMap{{u"size"_s, 3}, {u"colour"_s, u"red"_s}});
    record->setValue(u"labels"_s, QVariantList{u"x"_s});
    record->save();
    EXPECT_EQ(
        rows(
            u"select parent_pk, array_index, object_data, object_class from test_note_tags order by array_index"_s),
        Rows({{u"1"_s, u"0"_s, u"red"_s, u"NSString"_s},
              {u"1"_s, u"1"_s, u"green"_s, u"NSString"_s},
              {u"1"_s, u"2"_s, u"blue"_s, u"NSString"_s}}));
    EXPECT_EQ(
        rows(
            u"select dictionary_key, object_data, object_class from test_note_attributes order by dictionary_key"_s),
        Rows({{u"colour"_s, u"red"_s, u"NSString"_s}, {u"size"_s, u"3"_s, u"NSNumber"_s}}));

    record->setValue(u"tags"_s, QVariantList{u"blue"_s, u"red"_s});
    record->setValue(u"labels"_s, QVariantList{});
    record->save();
    EXPECT_EQ(rows(u"select array_index, object_data from test_note_tags order by array_index"_s),
              Rows({{u"0"_s, u"blue"_s}, {u"1"_s, u"red"_s}}));
    EXPECT_TRUE(rows(u"select * from test_note_labels"_s).isEmpty());

    SQLitePersistentObject::clearCache();
    auto again = loaded(1);
    ASSERT_TRUE(again);
    EXPECT_EQ(again->value(u"tags"_s).toList(), (QVariantList{u"blue"_s, u"red"_s}));
    const QVariantMap attributes = again->value(u"attributes"_s).toMap();
    EXPECT_EQ(attributes.value(u"colour"_s), QVariant(u"red"_s));
    EXPECT_EQ(attributes.value(u"size"_s).toLongLong(), 3);
}

TEST_F(SaveLoadTest, DictionaryKeyWithQuoteIsLoggedAndTheSaveGoesOn)
{
    auto record = note(u"n"_s);
    auto tag = TestTag::create();
    record->setValue(u"attributes"_s,
                     QVariantMap{{u"it's"_s, QVariant::fromValue<SQLitePersistentObjectPtr>(tag)},
                                 {u"plain"_s, u"v"_s}});
    record->save();
    EXPECT_TRUE(m_log.contains(
        uR"(Error inserting child rows in xref table for array: near "s": syntax error)"_s))
        << m_log.join(u'\n').toStdString();
    EXPECT_EQ(rows(u"select dictionary_key from test_note_attributes"_s), Rows({{u"plain"_s}}));
    EXPECT_EQ(rows(u"select title from test_note"_s), Rows({{u"n"_s}}));
}

TEST_F(SaveLoadTest, RecordsThatReferToEachOtherAreSavedOnce)
{
    auto a = note(u"a"_s);
    auto b = note(u"b"_s);
    a->setValue(u"partner"_s, QVariant::fromValue<SQLitePersistentObjectPtr>(b));
    b->setValue(u"partner"_s, QVariant::fromValue<SQLitePersistentObjectPtr>(a));
    a->save();
    EXPECT_EQ(a->pk(), 1);
    EXPECT_EQ(b->pk(), 2);
    // b was written while a, still being saved, had no row; a's own write came after.
    EXPECT_EQ(rows(u"select pk, title, partner from test_note order by pk"_s),
              Rows({{u"1"_s, u"a"_s, u"TestNote-2"_s}, {u"2"_s, u"b"_s, u"TestNote-1"_s}}));
    EXPECT_EQ(rows(u"select seq from SQLITESEQUENCE where name = 'test_note'"_s), Rows({{u"2"_s}}));

    // Loaded from the file, the cycle resolves to one object per row.
    // Records hold their references strongly: break the cycle so both can go.
    a->setValue(u"partner"_s, QVariant());
    b->setValue(u"partner"_s, QVariant());
    a.reset();
    b.reset();
    SQLitePersistentObject::clearCache();
    auto first = loaded(1);
    ASSERT_TRUE(first);
    auto second = first->value(u"partner"_s).value<SQLitePersistentObjectPtr>();
    ASSERT_TRUE(second);
    EXPECT_EQ(second->pk(), 2);
    EXPECT_EQ(second->value(u"partner"_s).value<SQLitePersistentObjectPtr>(), first);
    first->setValue(u"partner"_s, QVariant());
}

TEST_F(SaveLoadTest, OneObjectPerRowWhileItLives)
{
    note(u"kept"_s)->save();
    const SQLiteRecordList before = SQLitePersistentObject::allObjects(TestNote::recordClass());
    ASSERT_EQ(before.size(), 1);
    exec(u"UPDATE test_note SET title = 'changed outside'"_s);
    const SQLiteRecordList after = SQLitePersistentObject::allObjects(TestNote::recordClass());
    ASSERT_EQ(after.size(), 1);
    EXPECT_EQ(after.first(), before.first());
    EXPECT_EQ(after.first()->value(u"title"_s), QVariant(u"kept"_s)) << "not refreshed";

    SQLitePersistentObject::clearCache();
    const auto fresh = loaded(1);
    ASSERT_TRUE(fresh);
    EXPECT_NE(fresh, before.first());
    EXPECT_EQ(fresh->value(u"title"_s), QVariant(u"changed outside"_s));
    EXPECT_FALSE(fresh->isDirty());
    EXPECT_EQ(loaded(1), fresh);
    EXPECT_EQ(loaded(99), nullptr);
}

TEST_F(SaveLoadTest, ValuesSurviveTheRoundTrip)
{
    const QDateTime when(QDate(2024, 2, 29), QTime(13, 45, 7, 123));
    auto record = note(u"values"_s);
    record->setValue(u"count"_s, 42);
    record->setValue(u"ratio"_s, 3.5);
    record->setValue(u"enabled"_s, true);
    record->setValue(u"flag"_s, 1);
    record->setValue(u"amount"_s, 3.25);
    record->setValue(u"created"_s, when);
    record->setValue(u"payload"_s, QByteArray("\x00\x01\xff", 3));
    record->setValue(u"words"_s, QStringList{u"one"_s, u"two"_s});
    record->setValue(u"link"_s, u"https://example.org/?q=1%"_s);
    record->setValue(u"scratch"_s, u"never stored"_s);
    record->save();
    EXPECT_EQ(
        rows(
            u"select count, ratio, enabled, flag, amount, created, typeof(payload) from test_note"_s),
        Rows({{u"42"_s, u"3.5"_s, u"1"_s, u"1"_s, u"3.25"_s, u"2024-02-29 13:45:07.1230"_s,
               u"blob"_s}}));

    SQLitePersistentObject::clearCache();
    const auto back = loaded(1);
    ASSERT_TRUE(back);
    EXPECT_EQ(back->value(u"count"_s).toLongLong(), 42);
    EXPECT_EQ(back->value(u"ratio"_s).toDouble(), 3.5);
    EXPECT_EQ(back->value(u"enabled"_s).toLongLong(), 1);
    EXPECT_EQ(back->value(u"flag"_s).typeId(), QMetaType::Int);
    EXPECT_EQ(back->value(u"amount"_s).typeId(), QMetaType::Double);
    EXPECT_EQ(back->value(u"amount"_s).toDouble(), 3.25);
    EXPECT_EQ(back->value(u"created"_s).toDateTime(), when);
    EXPECT_EQ(back->value(u"payload"_s).toByteArray(), QByteArray("\x00\x01\xff", 3));
    EXPECT_EQ(back->value(u"words"_s).toStringList(), (QStringList{u"one"_s, u"two"_s}));
    EXPECT_EQ(back->value(u"link"_s).toString(), u"https://example.org/?q=1%"_s);
    EXPECT_FALSE(back->value(u"scratch"_s).isValid()) << "transients are not stored";
}

TEST_F(SaveLoadTest, DeletingTakesReferencedRecordsAndCascadesCollections)
{
    auto owner = note(u"owner"_s);
    auto main = TestTag::create();
    auto listed = TestTag::create();
    owner->setValue(u"mainTag"_s, QVariant::fromValue<SQLitePersistentObjectPtr>(main));
    owner->setValue(
        u"tags"_s, QVariantList{QVariant::fromValue<SQLitePersistentObjectPtr>(listed), u"text"_s});
    owner->save();
    EXPECT_EQ(
        rows(u"select array_index, fk, fk_table_name from test_note_tags order by array_index"_s),
        Rows({{u"0"_s, u"2"_s, u"test_tag"_s}, {u"1"_s, u"NULL"_s, u"NULL"_s}}));

    // Without cascade the listed record stays, the referenced one goes all the same.
    owner->deleteObject();
    EXPECT_EQ(rows(u"select pk from test_tag"_s), Rows({{u"2"_s}}));
    EXPECT_TRUE(rows(u"select * from test_note_tags"_s).isEmpty());
    EXPECT_TRUE(rows(u"select * from test_note"_s).isEmpty());

    auto second = note(u"second"_s);
    second->setValue(u"tags"_s,
                     QVariantList{QVariant::fromValue<SQLitePersistentObjectPtr>(listed)});
    second->save();
    second->deleteObjectCascade(true);
    EXPECT_TRUE(rows(u"select * from test_tag"_s).isEmpty());

    auto unsaved = note(u"unsaved"_s);
    unsaved->deleteObject();
    SQLitePersistentObject::deleteObject(TestNote::recordClass(), -1, true);
    EXPECT_TRUE(m_log.isEmpty()) << m_log.join(u'\n').toStdString();
}

TEST_F(SaveLoadTest, ReadsADatabaseWrittenByAnEarlierInstallation)
{
    exec(u"CREATE TABLE test_tag (pk INTEGER PRIMARY KEY, name TEXT, weight INTEGER);"
         "INSERT INTO test_tag VALUES (3, 'old', 9), (8, NULL, 1);"
         "CREATE TABLE SQLITESEQUENCE (name TEXT PRIMARY KEY, seq INTEGER);"
         "INSERT INTO SQLITESEQUENCE VALUES ('test_tag', 8);"_s);
    const SQLiteRecordList tags = SQLitePersistentObject::allObjects(TestTag::recordClass());
    ASSERT_EQ(tags.size(), 2);
    EXPECT_EQ(tags[0]->pk(), 3);
    EXPECT_EQ(tags[0]->value(u"name"_s), QVariant(u"old"_s));
    EXPECT_EQ(tags[0]->value(u"weight"_s).toLongLong(), 9);
    EXPECT_TRUE(tags[1]->value(u"name"_s).isNull());
    auto added = TestTag::create();
    added->save();
    EXPECT_EQ(added->pk(), 9);
}

TEST_F(SaveLoadTest, UnknownColumnStopsTheRowWalk)
{
    exec(u"CREATE TABLE test_tag (pk INTEGER PRIMARY KEY, name TEXT, legacy TEXT, weight INTEGER);"
         "INSERT INTO test_tag VALUES (1, 'n', 'x', 5);"_s);
    const auto tag = SQLitePersistentObject::findByPK(TestTag::recordClass(), 1);
    ASSERT_TRUE(tag);
    EXPECT_EQ(tag->value(u"name"_s), QVariant(u"n"_s));
    EXPECT_EQ(tag->value(u"weight"_s).toLongLong(), 0) << "weight lies after the unknown column";

    // A property whose column name does not convert back is such a column too.
    const SQLiteRecordClass link(
        u"Link"_s, nullptr,
        {{u"URLString"_s, u"@\"NSString\""_s}, {u"title"_s, u"@\"NSString\""_s}},
        [&link] { return std::make_shared<SQLitePersistentObject>(link); });
    exec(u"CREATE TABLE link (pk INTEGER PRIMARY KEY, u_r_l_string TEXT, title TEXT);"
         "INSERT INTO link VALUES (1, 'https://example.org', 'Example');"_s);
    const auto stored = SQLitePersistentObject::findByPK(link, 1);
    ASSERT_TRUE(stored);
    EXPECT_TRUE(stored->value(u"URLString"_s).isNull());
    EXPECT_TRUE(stored->value(u"title"_s).isNull());
}

} // namespace
