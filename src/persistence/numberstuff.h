#pragma once

#include <QLocale>
#include <QString>

// Tests whether a text holds a number, as the record layer reads character columns.
namespace NumberStuff {

// Digits only after trimming; a text of blanks counts as an integer, an empty one does not.
bool holdsIntegerValue(const QString& text);
bool holdsFloatingPointValue(const QString& text);
// Grouping separators are ignored and one leading currency symbol is dropped; exactly one
// decimal separator is required, and no sign.
bool holdsFloatingPointValueForLocale(const QString& text, const QLocale& locale);
QString formattedCurrencyStringWithValue(float value);

} // namespace NumberStuff
