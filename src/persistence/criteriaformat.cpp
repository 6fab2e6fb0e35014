#include "criteriaformat.h"

#include "sqlitepersistence.h"

using namespace Qt::StringLiterals;

namespace {

bool isFlag(QChar c)
{
    return c == u'-' || c == u'+' || c == u' ' || c == u'#' || c == u'0' || c == u'\'';
}

bool isLengthModifier(QChar c)
{
    return c == u'l' || c == u'h' || c == u'q' || c == u'L' || c == u'z' || c == u't' || c == u'j';
}

QString convert(QChar conversion, const QString& spec, const QVariant& argument)
{
    // Flags, width and precision without the length modifier, for the C library to apply.
    QString cSpec = spec.chopped(1);
    cSpec.remove(u'l').remove(u'L').remove(u'h').remove(u'q').remove(u'z').remove(u't');
    cSpec.remove(u'j').remove(u'\'');
    switch (conversion.unicode()) {
    case u'd':
    case u'i':
        return QString::asprintf((cSpec + u"lld"_s).toLatin1().constData(), argument.toLongLong());
    case u'u':
    case u'x':
    case u'X':
        return QString::asprintf((cSpec + u"ll"_s + conversion).toLatin1().constData(),
                                 argument.toULongLong());
    case u'c':
        return argument.typeId() == QMetaType::QString ? argument.toString().left(1)
                                                       : QString(QChar(argument.toInt()));
    case u'f':
    case u'F':
    case u'g':
    case u'G':
    case u'e':
    case u'E':
        return QString::asprintf((cSpec + conversion).toLatin1().constData(), argument.toDouble());
    default: // '@' and 's'
        if (SQLitePersistence::isNumber(argument))
            return SQLitePersistence::numberStringValue(argument);
        return SQLitePersistence::isAbsent(argument) && conversion == u'@' ? u"(null)"_s
                                                                           : argument.toString();
    }
}

} // namespace

namespace CriteriaFormat {

QString format(const QString& formatText, const QVariantList& arguments)
{
    QString result;
    qsizetype next = 0;
    const qsizetype size = formatText.size();
    for (qsizetype i = 0; i < size; ++i) {
        const QChar c = formatText[i];
        if (c != u'%') {
            result.append(c);
            continue;
        }
        qsizetype j = i + 1;
        if (j < size && formatText[j] == u'%') {
            result.append(u'%');
            i = j;
            continue;
        }
        while (j < size && isFlag(formatText[j]))
            ++j;
        while (j < size && formatText[j].isDigit())
            ++j;
        if (j < size && formatText[j] == u'.') {
            ++j;
            while (j < size && formatText[j].isDigit())
                ++j;
        }
        while (j < size && isLengthModifier(formatText[j]))
            ++j;
        static const QString conversions = u"@sdiuxXcfFgGeE"_s;
        if (j >= size || !conversions.contains(formatText[j])) {
            result.append(formatText.mid(i, j - i));
            i = j - 1;
            continue;
        }
        const QString spec = formatText.mid(i, j - i + 1);
        if (next < arguments.size())
            result.append(convert(formatText[j], spec, arguments[next++]));
        i = j;
    }
    return result;
}

} // namespace CriteriaFormat
