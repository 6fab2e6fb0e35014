#include "desktopentry.h"

#include <QFile>
#include <QFileInfo>

using namespace Qt::StringLiterals;

namespace {

// Desktop files are a few kilobytes; anything far larger is not one.
constexpr qint64 kMaxDesktopFileSize = 1 << 20;

// Undoes the escapes of a string value: \s \n \t \r \\.
QString unescaped(QStringView value)
{
    QString out;
    out.reserve(value.size());
    for (qsizetype i = 0; i < value.size(); ++i) {
        if (value[i] != u'\\' || i + 1 == value.size()) {
            out += value[i];
            continue;
        }
        switch (value[++i].unicode()) {
        case u's':
            out += u' ';
            break;
        case u'n':
            out += u'\n';
            break;
        case u't':
            out += u'\t';
            break;
        case u'r':
            out += u'\r';
            break;
        default:
            out += value[i];
        }
    }
    return out;
}

QString fileName(const QString& program)
{
    return program.mid(program.lastIndexOf(u'/') + 1);
}

bool isTrue(const QString& value)
{
    return value == u"true"_s || value == u"1"_s;
}

} // namespace

QStringList DesktopEntry::execArguments(QStringView exec)
{
    QStringList words;
    QString word;
    bool inWord = false;
    bool quoted = false;
    for (qsizetype i = 0; i < exec.size(); ++i) {
        const QChar c = exec[i];
        if (quoted) {
            if (c == u'\\' && i + 1 < exec.size()) {
                word += exec[++i];
            } else if (c == u'"') {
                quoted = false;
            } else {
                word += c;
            }
        } else if (c == u'"') {
            quoted = true;
            inWord = true;
        } else if (c == u' ' || c == u'\t') {
            if (inWord)
                words.append(word);
            word.clear();
            inWord = false;
        } else {
            word += c;
            inWord = true;
        }
    }
    if (inWord)
        words.append(word);
    return words;
}

std::optional<DesktopEntry> DesktopEntry::fromFile(const QString& path, const QString& desktopId)
{
    QFile file(path);
    if (file.size() > kMaxDesktopFileSize || !file.open(QIODevice::ReadOnly))
        return std::nullopt;
    return fromText(QString::fromUtf8(file.readAll()), path, desktopId);
}

std::optional<DesktopEntry> DesktopEntry::fromText(QStringView text, const QString& path,
                                                   const QString& desktopId)
{
    QHash<QString, QString> values;
    bool inGroup = false;
    bool sawGroup = false;
    for (QStringView line : text.split(u'\n')) {
        line = line.trimmed();
        if (line.isEmpty() || line.startsWith(u'#'))
            continue;
        if (line.startsWith(u'[')) {
            inGroup = line == u"[Desktop Entry]";
            sawGroup = sawGroup || inGroup;
            continue;
        }
        const qsizetype equals = line.indexOf(u'=');
        if (!inGroup || equals <= 0)
            continue;
        const QString key = line.left(equals).trimmed().toString();
        // The first occurrence of a key counts, as in other readers of the format.
        if (!values.contains(key))
            values.insert(key, unescaped(line.mid(equals + 1).trimmed()));
    }

    const QString type = values.value(u"Type"_s);
    const QString name = values.value(u"Name"_s);
    if (!sawGroup || type != u"Application"_s || name.isEmpty() ||
        isTrue(values.value(u"Hidden"_s)))
        return std::nullopt;

    DesktopEntry entry;
    entry.m_path = path;
    entry.m_desktopId = desktopId;
    entry.m_name = name;
    entry.m_icon = values.value(u"Icon"_s);
    entry.m_startupWMClass = values.value(u"StartupWMClass"_s);
    entry.m_flatpakAppId = values.value(u"X-Flatpak"_s);
    for (auto it = values.cbegin(); it != values.cend(); ++it) {
        const QString& key = it.key();
        if (key.startsWith(u"Name["_s) && key.endsWith(u']') && !it.value().isEmpty())
            entry.m_localizedNames.insert(key.mid(5, key.size() - 6), it.value());
    }
    if (const QString tryExec = values.value(u"TryExec"_s); !tryExec.isEmpty())
        entry.m_tryExecProgram = fileName(tryExec);

    QStringList words = execArguments(values.value(u"Exec"_s));
    if (!words.isEmpty() && fileName(words.front()) == u"env"_s) {
        words.removeFirst();
        while (!words.isEmpty() && words.front().contains(u'='))
            words.removeFirst();
    }
    if (!words.isEmpty() && fileName(words.front()) == u"flatpak"_s && words.contains(u"run"_s)) {
        for (const QString& word : std::as_const(words).mid(words.indexOf(u"run"_s) + 1)) {
            if (word.startsWith(u"--command="_s)) {
                entry.m_execProgram = fileName(word.mid(10));
            } else if (!word.startsWith(u'-')) {
                if (entry.m_flatpakAppId.isEmpty())
                    entry.m_flatpakAppId = word;
                break;
            }
        }
    } else if (!words.isEmpty()) {
        entry.m_execProgram = fileName(words.front());
    }
    return entry;
}

QString DesktopEntry::localizedName(QStringView locale) const
{
    QStringView language = locale;
    for (const QChar stop : {u'.', u'@'}) {
        if (const qsizetype at = language.indexOf(stop); at >= 0)
            language = language.left(at);
    }
    if (!language.isEmpty()) {
        if (const auto it = m_localizedNames.constFind(language.toString());
            it != m_localizedNames.cend())
            return *it;
        if (const qsizetype underscore = language.indexOf(u'_'); underscore > 0) {
            if (const auto it = m_localizedNames.constFind(language.left(underscore).toString());
                it != m_localizedNames.cend())
                return *it;
        }
    }
    return m_name;
}
