#pragma once

#include <QString>

// The [c] and [d] options of string comparisons: case folding, and diacritic folding
// (canonical decomposition with the combining marks removed, so "é" compares as "e").
class TextFolding final {
public:
    static QString fold(const QString& text, bool caseInsensitive, bool diacriticInsensitive);
    static QString withoutDiacritics(const QString& text);
};
