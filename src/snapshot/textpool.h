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

    // The text of `view`, empty (never null) when it is empty. The reference holds until the
    // next call: copying it is the caller's one reference count to pay.
    const QString& text(QStringView view)
    {
        static const QString empty = QStringLiteral("");
        if (view.isEmpty())
            return empty;
        auto it = m_texts.constFind(TextKey{QString::fromRawData(view.data(), view.size())});
        if (it == m_texts.cend()) {
            if (m_texts.size() >= kLimit)
                m_texts.clear();
            it = m_texts.insert(TextKey{view.toString()});
        }
        return it->text;
    }

    qsizetype size() const { return m_texts.size(); }

private:
    QSet<TextKey> m_texts;
};
