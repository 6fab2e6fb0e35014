#include "numberstuff.h"

namespace NumberStuff {

bool holdsIntegerValue(const QString& text)
{
    if (text.isEmpty())
        return false;
    const QString trimmed = text.trimmed();
    for (const QChar c : trimmed) {
        if (c < u'0' || c > u'9')
            return false;
    }
    return true;
}

bool holdsFloatingPointValue(const QString& text)
{
    return holdsFloatingPointValueForLocale(text, QLocale());
}

bool holdsFloatingPointValueForLocale(const QString& text, const QLocale& locale)
{
    if (text.isEmpty())
        return false;
    QString rest = text.trimmed();
    const QString grouping = locale.groupSeparator();
    if (!grouping.isEmpty())
        rest.remove(grouping);
    const QString currency = locale.currencySymbol();
    if (!currency.isEmpty() && rest.startsWith(currency))
        rest = rest.mid(1).trimmed();
    if (rest.isEmpty())
        return false;
    const QString decimal = locale.decimalPoint();
    const QChar separator = decimal.isEmpty() ? QChar(u'.') : decimal.front();
    int separators = 0;
    for (const QChar c : rest) {
        if (c == separator)
            ++separators;
        else if (c < u'0' || c > u'9')
            return false;
    }
    return separators == 1;
}

QString formattedCurrencyStringWithValue(float value)
{
    const QLocale locale;
    return locale.toCurrencyString(double(value), locale.currencySymbol(QLocale::CurrencyIsoCode));
}

} // namespace NumberStuff
