#include "snapshot/lsofitem.h"

using namespace Qt::StringLiterals;

QStringList LsofItem::csvTitles()
{
    return {u"Process Id"_s,      u"Localized App Name"_s, u"Type"_s,
            u"Protocol"_s,        u"Local Address"_s,      u"Local Port"_s,
            u"Local Port Name"_s, u"Remote Address"_s,     u"Remote Hostname"_s,
            u"Remote Port"_s,     u"Remote Port Name"_s,   u"State"_s,
            u"Process Path"_s};
}

QStringList LsofItem::csvKeys()
{
    // Each title without its blanks, first letter lower-cased.
    static const QStringList keys = [] {
        QStringList result;
        for (QString title : csvTitles()) {
            title.remove(u' ');
            title[0] = title[0].toLower();
            result << title;
        }
        return result;
    }();
    return keys;
}

QStringList LsofItem::csvLineFields() const
{
    QStringList fields;
    for (const QString& key : csvKeys()) {
        const QVariant field = value(key);
        fields << (field.isValid() ? field.toString() : u""_s);
    }
    return fields;
}
