#include "predicatelexer.h"
#include "platform/hexdigit.h"

#include <QHash>

#include <limits>

using namespace Qt::StringLiterals;

namespace {

using Kind = PredicateLexer::Kind;
using Token = PredicateLexer::Token;

const QHash<QString, Kind>& keywords()
{
    static const QHash<QString, Kind> map = {
        {u"AND"_s, Kind::And},
        {u"OR"_s, Kind::Or},
        {u"NOT"_s, Kind::Not},
        {u"BEGINSWITH"_s, Kind::BeginsWith},
        {u"ENDSWITH"_s, Kind::EndsWith},
        {u"CONTAINS"_s, Kind::Contains},
        {u"LIKE"_s, Kind::Like},
        {u"MATCHES"_s, Kind::Matches},
        {u"IN"_s, Kind::In},
        {u"BETWEEN"_s, Kind::Between},
        {u"TRUE"_s, Kind::True},
        {u"YES"_s, Kind::True},
        {u"FALSE"_s, Kind::False},
        {u"NO"_s, Kind::False},
        {u"NIL"_s, Kind::Nil},
        {u"NULL"_s, Kind::Nil},
        {u"TRUEPREDICATE"_s, Kind::TruePredicate},
        {u"FALSEPREDICATE"_s, Kind::FalsePredicate},
    };
    return map;
}

bool isWordStart(QChar c)
{
    return c.isLetter() || c == u'_';
}

bool isWordPart(QChar c)
{
    return c.isLetterOrNumber() || c == u'_';
}

bool isDigit(QStringView text, qsizetype i)
{
    return i < text.size() && text[i] >= u'0' && text[i] <= u'9';
}

class Scanner {
public:
    explicit Scanner(QStringView text) : m_text(text) {}

    std::variant<QList<Token>, PredicateError> run()
    {
        QList<Token> tokens;
        while (true) {
            while (m_pos < m_text.size() && m_text[m_pos].isSpace())
                ++m_pos;
            if (m_pos >= m_text.size()) {
                tokens.append(Token{Kind::End, m_pos, {}, 0, false, 0});
                return tokens;
            }
            auto token = next();
            if (auto* error = std::get_if<PredicateError>(&token))
                return *error;
            tokens.append(std::get<Token>(std::move(token)));
        }
    }

private:
    std::variant<Token, PredicateError> next()
    {
        const qsizetype start = m_pos;
        const QChar c = m_text[m_pos];
        const QChar n = m_pos + 1 < m_text.size() ? m_text[m_pos + 1] : QChar();
        auto simple = [&](Kind kind, qsizetype length) {
            m_pos += length;
            return Token{kind, start, {}, 0, false, 0};
        };
        switch (c.unicode()) {
        case u'(':
            return simple(Kind::LeftParen, 1);
        case u')':
            return simple(Kind::RightParen, 1);
        case u'{':
            return simple(Kind::LeftBrace, 1);
        case u'}':
            return simple(Kind::RightBrace, 1);
        case u',':
            return simple(Kind::Comma, 1);
        case u'=':
            if (n == u'=')
                return simple(Kind::Equal, 2);
            if (n == u'<')
                return simple(Kind::LessEqual, 2);
            if (n == u'>')
                return simple(Kind::GreaterEqual, 2);
            return simple(Kind::Equal, 1);
        case u'!':
            return n == u'=' ? simple(Kind::NotEqual, 2) : simple(Kind::Not, 1);
        case u'<':
            if (n == u'=')
                return simple(Kind::LessEqual, 2);
            if (n == u'>')
                return simple(Kind::NotEqual, 2);
            return simple(Kind::Less, 1);
        case u'>':
            return n == u'=' ? simple(Kind::GreaterEqual, 2) : simple(Kind::Greater, 1);
        case u'&':
            if (n == u'&')
                return simple(Kind::And, 2);
            break;
        case u'|':
            if (n == u'|')
                return simple(Kind::Or, 2);
            break;
        case u'"':
        case u'\'':
            return string(c);
        case u'[':
            return modifier();
        case u'#':
            if (m_pos + 1 < m_text.size() && isWordStart(n)) {
                ++m_pos;
                Token token = word();
                token.kind = Kind::Identifier;
                token.position = start;
                return token;
            }
            return PredicateError(u"A key name must follow “#”"_s, start);
        case u'$':
            return PredicateError(u"Variables are not supported"_s, start);
        default:
            break;
        }
        if (isDigit(m_text, m_pos) || (c == u'.' && isDigit(m_text, m_pos + 1)) ||
            ((c == u'-' || c == u'+') &&
             (isDigit(m_text, m_pos + 1) || (n == u'.' && isDigit(m_text, m_pos + 2)))))
            return number();
        if (isWordStart(c)) {
            Token token = word();
            const auto keyword = keywords().constFind(token.text.toUpper());
            if (keyword != keywords().cend())
                token.kind = *keyword;
            return token;
        }
        return PredicateError(u"Unexpected character “"_s % c % u'”', start);
    }

    Token word()
    {
        const qsizetype start = m_pos;
        while (m_pos < m_text.size() && isWordPart(m_text[m_pos]))
            ++m_pos;
        return Token{
            Kind::Identifier, start, m_text.mid(start, m_pos - start).toString(), 0, false, 0};
    }

    std::variant<Token, PredicateError> number()
    {
        const qsizetype start = m_pos;
        if (m_text[m_pos] == u'-' || m_text[m_pos] == u'+')
            ++m_pos;
        if (const int base = radixPrefix(m_pos))
            return radixNumber(start, base);
        bool integral = true;
        while (isDigit(m_text, m_pos))
            ++m_pos;
        if (m_pos < m_text.size() && m_text[m_pos] == u'.' && isDigit(m_text, m_pos + 1)) {
            integral = false;
            ++m_pos;
            while (isDigit(m_text, m_pos))
                ++m_pos;
        }
        if (m_pos < m_text.size() && (m_text[m_pos] == u'e' || m_text[m_pos] == u'E')) {
            qsizetype exponent = m_pos + 1;
            if (exponent < m_text.size() && (m_text[exponent] == u'-' || m_text[exponent] == u'+'))
                ++exponent;
            if (isDigit(m_text, exponent)) {
                integral = false;
                m_pos = exponent;
                while (isDigit(m_text, m_pos))
                    ++m_pos;
            }
        }
        if (m_pos < m_text.size() && isWordPart(m_text[m_pos]))
            return PredicateError(u"Malformed number"_s, start);
        const QStringView literal = m_text.mid(start, m_pos - start);
        Token token{Kind::Number, start, literal.toString(), 0, false, 0};
        bool ok = false;
        if (integral) {
            token.integer = literal.toLongLong(&ok);
            token.isInteger = ok;
        }
        token.number = literal.toDouble(&ok);
        if (!ok && !token.isInteger)
            return PredicateError(u"Malformed number"_s, start);
        return token;
    }

    // 16, 8 or 2 when "0x", "0o" or "0b" (either case) starts at `at`; 0 otherwise.
    int radixPrefix(qsizetype at) const
    {
        if (at + 1 >= m_text.size() || m_text[at] != u'0')
            return 0;
        switch (m_text[at + 1].toLower().unicode()) {
        case u'x':
            return 16;
        case u'o':
            return 8;
        case u'b':
            return 2;
        default:
            return 0;
        }
    }

    // An integer written in base 16, 8 or 2 after its prefix, as 0x1BB, -0o17 or 0b101.
    std::variant<Token, PredicateError> radixNumber(qsizetype start, int base)
    {
        const bool negative = m_text[start] == u'-';
        m_pos += 2;
        const qsizetype digitsStart = m_pos;
        quint64 magnitude = 0;
        bool overflow = false;
        while (m_pos < m_text.size()) {
            const int digit = hexDigitValue(m_text[m_pos]);
            if (digit < 0 || digit >= base)
                break;
            overflow = overflow || magnitude > (std::numeric_limits<quint64>::max() - digit) / base;
            magnitude = magnitude * base + quint64(digit);
            ++m_pos;
        }
        if (m_pos == digitsStart || (m_pos < m_text.size() && isWordPart(m_text[m_pos])))
            return PredicateError(u"Malformed number"_s, start);
        const quint64 limit = quint64(std::numeric_limits<qint64>::max()) + (negative ? 1 : 0);
        if (overflow || magnitude > limit)
            return PredicateError(u"Number out of range"_s, start);
        Token token{Kind::Number, start, m_text.mid(start, m_pos - start).toString(), 0, true, 0};
        token.integer = negative ? qint64(0 - magnitude) : qint64(magnitude);
        token.number = double(token.integer);
        return token;
    }

    std::variant<Token, PredicateError> string(QChar quote)
    {
        const qsizetype start = m_pos++;
        QString text;
        while (m_pos < m_text.size() && m_text[m_pos] != quote) {
            const QChar c = m_text[m_pos++];
            if (c != u'\\' || m_pos >= m_text.size()) {
                text += c;
                continue;
            }
            const QChar escaped = m_text[m_pos++];
            switch (escaped.unicode()) {
            case u'n':
                text += u'\n';
                break;
            case u't':
                text += u'\t';
                break;
            case u'r':
                text += u'\r';
                break;
            case u'\\':
            case u'"':
            case u'\'':
                text += escaped;
                break;
            case u'u': {
                int code = 0;
                for (int i = 0; i < 4; ++i) {
                    const int digit = m_pos < m_text.size() ? hexDigitValue(m_text[m_pos]) : -1;
                    if (digit < 0)
                        return PredicateError(u"“\\u” needs four hexadecimal digits"_s,
                                              m_pos - 2 - i);
                    code = code * 16 + digit;
                    ++m_pos;
                }
                text += QChar(char16_t(code));
                break;
            }
            default:
                // Kept as written, so a regular expression such as "\d+" reads as typed.
                text += c;
                text += escaped;
                break;
            }
        }
        if (m_pos >= m_text.size())
            return PredicateError(u"Unterminated string"_s, start);
        ++m_pos;
        if (text.isNull())
            text = u""_s;
        return Token{Kind::String, start, text, 0, false, 0};
    }

    std::variant<Token, PredicateError> modifier()
    {
        const qsizetype start = m_pos++;
        QString letters;
        while (m_pos < m_text.size() && m_text[m_pos] != u']') {
            const QChar c = m_text[m_pos].toLower();
            if ((c != u'c' && c != u'd') || letters.contains(c))
                return PredicateError(u"Unknown comparison option; use [c], [d] or [cd]"_s, start);
            letters += c;
            ++m_pos;
        }
        if (m_pos >= m_text.size() || letters.isEmpty())
            return PredicateError(u"Unknown comparison option; use [c], [d] or [cd]"_s, start);
        ++m_pos;
        return Token{Kind::Modifier, start, letters, 0, false, 0};
    }

    QStringView m_text;
    qsizetype m_pos = 0;
};

} // namespace

std::variant<QList<PredicateLexer::Token>, PredicateError>
PredicateLexer::tokenize(QStringView text)
{
    return Scanner(text).run();
}

QString PredicateLexer::describe(Kind kind)
{
    switch (kind) {
    case Kind::End:
        return u"the end of the expression"_s;
    case Kind::Identifier:
        return u"a key name"_s;
    case Kind::String:
        return u"a string"_s;
    case Kind::Number:
        return u"a number"_s;
    case Kind::LeftParen:
        return u"“(”"_s;
    case Kind::RightParen:
        return u"“)”"_s;
    case Kind::LeftBrace:
        return u"“{”"_s;
    case Kind::RightBrace:
        return u"“}”"_s;
    case Kind::Comma:
        return u"“,”"_s;
    case Kind::Modifier:
        return u"a comparison option"_s;
    case Kind::Equal:
        return u"“==”"_s;
    case Kind::NotEqual:
        return u"“!=”"_s;
    case Kind::Less:
        return u"“<”"_s;
    case Kind::LessEqual:
        return u"“<=”"_s;
    case Kind::Greater:
        return u"“>”"_s;
    case Kind::GreaterEqual:
        return u"“>=”"_s;
    case Kind::And:
        return u"AND"_s;
    case Kind::Or:
        return u"OR"_s;
    case Kind::Not:
        return u"NOT"_s;
    case Kind::BeginsWith:
        return u"BEGINSWITH"_s;
    case Kind::EndsWith:
        return u"ENDSWITH"_s;
    case Kind::Contains:
        return u"CONTAINS"_s;
    case Kind::Like:
        return u"LIKE"_s;
    case Kind::Matches:
        return u"MATCHES"_s;
    case Kind::In:
        return u"IN"_s;
    case Kind::Between:
        return u"BETWEEN"_s;
    case Kind::True:
        return u"TRUE"_s;
    case Kind::False:
        return u"FALSE"_s;
    case Kind::Nil:
        return u"NIL"_s;
    case Kind::TruePredicate:
        return u"TRUEPREDICATE"_s;
    case Kind::FalsePredicate:
        return u"FALSEPREDICATE"_s;
    }
    return {};
}
