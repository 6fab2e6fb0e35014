#include "collector/lsofformatter.h"

#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>

namespace {

QString alone(const QByteArray& command)
{
    return LsofFormatter::command(command, std::max(LsofFormatter::minimumCommandWidth,
                                                    LsofFormatter::commandWidth(command)));
}

std::array<quint8, 16> bytes(int family, const char* text)
{
    std::array<quint8, 16> address{};
    inet_pton(family, text, address.data());
    return address;
}

} // namespace

// What lsof 4.95 printed in COMMAND for processes renamed to these bytes, each listed alone.
TEST(LsofFormatter, commandNamesAreEscapedAndCutToTheWidestAsLsofPrintsThem)
{
    const struct {
        QByteArray command;
        QString printed;
    } cases[] = {
        {"python3", u"python3"_s},
        {"my comm x", u"my\\x20comm\\x20x"_s},
        {"end ", u"end\\x20"_s},
        {"tab\tx", u"tab\\tx"_s},
        {"\b\n\f\r", u"\\b\\n\\f\\r"_s},
        {"bs\\x", u"bs\\\\x"_s},
        {"q\"(x)", u"q\"(x)"_s},
        {"\x01"
         "a\x1b\x1f",
         u"^Aa^[^_"_s},
        {"\x7f\x7f", u"\\x7f\\x7f"_s},
        // Bytes above ASCII count 2 towards the column but print as 4: the name is cut.
        {"\xc3\xa9"
         "abc",
         u"\\xc3"_s},
        {"abc\xc3\xa9", u"abc\\xc3"_s},
        {"abcd\xc3\xa9", u"abcd\\xc3"_s},
        {"\xc3\xa9\xc3\xa9\xc3\xa9", u"\\xc3\\xa9\\xc3"_s},
        {"\xe2\x82\xac"
         "aaa",
         u"\\xe2\\x82"_s},
        {"\xf0\x9f\x98\x80"
         "aaaa",
         u"\\xf0\\x9f\\x98"_s},
        {"\x80\x80\x80\x80\x80", u"\\x80\\x80"_s},
        {"\xc3\xa9 \xc3\xbc", u"\\xc3\\xa9\\x20"_s},
        {"my comm\xc3\xa9 x", u"my\\x20comm\\xc3\\xa9"_s},
    };
    for (const auto& c : cases)
        EXPECT_EQ(alone(c.command), c.printed) << c.command.toHex().constData();

    // A wider name beside lets a cut name show whole.
    const QByteArray wide = "a b c d e f g h";
    const int width = LsofFormatter::commandWidth(wide);
    EXPECT_EQ(width, 36);
    EXPECT_EQ(LsofFormatter::command(wide, width),
              u"a\\x20b\\x20c\\x20d\\x20e\\x20f\\x20g\\x20h"_s);
    EXPECT_EQ(LsofFormatter::command("\xc3\xa9"
                                     "abc",
                                     width),
              u"\\xc3\\xa9abc"_s);
}

TEST(LsofFormatter, addressesAsLsofPrintsThemWithNumericOutput)
{
    const struct {
        int family;
        const char* address;
        QString printed;
    } cases[] = {
        {AF_INET, "0.0.0.0", u"*"_s},
        {AF_INET, "127.0.0.1", u"127.0.0.1"_s},
        {AF_INET, "192.0.2.20", u"192.0.2.20"_s},
        {AF_INET6, "::", u"*"_s},
        {AF_INET6, "::1", u"[::1]"_s},
        {AF_INET6, "fd00::2", u"[fd00::2]"_s},
        {AF_INET6, "fe80::fc:ff:fe00:1", u"[fe80::fc:ff:fe00:1]"_s},
        {AF_INET6, "::1.2.3.4", u"[::1.2.3.4]"_s},
        {AF_INET6, "2001:db8:0:0:1:0:0:1", u"[2001:db8::1:0:0:1]"_s},
        // IPv4-mapped: the IPv4 text without brackets, the wildcard as "*".
        {AF_INET6, "::ffff:127.0.0.1", u"127.0.0.1"_s},
        {AF_INET6, "::ffff:0.0.0.0", u"*"_s},
    };
    for (const auto& c : cases)
        EXPECT_EQ(LsofFormatter::address(quint8(c.family), bytes(c.family, c.address)), c.printed)
            << c.address;
    EXPECT_EQ(LsofFormatter::port(0), u"*"_s);
    EXPECT_EQ(LsofFormatter::port(65535), u"65535"_s);
}

TEST(LsofFormatter, aRemoteSideIsPrintedWhenItHasAnAddressOrAPort)
{
    DiagSocket socket;
    socket.family = AF_INET6;
    EXPECT_FALSE(LsofFormatter::hasRemote(socket));
    socket.remotePort = 53;
    EXPECT_TRUE(LsofFormatter::hasRemote(socket));
    socket.remotePort = 0;
    socket.remoteAddress = bytes(AF_INET6, "::1");
    EXPECT_TRUE(LsofFormatter::hasRemote(socket));

    // An IPv4 socket's remote address is its first four bytes only.
    socket.family = AF_INET;
    socket.remoteAddress = bytes(AF_INET6, "::1");
    EXPECT_FALSE(LsofFormatter::hasRemote(socket));
}
