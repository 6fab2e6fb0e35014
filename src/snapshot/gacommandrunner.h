#pragma once

#include <QObject>
#include <QProcess>
#include <QString>
#include <QStringList>

#include <chrono>
#include <functional>
#include <memory>
#include <optional>

// Runs external programs and collects their text output: synchronously for lsof, or
// asynchronously with output streamed to a store (and optionally to a view) and a callback at
// the end.
class GACommandRunner final : public QObject {
    Q_OBJECT
public:
    // How a synchronous run starts its program.
    enum class Road {
        // The program (a user script) runs directly; output is collected for one second only.
        Script,
        // One shell command line "program args…" through /bin/sh, with no quoting.
        Shell,
    };

    // What a synchronous run gave, with the reason when it gave nothing usable.
    struct SyncResult {
        // The child's standard output, UTF-8; null when it was not UTF-8 or the run failed. Kept
        // as bytes: lsof's output is parsed as it came, not first copied into UTF-16.
        QByteArray output;
        int exitCode = -1;
        bool timedOut = false;
        bool started = false;
        QString problem; // empty, or one sentence saying what went wrong
    };

    static constexpr std::chrono::milliseconds kScriptBound{1000};
    static constexpr std::chrono::milliseconds kShellBound{10000};
    static constexpr int kChildOpenFileLimit = 1024;

    explicit GACommandRunner(QObject* parent = nullptr);
    ~GACommandRunner() override;
    Q_DISABLE_COPY_MOVE(GACommandRunner)

    // The child's standard output as UTF-8 text, or null. The directory and the input text are
    // accepted but not used by either road; callers pass null. The road is the script road when
    // running sandboxed, the shell road otherwise.
    static QString runCommandSync(const QString& path, const QString& currentDirectory,
                                  const QStringList& arguments, const QString& inputText);
    static SyncResult runCommandSync(const QString& path, const QStringList& arguments, Road road,
                                     std::chrono::milliseconds bound);

    // The lsof this system has: the first executable of /usr/sbin/lsof and /usr/bin/lsof.
    static QString lsofPath();
    // The five arguments every snapshot uses.
    static QStringList lsofArguments();

    void runCommand(const QString& commandPath, const QString& currentDirectory,
                    const QStringList& arguments, const QString& inputText,
                    std::function<void(const QString&)> outputSink,
                    std::function<void(QProcess&)> terminationHandler);
    void run();
    void terminateTask();
    bool isTaskRunning() const;
    qint64 processId() const;
    // Blocks until the child has exited; the argument is ignored.
    void waitTaskUntilDone(QObject* sender = nullptr);
    void appendDataOfString(const QByteArray& bytes);

    QString outputStorage() const { return m_outputStorage; }
    QString commandPath() const { return m_commandPath; }
    void setCommandPath(const QString& value) { m_commandPath = value; }
    QString workDirectory() const { return m_workDirectory; }
    void setWorkDirectory(const QString& value) { m_workDirectory = value; }
    QStringList arguments() const { return m_arguments; }
    void setArguments(const QStringList& value) { m_arguments = value; }
    std::optional<QProcessEnvironment> environment() const { return m_environment; }
    void setEnvironment(const std::optional<QProcessEnvironment>& value) { m_environment = value; }
    QString inputText() const { return m_inputText; }
    void setInputText(const QString& value) { m_inputText = value; }
    void setOutputSink(std::function<void(const QString&)> sink) { m_outputSink = std::move(sink); }
    void setTerminationHandler(std::function<void(QProcess&)> handler)
    {
        m_terminationHandler = std::move(handler);
    }

private:
    std::unique_ptr<QProcess> m_task;
    QString m_outputStorage;
    QString m_commandPath;
    QString m_workDirectory;
    QStringList m_arguments;
    std::optional<QProcessEnvironment> m_environment;
    QString m_inputText;
    std::function<void(const QString&)> m_outputSink;
    std::function<void(QProcess&)> m_terminationHandler;
};
