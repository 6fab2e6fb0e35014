#include "multiplesort.h"

#include "sqlitepersistence.h"

#include <QDateTime>

#include <stdexcept>

using namespace Qt::StringLiterals;

namespace {

// Answers <0, 0, >0 for `left` against `right`, asking `left` to perform `selector`.
int compareBySelector(const QVariant& left, const QVariant& right, const QString& selector)
{
    const bool textSelector = selector == u"caseInsensitiveCompare:" ||
                              selector == u"localizedCompare:" ||
                              selector == u"localizedCaseInsensitiveCompare:";
    if (left.typeId() == QMetaType::QString) {
        const QString a = left.toString();
        const QString b = right.toString();
        if (selector == u"compare:")
            return a.compare(b);
        if (selector == u"caseInsensitiveCompare:")
            return a.compare(b, Qt::CaseInsensitive);
        if (selector == u"localizedCompare:")
            return a.localeAwareCompare(b);
        if (selector == u"localizedCaseInsensitiveCompare:")
            return a.toCaseFolded().localeAwareCompare(b.toCaseFolded());
    } else if (!textSelector && selector == u"compare:") {
        if (left.typeId() == QMetaType::QDateTime) {
            const QDateTime a = left.toDateTime();
            const QDateTime b = right.toDateTime();
            return a < b ? -1 : (b < a ? 1 : 0);
        }
        if (SQLitePersistence::isNumber(left)) {
            const double a = left.toDouble();
            const double b = right.toDouble();
            return a < b ? -1 : (b < a ? 1 : 0);
        }
    }
    throw std::runtime_error("invalid selector passed to compare");
}

} // namespace

namespace MultipleSort {

void sortArrayUsingSelector(QVariantList& array, const QString& selector,
                            const QList<QVariantList*>& pairedArrays)
{
    if (selector.isNull())
        throw std::invalid_argument("compare null selector given");
    if (array.isEmpty())
        return;
    for (const QVariantList* paired : pairedArrays) {
        if (paired && paired->size() < array.size())
            throw std::invalid_argument("paired array shorter than the sorted array");
    }
    const qsizetype count = array.size();
    qsizetype gap = 1;
    while (gap <= count)
        gap = 3 * gap + 1;
    do {
        gap /= 3;
        for (qsizetype i = gap; i < count; ++i) {
            for (qsizetype j = i; j >= gap; j -= gap) {
                if (compareBySelector(array[j], array[j - gap], selector) >= 0)
                    break;
                array.swapItemsAt(j, j - gap);
                for (QVariantList* paired : pairedArrays) {
                    if (paired)
                        paired->swapItemsAt(j, j - gap);
                }
            }
        }
    } while (gap > 1);
}

} // namespace MultipleSort
