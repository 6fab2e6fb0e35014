#include "windowstatus.h"

#include "snapshot/itemcolumns.h"

#include <QLabel>
#include <QStatusBar>

using namespace Qt::StringLiterals;

namespace {

QLabel* badge(QStatusBar& bar, const QString& colors)
{
    auto* label = new QLabel(&bar);
    label->setStyleSheet(colors + u" padding: 1px 6px; border-radius: 3px;"_s);
    label->setTextFormat(Qt::PlainText);
    label->hide();
    return label;
}

} // namespace

WindowStatus::WindowStatus(QStatusBar& bar)
    : QObject(&bar), m_bar(bar), m_rows(new QLabel(&bar)), m_traffic(new QLabel(&bar)),
      m_problem(badge(bar, u"color: white; background: #b3261e;"_s)),
      m_searchError(badge(bar, u"color: black; background: #f9d67a;"_s)), m_road(new QLabel(&bar))
{
    bar.addWidget(m_rows);
    bar.addWidget(m_traffic);
    m_traffic->setToolTip(tr("Send and receive rates, and bytes sent and received, of the "
                             "connections shown"));
    m_traffic->hide();
    bar.addWidget(m_problem);
    bar.addWidget(m_searchError, 1);
    bar.addPermanentWidget(m_road);
}

void WindowStatus::showCounts(qsizetype shown, qsizetype total)
{
    m_rows->setText(tr("%1 of %n connections", nullptr, int(total)).arg(shown));
}

void WindowStatus::showTraffic(const TrafficTotals& totals)
{
    QStringList parts;
    const auto rate = [](const std::optional<qint64>& value) {
        return value ? humanRate(*value) : QStringLiteral("–");
    };
    if (totals.sendRate || totals.receiveRate)
        parts.append(tr("↑ %1  ↓ %2").arg(rate(totals.sendRate), rate(totals.receiveRate)));
    if (totals.bytesSent)
        parts.append(tr("%1 sent").arg(humanBytes(*totals.bytesSent)));
    if (totals.bytesReceived)
        parts.append(tr("%1 received").arg(humanBytes(*totals.bytesReceived)));
    const QString text = parts.join(u"  ·  "_s);
    if (text != m_traffic->text())
        m_traffic->setText(text);
    setShown(m_traffic, !text.isEmpty());
}

QString WindowStatus::trafficText() const
{
    return m_traffic->isHidden() ? QString() : m_traffic->text();
}

void WindowStatus::showOrigin(const SnapshotSource::Origin& origin, bool privileged,
                              const QString& host)
{
    using Road = SnapshotSource::Road;
    if (origin.road == Road::None) {
        m_road->clear();
        return;
    }
    const QString collector = origin.collector == SnapshotSource::Collector::Native ? tr("native")
                              : origin.collector == SnapshotSource::Collector::Lsof ? tr("lsof")
                                                                                    : QString();
    QString road;
    switch (origin.road) {
    case Road::Helper:
        road = tr("via helper");
        break;
    case Road::Script:
        road = tr("via user script");
        break;
    case Road::Remote:
        road = host.isEmpty() ? tr("via ssh") : tr("via ssh to %1").arg(host);
        break;
    default:
        road = tr("direct");
        break;
    }
    // What the monitor itself cost this refresh, so that a user sees its price.
    QString text = (collector.isEmpty() ? road : collector + u", "_s + road) + u": "_s +
                   tr("%1 ms").arg(QString::number(origin.costMs, 'f', 0));
    const bool ownOnly =
        !privileged && (origin.road == Road::Direct || origin.road == Road::Script);
    if (ownOnly)
        text += u" \u2014 "_s + tr("your own processes only");
    if (origin.unattributed > 0)
        text += u" \u2014 "_s +
                tr("%n short-lived connection(s) of unknown process", nullptr, origin.unattributed);
    m_road->setText(text);
    m_road->setToolTip(tr("How the last refresh was taken, and the CPU time it cost Corvina "
                          "(lsof's included when it ran here)."));
}

void WindowStatus::showProblem(const QString& problem)
{
    m_problem->setText(problem);
    setShown(m_problem, !problem.isEmpty());
}

void WindowStatus::showSearchError(const QString& error)
{
    m_searchError->setText(error);
    m_searchError->setToolTip(error);
    setShown(m_searchError, !error.isEmpty());
}

void WindowStatus::setShown(QLabel* label, bool shown)
{
    // A passing message hides the bar's other labels, and shows again, once it has gone, those
    // it hid. A label due to appear meanwhile is left to that, or it would be drawn under the
    // message; a refresh every second would otherwise do so at once.
    if (shown && !m_bar.currentMessage().isEmpty()) {
        label->hide();
        label->setAttribute(Qt::WA_WState_ExplicitShowHide, false);
        return;
    }
    label->setVisible(shown);
}
