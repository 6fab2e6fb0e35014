#pragma once

#include <chrono>

// How long to wait before asking an unreachable machine again: 1, 2, 4, ... seconds after
// the first, second, third failure in a row, never more than a minute, and from the start
// again once a pass succeeds. A machine that is down for a day is then asked once a minute,
// and one that blinked is asked again at once.
class RetryBackoff final {
public:
    static constexpr std::chrono::seconds kFirst{1};
    static constexpr std::chrono::seconds kLongest{60};

    // The wait after `failures` failed passes in a row; none before the first failure.
    static std::chrono::seconds delayAfter(int failures);

    // Counts a failed pass and answers the wait before the next one.
    std::chrono::seconds failed();
    void succeeded() { m_failures = 0; }
    int failures() const { return m_failures; }

private:
    int m_failures = 0;
};
