#include "changes/chcsvwriter.h"

#include "platform/systemlog.h"

#include <QDateTime>
#include <QFile>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <stdexcept>

#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

QByteArray readAll(const QString& path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray("<unreadable>");
}

std::string thrownBy(const std::function<void()>& action)
{
    try {
        action();
    } catch (const std::invalid_argument& error) {
        return error.what();
    }
    return "<nothing thrown>";
}

TEST(CHCSVWriter, QuotesFieldsThatNeedIt)
{
    const QList<std::pair<QString, QString>> cases = {
        {u"plain"_s, u"plain"_s},
        {u""_s, u""_s},
        {u"  padded  "_s, u"  padded  "_s},
        {u"b,c"_s, u"\"b,c\""_s},
        {u"say \"hi\""_s, u"\"say \"\"hi\"\"\""_s},
        {u"C:\\dir"_s, u"\"C:\\\\dir\""_s},
        {u"\"\\"_s, u"\"\"\"\\\\\""_s},
        {u"#tag"_s, u"\"#tag\""_s},
        {u"a#b"_s, u"a#b"_s},
        {u"two\nlines"_s, u"\"two\nlines\""_s},
        {u"cr\r"_s, u"\"cr\r\""_s},
        {u"sep\u2028"_s, u"\"sep\u2028\""_s},
        {u"semi;colon"_s, u"semi;colon"_s},
    };
    for (const auto& [field, written] : cases) {
        auto writer = CHCSVWriter::forWritingToString();
        writer.writeField(field);
        EXPECT_EQ(writer.stringValue(), written) << field.toStdString();
    }
}

TEST(CHCSVWriter, WritesLinesOfFieldsAndCommentsAsGiven)
{
    auto writer = CHCSVWriter::forWritingToString();
    EXPECT_TRUE(writer.stringValue().isNull());
    writer.writeCommentLine(u"first"_s);
    writer.writeLineOfFields({u"a"_s, u"b,c"_s, u"\"x\" \"y\""_s});
    writer.writeFields({42, 1.5, QVariant(), u"never"_s});
    writer.writeLine();
    writer.writeLineOfFields({QVariant(), u"never"_s});
    writer.writeLineWithFields(QVariantList());
    writer.writeFieldsWithArray(QStringList{u"p"_s, QString(), u"q"_s});
    writer.writeField(QDateTime(QDate(2026, 1, 2), QTime(3, 4, 5), Qt::UTC));
    // A comment ends the current line and is written as it is.
    writer.writeCommentLine(u"note, \"raw\" \\"_s);
    writer.writeField(u"b"_s);
    writer.writeField(u"c"_s);
    EXPECT_EQ(writer.stringValue(), u"#first\n"
                                    "a,\"b,c\",\"\"\"x\"\" \"\"y\"\"\"\n"
                                    "42,1.5\n"
                                    "\n"
                                    "p,,q,2026-01-02T03:04:05.000Z\n"
                                    "#note, \"raw\" \\\n"
                                    "b,c"_s);

    // Written but empty text is not null.
    auto empty = CHCSVWriter::forWritingToString();
    empty.writeField(QString());
    EXPECT_FALSE(empty.stringValue().isNull());
    EXPECT_TRUE(empty.stringValue().isEmpty());

    // Another delimiter changes what is quoted.
    auto semicolons = CHCSVWriter::forWritingToString();
    semicolons.setDelimiter(u";"_s);
    semicolons.writeLineOfFields({u"1,5"_s, u"a;b"_s, u"c"_s});
    EXPECT_EQ(semicolons.stringValue(), u"1,5;\"a;b\";c\n"_s);
}

TEST(CHCSVWriter, RefusesDelimitersThatWouldBreakTheFormat)
{
    for (const QString& bad : {u"\""_s, u"#"_s, u"\\"_s, u"\n"_s, u"\r"_s, u"\u2029"_s, u";;"_s,
                               u""_s, u"\U0001F600"_s}) {
        auto writer = CHCSVWriter::forWritingToString();
        EXPECT_EQ(thrownBy([&] { writer.setDelimiter(bad); }),
                  QString(bad + u" cannot be used as a delimiter"_s).toStdString());
        EXPECT_EQ(writer.delimiter(), u","_s);
    }

    auto writer = CHCSVWriter::forWritingToString();
    writer.writeCommentLine(u"comments do not start the data"_s);
    writer.setDelimiter(u"\t"_s);
    writer.writeField(u"x"_s);
    EXPECT_EQ(thrownBy([&] { writer.setDelimiter(u";"_s); }),
              "You cannot set a delimiter after writing has started");
    EXPECT_EQ(thrownBy([&] { writer.setDelimiter(u"\t"_s); }),
              "You cannot set a delimiter after writing has started");
}

class CHCSVWriterFileTest : public ::testing::Test {
protected:
    void SetUp() override { ASSERT_TRUE(m_dir.isValid()); }
    QString path(const QString& name) const { return m_dir.filePath(name); }

    QTemporaryDir m_dir;
};

TEST_F(CHCSVWriterFileTest, ANewFileGetsTheHeaderAnExistingOneIsAppendedTo)
{
    const QString log = path(u"log.csv"_s);
    const QStringList header{u"Time"_s, u"Action"_s};
    {
        CHCSVWriter writer(log, header, false);
        writer.writeLineWithFields(QStringList{u"1"_s, u"New"_s});
        writer.flush();
        EXPECT_TRUE(writer.ok());
        EXPECT_TRUE(writer.stringValue().isNull());
    }
    {
        CHCSVWriter writer(log, header, false);
        writer.writeLineWithFields(QStringList{u"2"_s, u"State Changed"_s});
    }
    EXPECT_EQ(readAll(log), "Time,Action\n1,New\n2,State Changed\n");

    const QString bare = path(u"bare.csv"_s);
    {
        CHCSVWriter writer(bare, std::nullopt, false);
        writer.setDelimiter(u"|"_s); // an empty first line starts nothing
        writer.writeLineWithFields(QStringList{u"a|b"_s, u"\u00e9"_s});
    }
    EXPECT_EQ(readAll(bare), "\n\"a|b\"|\xc3\xa9\n");

    {
        CHCSVWriter appending(log, header, false);
        EXPECT_NO_THROW(appending.setDelimiter(u";"_s)) << "nothing written yet";
    }
    CHCSVWriter fresh(path(u"fresh.csv"_s), header, false);
    EXPECT_THROW(fresh.setDelimiter(u";"_s), std::invalid_argument) << "the header started it";
}

TEST_F(CHCSVWriterFileTest, AtomicModeReplacesTheDestinationOnClose)
{
    const QString destination = path(u"export.csv"_s);
    QFile old(destination);
    ASSERT_TRUE(old.open(QIODevice::WriteOnly));
    old.write("old contents\n");
    old.close();

    CHCSVWriter writer(destination, QStringList{u"h"_s}, true);
    writer.writeLineWithFields(QStringList{u"new"_s});
    EXPECT_EQ(readAll(destination), "old contents\n");

    writer.closeFile();
    writer.closeFile();
    EXPECT_TRUE(writer.error().isNull()) << writer.error().toStdString();
    EXPECT_EQ(readAll(destination), "h\nnew\n");
    EXPECT_FALSE(QFile::exists(writer.handleFile()));

    CHCSVWriter lost(path(u"no/such/folder/out.csv"_s), QStringList{u"h"_s}, true);
    lost.closeFile();
    EXPECT_FALSE(lost.error().isEmpty());
}

TEST_F(CHCSVWriterFileTest, AFullDiskIsReportedOnceAndWritingGoesOn)
{
    if (!QFile::exists(u"/dev/full"_s))
        GTEST_SKIP() << "no /dev/full";
    QStringList logged;
    SystemLog::setEcho([&](const QString& line) { logged << line; });
    {
        CHCSVWriter writer(u"/dev/full"_s, QStringList{u"h"_s}, false);
        EXPECT_TRUE(writer.ok());
        for (int i = 0; i < 5; ++i)
            writer.writeLineOfFields({i, u"row"_s});
        writer.flush();
        EXPECT_FALSE(writer.ok());
        EXPECT_TRUE(writer.lastWriteError().contains(u"/dev/full"_s));
    }
    SystemLog::setEcho({});
    EXPECT_EQ(logged.size(), 1) << logged.join(u'\n').toStdString();

    CHCSVWriter unopenable(path(u"missing/folder/log.csv"_s), QStringList{u"h"_s}, false);
    EXPECT_FALSE(unopenable.ok());
}

// A size limit makes writes fail part-way through a line; the rows before stay intact, and
// once writing works again the cut line is ended so the next row stands on its own.
TEST_F(CHCSVWriterFileTest, AFileSizeLimitCutsOneRowAndLosesNoEarlierOne)
{
    const QString log = path(u"limited.csv"_s);
    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        int failures = 0;
        const auto check = [&](bool ok) { failures += ok ? 0 : 1; };
        rlimit limit{};
        getrlimit(RLIMIT_FSIZE, &limit);
        const rlimit original = limit;
        limit.rlim_cur = 40;
        setrlimit(RLIMIT_FSIZE, &limit);
        {
            CHCSVWriter writer(log, QStringList{u"n"_s, u"text"_s}, false);
            for (int i = 1; i <= 4; ++i)
                writer.writeLineOfFields({i, u"abcdefghij"_s});
            check(!writer.ok());
            check(writer.lastWriteError().contains(u"too large"_s, Qt::CaseInsensitive));
            setrlimit(RLIMIT_FSIZE, &original);
            writer.writeLineOfFields({5, u"after"_s});
            check(writer.ok());
        }
        _exit(failures);
    }
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    ASSERT_TRUE(WIFEXITED(status)) << "the writer was killed by signal " << WTERMSIG(status);
    EXPECT_EQ(WEXITSTATUS(status), 0);
    EXPECT_EQ(readAll(log), "n,text\n1,abcdefghij\n2,abcdefghij\n3,abcde\n5,after\n");
}

} // namespace
