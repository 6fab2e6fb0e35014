#pragma once

#include <QString>

#include <deque>
#include <optional>

// The send and receive rates of one subject (the whole machine, or the selection), one sample
// per pass over the last ten minutes, and the unit they read best in.
class TrafficHistory final {
public:
    static constexpr qsizetype kMaxSamples = 600;
    static constexpr qint64 kSpanMs = 10 * 60 * 1000;

    struct Sample {
        qint64 time; // milliseconds since the epoch
        std::optional<qint64> send;
        std::optional<qint64> receive;
    };

    // Drops what falls out of the last ten minutes, or beyond the bound. A pass whose
    // connections know no figure leaves no sample: the graph shows no 0 it does not know.
    void append(qint64 time, std::optional<qint64> send, std::optional<qint64> receive);
    void clear() { m_samples.clear(); }
    const std::deque<Sample>& samples() const { return m_samples; }
    // The highest rate of either direction, 0 with no sample.
    qint64 peak() const;

private:
    std::deque<Sample> m_samples;
};

// Rates scaled for the axis: B/s, kB/s, MB/s or GB/s (powers of 1000), the first in which the
// peak stays under 1000.
struct RateScale {
    double divisor = 1;
    QString unit;
    static RateScale forPeak(qint64 bytesPerSecond);
    friend bool operator==(const RateScale&, const RateScale&) = default;
};
