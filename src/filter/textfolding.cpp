#include "textfolding.h"

namespace {

bool isAscii(const QString& text)
{
    for (const QChar c : text) {
        if (c.unicode() >= 0x80)
            return false;
    }
    return true;
}

bool isMark(QChar c)
{
    const auto category = c.category();
    return category == QChar::Mark_NonSpacing || category == QChar::Mark_SpacingCombining ||
           category == QChar::Mark_Enclosing;
}

} // namespace

QString TextFolding::fold(const QString& text, bool caseInsensitive, bool diacriticInsensitive)
{
    QString folded = diacriticInsensitive ? withoutDiacritics(text) : text;
    return caseInsensitive ? folded.toCaseFolded() : folded;
}

QString TextFolding::withoutDiacritics(const QString& text)
{
    if (isAscii(text))
        return text;
    QString decomposed = text.normalized(QString::NormalizationForm_D);
    decomposed.removeIf(isMark);
    return decomposed;
}
