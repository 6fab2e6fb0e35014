#include "remote/retrybackoff.h"

#include <gtest/gtest.h>

#include <limits>

using namespace std::chrono_literals;

TEST(RetryBackoff, DoublesUpToAMinuteAndStartsOverAfterASuccess)
{
    RetryBackoff backoff;
    const std::chrono::seconds expected[] = {1s, 2s, 4s, 8s, 16s, 32s, 60s, 60s};
    for (std::chrono::seconds wait : expected)
        EXPECT_EQ(backoff.failed(), wait);
    EXPECT_EQ(backoff.failures(), 8);

    backoff.succeeded();
    EXPECT_EQ(backoff.failures(), 0);
    EXPECT_EQ(backoff.failed(), 1s);

    EXPECT_EQ(RetryBackoff::delayAfter(0), 0s);
    EXPECT_EQ(RetryBackoff::delayAfter(-3), 0s);
    // No overflow however long the machine stays away.
    EXPECT_EQ(RetryBackoff::delayAfter(64), 60s);
    EXPECT_EQ(RetryBackoff::delayAfter(std::numeric_limits<int>::max()), 60s);
}
