#pragma once

#include "persistence/sqliteinstancemanager.h"
#include "persistence/sqlitepersistentobject.h"
#include "platform/systemlog.h"

#include <QStringList>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <memory>

using Rows = QList<QStringList>;

// A record class with one property of every kind the layer knows.
class TestNote final : public SQLitePersistentObject {
public:
    explicit TestNote(const SQLiteRecordClass& cls) : SQLitePersistentObject(cls) {}
    static const SQLiteRecordClass& recordClass();
    static std::shared_ptr<TestNote> create() { return std::make_shared<TestNote>(recordClass()); }
};

// A second class, to refer to and to be referred to.
class TestTag final : public SQLitePersistentObject {
public:
    explicit TestTag(const SQLiteRecordClass& cls) : SQLitePersistentObject(cls) {}
    static const SQLiteRecordClass& recordClass();
    static std::shared_ptr<TestTag> create() { return std::make_shared<TestTag>(recordClass()); }
};

// Every test gets its own database file in a fresh folder, a manager for it, and the messages
// the layer logs.
class PersistenceTest : public ::testing::Test {
protected:
    void SetUp() override;
    void TearDown() override;

    // Rows of a query on a connection of its own, each column as text ("NULL" for NULL).
    QList<QStringList> rows(const QString& sql) const;
    // Runs SQL on a connection of its own, as another program would.
    void exec(const QString& sql) const;
    QString path() const { return m_dir.filePath(QStringLiteral("test.sqlite3")); }

    QTemporaryDir m_dir;
    std::unique_ptr<SQLiteInstanceManager> m_manager;
    QStringList m_log;
};
