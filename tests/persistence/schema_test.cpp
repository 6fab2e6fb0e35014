#include "persistencetestsupport.h"

#include "persistence/sqliteerror.h"

namespace {

TEST(RecordNaming, NamesConvertBothWaysWithTheirQuirks)
{
    const struct {
        const char16_t* className;
        const char16_t* table;
    } tables[] = {
        {u"CVFilterProfileInfo", u"c_v_filter_profile_info"},
        {u"Item2", u"item_2"},
        {u"Note", u"note"},
        {u"my_Class", u"my___class"},
    };
    for (const auto& t : tables) {
        const SQLiteRecordClass cls(QString::fromUtf16(t.className), nullptr, {}, {});
        EXPECT_EQ(SQLitePersistentObject::tableName(cls), QString::fromUtf16(t.table));
    }
    EXPECT_EQ(SQLitePersistentObject::classNameForTableName(u"c_v_filter_profile_info"_s),
              u"CVFilterProfileInfo"_s);
    EXPECT_EQ(SQLitePersistentObject::classNameForTableName(u"note"_s), u"Note"_s);

    const struct {
        const char16_t* property;
        const char16_t* column;
    } columns[] = {
        {u"profileName", u"profile_name"}, {u"count", u"count"},
        {u"URLString", u"u_r_l_string"},   {u"item2", u"item2"},
        {u"already_low", u"already_low"},  {u"Title", u"title"},
    };
    for (const auto& c : columns)
        EXPECT_EQ(SQLitePersistentObject::stringAsSQLColumnName(QString::fromUtf16(c.property)),
                  QString::fromUtf16(c.column));

    EXPECT_EQ(SQLitePersistentObject::stringAsPropertyString(u"search_expression"_s),
              u"searchExpression"_s);
    EXPECT_EQ(SQLitePersistentObject::stringAsPropertyString(u"count"_s), u"count"_s);
    EXPECT_EQ(SQLitePersistentObject::stringAsPropertyString(u"u_r_l_string"_s), u"uRLString"_s);
}

TEST(RecordRegistry, InheritsAndSkipsReadOnlyProperties)
{
    const SQLiteRecordClass base(u"SchemaBase"_s, nullptr,
                                 {{u"a"_s, u"i"_s}, {u"hidden"_s, u"i"_s, true}}, {});
    const SQLiteRecordClass derived(u"SchemaDerived"_s, &base, {{u"b"_s, u"@\"NSString\""_s}}, {});
    const QMap<QString, QString> expected = {{u"a"_s, u"i"_s}, {u"b"_s, u"@\"NSString\""_s}};
    EXPECT_EQ(derived.propertiesWithEncodedTypes(), expected);
    EXPECT_TRUE(derived.isSubclassOf(base));
    EXPECT_FALSE(base.isSubclassOf(derived));
}

class SchemaTest : public PersistenceTest {};

TEST_F(SchemaTest, FreshDatabaseGetsTablesColumnsIndexAndSequenceRow)
{
    SQLitePersistentObject::tableCheck(TestNote::recordClass());

    QMap<QString, QString> columns;
    for (const QStringList& row : rows(u"pragma table_info(test_note)"_s))
        columns.insert(row[1], row[2]);
    const QMap<QString, QString> expected = {
        {u"pk"_s, u"INTEGER"_s},
        {u"title"_s, u"TEXT"_s},
        {u"count"_s, u"INTEGER"_s},
        {u"ratio"_s, u"REAL"_s},
        {u"flag"_s, u"TEXT"_s},
        {u"enabled"_s, u"INTEGER"_s},
        {u"amount"_s, u"REAL"_s},
        {u"created"_s, u"REAL"_s},
        {u"payload"_s, u"TEXT"_s},
        {u"words"_s, u"BLOB"_s},
        {u"partner"_s, u"TEXT"_s},
        {u"main_tag"_s, u"TEXT"_s},
        {u"link"_s, u"TEXT"_s},
        // An unstorable scalar code gets no column at creation, then one of TEXT when the
        // missing columns are added.
        {u"size"_s, u"TEXT"_s},
    };
    EXPECT_EQ(columns, expected) << "no column for transients, read-only properties or collections";

    QStringList tables;
    for (const QStringList& row :
         rows(u"select name from sqlite_master where type = 'table' order by name"_s))
        tables.append(row[0]);
    EXPECT_EQ(tables, (QStringList{u"SQLITESEQUENCE"_s, u"test_note"_s, u"test_note_attributes"_s,
                                   u"test_note_labels"_s, u"test_note_tags"_s}));

    EXPECT_EQ(
        rows(u"select sql from sqlite_master where name = 'test_note_tags'"_s),
        Rows(
            {{u"CREATE TABLE test_note_tags (parent_pk, array_index INTEGER, fk INTEGER, fk_table_name TEXT, object_data TEXT, object_class BLOB, PRIMARY KEY (parent_pk, array_index))"_s}}));
    EXPECT_EQ(
        rows(u"select sql from sqlite_master where name = 'test_note_labels'"_s),
        Rows(
            {{u"CREATE TABLE test_note_labels (parent_pk INTEGER, fk INTEGER, fk_table_name TEXT, object_data BLOB, object_class TEXT)"_s}}));
    EXPECT_EQ(rows(u"select name, seq from SQLITESEQUENCE"_s), Rows({{u"test_note"_s, u"0"_s}}));
    EXPECT_EQ(
        rows(
            u"select sql from sqlite_master where type = 'index' and name = 'test_note_title_count'"_s),
        Rows({{u"CREATE INDEX test_note_title_count on test_note (title, count)"_s}}));
}

TEST_F(SchemaTest, OlderTableGetsMissingColumnsOnlyOnce)
{
    exec(u"CREATE TABLE test_tag (pk INTEGER PRIMARY KEY, name TEXT)"_s);
    exec(u"INSERT INTO test_tag VALUES (7, 'kept')"_s);
    SQLitePersistentObject::tableCheck(TestTag::recordClass());
    EXPECT_EQ(rows(u"select name, type from pragma_table_info('test_tag') where name = 'weight'"_s),
              Rows({{u"weight"_s, u"INTEGER"_s}}));
    EXPECT_EQ(rows(u"select pk, name, weight from test_tag"_s),
              Rows({{u"7"_s, u"kept"_s, u"NULL"_s}}));

    // Checked once per process: a dropped table is not made again until the cache is cleared.
    exec(u"DROP TABLE test_tag"_s);
    SQLitePersistentObject::tableCheck(TestTag::recordClass());
    EXPECT_TRUE(rows(u"select name from sqlite_master where name = 'test_tag'"_s).isEmpty());
    SQLitePersistentObject::clearCache();
    SQLitePersistentObject::tableCheck(TestTag::recordClass());
    EXPECT_EQ(rows(u"select count(*) from pragma_table_info('test_tag')"_s), Rows({{u"3"_s}}));
    EXPECT_EQ(rows(u"select seq from SQLITESEQUENCE where name = 'test_tag'"_s), Rows({{u"0"_s}}));

    // A character property added to an older table is text.
    const SQLiteRecordClass grown(u"Grown"_s, nullptr,
                                  {{u"name"_s, u"@\"NSString\""_s}, {u"isOn"_s, u"c"_s}}, {});
    exec(u"CREATE TABLE grown (pk INTEGER PRIMARY KEY, name TEXT)"_s);
    SQLitePersistentObject::tableCheck(grown);
    EXPECT_EQ(rows(u"select type from pragma_table_info('grown') where name = 'is_on'"_s),
              Rows({{u"TEXT"_s}}));
}

TEST_F(SchemaTest, UnstorableObjectClassRaisesWhenItsColumnIsAdded)
{
    const SQLiteRecordClass broken(
        u"Broken"_s, nullptr, {{u"name"_s, u"@\"NSString\""_s}, {u"window"_s, u"@\"NSWindow\""_s}},
        {});
    try {
        SQLitePersistentObject::tableCheck(broken);
        FAIL() << "the column addition must raise";
    } catch (const SQLiteError& error) {
        EXPECT_EQ(
            error.message(),
            uR"(Failed to execute SQL 'alter table broken add column window (null)' with message 'near "(": syntax error'.)"_s);
    }
    EXPECT_EQ(rows(u"select name from pragma_table_info('broken')"_s),
              (Rows({{u"pk"_s}, {u"name"_s}})));
}

TEST_F(SchemaTest, FailedCreateIsLoggedAndTheCheckGoesOn)
{
    // A class named after an SQL keyword gives a table name that cannot be created.
    const SQLiteRecordClass order(u"Order"_s, nullptr, {{u"total"_s, u"d"_s}}, {});
    EXPECT_THROW(SQLitePersistentObject::tableCheck(order), SQLiteError)
        << "adding the missing column raises";
    ASSERT_FALSE(m_log.isEmpty());
    EXPECT_EQ(m_log.first(), uR"(Error Message: near "order": syntax error)"_s);
    EXPECT_EQ(rows(u"select seq from SQLITESEQUENCE where name = 'order'"_s), Rows({{u"0"_s}}));
}

} // namespace
