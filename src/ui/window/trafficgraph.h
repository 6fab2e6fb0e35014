#pragma once

#include "traffichistory.h"
#include "traffictotals.h"

#include <QStringList>
#include <QWidget>

class QChart;
class QChartView;
class QDateTimeAxis;
class QLineSeries;
class QValueAxis;

// The strip below the table: the send and receive rates of the selection, or of the whole
// machine when nothing is selected, over the last ten minutes. The machine's history is kept
// all the time; a selection's starts when it is made. While hidden the strip only records.
class TrafficGraph final : public QWidget {
    Q_OBJECT
public:
    explicit TrafficGraph(QWidget* parent = nullptr);
    Q_DISABLE_COPY_MOVE(TrafficGraph)

    // What the graph plots: `identity` names the selection (empty: the whole machine), `title`
    // says it to the user. Another identity starts another history.
    void showSubject(const QStringList& identity, const QString& title);
    const QStringList& subjectIdentity() const { return m_identity; }
    // One pass: the machine's totals and the subject's (ignored for the whole machine).
    void addPass(qint64 time, const TrafficTotals& machine, const TrafficTotals& subject);

    QChart* chart() const { return m_chart; }
    QLineSeries* sendSeries() const { return m_send; }
    QLineSeries* receiveSeries() const { return m_receive; }
    QValueAxis* rateAxis() const { return m_rates; }
    QDateTimeAxis* timeAxis() const { return m_times; }

protected:
    void showEvent(QShowEvent* event) override;

private:
    const TrafficHistory& shown() const;
    // Draws the shown history anew, in the unit its peak asks for.
    void redraw();
    // Adds the newest sample, or draws anew when the unit changes.
    void appendNewest();
    void updateAxes();
    void updateTitle();

    TrafficHistory m_machine;
    TrafficHistory m_subject;
    QStringList m_identity;
    QString m_subjectTitle;
    qint64 m_now = 0;
    RateScale m_scale;

    QChartView* m_view;
    QChart* m_chart;
    QLineSeries* m_send;
    QLineSeries* m_receive;
    QValueAxis* m_rates;
    QDateTimeAxis* m_times;
};
