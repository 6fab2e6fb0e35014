#include "remote/hostspec.h"
#include "remote/retrybackoff.h"

#include <gtest/gtest.h>

#include <limits>

TEST(HostSpec, ReadsUserHostAndPort)
{
    struct Case {
        QString text;
        QString user;
        QString host;
        int port;
    };
    const QList<Case> cases = {
        {u"web1"_s, u""_s, u"web1"_s, 0},
        {u"admin@web1.example.org:2222"_s, u"admin"_s, u"web1.example.org"_s, 2222},
        {u"10.0.0.5:22"_s, u""_s, u"10.0.0.5"_s, 22},
        {u"ops_1@db-2"_s, u"ops_1"_s, u"db-2"_s, 0},
        {u"::1"_s, u""_s, u"::1"_s, 0},
        {u"root@[fe80::1%eth0]:65535"_s, u"root"_s, u"fe80::1%eth0"_s, 65535},
        {u"[2001:db8::7]"_s, u""_s, u"2001:db8::7"_s, 0},
    };
    for (const Case& c : cases) {
        QString problem;
        const std::optional<HostSpec> spec = HostSpec::parse(c.text, &problem);
        ASSERT_TRUE(spec) << c.text.toStdString() << ": " << problem.toStdString();
        EXPECT_EQ(spec->user(), c.user) << c.text.toStdString();
        EXPECT_EQ(spec->host(), c.host) << c.text.toStdString();
        EXPECT_EQ(spec->port(), c.port) << c.text.toStdString();
        EXPECT_EQ(spec->text(), c.text);
    }
}

// Whatever could reach ssh as an option, or as two words, never becomes a spec.
TEST(HostSpec, RefusesWhatSshCouldMisread)
{
    const QStringList refused = {
        u""_s,          u"-oProxyCommand=id"_s,
        u"web 1"_s,     u"web1\n"_s,
        u"-l@web1"_s,   u"admin@-web1"_s,
        u"@web1"_s,     u"admin@"_s,
        u"a@b@c"_s,     u"web1:"_s,
        u"web1:0"_s,    u"web1:65536"_s,
        u"web1:22x"_s,  u"web1:٢٢"_s,
        u"[::1"_s,      u"[::1]22"_s,
        u"[]:22"_s,     u"web1;reboot"_s,
        u"web1%eth0"_s, u"$(id)"_s,
    };
    for (const QString& text : refused) {
        QString problem;
        EXPECT_FALSE(HostSpec::parse(text, &problem)) << text.toStdString();
        EXPECT_FALSE(problem.isEmpty()) << text.toStdString();
        EXPECT_TRUE(problem.endsWith(u'.')) << problem.toStdString();
    }
}

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
