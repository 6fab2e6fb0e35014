#include "uppercasefirst.h"

#include <stdexcept>

namespace UppercaseFirst {

QString stringByUppercasingFirstLetter(const QString& text)
{
    if (text.isEmpty())
        throw std::out_of_range("no first letter in an empty text");
    return text.left(1).toUpper() + text.mid(1);
}

QString stringByLowercasingFirstLetter(const QString& text)
{
    if (text.isEmpty())
        throw std::out_of_range("no first letter in an empty text");
    return text.left(1).toLower() + text.mid(1);
}

} // namespace UppercaseFirst
