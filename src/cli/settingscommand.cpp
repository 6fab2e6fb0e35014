#include "settingscommand.h"

#include "prefs/cvprefshelper.h"
#include "prefs/userdefaults.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonParseError>

#include <optional>
#include <variant>

using namespace Qt::StringLiterals;

namespace {

constexpr int kExitOk = 0;
constexpr int kExitUnwritable = 1;
constexpr int kExitUsage = 2;

enum class Kind { Boolean, Integer, Colour, List, TextList, Text };

Kind kindOf(const QString& key, const QVariant& registered)
{
    if (key == PrefKeys::ColumnsUserDefault)
        return Kind::List;
    switch (registered.typeId()) {
    case QMetaType::Bool:
        return Kind::Boolean;
    case QMetaType::LongLong:
    case QMetaType::Int:
        return Kind::Integer;
    case QMetaType::QStringList:
        return Kind::TextList;
    case QMetaType::QVariantList:
        return Kind::List;
    case QMetaType::QString:
        return RgbaColor::fromText(registered.toString()) ? Kind::Colour : Kind::Text;
    default:
        return Kind::Text;
    }
}

class SettingsCommand final {
public:
    SettingsCommand(QTextStream& out, QTextStream& err, UserDefaults& store)
        : m_out(out), m_err(err), m_store(store), m_helper(store)
    {
    }

    int run(const QStringList& arguments);

private:
    int usage(const QString& message);
    int list();
    int get(const QString& key);
    int set(const QString& key, const QString& value);
    int reset(const QString& key);
    int reportWrite();
    bool checkKey(const QString& key);
    QString currentText(const QString& key);
    // The value to store, or the message saying what the key expects.
    std::variant<QVariant, QString> parse(const QString& key, const QString& text) const;

    QTextStream& m_out;
    QTextStream& m_err;
    UserDefaults& m_store;
    CVPrefsHelper m_helper;
};

int SettingsCommand::usage(const QString& message)
{
    m_err << "corvina: " << message << '\n';
    m_err.flush();
    return kExitUsage;
}

bool SettingsCommand::checkKey(const QString& key)
{
    if (PrefKeys::All.contains(key))
        return true;
    usage(u"unknown setting '%1'; 'corvina settings list' shows them all"_s.arg(key));
    return false;
}

int SettingsCommand::run(const QStringList& arguments)
{
    const QString action = arguments.value(0);
    const qsizetype count = arguments.size();
    if (action == u"list" && count == 1)
        return list();
    if (action == u"get" && count == 2)
        return checkKey(arguments[1]) ? get(arguments[1]) : kExitUsage;
    if (action == u"set" && count == 3)
        return checkKey(arguments[1]) ? set(arguments[1], arguments[2]) : kExitUsage;
    if (action == u"reset" && count == 2)
        return checkKey(arguments[1]) ? reset(arguments[1]) : kExitUsage;
    return usage(u"usage: corvina settings list | get KEY | set KEY VALUE | reset KEY"_s);
}

QString SettingsCommand::currentText(const QString& key)
{
    const QVariant registered = m_store.registeredDefault(key);
    switch (kindOf(key, registered)) {
    case Kind::Boolean:
        return m_store.boolForKey(key) ? u"true"_s : u"false"_s;
    case Kind::Integer:
        return QString::number(m_store.integerForKey(key));
    case Kind::Colour: {
        const std::optional<RgbaColor> color = m_helper.colorForKey(key);
        return color ? color->toText() : QString();
    }
    case Kind::List:
    case Kind::TextList:
        if (!registered.isValid() && !m_store.hasStoredValue(key))
            return QString();
        return QString::fromUtf8(
            QJsonDocument(QJsonArray::fromVariantList(m_store.arrayForKey(key)))
                .toJson(QJsonDocument::Compact));
    case Kind::Text:
        return m_store.stringForKey(key);
    }
    return QString();
}

std::variant<QVariant, QString> SettingsCommand::parse(const QString& key,
                                                       const QString& text) const
{
    switch (kindOf(key, m_store.registeredDefault(key))) {
    case Kind::Boolean:
        if (text == u"true" || text == u"false")
            return QVariant(text == u"true");
        return u"%1 expects a boolean (true or false), not '%2'"_s.arg(key, text);
    case Kind::Integer: {
        bool ok = false;
        const qint64 number = text.toLongLong(&ok);
        if (ok)
            return QVariant(number);
        return u"%1 expects an integer, not '%2'"_s.arg(key, text);
    }
    case Kind::Colour:
        if (const auto color = RgbaColor::fromText(text))
            return QVariant(color->toText());
        return u"%1 expects a colour (#AARRGGBB), not '%2'"_s.arg(key, text);
    case Kind::List:
    case Kind::TextList: {
        QJsonParseError error;
        const QJsonDocument document = QJsonDocument::fromJson(text.toUtf8(), &error);
        const bool isArray = error.error == QJsonParseError::NoError && document.isArray();
        if (isArray && kindOf(key, m_store.registeredDefault(key)) == Kind::List)
            return QVariant(document.array().toVariantList());
        if (isArray) {
            QStringList texts;
            for (const QJsonValue& element : document.array()) {
                if (!element.isString())
                    return u"%1 expects a JSON array of texts, such as [\"/usr/bin/firefox\"]"_s
                        .arg(key);
                texts << element.toString();
            }
            return QVariant(texts);
        }
        return u"%1 expects a JSON array, such as [\"a\", \"b\"], not '%2'"_s.arg(key, text);
    }
    case Kind::Text:
        return QVariant(text);
    }
    return QVariant(text);
}

int SettingsCommand::reportWrite()
{
    const QString error = m_store.lastWriteError();
    if (error.isNull())
        return kExitOk;
    m_err << "corvina: " << error << '\n';
    m_err.flush();
    return kExitUnwritable;
}

int SettingsCommand::list()
{
    for (const QString& key : PrefKeys::All)
        m_out << key << '\t' << currentText(key) << '\n';
    m_out.flush();
    return kExitOk;
}

int SettingsCommand::get(const QString& key)
{
    m_out << currentText(key) << '\n';
    m_out.flush();
    return kExitOk;
}

int SettingsCommand::set(const QString& key, const QString& value)
{
    const std::variant<QVariant, QString> parsed = parse(key, value);
    if (const auto* message = std::get_if<QString>(&parsed))
        return usage(*message);
    m_store.setObject(key, std::get<QVariant>(parsed));
    return reportWrite();
}

int SettingsCommand::reset(const QString& key)
{
    m_store.removeObjectForKey(key);
    return reportWrite();
}

} // namespace

int runSettingsCommand(const QStringList& arguments, QTextStream& out, QTextStream& err,
                       UserDefaults& store)
{
    return SettingsCommand(out, err, store).run(arguments);
}

int runSettingsCommand(const QStringList& arguments, QTextStream& out, QTextStream& err)
{
    UserDefaults store(UserDefaults::standardFilePath());
    return runSettingsCommand(arguments, out, err, store);
}
