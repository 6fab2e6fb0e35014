#include "prefs/userdefaults.h"

#include "prefstestsupport.h"

#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <atomic>
#include <thread>

namespace {

const QString kFlag = u"T:Flag"_s;
const QString kCount = u"T:Count"_s;
const QString kText = u"T:Text"_s;
const QString kPaths = u"T:Paths"_s;
const QString kLoose = u"T:Unregistered"_s;

QVariantMap testDefaults()
{
    return {{kFlag, true}, {kCount, qint64(7)}, {kText, u"plain"_s}, {kPaths, QStringList()}};
}

class UserDefaultsTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        ensureCoreApplication();
        ASSERT_TRUE(m_dir.isValid());
    }
    QString path(const QString& name = u"Corvina.conf"_s) const { return m_dir.filePath(name); }

    QTemporaryDir m_dir;
};

TEST_F(UserDefaultsTest, RegisteredDefaultsAnswerOnlyWhileNothingIsStored)
{
    UserDefaults store(path());
    store.registerDefaults(testDefaults());

    EXPECT_TRUE(store.boolForKey(kFlag));
    EXPECT_EQ(store.integerForKey(kCount), 7);
    EXPECT_EQ(store.stringForKey(kText), u"plain"_s);
    EXPECT_FALSE(store.objectForKey(kLoose).isValid());
    EXPECT_FALSE(store.hasStoredValue(kFlag));

    store.setBool(kFlag, false);
    store.setInteger(kCount, -3);
    EXPECT_FALSE(store.boolForKey(kFlag));
    EXPECT_EQ(store.integerForKey(kCount), -3);
    EXPECT_TRUE(store.hasStoredValue(kFlag));

    store.removeObjectForKey(kFlag);
    EXPECT_TRUE(store.boolForKey(kFlag));
    EXPECT_FALSE(store.hasStoredValue(kFlag));

    // Registered defaults are never written to the file.
    UserDefaults reopened(path());
    EXPECT_FALSE(reopened.objectForKey(kFlag).isValid());
    EXPECT_EQ(reopened.integerForKey(kCount), -3);
}

// The INI file keeps text only; what another program wrote must read back in the key's type.
TEST_F(UserDefaultsTest, FileTextReadsBackInTheTypeOfTheRegisteredDefault)
{
    struct Case {
        QByteArray line;
        QString key;
        QVariant expected;
    };
    const QList<Case> cases = {
        {"T%3AFlag=false", kFlag, false},
        {"T%3AFlag=TRUE", kFlag, true},
        {"T%3AFlag=0", kFlag, false},
        {"T%3ACount=42", kCount, qint64(42)},
        {"T%3ACount= -5 ", kCount, qint64(-5)},
        {"T%3AText=11", kText, u"11"_s},
        {"T%3APaths=@Invalid()", kPaths, QStringList()},
        {"T%3APaths=\"/opt/a,b\"", kPaths, QStringList{u"/opt/a,b"_s}},
        {"T%3APaths=/a, /b", kPaths, QStringList{u"/a"_s, u"/b"_s}},
        {"T%3AUnregistered=@Invalid()", kLoose, QVariantList()},
        {"T%3AUnregistered=some text", kLoose, u"some text"_s},
    };
    int index = 0;
    for (const Case& c : cases) {
        const QString file = path(u"case%1.conf"_s.arg(index++));
        writeWholeFile(file, "[General]\n" + c.line + "\n");
        UserDefaults store(file);
        store.registerDefaults(testDefaults());
        EXPECT_EQ(store.objectForKey(c.key), c.expected) << c.line.constData();
    }
}

TEST_F(UserDefaultsTest, ValuesSurviveAReopen)
{
    {
        UserDefaults store(path());
        store.setObject(kPaths, QStringList{u"/one,two"_s});
        store.setObject(kLoose, QStringList());
        store.setString(kText, u"#FF00FF00"_s);
    }
    UserDefaults store(path());
    store.registerDefaults(testDefaults());
    EXPECT_EQ(store.stringArrayForKey(kPaths), QStringList{u"/one,two"_s});
    EXPECT_TRUE(store.hasStoredValue(kLoose));
    EXPECT_TRUE(store.arrayForKey(kLoose).isEmpty());
    EXPECT_EQ(store.stringForKey(kText), u"#FF00FF00"_s);
}

TEST_F(UserDefaultsTest, GarbageGivesTheDefaultAndOneLogLinePerValue)
{
    writeWholeFile(path(), "[General]\nT%3ACount=big\nT%3AFlag=maybe\nT%3AText=a, b\n");
    UserDefaults store(path());
    store.registerDefaults(testDefaults());
    LogCapture log;

    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(store.integerForKey(kCount), 7);
        EXPECT_TRUE(store.boolForKey(kFlag));
        EXPECT_EQ(store.stringForKey(kText), u"plain"_s);
    }
    EXPECT_EQ(log.lines().size(), 3) << log.lines().join(u'\n').toStdString();
    EXPECT_TRUE(log.lines().first().contains(u"T:Count"_s));

    // A key nobody registered cannot fall back; its typed reader answers zero.
    store.setString(kLoose, u"twelve"_s);
    EXPECT_EQ(store.integerForKey(kLoose), 0);
}

// Files that are no settings file at all: reading answers the registered defaults, and a
// value written afterwards is kept, in this run and in the file (which is then a valid one).
TEST_F(UserDefaultsTest, AFileThatIsNoSettingsFileStillTakesNewValues)
{
    const QList<std::pair<const char*, QByteArray>> files = {
        {"binary", QByteArray("\x00\x01\x02\xff\x00[General]\x00T%3AFlag=\x00", 20)},
        {"unclosed section", "[General\nT%3AFlag=false\n"},
        {"not UTF-8", "[General]\nT%3AText=\xff\xfe\xc0\x80\n"},
        {"no keys", "=\n==\n[]\n[\n]\n\\\n"},
        {"one huge line", QByteArray(2 * 1024 * 1024, 'x')},
    };
    for (const auto& [what, bytes] : files) {
        SCOPED_TRACE(what);
        writeWholeFile(path(), bytes);
        LogCapture log;
        {
            UserDefaults store(path());
            store.registerDefaults(testDefaults());
            EXPECT_EQ(store.integerForKey(kCount), 7);
            store.setInteger(kCount, 9);
            EXPECT_EQ(store.integerForKey(kCount), 9);
        }
        UserDefaults reopened(path());
        reopened.registerDefaults(testDefaults());
        EXPECT_EQ(reopened.integerForKey(kCount), 9) << log.lines().join(u'\n').toStdString();
        EXPECT_TRUE(log.lines().isEmpty()) << log.lines().join(u'\n').toStdString();
    }
}

TEST_F(UserDefaultsTest, EveryWriteAndRemovalSignalsAChange)
{
    UserDefaults store(path());
    int changes = 0;
    QObject::connect(&store, &UserDefaults::didChange, [&] { ++changes; });
    store.setBool(kFlag, true);
    store.setInteger(kCount, 3);
    store.setString(kText, u"x"_s);
    store.removeObjectForKey(kText);
    store.removeObjectForKey(u"T:NeverSet"_s);
    EXPECT_EQ(changes, 5);
}

TEST_F(UserDefaultsTest, AnEditByAnotherProcessIsReadAndSignalled)
{
    UserDefaults store(path());
    store.registerDefaults(testDefaults());
    store.setInteger(kCount, 1);
    spinUntil([] { return false; }, 100); // let the watcher see our own write first

    int changes = 0;
    QObject::connect(&store, &UserDefaults::didChange, [&] { ++changes; });

    writeWholeFile(path(), "[General]\nT%3ACount=25\n");
    ASSERT_TRUE(spinUntil([&] { return changes > 0; }));
    EXPECT_EQ(store.integerForKey(kCount), 25);

    // A save that replaces the file (write beside it, rename over it) must stay watched.
    writeWholeFile(path(u"Corvina.conf.new"_s), "[General]\nT%3ACount=26000\nT%3AFlag=false\n");
    ASSERT_TRUE(QFile::remove(path()));
    ASSERT_TRUE(QFile::rename(path(u"Corvina.conf.new"_s), path()));
    ASSERT_TRUE(spinUntil([&] { return store.integerForKey(kCount) == 26000; }));
    EXPECT_FALSE(store.boolForKey(kFlag));
    const int afterReplace = changes;

    writeWholeFile(path(), "[General]\n");
    ASSERT_TRUE(spinUntil([&] { return changes > afterReplace; }));
    EXPECT_EQ(store.integerForKey(kCount), 7);
}

TEST_F(UserDefaultsTest, ReadersOnAnotherThreadSeeWholeValues)
{
    UserDefaults store(path());
    store.registerDefaults(testDefaults());
    const QStringList first{u"/usr/bin/a"_s, u"/usr/bin/b"_s};
    const QStringList second{u"/opt/c"_s};
    store.setObject(kPaths, first);

    std::atomic<bool> stop = false;
    std::atomic<int> torn = 0;
    std::thread reader([&] {
        while (!stop) {
            const QStringList paths = store.stringArrayForKey(kPaths);
            if (paths != first && paths != second)
                ++torn;
        }
    });
    for (int i = 0; i < 200; ++i)
        store.setObject(kPaths, i % 2 ? first : second);
    stop = true;
    reader.join();
    EXPECT_EQ(torn, 0);
}

} // namespace
