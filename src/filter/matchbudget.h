#pragma once

#include <chrono>

#include <time.h>

// The time one filter pass may spend in regular-expression matching. Qt does not let us set
// PCRE2's step limits, and its default limit still allows one hostile pattern tens of
// milliseconds per row; over ten thousand rows that would freeze the window for minutes. So
// the pass asks the budget before every regular-expression match, and once the time is
// spent the remaining rows count as not matching and the caller is told.
class MatchBudget final {
public:
    // Leaves room for the one match already running when the time runs out (Qt's default
    // PCRE2 limits end any single match within about 60 ms here), so a pass stays under a
    // second.
    static constexpr std::chrono::milliseconds kDefaultLimit{500};

    explicit MatchBudget(std::chrono::milliseconds limit = kDefaultLimit)
        : m_deadline(now() + limit)
    {
    }

    // Whether another match may start. Once it says no, it says no for good.
    bool allows()
    {
        if (!m_exhausted && now() >= m_deadline)
            m_exhausted = true;
        return !m_exhausted;
    }
    bool exhausted() const { return m_exhausted; }

private:
    // The coarse clock: asked before every row, the precise one was a twentieth of a keyword
    // pass, and a few milliseconds of resolution do not matter against half a second.
    static std::chrono::nanoseconds now()
    {
        timespec ts{};
        clock_gettime(CLOCK_MONOTONIC_COARSE, &ts);
        return std::chrono::seconds(ts.tv_sec) + std::chrono::nanoseconds(ts.tv_nsec);
    }

    std::chrono::nanoseconds m_deadline;
    bool m_exhausted = false;
};
