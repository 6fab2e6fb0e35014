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
    // The traffic keys' text from figures read once (a row's five figures take one lock); null
    // for an unknown figure or another key.
    static bool isTraffic(LsofItem::Key key);
    static QString trafficText(const LsofItem::Traffic& traffic, LsofItem::Key key);
};
