#include "texttable.h"

using namespace Qt::StringLiterals;

QString TextTable::text(QStringView view)
{
    if (view.isEmpty())
        return u""_s;
    // Looked up without a copy: the key only borrows the view's characters.
    const QString borrowed = QString::fromRawData(view.data(), view.size());
    if (const auto kept = m_texts.constFind(borrowed); kept != m_texts.cend())
        return *kept;
    return *m_texts.insert(view.toString());
}

void TextTable::bound(qsizetype limit)
{
    if (m_texts.size() > limit)
        m_texts.clear();
}
