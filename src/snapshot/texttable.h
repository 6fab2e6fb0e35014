#pragma once

#include <QSet>
#include <QString>
#include <QStringView>

// Texts kept once and handed out shared. Most fields of lsof's lines repeat from line to line
// and from one refresh to the next (names, ids, addresses, ports, descriptors, states): taken
// from here, a big snapshot's records cost no allocation for a text seen before.
class TextTable final {
public:
    // The text of the view; empty, never null, for an empty view.
    QString text(QStringView view);
    // Forgets every text once more than `limit` are kept: the sockets of a busy machine come
    // and go, and their texts with them.
    void bound(qsizetype limit);

private:
    QSet<QString> m_texts;
};
