#include "listoptions.h"

using namespace Qt::StringLiterals;

namespace {

const QStringList kTypes = {u"IPv4"_s, u"IPv6"_s};
const QStringList kProtocols = {u"TCP"_s, u"UDP"_s, u"Other"_s};

} // namespace

std::optional<QString> ListOptions::parse(const QStringList& arguments, unsigned accepts,
                                          ListOptions& options)
{
    for (qsizetype i = 0; i < arguments.size(); ++i) {
        const QString& arg = arguments[i];
        const auto takes = [&](unsigned what) { return (accepts & what) != 0; };
        QString value;
        const auto next = [&]() -> std::optional<QString> {
            if (i + 1 >= arguments.size())
                return u"option %1 needs a value"_s.arg(arg);
            value = arguments[++i];
            return std::nullopt;
        };
        std::optional<QString> error;
        if (arg == u"--format" && takes(Format)) {
            if ((error = next()))
                return error;
            const auto format = ItemPrinter::formatForName(value);
            if (!format)
                return u"unknown format '%1' (table, csv or json)"_s.arg(value);
            options.format = *format;
        } else if (arg == u"--input" && takes(Input)) {
            if ((error = next()))
                return error;
            options.input = value;
            options.hasInput = true;
        } else if (arg == u"--keyword" && takes(Filters)) {
            if ((error = next()))
                return error;
            options.keyword = value;
        } else if (arg == u"--filter" && takes(Filters)) {
            if ((error = next()))
                return error;
            options.expression = value;
        } else if (arg == u"--profile" && takes(Filters)) {
            if ((error = next()))
                return error;
            options.profile = value;
        } else if (arg == u"--hide-type" && takes(Filters)) {
            if ((error = next()))
                return error;
            if (!kTypes.contains(value))
                return u"--hide-type takes %1"_s.arg(kTypes.join(u" or "_s));
            options.hiddenTypes << value;
        } else if (arg == u"--hide-protocol" && takes(Filters)) {
            if ((error = next()))
                return error;
            if (!kProtocols.contains(value))
                return u"--hide-protocol takes TCP, UDP or Other"_s;
            options.hiddenProtocols << value;
        } else if (arg == u"--remote-only" && takes(Filters)) {
            options.remoteOnly = true;
        } else if (arg == u"--no-log" && takes(NoLog)) {
            options.noLog = true;
        } else if (arg == u"--no-resolve" && takes(NoResolve)) {
            options.noResolve = true;
        } else if (arg == u"--helper-socket" && takes(HelperSocket)) {
            if ((error = next()))
                return error;
            options.helperSocket = value;
        } else if (arg == u"--source" && takes(Source)) {
            if ((error = next()))
                return error;
            if (value != u"native" && value != u"lsof")
                return u"--source takes native or lsof"_s;
            options.source = value;
        } else if (arg == u"--host" && takes(Source)) {
            if ((error = next()))
                return error;
            options.host = value;
        } else if (arg.startsWith(u'-') && arg.size() > 1) {
            return u"unknown option '%1'"_s.arg(arg);
        } else if (takes(Files)) {
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
