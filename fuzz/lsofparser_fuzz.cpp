// Feeds a sequence of lsof outputs (separated by 0x01 bytes) through parsing and change
// detection, checking each pass against a plain restatement of how closed items are placed,
// and each parse against what a fetcher that saw no earlier output makes of the same text.

#include "fuzzcheck.h"
#include "fuzzinput.h"
#include "snapshot/lsoffetcher.h"

namespace {

// Closed items of `previous` inserted one by one, each at (closed count so far + position of
// the last previous item still present), or at the end when that is past it.
LsofItemList expectedOrder(const LsofItemList& items, const LsofItemList& previous)
{
    LsofItemList placed = items;
    qsizetype closed = 0;
    qsizetype lastFound = 0;
    for (const LsofItemPtr& before : previous) {
        if (items.contains(before)) {
            lastFound = placed.indexOf(before);
            continue;
        }
        ++closed;
        const qsizetype index = closed + lastFound;
        if (index < placed.size())
            placed.insert(index, before);
        else
            placed.append(before);
    }
    return placed;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    LsofFetcher fetcher;
    for (const QByteArray& output : FuzzInput::splitOutputs(data, size, 0x01)) {
        LsofItemList items = fetcher.parseLsofOutput(output);
        for (const LsofItemPtr& item : items)
            require(item != nullptr, "parsed item is null");
        // A connection kept from an earlier output keeps its fields but the state.
        const auto requireSame = [](const LsofItemList& one, const LsofItemList& other,
                                    bool allFields, const char* what) {
            require(one.size() == other.size(), what);
            for (qsizetype i = 0; i < one.size(); ++i) {
                require(one[i]->identifier() == other[i]->identifier(), what);
                require(one[i]->state() == other[i]->state() &&
                            one[i]->state().isNull() == other[i]->state().isNull(),
                        what);
                if (allFields) {
                    using K = LsofItem::Key;
                    for (const K key : {K::processName, K::processId, K::protocol, K::localPort,
                                        K::localPortNumber, K::localAddress, K::remotePort,
                                        K::remotePortNumber, K::remoteAddress, K::user, K::type,
                                        K::sizeAndOffset, K::device, K::fileDescriptor}) {
                        require(one[i]->text(key) == other[i]->text(key) &&
                                    one[i]->value(key).isValid() == other[i]->value(key).isValid(),
                                what);
                    }
                }
            }
        };
        LsofFetcher fresh;
        const LsofItemList alone = fresh.parseLsofOutput(output);
        requireSame(items, alone, false, "the earlier outputs changed a connection");
        // The application's outputs are UTF-8; their text parses as their bytes do.
        if (output.isValidUtf8()) {
            LsofFetcher fromText;
            requireSame(alone, fromText.parseLsofResult(QString::fromUtf8(output)), true,
                        "the text and its bytes parse apart");
        }
        if (items.isEmpty())
            continue;
        const LsofItemList previous = fetcher.previousSnapshot();
        const LsofItemList expected = expectedOrder(items, previous);
        const LsofItemList parsedItems = items;
        fetcher.processLsofItemsChanges(items);
        require(items == expected, "closed items placed out of order");
        qsizetype closed = 0;
        for (const LsofItemPtr& item : items) {
            const int status = item->status();
            require(status >= 0 && status <= 3, "status out of range");
            // Only the previous snapshot's items that are gone are closed.
            const bool isParsed = parsedItems.contains(item);
            require((status == 3) == !isParsed, "closed status on the wrong items");
            closed += isParsed ? 0 : 1;
        }
        require(items.size() == parsedItems.size() + closed, "closed items counted wrong");
        require(fetcher.previousSnapshot() == items, "snapshot not kept");
    }
    return 0;
}
