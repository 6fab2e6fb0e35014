#include "sqlitepersistence.h"

#include <QDataStream>
#include <QDateTime>
#include <QIODevice>
#include <QMetaType>

#include <charconv>
#include <limits>

using namespace Qt::StringLiterals;

namespace {

enum class ValueClass { String, Number, Date, Data, Archived, None };

ValueClass valueClassForName(const QString& className)
{
    if (className == u"NSString" || className == u"NSMutableString")
        return ValueClass::String;
    if (className == u"NSNumber")
        return ValueClass::Number;
    if (className == u"NSDate")
        return ValueClass::Date;
    if (className == u"NSData" || className == u"NSMutableData")
        return ValueClass::Data;
    if (className.isEmpty())
        return ValueClass::None;
    const QMetaType type = QMetaType::fromName(className.toUtf8());
    if (type.isValid() && type.hasRegisteredDataStreamOperators())
        return ValueClass::Archived;
    return ValueClass::None;
}

const QString kDateFormat = u"yyyy-MM-dd HH:mm:ss"_s;

QString dateText(const QDateTime& date)
{
    const QDateTime local = date.toLocalTime();
    // Four fraction digits; the last is always 0 since QDateTime keeps milliseconds.
    return local.toString(kDateFormat) + u'.' +
           QString::number(local.time().msec()).rightJustified(3, u'0') + u'0';
}

QDateTime dateFromText(const QString& text)
{
    const qsizetype dot = text.lastIndexOf(u'.');
    if (dot < 0 || text.size() - dot - 1 != 4)
        return QDateTime();
    const QString fraction = text.mid(dot + 1);
    for (const QChar c : fraction) {
        if (!c.isDigit())
            return QDateTime();
    }
    QDateTime date = QDateTime::fromString(text.left(dot), kDateFormat);
    if (!date.isValid())
        return QDateTime();
    return date.addMSecs((fraction.toInt() + 5) / 10);
}

constexpr QDataStream::Version kArchiveVersion = QDataStream::Qt_6_4;

} // namespace

namespace SQLitePersistence {

bool isNumber(const QVariant& value)
{
    switch (value.typeId()) {
    case QMetaType::Bool:
    case QMetaType::Int:
    case QMetaType::UInt:
    case QMetaType::Long:
    case QMetaType::ULong:
    case QMetaType::LongLong:
    case QMetaType::ULongLong:
    case QMetaType::Short:
    case QMetaType::UShort:
    case QMetaType::Char:
    case QMetaType::SChar:
    case QMetaType::UChar:
    case QMetaType::Float:
    case QMetaType::Double:
        return true;
    default:
        return false;
    }
}

bool isAbsent(const QVariant& value)
{
    // Qt 6 calls a variant holding a null text or date non-null; for storage it is absent.
    switch (value.typeId()) {
    case QMetaType::UnknownType:
    case QMetaType::Nullptr:
        return true;
    case QMetaType::QString:
        return value.toString().isNull();
    case QMetaType::QByteArray:
        return value.toByteArray().isNull();
    case QMetaType::QDateTime:
        return !value.toDateTime().isValid();
    default:
        return value.isNull();
    }
}

QString classNameOfValue(const QVariant& value)
{
    if (!value.isValid())
        return QString();
    if (isNumber(value))
        return u"NSNumber"_s;
    switch (value.typeId()) {
    case QMetaType::QString:
        return u"NSString"_s;
    case QMetaType::QDateTime:
        return u"NSDate"_s;
    case QMetaType::QByteArray:
        return u"NSData"_s;
    case QMetaType::QVariantList:
        return u"NSArray"_s;
    case QMetaType::QVariantMap:
        return u"NSDictionary"_s;
    default:
        return QString::fromUtf8(value.metaType().name());
    }
}

bool isArrayKind(const QString& className)
{
    return className == u"NSArray" || className == u"NSMutableArray";
}

bool isDictionaryKind(const QString& className)
{
    return className == u"NSDictionary" || className == u"NSMutableDictionary";
}

bool isSetKind(const QString& className)
{
    return className == u"NSSet" || className == u"NSMutableSet";
}

bool isCollectionKind(const QString& className)
{
    return isArrayKind(className) || isDictionaryKind(className) || isSetKind(className);
}

bool canBeStoredInSQLite(const QString& className)
{
    return valueClassForName(className) != ValueClass::None;
}

QString columnTypeForObjectStorage(const QString& className)
{
    switch (valueClassForName(className)) {
    case ValueClass::String:
    case ValueClass::Data:
        return u"TEXT"_s;
    case ValueClass::Number:
    case ValueClass::Date:
        return u"REAL"_s;
    case ValueClass::Archived:
        return u"BLOB"_s;
    case ValueClass::None:
        break;
    }
    return QString();
}

bool shouldBeStoredInBlob(const QString& className)
{
    const ValueClass kind = valueClassForName(className);
    return kind == ValueClass::Data || kind == ValueClass::Archived;
}

QString numberStringValue(const QVariant& number)
{
    switch (number.typeId()) {
    case QMetaType::Bool:
        return number.toBool() ? u"1"_s : u"0"_s;
    case QMetaType::Float:
        return QString::asprintf("%0.7g", double(number.toFloat()));
    case QMetaType::Double:
        return QString::asprintf("%0.16g", number.toDouble());
    case QMetaType::UInt:
    case QMetaType::ULong:
    case QMetaType::ULongLong:
    case QMetaType::UShort:
    case QMetaType::UChar:
        return QString::number(number.toULongLong());
    default:
        if (isNumber(number))
            return QString::number(number.toLongLong());
        return number.toString();
    }
}

qint64 leadingIntegerValue(const QString& text)
{
    const QByteArray bytes = text.trimmed().toUtf8();
    const char* begin = bytes.constData();
    const char* end = begin + bytes.size();
    if (begin != end && *begin == '+')
        ++begin;
    qint64 value = 0;
    const auto result = std::from_chars(begin, end, value);
    if (result.ec == std::errc::result_out_of_range)
        return (begin != end && *begin == '-') ? std::numeric_limits<qint64>::min()
                                               : std::numeric_limits<qint64>::max();
    return result.ec == std::errc() ? value : 0;
}

double leadingDoubleValue(const QString& text)
{
    const QByteArray bytes = text.trimmed().toUtf8();
    const char* begin = bytes.constData();
    const char* end = begin + bytes.size();
    if (begin != end && *begin == '+')
        ++begin;
    double value = 0.0;
    const auto result = std::from_chars(begin, end, value);
    return result.ec == std::errc() ? value : 0.0;
}

QString sqlColumnRepresentationOfSelf(const QVariant& value)
{
    if (isNumber(value))
        return numberStringValue(value);
    if (value.typeId() == QMetaType::QDateTime)
        return dateText(value.toDateTime());
    return value.toString();
}

QVariant objectWithSqlColumnRepresentation(const QString& className, const QString& text)
{
    if (text.isNull())
        return QVariant();
    switch (valueClassForName(className)) {
    case ValueClass::String:
        return text;
    case ValueClass::Number: {
        const double real = leadingDoubleValue(text);
        const qint64 integer = leadingIntegerValue(text);
        if (real == double(integer))
            return QVariant::fromValue(integer);
        return real;
    }
    case ValueClass::Date: {
        const QDateTime date = dateFromText(text);
        return date.isValid() ? QVariant(date) : QVariant();
    }
    case ValueClass::Data:
        return text.toUtf8();
    case ValueClass::Archived:
        return objectWithSQLBlobRepresentation(className, text.toUtf8());
    case ValueClass::None:
        break;
    }
    return QVariant();
}

QByteArray sqlBlobRepresentationOfSelf(const QVariant& value)
{
    if (value.typeId() == QMetaType::QByteArray)
        return value.toByteArray();
    QByteArray bytes;
    QDataStream stream(&bytes, QIODevice::WriteOnly);
    stream.setVersion(kArchiveVersion);
    stream << classNameOfValue(value);
    if (!value.metaType().save(stream, value.constData()))
        return QByteArray();
    return bytes;
}

QVariant objectWithSQLBlobRepresentation(const QString& className, const QByteArray& bytes)
{
    const ValueClass kind = valueClassForName(className);
    if (kind == ValueClass::Data)
        return bytes;
    if (kind != ValueClass::Archived || bytes.isEmpty())
        return QVariant();
    QDataStream stream(bytes);
    stream.setVersion(kArchiveVersion);
    QString storedName;
    stream >> storedName;
    if (stream.status() != QDataStream::Ok || storedName != className)
        return QVariant();
    const QMetaType type = QMetaType::fromName(className.toUtf8());
    QVariant value(type);
    if (!type.load(stream, value.data()) || stream.status() != QDataStream::Ok)
        return QVariant();
    return value;
}

} // namespace SQLitePersistence
