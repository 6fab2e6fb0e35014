#pragma once

#include <QByteArray>
#include <QString>
#include <QVariant>

// How object values are kept in SQLite: whether a value class can be stored, in which column
// type, whether as a blob, and its conversion into and back from the column. Value classes are
// named as the property codes name them: "NSString" (QString), "NSNumber" (integral, floating
// and boolean QVariants), "NSDate" (QDateTime), "NSData" (QByteArray), and any other Qt type
// name whose values QDataStream can write (kept as a blob of the class name and the value).
namespace SQLitePersistence {

// The class name a value answers, as above; "NSArray"/"NSDictionary" for lists and maps, and the
// Qt type name for anything else. Empty for an absent value.
QString classNameOfValue(const QVariant& value);
bool isNumber(const QVariant& value);
// True for an invalid QVariant and for a null one (a null text, a null date...).
bool isAbsent(const QVariant& value);

bool isArrayKind(const QString& className);
bool isDictionaryKind(const QString& className);
bool isSetKind(const QString& className);
bool isCollectionKind(const QString& className);

bool canBeStoredInSQLite(const QString& className);
QString columnTypeForObjectStorage(const QString& className);
bool shouldBeStoredInBlob(const QString& className);

QString sqlColumnRepresentationOfSelf(const QVariant& value);
QVariant objectWithSqlColumnRepresentation(const QString& className, const QString& text);
QByteArray sqlBlobRepresentationOfSelf(const QVariant& value);
QVariant objectWithSQLBlobRepresentation(const QString& className, const QByteArray& bytes);

// A number's text form: 42, 3.5, 1 for true.
QString numberStringValue(const QVariant& number);
// The leading number of a text, as a lenient reader takes it ("3.0" -> 3, "abc" -> 0).
qint64 leadingIntegerValue(const QString& text);
double leadingDoubleValue(const QString& text);

} // namespace SQLitePersistence
