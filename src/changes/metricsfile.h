#pragma once

#include "snapshot/lsofitem.h"

#include <QByteArray>
#include <QMap>
#include <QString>

#include <optional>
#include <utility>

// The figures of each pass as a Prometheus text file, for node_exporter's textfile collector:
// open connections by protocol and state and per application (with their traffic where the
// kernel tells it), counters of connections opened, closed and short-lived since the start,
// and what the pass itself cost.
//
// Labels never name an address or a port, so the number of series stays bounded whatever the
// machine talks to; applications beyond kMaxApplications are counted together as "(other)".
// Runs on the acquisition thread, after change detection.
class MetricsFile final {
public:
    // What the caller measured of the pass: its CPU time (Corvina's and its collector's) and
    // its length, both in seconds.
    struct PassCost {
        double cpuSeconds = 0;
        double durationSeconds = 0;
    };

    static constexpr int kMaxApplications = 100;
    static constexpr char kOtherApplications[] = "(other)";

    // `host` names the machine watched when it is not this one (corvina watch --host): every
    // series then carries it as a label, so that the files of several watched machines can
    // lie in one textfile folder without their series colliding.
    explicit MetricsFile(QString path, const QString& host = {});

    QString path() const { return m_path; }

    // Takes in a pass: its open items for the gauges, its new, closed and short-lived items
    // for the counters (status 1 new, 3 closed; a short-lived item is counted as opened too,
    // since no pass ever saw it open).
    void count(const LsofItemList& items, PassCost cost);
    // The file's text for the passes counted so far.
    QByteArray text() const;
    // Replaces the file by text(): written beside it, flushed to disk, renamed over it, so
    // a reader sees the old file or the new one, never a part. Empty on success, else one
    // sentence saying why, with the previous file left as it was.
    QString write() const;
    // count() and write() in one.
    QString writePass(const LsofItemList& items, PassCost cost);

private:
    struct ApplicationFigures {
        qint64 connections = 0;
        std::optional<qint64> bytesSent;
        std::optional<qint64> bytesReceived;
        std::optional<qint64> sendRate;
        std::optional<qint64> receiveRate;
    };
    struct Counts {
        qint64 opened = 0;
        qint64 closed = 0;
        qint64 shortLived = 0;
    };

    QString countedApplication(const QString& name);
    void foldApplications();
    void sample(QByteArray& out, const char* name, const QByteArray& labels,
                const QByteArray& value) const;
    void appendGauges(QByteArray& out) const;
    void appendTraffic(QByteArray& out) const;
    void appendCounters(QByteArray& out) const;

    QString m_path;
    QByteArray m_hostLabel;
    QMap<std::pair<QString, QString>, qint64> m_byProtocolAndState;
    QMap<QString, ApplicationFigures> m_byApplication;
    QMap<QString, Counts> m_counts;
    PassCost m_cost;
    qint64 m_passes = 0;
};
