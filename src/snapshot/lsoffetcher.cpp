#include "lsoffetcher.h"

#include "helper/cvhelperutility.h"
#include "platform/sandbox.h"
#include "prefs/userdefaults.h"
#include "userscript/cvuserscripthelper.h"

#include <QFileInfo>
#include <QThread>

#include <array>
#include <optional>

using namespace Qt::StringLiterals;

namespace {

enum Title {
    PidTitle,
    UserTitle,
    FdTitle,
    TypeTitle,
    DeviceTitle,
    SizeOffTitle,
    NodeTitle,
    NameTitle,
    TitleCount
};

constexpr std::array<QStringView, TitleCount> kTitles = {u"PID",    u"USER",     u"FD",   u"TYPE",
                                                         u"DEVICE", u"SIZE/OFF", u"NODE", u"NAME"};

using Positions = std::array<qsizetype, TitleCount>;

// Where each title first occurs in the header; nothing when one is missing.
std::optional<Positions> headerPositions(QStringView header)
{
    Positions positions{};
    for (int t = 0; t < TitleCount; ++t) {
        positions[t] = header.indexOf(kTitles[t]);
        if (positions[t] < 0)
            return std::nullopt;
    }
    return positions;
}

bool isDigit(QChar c)
{
    return c >= u'0' && c <= u'9';
}

// The process id: the run of digits that ends under the last character of "PID", extended
// leftwards for as long as digits go. Linux process ids reach seven digits, wider than any
// fixed cut. Without a digit there, the classic five-character cut from the first digit.
std::optional<QString> cutProcessId(QStringView line, qsizetype pidTitle)
{
    const qsizetype last = pidTitle + 2;
    if (last < line.size() && isDigit(line[last])) {
        qsizetype first = last;
        while (first > 0 && isDigit(line[first - 1]))
            --first;
        return line.mid(first, last - first + 1).toString();
    }
    const qsizetype start = pidTitle - 2;
    if (start < 0 || start + 5 > line.size())
        return std::nullopt;
    const QStringView cut = line.mid(start, 5);
    for (qsizetype i = 0; i < cut.size(); ++i) {
        if (isDigit(cut[i]))
            return cut.mid(i).trimmed().toString();
    }
    return std::nullopt;
}

// A cut that stays inside the line, or nothing.
bool fits(QStringView line, qsizetype start, qsizetype length)
{
    return start >= 0 && length >= 0 && start + length <= line.size();
}

// Counts, per gap of the new list, how many closed items were inserted into it, and answers
// prefix sums; lets change detection place closed items without shifting the list each time.
class GapCounter {
public:
    explicit GapCounter(qsizetype gaps) : m_tree(gaps + 1, 0) {}
    void add(qsizetype gap)
    {
        for (qsizetype i = gap + 1; i < qsizetype(m_tree.size()); i += i & -i)
            ++m_tree[i];
    }
    // Number of inserted items in gaps 0..gap.
    qsizetype prefix(qsizetype gap) const
    {
        qsizetype sum = 0;
        for (qsizetype i = gap + 1; i > 0; i -= i & -i)
            sum += m_tree[i];
        return sum;
    }

private:
    std::vector<qsizetype> m_tree;
};

} // namespace

LsofFetcher& LsofFetcher::shared()
{
    static LsofFetcher fetcher;
    return fetcher;
}

QString LsofFetcher::substring(QStringView text, qsizetype start, qsizetype length)
{
    const QStringView trimmed = text.mid(start, length).trimmed();
    // An empty cut is an empty text, never a null one.
    return trimmed.isEmpty() ? u""_s : trimmed.toString();
}

LsofItemList LsofFetcher::parseLsofResult(const QString& text)
{
    LsofItemList result;
    if (text.isEmpty())
        return result;

    const qsizetype headerEnd = text.indexOf(u'\n');
    const QStringView header = QStringView(text).left(headerEnd < 0 ? text.size() : headerEnd);
    const std::optional<Positions> found = headerPositions(header);
    if (!found)
        return result;
    const Positions& p = *found;

    m_identifierMap.clear();
    const LsofItemList previous = m_previous;
    m_previous.clear();
    m_identifierMap.reserve(previous.size());
    for (const LsofItemPtr& item : previous) {
        if (item->status() == 3)
            continue;
        m_previous.append(item);
        m_identifierMap.insert(item->identifier(), item);
    }

    const qsizetype userStart = p[PidTitle] + 4, userLength = p[UserTitle] - p[PidTitle];
    const qsizetype fdStart = p[UserTitle] + 5, fdLength = p[FdTitle] - p[UserTitle] - 2;
    const qsizetype deviceStart = p[TypeTitle] + 5,
                    deviceLength = p[DeviceTitle] - p[TypeTitle] + 1;
    const qsizetype sizeStart = p[DeviceTitle] + 7,
                    sizeLength = p[SizeOffTitle] - p[DeviceTitle] + 1;
    const qsizetype protocolStart = p[SizeOffTitle] + 9,
                    protocolLength = p[NodeTitle] - p[SizeOffTitle] - 5;

    qsizetype lineStart = headerEnd < 0 ? text.size() : headerEnd + 1;
    while (headerEnd >= 0 && lineStart <= text.size()) {
        qsizetype lineEnd = text.indexOf(u'\n', lineStart);
        if (lineEnd < 0)
            lineEnd = text.size();
        const QStringView line = QStringView(text).mid(lineStart, lineEnd - lineStart);
        lineStart = lineEnd + 1;

        if (line.size() < p[NameTitle])
            continue;
        if (!fits(line, 0, p[PidTitle]) || !fits(line, userStart, userLength) ||
            !fits(line, fdStart, fdLength) || !fits(line, p[TypeTitle], 4) ||
            !fits(line, deviceStart, deviceLength) || !fits(line, sizeStart, sizeLength) ||
            !fits(line, protocolStart, protocolLength))
            continue;
        const std::optional<QString> processId = cutProcessId(line, p[PidTitle]);
        if (!processId)
            continue;

        auto item = std::make_shared<LsofItem>();
        QString name = substring(line, 0, p[PidTitle]);
        const qsizetype blank = name.lastIndexOf(u' ');
        if (blank >= 0)
            name = substring(name, 0, blank);
        item->setProcessName(name);
        item->setProcessId(*processId);
        item->setProtocol(substring(line, protocolStart, protocolLength));
        item->setUser(substring(line, userStart, userLength));
        item->setType(substring(line, p[TypeTitle], 4));
        item->setDevice(substring(line, deviceStart, deviceLength));
        item->setSizeAndOffset(substring(line, sizeStart, sizeLength));
        item->setFileDescriptor(substring(line, fdStart, fdLength));
        parseConnection(line.mid(p[NameTitle]).toString(), *item);

        const QString identifier = item->identifier();
        const auto earlier = m_identifierMap.find(identifier);
        if (earlier == m_identifierMap.end()) {
            result.append(std::move(item));
            continue;
        }
        // The earlier object lives on with the new state; the map keeps an object carrying
        // the previous state, which change detection compares against.
        const LsofItemPtr kept = earlier.value();
        const QString previousState = kept->state();
        kept->setState(item->state());
        item->setState(previousState);
        earlier.value() = item;
        kept->setOldState(previousState);
        result.append(kept);
    }
    return result;
}

void LsofFetcher::parseConnection(const QString& text, LsofItem& item)
{
    QString endpoints = text;
    const QStringList parts = text.split(u' ');
    if (parts.size() == 2) {
        // Linux lsof ends UDP endpoints with a blank: a part too short to be "(STATE)" is no
        // state, and the endpoints are still parsed.
        if (parts[1].size() >= 2)
            item.setState(parts[1].mid(1, parts[1].size() - 2));
        endpoints = parts[0];
    }
    const QStringList sides = endpoints.split(u"->"_s);
    if (sides.size() == 2) {
        parseAddressAndPort(sides[1], item, u"remote"_s);
        endpoints = sides[0];
    }
    parseAddressAndPort(endpoints, item, u"local"_s);
}

void LsofFetcher::parseAddressAndPort(const QString& text, LsofItem& item, const QString& side)
{
    const qsizetype colon = text.lastIndexOf(u':');
    const QString port = colon < 0 ? text : text.mid(colon + 1);
    const QString address = colon < 0 ? u""_s : text.left(colon);
    item.setValue(QString(side % u"Address"), address);
    item.setValue(QString(side % u"Port"), port);
    item.setValue(QString(side % u"PortNumber"), LsofItem::integerValue(port));
}

void LsofFetcher::processLsofItemsChanges(LsofItemList& items)
{
    if (items.isEmpty())
        return;

    if (!m_previous.isEmpty()) {
        for (const LsofItemPtr& item : std::as_const(items)) {
            const auto entry = m_identifierMap.constFind(item->identifier());
            if (entry == m_identifierMap.cend()) {
                item->setStatus(1);
                continue;
            }
            const QString now = item->state();
            const QString before = entry.value()->state();
            item->setStatus(now.isNull() || before.isNull() || now == before ? 0 : 2);
        }

        // Closed items go back into the list. Each lands at (closed count so far + position
        // of the last previous item found), the count never being reset: that is the order
        // the table shows when no sort is chosen. Positions are tracked per gap instead of
        // inserting into the list, which keeps a pass linear in the list's length.
        const qsizetype originals = items.size();
        QHash<const LsofItem*, qsizetype> originalIndex;
        originalIndex.reserve(originals);
        for (qsizetype i = originals - 1; i >= 0; --i)
            originalIndex.insert(items[i].get(), i);

        GapCounter inserted(originals + 1);
        std::vector<LsofItemList> gaps(originals + 1);
        qsizetype length = originals;
        qint32 closedCount = 0;
        qsizetype lastFound = 0;
        // Current position of the first item of gap g (gap g precedes original item g).
        const auto gapStart = [&](qsizetype g) { return g + (g > 0 ? inserted.prefix(g - 1) : 0); };

        for (const LsofItemPtr& before : std::as_const(m_previous)) {
            const auto found = originalIndex.constFind(before.get());
            if (found != originalIndex.cend()) {
                lastFound = found.value() + inserted.prefix(found.value());
                continue;
            }
            ++closedCount;
            before->setStatus(3);
            before->setState(u"Closed"_s);
            const qsizetype index = qsizetype(closedCount) + lastFound;
            qsizetype gap = originals;
            if (index < length) {
                // The gap holding position `index`: the first original item at or after it.
                qsizetype low = 0, high = originals;
                while (low < high) {
                    const qsizetype mid = (low + high) / 2;
                    if (mid + inserted.prefix(mid) >= index)
                        high = mid;
                    else
                        low = mid + 1;
                }
                gap = low;
                gaps[gap].insert(index - gapStart(gap), before);
            } else {
                gaps[gap].append(before);
            }
            inserted.add(gap);
            ++length;
        }

        if (closedCount > 0) {
            LsofItemList placed;
            placed.reserve(length);
            for (qsizetype i = 0; i < originals; ++i) {
                placed.append(gaps[i]);
                placed.append(items[i]);
            }
            placed.append(gaps[originals]);
            items = std::move(placed);
        }
    }

    if (m_reporter) {
        if (m_reporter->needsNotifyOrLogNewConnections())
            m_reporter->notifyNewItems(items);
        if (m_reporter->needsNotifyOrLogConnectionStateChange())
            m_reporter->notifyChangedItems(items);
    }
    m_previous = items;
}

namespace {

CVHelperUtility* helperUtility(const AcquisitionRoads::HelperChoice& helper)
{
    using Mode = AcquisitionRoads::HelperChoice::Mode;
    OVPrivilegeUtilityBase::Environment environment;
    environment.offerInstall = helper.offerInstall;
    if (helper.mode == Mode::Socket) {
        environment.socketPath = helper.socketPath;
        environment.offerInstall = false;
        // Lives as long as the process, like the shared one.
        return new CVHelperUtility(environment);
    }
    environment.settings.read = [](const QString& key) {
        return UserDefaults::standardUserDefaults().stringForKey(key);
    };
    environment.settings.write = [](const QString& key, const QString& value) {
        UserDefaults::standardUserDefaults().setString(key, value);
    };
    return CVHelperUtility::sharedUtility(environment);
}

} // namespace

AcquisitionRoads AcquisitionRoads::system()
{
    return system(HelperChoice());
}

AcquisitionRoads AcquisitionRoads::system(const HelperChoice& helper)
{
    AcquisitionRoads roads;
    roads.helperInstalled = [] { return false; };
    roads.runLsofThroughHelper = [](const std::function<void(const QString&)>& reply) {
        reply(QString());
    };
    if (helper.mode != HelperChoice::Mode::Off) {
        CVHelperUtility* utility = helperUtility(helper);
        const bool taken = helper.mode == HelperChoice::Mode::Socket;
        roads.helperInstalled = [utility, taken] {
            return taken || utility->checkHelperInstalled();
        };
        roads.runLsofThroughHelper = [utility](const std::function<void(const QString&)>& reply) {
            auto send = [utility, reply] {
                utility->runLsofWithReply([reply](std::optional<QString> text) {
                    if (!text)
                        reply(QString());
                    else
                        reply(text->isNull() ? u""_s : *text);
                });
            };
            // The client's connection is made on its own thread; the reply comes on another.
            if (QThread::currentThread() == utility->thread())
                send();
            else
                QMetaObject::invokeMethod(utility, send, Qt::QueuedConnection);
        };
    }
    roads.sandboxed = [] { return Sandbox::isSandboxed(); };
    roads.scriptPath = [] { return CVUserScriptHelper::scriptPath(); };
    roads.run = [](const QString& program, const QStringList& arguments,
                   GACommandRunner::Road road) {
        return GACommandRunner::runCommandSync(program, arguments, road,
                                               road == GACommandRunner::Road::Script
                                                   ? GACommandRunner::kScriptBound
                                                   : GACommandRunner::kShellBound);
    };
    return roads;
}

LsofItemList LsofFetcher::getLsofItems()
{
    const bool script = m_roads.sandboxed();
    const QString program = script ? m_roads.scriptPath() : GACommandRunner::lsofPath();
    m_lastRoad = script ? SnapshotSource::Road::Script : SnapshotSource::Road::Direct;
    const GACommandRunner::SyncResult result =
        m_roads.run(program, GACommandRunner::lsofArguments(),
                    script ? GACommandRunner::Road::Script : GACommandRunner::Road::Shell);
    m_lastProblem = result.problem;
    if (!script && !QFileInfo(program).isExecutable())
        m_lastProblem = u"lsof is not installed (looked for /usr/sbin/lsof and /usr/bin/lsof); "
                        u"install the lsof package to see connections."_s;
    else if (script && !QFileInfo::exists(program))
        m_lastProblem = u"The lsof script is not installed at %1."_s.arg(program);
    return parseLsofResult(result.output);
}

LsofItemList LsofFetcher::getCurrentItems()
{
    LsofItemList items = getLsofItems();
    processLsofItemsChanges(items);
    return items;
}

void LsofFetcher::getCurrentItemsWithCompletion(const std::function<void(LsofItemList)>& completion)
{
    std::call_once(m_helperChecked, [this] { m_helperInstalled = m_roads.helperInstalled(); });
    if (!m_helperInstalled) {
        completion(getCurrentItems());
        return;
    }
    m_roads.runLsofThroughHelper([this, completion](const QString& text) {
        if (text.isNull()) {
            completion(getCurrentItems());
            return;
        }
        m_lastRoad = SnapshotSource::Road::Helper;
        m_lastProblem.clear();
        LsofItemList items = parseLsofResult(text);
        processLsofItemsChanges(items);
        completion(items);
    });
}
