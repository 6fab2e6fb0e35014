#include "snapshot/portservicemap.h"

#include <QFileInfo>

#include <gtest/gtest.h>

namespace {

const QString kTable = u"# port/protocol, name, description\n"
                       "443/tcp\thttps\thttp protocol over TLS/SSL\n"
                       "53/udp\tdomain\t\n"
                       "7/ddp\techo\tAppleTalk Echo Protocol\n"
                       "not a row\n"
                       "x/tcp\tbad\tport is not a number\n"
                       "25/tcp\t\tno name\n"
                       "\n"_s;

} // namespace

TEST(PortServiceMap, LooksUpRowsByPortAndLowerCaseProtocol)
{
    PortServiceMap map(kTable, {});
    const struct {
        const char16_t* port;
        const char16_t* protocol;
        const char16_t* name;        // nullptr: null
        const char16_t* description; // nullptr: null
    } cases[] = {
        {u"443", u"TCP", u"https", u"http protocol over TLS/SSL"},
        {u"443", u"tcp", u"https", u"http protocol over TLS/SSL"},
        {u"443", u"Tcp", u"https", u"http protocol over TLS/SSL"},
        {u"53", u"UDP", u"domain", nullptr},
        {u"7", u"DDP", u"echo", u"AppleTalk Echo Protocol"},
        {u"443", u"udp", nullptr, nullptr},
        {u"0443", u"tcp", nullptr, nullptr},
        {u"*", u"TCP", nullptr, nullptr},
        {u"", u"TCP", nullptr, nullptr},
        {u"443", u"", nullptr, nullptr},
        {u"25", u"tcp", nullptr, nullptr},
        {u"70000", u"tcp", nullptr, nullptr},
    };
    for (const auto& c : cases) {
        const QString port = QString::fromUtf16(c.port);
        const QString protocol = QString::fromUtf16(c.protocol);
        const std::string label = QString(port + u'/' + protocol).toStdString();
        const QString name = map.nameForPort(port, protocol);
        const QString description = map.descriptionForPort(port, protocol);
        EXPECT_EQ(name, c.name ? QString::fromUtf16(c.name) : QString()) << label;
        EXPECT_EQ(name.isNull(), c.name == nullptr) << label;
        EXPECT_EQ(description, c.description ? QString::fromUtf16(c.description) : QString())
            << label;
        EXPECT_EQ(description.isNull(), c.description == nullptr) << label;
    }
    EXPECT_EQ(map.count(), 3);
}

TEST(PortServiceMap, SystemRowsAnswerMissesAndNeverOverrideTheTable)
{
    PortServiceMap map(kTable, [] {
        return QList<PortServiceMap::Row>{
            {8080, u"TCP"_s, {u"http-alt"_s, {}}}, {443, u"tcp"_s, {u"not-https"_s, {}}},
            {5353, u"udp"_s, {u"mdns"_s, {}}},     {5353, u"udp"_s, {u"later-duplicate"_s, {}}},
            {9, u"udp"_s, {QString(), {}}},
        };
    });
    EXPECT_EQ(map.nameForPort(u"8080", u"tcp"), u"http-alt"_s);
    EXPECT_TRUE(map.descriptionForPort(u"8080", u"tcp").isNull());
    EXPECT_EQ(map.nameForPort(u"5353", u"UDP"), u"mdns"_s);
    EXPECT_TRUE(map.nameForPort(u"9", u"udp").isNull());
    EXPECT_TRUE(map.nameForPort(u"51234", u"udp").isNull());
    EXPECT_EQ(map.nameForPort(u"443", u"tcp"), u"https"_s);
}

TEST(PortServiceMap, SystemServicesAnswerPortsTheTableLacks)
{
    if (!QFileInfo::exists(u"/etc/services"_s))
        GTEST_SKIP() << "no services database on this machine";
    PortServiceMap map(QString(), PortServiceMap::systemServices);
    EXPECT_EQ(map.nameForPort(u"22", u"TCP"), u"ssh"_s);
    EXPECT_TRUE(map.nameForPort(u"1", u"udp").isNull()); // tcpmux is tcp only
}

TEST(PortServiceMap, ShippedTableIsCompiledIn)
{
    const PortServiceMap& map = PortServiceMap::sharedMap();
    EXPECT_GT(map.count(), 200);
    EXPECT_EQ(map.nameForPort(u"443", u"TCP"), u"https"_s);
    EXPECT_EQ(map.nameForPort(u"53", u"udp"), u"domain"_s);
    // A row without its own comment shares the one of its service on the other protocol.
    EXPECT_EQ(map.descriptionForPort(u"53", u"udp"), map.descriptionForPort(u"53", u"tcp"));
    EXPECT_FALSE(map.descriptionForPort(u"53", u"udp").isEmpty());
}
