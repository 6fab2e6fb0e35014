#pragma once

#include <QString>

// First-letter case changes used to turn operation names into property names. An empty text
// has no first letter: callers pass names only, and an empty one raises std::out_of_range.
namespace UppercaseFirst {

QString stringByUppercasingFirstLetter(const QString& text);
QString stringByLowercasingFirstLetter(const QString& text);

} // namespace UppercaseFirst
