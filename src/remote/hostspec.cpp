#include "hostspec.h"

using namespace Qt::StringLiterals;

namespace {

bool isNameCharacter(QChar c)
{
    return (c >= u'a' && c <= u'z') || (c >= u'A' && c <= u'Z') || (c >= u'0' && c <= u'9') ||
           c == u'.' || c == u'-' || c == u'_';
}

// Host names, ssh config aliases and IPv4 addresses; "%" and ":" only inside an IPv6 address.
bool isValidHost(const QString& host, bool ipv6)
{
    for (QChar c : host) {
        if (!isNameCharacter(c) && !(ipv6 && (c == u':' || c == u'%')))
            return false;
    }
    return true;
}

// Login names as useradd accepts them, plus the "$" of machine accounts.
bool isValidUser(const QString& user)
{
    for (QChar c : user) {
        if (!isNameCharacter(c) && c != u'$')
            return false;
    }
    return true;
}

std::optional<int> portNumber(const QString& text)
{
    if (text.isEmpty() || text.size() > 5)
        return std::nullopt;
    for (QChar c : text) {
        if (!c.isDigit() || c.unicode() > 127)
            return std::nullopt;
    }
    const int port = text.toInt();
    if (port < 1 || port > 65535)
        return std::nullopt;
    return port;
}

std::optional<HostSpec> refuse(QString* problem, const QString& why)
{
    if (problem)
        *problem = why;
    return std::nullopt;
}

} // namespace

std::optional<HostSpec> HostSpec::parse(const QString& text, QString* problem)
{
    const QString quoted = u"\""_s + text + u'"';
    if (text.isEmpty())
        return refuse(problem, u"The host is empty; give it as [user@]HOST[:port]."_s);
    for (QChar c : text) {
        if (c.isSpace() || c.category() == QChar::Other_Control)
            return refuse(problem,
                          u"The host %1 contains a blank or a control character."_s.arg(quoted));
    }

    HostSpec spec;
    spec.m_text = text;
    QString rest = text;
    if (const qsizetype at = rest.indexOf(u'@'); at >= 0) {
        spec.m_user = rest.left(at);
        rest = rest.mid(at + 1);
        if (spec.m_user.isEmpty())
            return refuse(problem, u"The user name before \"@\" in %1 is empty."_s.arg(quoted));
        if (spec.m_user.startsWith(u'-') || !isValidUser(spec.m_user))
            return refuse(problem, u"The user name in %1 is not a valid login name."_s.arg(quoted));
    }

    std::optional<QString> portText;
    bool ipv6 = false;
    if (rest.startsWith(u'[')) {
        const qsizetype close = rest.indexOf(u']');
        if (close < 0)
            return refuse(problem, u"The \"[\" in %1 is never closed."_s.arg(quoted));
        const QString after = rest.mid(close + 1);
        if (!after.isEmpty() && !after.startsWith(u':'))
            return refuse(problem, u"Only \":port\" may follow \"]\" in %1."_s.arg(quoted));
        if (!after.isEmpty())
            portText = after.mid(1);
        rest = rest.mid(1, close - 1);
        ipv6 = true;
    } else if (rest.count(u':') == 1) {
        const qsizetype colon = rest.indexOf(u':');
        portText = rest.mid(colon + 1);
        rest = rest.left(colon);
    } else if (rest.count(u':') > 1) {
        ipv6 = true; // a bare IPv6 address: every colon is its own
    }

    if (rest.isEmpty())
        return refuse(problem, u"The host name in %1 is empty."_s.arg(quoted));
    if (rest.startsWith(u'-') || !isValidHost(rest, ipv6))
        return refuse(problem,
                      u"The host name in %1 is not a valid host name or address."_s.arg(quoted));
    spec.m_host = rest;
    if (portText) {
        const std::optional<int> port = portNumber(*portText);
        if (!port)
            return refuse(problem,
                          u"The port in %1 is not a number from 1 to 65535."_s.arg(quoted));
        spec.m_port = *port;
    }
    return spec;
}
