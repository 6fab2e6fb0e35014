#include "persistencetestsupport.h"

#include <sqlite3.h>

const SQLiteRecordClass& TestNote::recordClass()
{
    static const SQLiteRecordClass cls(u"TestNote"_s, nullptr,
                                       {
                                           {u"title"_s, u"@\"NSString\""_s},
                                           {u"count"_s, u"i"_s},
                                           {u"ratio"_s, u"d"_s},
                                           {u"flag"_s, u"c"_s},
                                           {u"enabled"_s, u"B"_s},
                                           {u"amount"_s, u"@\"NSNumber\""_s},
                                           {u"created"_s, u"@\"NSDate\""_s},
                                           {u"payload"_s, u"@\"NSData\""_s},
                                           {u"words"_s, u"@\"QStringList\""_s},
                                           {u"tags"_s, u"@\"NSArray\""_s},
                                           {u"attributes"_s, u"@\"NSDictionary\""_s},
                                           {u"labels"_s, u"@\"NSSet\""_s},
                                           {u"partner"_s, u"@\"TestNote\""_s},
                                           {u"mainTag"_s, u"@\"TestTag\""_s},
                                           {u"link"_s, u"@\"NSString\""_s},
                                           {u"size"_s, u"{CGSize=dd}"_s},
                                           {u"scratch"_s, u"@\"NSString\""_s},
                                           {u"computed"_s, u"@\"NSString\""_s, true},
                                       },
                                       [] { return TestNote::create(); }, {u"scratch"_s},
                                       {{u"title"_s, u"count"_s}});
    return cls;
}

const SQLiteRecordClass& TestTag::recordClass()
{
    static const SQLiteRecordClass cls(u"TestTag"_s, nullptr,
                                       {{u"name"_s, u"@\"NSString\""_s}, {u"weight"_s, u"q"_s}},
                                       [] { return TestTag::create(); });
    return cls;
}

void PersistenceTest::SetUp()
{
    ASSERT_TRUE(m_dir.isValid());
    // Both classes must be known before a stored reference names one of them.
    TestNote::recordClass();
    TestTag::recordClass();
    m_manager = std::make_unique<SQLiteInstanceManager>(u"test.sqlite3"_s, path());
    SQLitePersistentObject::setManager(m_manager.get());
    SystemLog::setEcho([this](const QString& message) { m_log.append(message); });
}

void PersistenceTest::TearDown()
{
    SystemLog::setEcho({});
    SQLitePersistentObject::setManager(nullptr);
}

QList<QStringList> PersistenceTest::rows(const QString& sql) const
{
    QList<QStringList> result;
    sqlite3* db = nullptr;
    if (sqlite3_open(path().toUtf8().constData(), &db) != SQLITE_OK) {
        sqlite3_close(db);
        ADD_FAILURE() << "cannot open " << path().toStdString();
        return result;
    }
    sqlite3_stmt* statement = nullptr;
    if (sqlite3_prepare_v2(db, sql.toUtf8().constData(), -1, &statement, nullptr) != SQLITE_OK)
        ADD_FAILURE() << sql.toStdString() << ": " << sqlite3_errmsg(db);
    while (statement && sqlite3_step(statement) == SQLITE_ROW) {
        QStringList row;
        for (int i = 0; i < sqlite3_column_count(statement); ++i) {
            const auto* text = sqlite3_column_text(statement, i);
            row.append(text ? QString::fromUtf8(reinterpret_cast<const char*>(text)) : u"NULL"_s);
        }
        result.append(row);
    }
    sqlite3_finalize(statement);
    sqlite3_close(db);
    return result;
}

void PersistenceTest::exec(const QString& sql) const
{
    sqlite3* db = nullptr;
    sqlite3_open(path().toUtf8().constData(), &db);
    char* error = nullptr;
    if (sqlite3_exec(db, sql.toUtf8().constData(), nullptr, nullptr, &error) != SQLITE_OK)
        ADD_FAILURE() << sql.toStdString() << ": " << (error ? error : "");
    sqlite3_free(error);
    sqlite3_close(db);
}
