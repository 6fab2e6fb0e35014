#pragma once

#include "textkey.h"

#include <QSet>
#include <QString>
#include <QStringView>

// One shared copy of each text the parser sees again and again: states, protocols, users,
// process names, descriptors. Ten thousand connections then hold a few hundred texts instead
// of ten thousand copies of each, and comparing a state with the one before reads memory
// that is already in the cache. Bounded: past the limit it starts afresh.
class TextPool final {
public:
    static constexpr qsizetype kLimit = 1 << 16;

    // The text of `view`, empty (never null) when it is empty.
    QString text(QStringView view)
    {
        if (view.isEmpty())
            return QStringLiteral("");
        const auto it = m_texts.constFind(TextKey{QString::fromRawData(view.data(), view.size())});
        if (it != m_texts.cend())
            return it->text;
        if (m_texts.size() >= kLimit)
            m_texts.clear();
        const QString owned = view.toString();
        m_texts.insert(TextKey{owned});
        return owned;
    }

    qsizetype size() const { return m_texts.size(); }

private:
    QSet<TextKey> m_texts;
};
