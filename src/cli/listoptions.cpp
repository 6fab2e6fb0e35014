#include "listoptions.h"

#include <QHash>

#include <functional>

using namespace Qt::StringLiterals;

namespace {

const QStringList kTypes = {u"IPv4"_s, u"IPv6"_s};
const QStringList kProtocols = {u"TCP"_s, u"UDP"_s, u"Other"_s};

// An option that takes a value: which verbs accept it, and what it does with the value (a
// one-line message when the value will not do).
struct ValueOption {
    unsigned accepts;
    std::function<std::optional<QString>(const QString& value, ListOptions& options)> apply;
};

std::optional<QString> setText(QString& field, const QString& value)
{
    field = value;
    return std::nullopt;
}

std::optional<QString> addOneOf(QStringList& field, const QString& value,
                                const QStringList& allowed, const QString& option)
{
    if (!allowed.contains(value))
        return u"%1 takes %2"_s.arg(option, allowed.join(u", "_s));
    field << value;
    return std::nullopt;
}

const QHash<QString, ValueOption>& valueOptions()
{
    using O = ListOptions;
    static const QHash<QString, ValueOption> options = {
        {u"--format"_s,
         {O::Format,
          [](const QString& v, O& o) -> std::optional<QString> {
              const auto format = ItemPrinter::formatForName(v);
              if (!format)
                  return u"unknown format '%1' (table, csv or json)"_s.arg(v);
              o.format = *format;
              return std::nullopt;
          }}},
        {u"--input"_s,
         {O::Input,
          [](const QString& v, O& o) {
              o.hasInput = true;
              return setText(o.input, v);
          }}},
        {u"--keyword"_s,
         {O::Filters, [](const QString& v, O& o) { return setText(o.keyword, v); }}},
        {u"--filter"_s,
         {O::Filters,
          [](const QString& v, O& o) -> std::optional<QString> {
              o.expression = v;
              return std::nullopt;
          }}},
        {u"--profile"_s,
         {O::Filters, [](const QString& v, O& o) { return setText(o.profile, v); }}},
        {u"--hide-type"_s,
         {O::Filters, [](const QString& v,
                         O& o) { return addOneOf(o.hiddenTypes, v, kTypes, u"--hide-type"_s); }}},
        {u"--hide-protocol"_s,
         {O::Filters,
          [](const QString& v, O& o) {
              return addOneOf(o.hiddenProtocols, v, kProtocols, u"--hide-protocol"_s);
          }}},
        {u"--helper-socket"_s,
         {O::HelperSocket, [](const QString& v, O& o) { return setText(o.helperSocket, v); }}},
        {u"--source"_s,
         {O::Source,
          [](const QString& v, O& o) -> std::optional<QString> {
              if (v != u"native" && v != u"lsof")
                  return u"--source takes native or lsof"_s;
              return setText(o.source, v);
          }}},
        {u"--host"_s, {O::Source, [](const QString& v, O& o) { return setText(o.host, v); }}},
    };
    return options;
}

// A switch: true when `arg` is one the verb accepts (and it is now set).
bool applySwitch(const QString& arg, unsigned accepts, ListOptions& options)
{
    if (arg == u"--remote-only" && (accepts & ListOptions::Filters))
        options.remoteOnly = true;
    else if (arg == u"--no-log" && (accepts & ListOptions::NoLog))
        options.noLog = true;
    else if (arg == u"--no-resolve" && (accepts & ListOptions::NoResolve))
        options.noResolve = true;
    else
        return false;
    return true;
}

} // namespace

std::optional<QString> ListOptions::parse(const QStringList& arguments, unsigned accepts,
                                          ListOptions& options)
{
    for (qsizetype i = 0; i < arguments.size(); ++i) {
        const QString& arg = arguments[i];
        const auto option = valueOptions().constFind(arg);
        if (option != valueOptions().cend() && (accepts & option->accepts)) {
            if (i + 1 >= arguments.size())
                return u"option %1 needs a value"_s.arg(arg);
            if (auto error = option->apply(arguments[++i], options))
                return error;
        } else if (applySwitch(arg, accepts, options)) {
            continue;
        } else if (arg.startsWith(u'-') && arg.size() > 1) {
            return u"unknown option '%1'"_s.arg(arg);
        } else if (accepts & Files) {
            options.files << arg;
        } else {
            return u"unexpected argument '%1'"_s.arg(arg);
        }
    }
    if (options.expression && !options.keyword.isEmpty())
        return u"use either --keyword or --filter, not both"_s;
    return std::nullopt;
}

ItemFilter ListOptions::filter(const std::optional<QString>& profileExpression) const
{
    ItemFilter filter;
    filter.profileExpression = profileExpression;
    filter.useSearchExpression = expression.has_value();
    filter.searchText = expression.value_or(keyword);
    filter.hiddenTypes = hiddenTypes;
    filter.hiddenProtocols = hiddenProtocols;
    filter.remoteOnly = remoteOnly;
    return filter;
}
