// The keyword search of the item filter on fixed items. The first byte switches the toolbar's
// segments; the rest is the search text. What passes is a subsequence of the input, a bad
// pattern shows nothing, and one item on its own is judged as in the list.

#include "filter/filtertestitems.h"
#include "filter/itemfilter.h"
#include "fuzzcheck.h"

using namespace Qt::StringLiterals;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    static const LsofItemList items = fixtureItems();
    if (size == 0)
        return 0;
    const std::uint8_t flags = data[0];
    ItemFilter filter;
    filter.searchText =
        QString::fromUtf8(reinterpret_cast<const char*>(data + 1), qsizetype(size - 1));
    if (flags & 1)
        filter.hiddenTypes << u"IPv4"_s;
    if (flags & 2)
        filter.hiddenTypes << u"IPv6"_s;
    if (flags & 4)
        filter.hiddenProtocols << u"TCP"_s;
    if (flags & 8)
        filter.hiddenProtocols << u"UDP"_s;
    if (flags & 16)
        filter.hiddenProtocols << u"Other"_s;
    filter.remoteOnly = (flags & 32) != 0;
    require(!filter.expression().has_value(), "keyword mode chose an expression");

    const ItemFilter::Result result = filter.apply(items);
    require(!result.expressionError.has_value(), "keyword mode reported an expression error");
    if (!result.keywordError.isEmpty())
        require(result.items.isEmpty(), "a bad pattern let items through");
    qsizetype next = 0;
    for (const LsofItemPtr& passed : result.items) {
        const qsizetype at = items.indexOf(passed, next);
        require(at >= 0, "an item passed that was not given, or out of order");
        next = at + 1;
    }
    if (result.gaveUp)
        return 0;
    for (const LsofItemPtr& item : items)
        require(filter.matches(*item) == result.items.contains(item),
                "one item is judged differently from the list");
    return 0;
}
