#pragma once

#include "snapshot/snapshotsource.h"
#include "traffictotals.h"

#include <QObject>

class QLabel;
class QStatusBar;

// The main window's status bar: how many rows are shown and their traffic, which road the
// snapshot came by, why a snapshot is empty or partial, and why the search is not applied as
// typed.
class WindowStatus final : public QObject {
    Q_OBJECT
public:
    explicit WindowStatus(QStatusBar& bar);
    Q_DISABLE_COPY_MOVE(WindowStatus)

    void showCounts(qsizetype shown, qsizetype total);
    // The summed traffic of the rows shown; nothing where no connection knows a figure.
    void showTraffic(const TrafficTotals& totals);
    QString trafficText() const;
    // How the last snapshot was taken and what it cost. `privileged`: the application runs as
    // root, so a collector run here sees every process. `host`: the machine ssh reached.
    void showOrigin(const SnapshotSource::Origin& origin, bool privileged,
                    const QString& host = {});
    void showProblem(const QString& problem);
    void showSearchError(const QString& error);

private:
    void setShown(QLabel* label, bool shown);

    QStatusBar& m_bar;
    QLabel* m_rows;
    QLabel* m_traffic;
    QLabel* m_problem;
    QLabel* m_searchError;
    QLabel* m_road;
};
