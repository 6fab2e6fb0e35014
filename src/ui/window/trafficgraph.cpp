#include "trafficgraph.h"

#include <QChart>
#include <QChartView>
#include <QDateTime>
#include <QDateTimeAxis>
#include <QGraphicsLayout>
#include <QLineSeries>
#include <QValueAxis>
#include <QVBoxLayout>

using namespace Qt::StringLiterals;

TrafficGraph::TrafficGraph(QWidget* parent)
    : QWidget(parent), m_scale(RateScale::forPeak(0)), m_view(new QChartView(this)),
      m_chart(new QChart), m_send(new QLineSeries(m_chart)), m_receive(new QLineSeries(m_chart)),
      m_rates(new QValueAxis(m_chart)), m_times(new QDateTimeAxis(m_chart))
{
    m_send->setName(tr("Send"));
    m_receive->setName(tr("Receive"));
    m_send->setPen(QPen(QColor(0xd9, 0x5f, 0x0e), 2));
    m_receive->setPen(QPen(QColor(0x1f, 0x6f, 0xb4), 2));
    m_chart->addSeries(m_send);
    m_chart->addSeries(m_receive);
    m_times->setFormat(u"HH:mm"_s);
    m_times->setTickCount(11);
    m_times->setTitleText(tr("Time"));
    m_rates->setLabelFormat(u"%g"_s);
    m_chart->addAxis(m_times, Qt::AlignBottom);
    m_chart->addAxis(m_rates, Qt::AlignLeft);
    for (QLineSeries* series : {m_send, m_receive}) {
        series->attachAxis(m_times);
        series->attachAxis(m_rates);
    }
    m_chart->legend()->setAlignment(Qt::AlignRight);
    m_chart->setMargins(QMargins(4, 2, 4, 2));
    m_chart->layout()->setContentsMargins(0, 0, 0, 0);
    m_chart->setBackgroundRoundness(0);

    m_view->setChart(m_chart);
    m_view->setRenderHint(QPainter::Antialiasing);
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->addWidget(m_view);
    setMinimumHeight(140);
    m_now = QDateTime::currentMSecsSinceEpoch();
    updateAxes();
    updateTitle();
}

void TrafficGraph::showSubject(const QStringList& identity, const QString& title)
{
    m_subjectTitle = title;
    if (identity == m_identity) {
        updateTitle();
        return;
    }
    m_identity = identity;
    m_subject.clear();
    updateTitle();
    if (isVisible())
        redraw();
}

void TrafficGraph::addPass(qint64 time, const TrafficTotals& machine, const TrafficTotals& subject)
{
    m_now = time;
    m_machine.append(time, machine.sendRate, machine.receiveRate);
    if (!m_identity.isEmpty())
        m_subject.append(time, subject.sendRate, subject.receiveRate);
    if (isVisible())
        appendNewest();
}

const TrafficHistory& TrafficGraph::shown() const
{
    return m_identity.isEmpty() ? m_machine : m_subject;
}

void TrafficGraph::showEvent(QShowEvent* event)
{
    // Passes recorded while hidden were not drawn.
    redraw();
    QWidget::showEvent(event);
}

void TrafficGraph::redraw()
{
    const TrafficHistory& history = shown();
    m_scale = RateScale::forPeak(history.peak());
    QList<QPointF> send;
    QList<QPointF> receive;
    for (const TrafficHistory::Sample& sample : history.samples()) {
        if (sample.send)
            send.append({double(sample.time), double(*sample.send) / m_scale.divisor});
        if (sample.receive)
            receive.append({double(sample.time), double(*sample.receive) / m_scale.divisor});
    }
    m_send->replace(send);
    m_receive->replace(receive);
    updateAxes();
    updateTitle();
}

void TrafficGraph::appendNewest()
{
    const TrafficHistory& history = shown();
    if (RateScale::forPeak(history.peak()) != m_scale) {
        redraw();
        return;
    }
    // The history has dropped what is older than its span: the series follows.
    const qint64 oldest = history.samples().empty() ? m_now : history.samples().front().time;
    for (QLineSeries* series : {m_send, m_receive}) {
        int stale = 0;
        while (stale < series->count() && series->at(stale).x() < double(oldest))
            ++stale;
        if (stale > 0)
            series->removePoints(0, stale);
    }
    if (!history.samples().empty() && history.samples().back().time == m_now) {
        const TrafficHistory::Sample& newest = history.samples().back();
        if (newest.send)
            m_send->append(double(newest.time), double(*newest.send) / m_scale.divisor);
        if (newest.receive)
            m_receive->append(double(newest.time), double(*newest.receive) / m_scale.divisor);
    }
    updateAxes();
    updateTitle();
}

void TrafficGraph::updateAxes()
{
    m_times->setRange(QDateTime::fromMSecsSinceEpoch(m_now - TrafficHistory::kSpanMs),
                      QDateTime::fromMSecsSinceEpoch(m_now));
    m_rates->setRange(0, std::max(1.0, double(shown().peak()) / m_scale.divisor));
    m_rates->applyNiceNumbers();
    m_rates->setTitleText(tr("Rate (%1)").arg(m_scale.unit));
}

void TrafficGraph::updateTitle()
{
    QString title = m_identity.isEmpty() ? tr("Traffic of the whole machine")
                                         : tr("Traffic of %1").arg(m_subjectTitle);
    if (shown().samples().empty())
        title += u" \u2014 "_s + tr("no traffic figures yet (lsof counts no bytes)");
    if (m_chart->title() != title)
        m_chart->setTitle(title);
}
