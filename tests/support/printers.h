#pragma once

// Readable failure messages for Qt types in every test (force-included by tests/CMakeLists.txt).

#include <QString>
#include <QStringList>
#include <QVariant>

#include <ostream>

inline void PrintTo(const QString& text, std::ostream* out)
{
    if (text.isNull())
        *out << "null";
    else
        *out << '"' << text.toStdString() << '"';
}

inline void PrintTo(const QStringList& list, std::ostream* out)
{
    *out << '[';
    for (qsizetype i = 0; i < list.size(); ++i) {
        if (i)
            *out << ", ";
        PrintTo(list[i], out);
    }
    *out << ']';
}

inline void PrintTo(const QVariant& value, std::ostream* out)
{
    if (!value.isValid())
        *out << "invalid";
    else
        *out << value.typeName() << '(' << value.toString().toStdString() << ')';
}
