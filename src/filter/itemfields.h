#pragma once

#include "predicatenode.h"
#include "snapshot/lsofitem.h"

#include <optional>

// Field access for the filter's inner loops. LsofItem::value() wraps every field in a QVariant;
// over a hundred thousand rows and sixteen columns that wrapping was most of a filter pass, so
// the filter reads the accessors directly.
class ItemFields final {
public:
    // The field as text, null when absent. Numbers print in decimal.
    static QString text(const LsofItem& item, LsofItem::Key key);
    // The numeric fields (status, PID, the two port numbers, the traffic figures and
    // `shortLived`, 1 or 0); nothing for a text key or an absent number.
    static std::optional<PredicateNumber> number(const LsofItem& item, LsofItem::Key key);
    static bool isNumeric(LsofItem::Key key);
};
