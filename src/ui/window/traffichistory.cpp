#include "traffichistory.h"

#include <algorithm>

using namespace Qt::StringLiterals;

void TrafficHistory::append(qint64 time, std::optional<qint64> send, std::optional<qint64> receive)
{
    while (!m_samples.empty() &&
           (m_samples.front().time <= time - kSpanMs || qsizetype(m_samples.size()) >= kMaxSamples))
        m_samples.pop_front();
    if (send || receive)
        m_samples.push_back({time, send, receive});
}

qint64 TrafficHistory::peak() const
{
    qint64 peak = 0;
    for (const Sample& sample : m_samples)
        peak = std::max({peak, sample.send.value_or(0), sample.receive.value_or(0)});
    return peak;
}

RateScale RateScale::forPeak(qint64 bytesPerSecond)
{
    static const char16_t* const units[] = {u"B/s", u"kB/s", u"MB/s", u"GB/s"};
    double divisor = 1;
    int unit = 0;
    while (unit < 3 && double(bytesPerSecond) / divisor >= 1000) {
        divisor *= 1000;
        ++unit;
    }
    return {divisor, QString::fromUtf16(units[unit])};
}
