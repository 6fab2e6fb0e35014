#include "cli/socketscommand.h"
#include "collector/collectorfakes.h"
#include "collector/nativecollector.h"
#include "helper/loopbackconnection.h"
#include "snapshot/lsofitem.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QTemporaryDir>

#include <gtest/gtest.h>

using namespace Qt::StringLiterals;

namespace {

struct ProgramRun {
    int exitCode = -1;
    QByteArray out;
    QString err;
};

// The built program, with a home of its own.
ProgramRun corvina(const QTemporaryDir& home, const QStringList& arguments,
                   const QByteArray& input = {})
{
    QProcess process;
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(u"HOME"_s, home.path());
    environment.insert(u"XDG_CONFIG_HOME"_s, home.filePath(u"config"_s));
    environment.insert(u"XDG_DATA_HOME"_s, home.filePath(u"data"_s));
    process.setProcessEnvironment(environment);
    process.start(QStringLiteral(CORVINA_BINARY_DIR "/src/corvina"), arguments);
    process.write(input);
    process.closeWriteChannel();
    EXPECT_TRUE(process.waitForFinished(30000));
    return {process.exitCode(), process.readAllStandardOutput(),
            QString::fromUtf8(process.readAllStandardError())};
}

// The JSON rows of this process, by identifier.
QMap<QString, QJsonObject> ownRows(const QByteArray& json)
{
    QMap<QString, QJsonObject> rows;
    for (const QByteArray& line : json.split('\n')) {
        const QJsonObject row = QJsonDocument::fromJson(line).object();
        if (row[u"processId"_s].toString() == QString::number(::getpid()))
            rows.insert(row[u"identifier"_s].toString(), row);
    }
    return rows;
}

} // namespace

TEST(SocketsCommand, ItsTextReadsBackToTheCollectorsRowsThroughListAndReplay)
{
    QTemporaryDir home;
    LoopbackConnection connection;
    ASSERT_TRUE(connection.isOpen());
    QStringList collected;
    NativeCollector collector;
    for (const SocketRecord& record : collector.collect()) {
        if (record.processId == QString::number(::getpid()))
            collected << LsofItem::identifierOf(record);
    }
    ASSERT_EQ(collected.size(), 3) << "the listener and both ends of the connection";

    const ProgramRun sockets = corvina(home, {u"sockets"_s});
    ASSERT_EQ(sockets.exitCode, 0) << sockets.err.toStdString();
    EXPECT_TRUE(sockets.out.startsWith("COMMAND "));
    const QStringList json = {u"--format"_s, u"json"_s, u"--no-resolve"_s};
    const ProgramRun listed =
        corvina(home, QStringList{u"list"_s, u"--input"_s, u"-"_s} + json, sockets.out);
    ASSERT_EQ(listed.exitCode, 0) << listed.err.toStdString();
    const QMap<QString, QJsonObject> rows = ownRows(listed.out);
    QStringList listedIds = rows.keys();
    listedIds.sort();
    collected.sort();
    EXPECT_EQ(listedIds, collected);
    // The "#corvina socket" lines come back as the figures lsof cannot print.
    const SocketIdentity client = LoopbackConnection::identityOf(connection.client);
    int established = 0;
    for (const QJsonObject& row : rows) {
        if (row[u"localPort"_s].toString() != QString::number(client.localPort))
            continue;
        ++established;
        EXPECT_EQ(row[u"state"_s].toString(), u"ESTABLISHED"_s);
        EXPECT_FALSE(row[u"bytesSent"_s].isNull());
    }
    EXPECT_EQ(established, 1);

    const QString saved = home.filePath(u"sockets.txt"_s);
    QFile file(saved);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    file.write(sockets.out);
    file.close();
    const ProgramRun replayed =
        corvina(home, QStringList{u"replay"_s, u"--no-log"_s} + json + QStringList{saved});
    ASSERT_EQ(replayed.exitCode, 0) << replayed.err.toStdString();
    EXPECT_EQ(ownRows(replayed.out).keys(), rows.keys());

    const ProgramRun plain = corvina(home, {u"sockets"_s, u"--plain"_s});
    ASSERT_EQ(plain.exitCode, 0);
    EXPECT_FALSE(plain.out.contains("#corvina"));
    EXPECT_TRUE(sockets.out.contains("#corvina socket "));
}

TEST(SocketsCommand, AKernelThatRefusesEndsWithItsSentence)
{
    auto* diag = new ScriptedDiagSource;
    diag->answer(AF_INET, IPPROTO_TCP).error = EPERM;
    NativeCollector::Sources sources;
    sources.diag.reset(diag);
    NativeCollector collector(std::move(sources));
    QString out;
    QString err;
    QTextStream outStream(&out);
    QTextStream errStream(&err);
    EXPECT_EQ(SocketsCommand::run({}, outStream, errStream, collector), 1);
    EXPECT_TRUE(out.isEmpty());
    EXPECT_TRUE(err.startsWith(u"corvina: "_s)) << err.toStdString();
    EXPECT_TRUE(err.contains(u"permission denied"_s)) << err.toStdString();

    QTemporaryDir home;
    const ProgramRun help = corvina(home, {u"sockets"_s, u"--help"_s});
    EXPECT_EQ(help.exitCode, 0);
    EXPECT_TRUE(help.out.startsWith("usage: corvina sockets [--plain]"));
    EXPECT_EQ(corvina(home, {u"sockets"_s, u"--all"_s}).exitCode, 2);
}
