#pragma once

#include <QProcess>
#include <QProcessEnvironment>
#include <QString>
#include <QStringList>

// What a run of the built program printed and answered.
struct ProgramRun {
    int exitCode = -1;
    QByteArray output;
    QString err;
    QString out() const { return QString::fromUtf8(output); }
};

// Runs the built program as a user would in a terminal, with a home of its own: settings in
// `home`/config, logs and saved searches in `home`/data. `environment` adds or replaces
// variables.
inline ProgramRun runCorvina(const QString& home, const QStringList& arguments,
                             const QByteArray& input = {},
                             const QProcessEnvironment& environment = {})
{
    QProcessEnvironment all = QProcessEnvironment::systemEnvironment();
    all.insert(QStringLiteral("HOME"), home);
    all.insert(QStringLiteral("XDG_CONFIG_HOME"), home + QStringLiteral("/config"));
    all.insert(QStringLiteral("XDG_DATA_HOME"), home + QStringLiteral("/data"));
    all.insert(QStringLiteral("QT_QPA_PLATFORM"), QStringLiteral("offscreen"));
    all.insert(environment);
    QProcess process;
    process.setProcessEnvironment(all);
    process.start(QStringLiteral(CORVINA_BINARY_DIR "/src/corvina"), arguments);
    process.write(input);
    process.closeWriteChannel();
    if (!process.waitForFinished(30000))
        return {};
    return {process.exitCode(), process.readAllStandardOutput(),
            QString::fromUtf8(process.readAllStandardError())};
}
