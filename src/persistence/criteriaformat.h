#pragma once

#include <QString>
#include <QVariantList>

// printf-style formatting of criteria and statements, as every query operation applies it to
// its criteria before use: "%@" and "%s" take a value's text, "%d"/"%ld"/"%i"/"%u" an integer,
// "%f"/"%g"/"%e" a floating value, "%%" a percent sign. A conversion with no argument left
// writes nothing; an incomplete one is kept as written. Operations that hand a finished text on
// format it again with no arguments, so a "%" inside a value is read once more, as built.
namespace CriteriaFormat {

QString format(const QString& formatText, const QVariantList& arguments = {});

} // namespace CriteriaFormat
