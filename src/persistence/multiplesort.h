#pragma once

#include <QList>
#include <QString>
#include <QVariant>

// Sorts one list ascending and applies every exchange to paired lists at the same positions,
// so rows of parallel lists stay together. A shell sort: not stable.
namespace MultipleSort {

// `selector` names the comparison each element is asked for: "compare:" (texts, numbers,
// dates), "caseInsensitiveCompare:", "localizedCompare:", "localizedCaseInsensitiveCompare:"
// (texts). A null selector raises std::invalid_argument("compare null selector given"); an
// element that cannot answer it raises std::runtime_error("invalid selector passed to compare").
// Paired lists shorter than the list raise std::invalid_argument before anything moves.
void sortArrayUsingSelector(QVariantList& array, const QString& selector,
                            const QList<QVariantList*>& pairedArrays);

} // namespace MultipleSort
