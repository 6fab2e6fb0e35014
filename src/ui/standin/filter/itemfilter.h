#pragma once
// Stand-in until the filter branch is merged; deleted then.
#include "snapshot/lsofitem.h"

#include <optional>

struct ItemFilter {
    std::optional<QString> profileExpression;
    bool useSearchExpression = false;
    QString searchText;
    QList<LsofItem::Key> keywordKeys;
    QStringList hiddenTypes;
    QStringList hiddenProtocols;
    bool remoteOnly = false;
    LsofItemList filterItems(const LsofItemList& items) const;
};
