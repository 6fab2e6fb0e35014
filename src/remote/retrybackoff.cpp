#include "retrybackoff.h"

#include <algorithm>
#include <climits>

std::chrono::seconds RetryBackoff::delayAfter(int failures)
{
    if (failures <= 0)
        return std::chrono::seconds{0};
    std::chrono::seconds delay = kFirst;
    for (int i = 1; i < failures && delay < kLongest; ++i)
        delay *= 2;
    return std::min(delay, kLongest);
}

std::chrono::seconds RetryBackoff::failed()
{
    if (m_failures < INT_MAX)
        ++m_failures;
    return delayAfter(m_failures);
}
