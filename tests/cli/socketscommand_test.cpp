#include "cli/socketscommand.h"
#include "collector/collectorfakes.h"
#include "collector/nativecollector.h"
#include "helper/loopbackconnection.h"
#include "snapshot/lsofitem.h"
#include "support/program.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QTemporaryDir>

#include <gtest/gtest.h>

namespace {

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

    const ProgramRun sockets = runCorvina(home.path(), {u"sockets"_s});
    ASSERT_EQ(sockets.exitCode, 0) << sockets.err.toStdString();
    EXPECT_TRUE(sockets.output.startsWith("COMMAND "));
    const QStringList json = {u"--format"_s, u"json"_s, u"--no-resolve"_s};
    const ProgramRun listed = runCorvina(
        home.path(), QStringList{u"list"_s, u"--input"_s, u"-"_s} + json, sockets.output);
    ASSERT_EQ(listed.exitCode, 0) << listed.err.toStdString();
    const QMap<QString, QJsonObject> rows = ownRows(listed.output);
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
    file.write(sockets.output);
    file.close();
    const ProgramRun replayed = runCorvina(home.path(), QStringList{u"replay"_s, u"--no-log"_s} +
                                                            json + QStringList{saved});
    ASSERT_EQ(replayed.exitCode, 0) << replayed.err.toStdString();
    EXPECT_EQ(ownRows(replayed.output).keys(), rows.keys());

    const ProgramRun plain = runCorvina(home.path(), {u"sockets"_s, u"--plain"_s});
    ASSERT_EQ(plain.exitCode, 0);
    EXPECT_FALSE(plain.output.contains("#corvina"));
    EXPECT_TRUE(sockets.output.contains("#corvina socket "));
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
    const ProgramRun help = runCorvina(home.path(), {u"sockets"_s, u"--help"_s});
    EXPECT_EQ(help.exitCode, 0);
    EXPECT_TRUE(help.output.startsWith("usage: corvina sockets [--plain]"));
    EXPECT_EQ(runCorvina(home.path(), {u"sockets"_s, u"--all"_s}).exitCode, 2);
}
