#include "lsofitem.h"

#include "platform/hexdigit.h"

#include <QHash>
#include <QStringDecoder>

#include <array>
#include <atomic>

using namespace Qt::StringLiterals;

namespace {

struct KeyName {
    LsofItem::Key key;
    const char16_t* name;
};

constexpr KeyName kKeyNames[] = {
    {LsofItem::Key::status, u"status"},
    {LsofItem::Key::processName, u"processName"},
    {LsofItem::Key::PID, u"PID"},
    {LsofItem::Key::processId, u"processId"},
    {LsofItem::Key::protocol, u"protocol"},
    {LsofItem::Key::localPort, u"localPort"},
    {LsofItem::Key::localPortNumber, u"localPortNumber"},
    {LsofItem::Key::localPortName, u"localPortName"},
    {LsofItem::Key::localAddress, u"localAddress"},
    {LsofItem::Key::remotePort, u"remotePort"},
    {LsofItem::Key::remotePortNumber, u"remotePortNumber"},
    {LsofItem::Key::remotePortName, u"remotePortName"},
    {LsofItem::Key::remoteAddress, u"remoteAddress"},
    {LsofItem::Key::remoteHostname, u"remoteHostname"},
    {LsofItem::Key::state, u"state"},
    {LsofItem::Key::processPath, u"processPath"},
    {LsofItem::Key::user, u"user"},
    {LsofItem::Key::type, u"type"},
    {LsofItem::Key::sizeAndOffset, u"sizeAndOffset"},
    {LsofItem::Key::device, u"device"},
    {LsofItem::Key::oldState, u"oldState"},
    {LsofItem::Key::fileDescriptor, u"fileDescriptor"},
    {LsofItem::Key::identifier, u"identifier"},
    {LsofItem::Key::localizedAppName, u"localizedAppName"},
    {LsofItem::Key::bytesSent, u"bytesSent"},
    {LsofItem::Key::bytesReceived, u"bytesReceived"},
    {LsofItem::Key::sendRate, u"sendRate"},
    {LsofItem::Key::receiveRate, u"receiveRate"},
    {LsofItem::Key::rtt, u"rtt"},
    {LsofItem::Key::shortLived, u"shortLived"},
};

const QHash<QString, LsofItem::Key>& keysByName()
{
    static const QHash<QString, LsofItem::Key> keys = [] {
        QHash<QString, LsofItem::Key> map;
        for (const auto& entry : kKeyNames)
            map.insert(QString::fromUtf16(entry.name), entry.key);
        return map;
    }();
    return keys;
}

QStringView printable(const QString& text)
{
    return text.isNull() ? QStringView(u"(null)") : QStringView(text);
}

// "%@-%@-%@-%@:%@-%@:%@-%@:%@", a null field printed as "(null)", written over `out`.
void composeIdentifier(QString& out, const QString& processId, const QString& type,
                       const QString& protocol, const QString& localAddress,
                       const QString& localPort, const QString& remoteAddress,
                       const QString& remotePort, const QString& device,
                       const QString& fileDescriptor)
{
    out.resize(0); // keeps its room
    out.append(printable(processId)).append(u'-').append(printable(type)).append(u'-');
    out.append(printable(protocol)).append(u'-').append(printable(localAddress)).append(u':');
    out.append(printable(localPort)).append(u'-').append(printable(remoteAddress)).append(u':');
    out.append(printable(remotePort)).append(u'-').append(printable(device)).append(u':');
    out.append(printable(fileDescriptor));
}

QVariant textValue(const QString& text)
{
    return text.isNull() ? QVariant() : QVariant(text);
}

QVariant numberValue(std::optional<qint64> number)
{
    return number ? QVariant(*number) : QVariant();
}

// Strict percent-decoding: a "%" must be followed by two hex digits and the bytes must form
// valid UTF-8; anything else gives null.
QString percentDecoded(const QString& text)
{
    QByteArray bytes;
    bytes.reserve(text.size());
    for (qsizetype i = 0; i < text.size(); ++i) {
        if (text[i] != u'%') {
            qsizetype end = i;
            while (end < text.size() && text[end] != u'%')
                ++end;
            bytes += QStringView(text).mid(i, end - i).toUtf8();
            i = end - 1;
            continue;
        }
        if (i + 2 >= text.size())
            return {};
        const int high = hexDigitValue(text[i + 1]);
        const int low = hexDigitValue(text[i + 2]);
        if (high < 0 || low < 0)
            return {};
        bytes += char(high * 16 + low);
        i += 2;
    }
    QStringDecoder decoder(QStringDecoder::Utf8, QStringDecoder::Flag::Stateless);
    QString decoded = decoder.decode(bytes);
    if (decoder.hasError())
        return {};
    if (decoded.isNull())
        decoded = QString(u""_s);
    return decoded;
}

} // namespace

std::optional<LsofItem::Key> LsofItem::keyForName(QStringView name)
{
    const auto& keys = keysByName();
    const auto it = keys.constFind(name.toString());
    if (it == keys.cend())
        return std::nullopt;
    return *it;
}

QString LsofItem::nameForKey(Key key)
{
    return QString::fromUtf16(kKeyNames[static_cast<int>(key)].name);
}

const QList<LsofItem::Key>& LsofItem::allKeys()
{
    static const QList<Key> keys = [] {
        QList<Key> list;
        for (const auto& entry : kKeyNames)
            list.append(entry.key);
        return list;
    }();
    return keys;
}

qint64 LsofItem::integerValue(QStringView text)
{
    qsizetype i = 0;
    while (i < text.size() && text[i].isSpace())
        ++i;
    bool negative = false;
    if (i < text.size() && (text[i] == u'+' || text[i] == u'-')) {
        negative = text[i] == u'-';
        ++i;
    }
    qint64 value = 0;
    for (; i < text.size() && text[i] >= u'0' && text[i] <= u'9'; ++i) {
        const int digit = text[i].unicode() - u'0';
        if (value > (std::numeric_limits<qint64>::max() - digit) / 10)
            return negative ? std::numeric_limits<qint64>::min()
                            : std::numeric_limits<qint64>::max();
        value = value * 10 + digit;
    }
    return negative ? -value : value;
}

const QString* LsofItem::fixedText(Key key) const
{
    switch (key) {
    case Key::processName:
        return &m_processName;
    case Key::processId:
        return &m_processId;
    case Key::protocol:
        return &m_protocol;
    case Key::localPort:
        return &m_localPort;
    case Key::localAddress:
        return &m_localAddress;
    case Key::remotePort:
        return &m_remotePort;
    case Key::remoteAddress:
        return &m_remoteAddress;
    case Key::user:
        return &m_user;
    case Key::type:
        return &m_type;
    case Key::sizeAndOffset:
        return &m_sizeAndOffset;
    case Key::device:
        return &m_device;
    case Key::fileDescriptor:
        return &m_fileDescriptor;
    default:
        return nullptr;
    }
}

QVariant LsofItem::value(Key key) const
{
    switch (key) {
    case Key::status:
        return QVariant(qint64(status()));
    case Key::processName:
        return textValue(m_processName);
    case Key::PID:
        return QVariant(PID());
    case Key::processId:
        return textValue(m_processId);
    case Key::protocol:
        return textValue(m_protocol);
    case Key::localPort:
        return textValue(m_localPort);
    case Key::localPortNumber:
        return numberValue(m_localPortNumber);
    case Key::localPortName:
        return textValue(localPortName());
    case Key::localAddress:
        return textValue(m_localAddress);
    case Key::remotePort:
        return textValue(m_remotePort);
    case Key::remotePortNumber:
        return numberValue(m_remotePortNumber);
    case Key::remotePortName:
        return textValue(remotePortName());
    case Key::remoteAddress:
        return textValue(m_remoteAddress);
    case Key::remoteHostname:
        return textValue(remoteHostname());
    case Key::state:
        return textValue(state());
    case Key::processPath:
        return textValue(processPath());
    case Key::user:
        return textValue(m_user);
    case Key::type:
        return textValue(m_type);
    case Key::sizeAndOffset:
        return textValue(m_sizeAndOffset);
    case Key::device:
        return textValue(m_device);
    case Key::oldState:
        return textValue(oldState());
    case Key::fileDescriptor:
        return textValue(m_fileDescriptor);
    case Key::identifier:
        return textValue(identifier());
    case Key::localizedAppName:
        return textValue(localizedAppName());
    case Key::bytesSent:
        return numberValue(traffic().bytesSent);
    case Key::bytesReceived:
        return numberValue(traffic().bytesReceived);
    case Key::sendRate:
        return numberValue(traffic().sendRate);
    case Key::receiveRate:
        return numberValue(traffic().receiveRate);
    case Key::rtt: {
        const std::optional<double> rtt = traffic().rtt;
        return rtt ? QVariant(*rtt) : QVariant();
    }
    case Key::shortLived:
        return QVariant(m_shortLived);
    }
    return {};
}

QVariant LsofItem::value(QStringView name) const
{
    const auto key = keyForName(name);
    return key ? value(*key) : QVariant();
}

QString LsofItem::text(Key key) const
{
    // Read for every painted cell and every row a sort or search looks at: the stored texts
    // are answered without a detour through QVariant.
    if (const QString* fixed = fixedText(key))
        return fixed->isNull() ? QString(u""_s) : *fixed;
    const QVariant v = value(key);
    if (!v.isValid())
        return QString(u""_s);
    if (v.typeId() == QMetaType::LongLong)
        return QString::number(v.toLongLong());
    return v.toString();
}

bool LsofItem::setValue(Key key, const QVariant& value)
{
    const QString text = value.isValid() ? value.toString() : QString();
    const std::optional<qint64> number =
        value.isValid() ? std::optional<qint64>(value.toLongLong()) : std::nullopt;
    switch (key) {
    case Key::status:
        setStatus(qint32(number.value_or(0)));
        return true;
    case Key::processName:
        setProcessName(text);
        return true;
    case Key::processId:
        m_processId = text;
        return true;
    case Key::protocol:
        m_protocol = text;
        return true;
    case Key::localPort:
        m_localPort = text;
        return true;
    case Key::localPortNumber:
        m_localPortNumber = number;
        return true;
    case Key::localAddress:
        m_localAddress = text;
        return true;
    case Key::remotePort:
        m_remotePort = text;
        return true;
    case Key::remotePortNumber:
        m_remotePortNumber = number;
        return true;
    case Key::remoteAddress:
        m_remoteAddress = text;
        return true;
    case Key::state:
        setState(text);
        return true;
    case Key::user:
        m_user = text;
        return true;
    case Key::type:
        m_type = text;
        return true;
    case Key::sizeAndOffset:
        m_sizeAndOffset = text;
        return true;
    case Key::device:
        m_device = text;
        return true;
    case Key::oldState:
        setOldState(text);
        return true;
    case Key::fileDescriptor:
        m_fileDescriptor = text;
        return true;
    // Derived values are computed, never stored.
    case Key::PID:
    case Key::localPortName:
    case Key::remotePortName:
    case Key::remoteHostname:
    case Key::processPath:
    case Key::identifier:
    case Key::localizedAppName:
        return false;
    case Key::shortLived:
        m_shortLived = value.toBool();
        return true;
    case Key::bytesSent:
    case Key::bytesReceived:
    case Key::sendRate:
    case Key::receiveRate:
    case Key::rtt:
        setTrafficValue(key, value);
        return true;
    }
    return false;
}

void LsofItem::setTrafficValue(Key key, const QVariant& value)
{
    Traffic figures = traffic();
    const std::optional<qint64> number =
        value.isValid() ? std::optional<qint64>(value.toLongLong()) : std::nullopt;
    if (key == Key::bytesSent)
        figures.bytesSent = number;
    else if (key == Key::bytesReceived)
        figures.bytesReceived = number;
    else if (key == Key::sendRate)
        figures.sendRate = number;
    else if (key == Key::receiveRate)
        figures.receiveRate = number;
    else if (key == Key::rtt)
        figures.rtt = value.isValid() ? std::optional<double>(value.toDouble()) : std::nullopt;
    setTraffic(figures);
}

bool LsofItem::setValue(QStringView name, const QVariant& value)
{
    const auto key = keyForName(name);
    return key && setValue(*key, value);
}

qint32 LsofItem::status() const
{
    QMutexLocker locker(&m_lock);
    return m_status;
}

void LsofItem::setStatus(qint32 status)
{
    QMutexLocker locker(&m_lock);
    m_status = status;
}

void LsofItem::setProcessName(const QString& name)
{
    if (name.isNull()) {
        m_processName = QString();
        return;
    }
    if (!m_processName.isNull() && name.isSharedWith(m_processName))
        return;
    // Most names carry no escape at all; decoding them would give them back unchanged.
    if (!name.contains(u'\\') && !name.contains(u'%')) {
        m_processName = name;
        return;
    }
    QString unescaped = name;
    unescaped.replace(u"\\x"_s, u"%"_s);
    m_processName = percentDecoded(unescaped);
}

qint64 LsofItem::PID() const
{
    return integerValue(m_processId);
}

QString LsofItem::state() const
{
    QMutexLocker locker(&m_lock);
    return m_state;
}

void LsofItem::setState(const QString& value)
{
    QMutexLocker locker(&m_lock);
    m_state = value;
}

QString LsofItem::oldState() const
{
    QMutexLocker locker(&m_lock);
    return m_oldState;
}

void LsofItem::setOldState(const QString& value)
{
    QMutexLocker locker(&m_lock);
    m_oldState = value;
}

LsofItem::Traffic LsofItem::traffic() const
{
    QMutexLocker locker(&m_lock);
    return m_traffic;
}

void LsofItem::setTraffic(const Traffic& traffic)
{
    QMutexLocker locker(&m_lock);
    m_traffic = traffic;
}

void LsofItem::relist(const QString& state, const QString& oldState, const Traffic& traffic)
{
    QMutexLocker locker(&m_lock);
    m_state = state;
    m_oldState = oldState;
    m_traffic = traffic;
}

QString LsofItem::identifier() const
{
    QMutexLocker locker(&m_lock);
    if (m_identifier.isNull()) {
        composeIdentifier(m_identifier, m_processId, m_type, m_protocol, m_localAddress,
                          m_localPort, m_remoteAddress, m_remotePort, m_device, m_fileDescriptor);
    }
    return m_identifier;
}

QString LsofItem::description() const
{
    return u"<LsofItem: 0x"_s % QString::number(quintptr(this), 16) % u">: "_s % identifier();
}

quint64 LsofItem::newSerial()
{
    static std::atomic<quint64> next{1};
    return next.fetch_add(1, std::memory_order_relaxed);
}

std::shared_ptr<LsofItem> LsofItem::create()
{
    return std::make_shared<LsofItem>();
}

std::shared_ptr<LsofItem> LsofItem::fromRecord(const SocketRecord& record,
                                               const QString& identifier)
{
    auto item = create();
    item->setProcessName(record.processName);
    item->m_processId = record.processId;
    item->m_user = record.user;
    item->m_fileDescriptor = record.fileDescriptor;
    item->m_type = record.type;
    item->m_device = record.device;
    item->m_sizeAndOffset = record.sizeAndOffset;
    item->m_protocol = record.protocol;
    item->m_localAddress = record.localAddress;
    item->m_localPort = record.localPort;
    if (!record.localPort.isNull())
        item->m_localPortNumber = integerValue(record.localPort);
    item->m_remoteAddress = record.remoteAddress;
    item->m_remotePort = record.remotePort;
    if (!record.remotePort.isNull())
        item->m_remotePortNumber = integerValue(record.remotePort);
    item->m_state = record.state;
    item->m_cookie = record.cookie;
    item->m_traffic.bytesSent = record.bytesSent;
    item->m_traffic.bytesReceived = record.bytesReceived;
    item->m_traffic.rtt = record.rtt;
    item->m_identifier = identifier;
    return item;
}

QString LsofItem::identifierOf(const SocketRecord& record)
{
    QString identifier;
    writeIdentifier(record, identifier);
    return identifier;
}

void LsofItem::writeIdentifier(const SocketRecord& record, QString& out)
{
    composeIdentifier(out, record.processId, record.type, record.protocol, record.localAddress,
                      record.localPort, record.remoteAddress, record.remotePort, record.device,
                      record.fileDescriptor);
}
