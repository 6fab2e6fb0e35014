#pragma once

// Stand-ins for the kernel: scripted socket dumps, and a /proc built in a temporary folder.

#include "collector/processtable.h"
#include "collector/socketdiagsource.h"

#include <QByteArray>
#include <QDir>
#include <QFile>
#include <QHash>
#include <QList>
#include <QTemporaryDir>

#include <unistd.h>

#include <memory>

// Answers each dump from a script: messages per (family, protocol), and the errno that ends
// the dump (0: completed). Unscripted dumps complete empty.
class ScriptedDiagSource final : public SocketDiagSource {
public:
    struct Answer {
        QList<QByteArray> messages;
        int error = 0;
    };

    int dump(const DiagQuery& query, const MessageSink& sink) override
    {
        ++dumps;
        const Answer answer = answers.value(key(query.family, query.protocol));
        for (const QByteArray& message : answer.messages)
            sink(message);
        return answer.error;
    }

    Answer& answer(int family, int protocol) { return answers[key(family, protocol)]; }

    // What another source answered, kept to be replayed later.
    void record(SocketDiagSource& source, const QList<DiagQuery>& queries)
    {
        for (const DiagQuery& query : queries) {
            Answer& kept = answer(query.family, query.protocol);
            kept.error = source.dump(query, [&](QByteArrayView message) {
                kept.messages.append(message.toByteArray());
            });
        }
    }

    QHash<int, Answer> answers;
    int dumps = 0;

private:
    static int key(int family, int protocol) { return family << 8 | protocol; }
};

// A /proc of made-up processes: "PID/stat" and "PID/fd/N" links, with a CPU clock the test
// moves by hand.
class FakeProc final {
public:
    FakeProc() : m_clock(std::make_shared<QHash<int, qint64>>()) {}

    QByteArray root() const { return QFile::encodeName(m_dir.path()); }

    ProcessTable::CpuClock clock() const
    {
        return [clock = m_clock](int pid) -> std::optional<qint64> {
            if (!clock->contains(pid))
                return std::nullopt;
            return clock->value(pid);
        };
    }
    // The process's CPU time; a process never given one has an unknown clock.
    void setCpuTime(int pid, qint64 nanoseconds) { (*m_clock)[pid] = nanoseconds; }
    void run(int pid) { (*m_clock)[pid] += 1000; }

    void addProcess(int pid, const QByteArray& command, quint64 startTime = 100)
    {
        QDir(m_dir.path()).mkpath(QStringLiteral("%1/fd").arg(pid));
        setStartTime(pid, command, startTime);
        if (!m_clock->contains(pid))
            setCpuTime(pid, 5000);
    }
    void setStartTime(int pid, const QByteArray& command, quint64 startTime)
    {
        QFile stat(path(pid, "stat"));
        stat.open(QIODevice::WriteOnly | QIODevice::Truncate);
        stat.write(QByteArray::number(pid) + " (" + command + ") S 1 1 1 0 -1 4194560 0 0 0 0 " +
                   "0 0 0 0 20 0 1 0 " + QByteArray::number(startTime) + " 1000 100 0\n");
    }
    void removeProcess(int pid) { QDir(path(pid, "")).removeRecursively(); }
    void removeStat(int pid) { QFile::remove(path(pid, "stat")); }
    void removeFdDirectory(int pid) { QDir(path(pid, "fd")).removeRecursively(); }

    void addSocket(int pid, int fd, quint64 inode)
    {
        link(pid, fd, "socket:[" + QByteArray::number(inode) + ']');
    }
    void addFile(int pid, int fd, const QByteArray& target) { link(pid, fd, target); }
    // A descriptor entry that is no link: what a descriptor closed mid-listing leaves behind.
    void addBroken(int pid, int fd) { QDir(path(pid, "fd")).mkdir(QString::number(fd)); }
    void removeFd(int pid, int fd) { QFile::remove(path(pid, "fd/" + QByteArray::number(fd))); }

private:
    QString path(int pid, const QByteArray& rest) const
    {
        return m_dir.path() + u'/' + QString::number(pid) + u'/' + QString::fromLatin1(rest);
    }
    void link(int pid, int fd, const QByteArray& target)
    {
        removeFd(pid, fd);
        symlink(target.constData(),
                QFile::encodeName(path(pid, "fd/" + QByteArray::number(fd))).constData());
    }

    QTemporaryDir m_dir;
    std::shared_ptr<QHash<int, qint64>> m_clock;
};
