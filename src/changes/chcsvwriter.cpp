#include "chcsvwriter.h"

#include "platform/systemlog.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QRandomGenerator>
#include <QStringEncoder>

#include <algorithm>
#include <stdexcept>

#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace {

// A line longer than this (fields without a line end) goes out before its end.
constexpr qsizetype kPendingLimit = 64 * 1024;

bool isNewline(QChar c)
{
    const char16_t u = c.unicode();
    return (u >= 0x0A && u <= 0x0D) || u == 0x85 || u == 0x2028 || u == 0x2029;
}

// Past a file-size limit the kernel would kill the process with SIGXFSZ; ignored, the write
// fails with EFBIG instead and the log reports it.
void ignoreFileSizeSignal()
{
    static const bool done = [] {
        struct sigaction current = {};
        if (sigaction(SIGXFSZ, nullptr, &current) == 0 && current.sa_handler == SIG_DFL)
            std::signal(SIGXFSZ, SIG_IGN);
        return true;
    }();
    Q_UNUSED(done);
}

QString fieldText(const QVariant& field)
{
    if (!field.isValid())
        return QString();
    switch (field.typeId()) {
    case QMetaType::QStringList:
    case QMetaType::QVariantList:
        return u"("_s + field.toStringList().join(u", "_s) + u")"_s;
    default:
        return field.toString();
    }
}

} // namespace

CHCSVWriter::CHCSVWriter(const QString& path, const std::optional<QStringList>& headerFields,
                         bool atomic, const QString& alreadySaid)
    : m_destinationFile(path), m_alreadySaid(alreadySaid), m_atomically(atomic)
{
    ignoreFileSizeSignal();
    if (atomic) {
        const auto random = qint32(QRandomGenerator::global()->generate());
        m_handleFile =
            QDir::tempPath() + u'/' + QString::asprintf("%d-", random) + QFileInfo(path).fileName();
    } else {
        m_handleFile = path;
    }
    setDelimiter(u","_s);

    const QByteArray nativePath = QFile::encodeName(m_handleFile);
    const bool exists = QFileInfo::exists(m_handleFile);
    const int flags = O_WRONLY | O_APPEND | O_CLOEXEC | (exists ? 0 : O_CREAT);
    do {
        m_outputHandle = ::open(nativePath.constData(), flags, 0666);
    } while (m_outputHandle < 0 && errno == EINTR);
    if (m_outputHandle < 0)
        noteFailure(u"cannot open %1: %2"_s.arg(m_handleFile, qt_error_string(errno)));
    if (!exists)
        writeLineWithFields(headerFields.value_or(QStringList()));
}

CHCSVWriter::CHCSVWriter(StringMode)
{
    setDelimiter(u","_s);
}

CHCSVWriter CHCSVWriter::forWritingToString()
{
    return CHCSVWriter(StringMode{});
}

CHCSVWriter::~CHCSVWriter()
{
    closeFile();
}

QString CHCSVWriter::stringValue() const
{
    if (!m_stringValue)
        return QString();
    // Written but empty is still not null.
    return m_stringValue->isNull() ? u""_s : *m_stringValue;
}

void CHCSVWriter::setDelimiter(const QString& delimiter)
{
    if (m_hasStarted)
        throw std::invalid_argument("You cannot set a delimiter after writing has started");
    const bool usable = delimiter.size() == 1 && !isNewline(delimiter[0]) && delimiter[0] != u'"' &&
                        delimiter[0] != u'#' && delimiter[0] != u'\\';
    if (!usable)
        throw std::invalid_argument(
            QString(delimiter + u" cannot be used as a delimiter"_s).toStdString());
    m_delimiter = delimiter;
}

bool CHCSVWriter::isIllegal(QChar c) const
{
    return isNewline(c) || c == u'"' || c == u'\\' || c == m_delimiter[0];
}

void CHCSVWriter::writeField(const QVariant& field)
{
    m_hasStarted = true;
    QString text = fieldText(field);
    if (m_currentField != 0)
        writeString(m_delimiter);
    const bool needsQuotes =
        text.startsWith(u'#') ||
        std::any_of(text.cbegin(), text.cend(), [this](QChar c) { return isIllegal(c); });
    if (needsQuotes) {
        text.replace(u"\""_s, u"\"\""_s);
        text.replace(u"\\"_s, u"\\\\"_s);
        text = u'"' + text + u'"';
    }
    writeString(text);
    ++m_currentField;
}

void CHCSVWriter::writeFields(std::initializer_list<QVariant> fields)
{
    for (const QVariant& field : fields) {
        if (!field.isValid())
            break;
        writeField(field);
    }
}

void CHCSVWriter::writeFieldsWithArray(const QVariantList& fields)
{
    for (const QVariant& field : fields)
        writeField(field);
}

void CHCSVWriter::writeFieldsWithArray(const QStringList& fields)
{
    for (const QString& field : fields)
        writeField(field);
}

void CHCSVWriter::writeLine()
{
    writeString(u"\n"_s);
    m_currentField = 0;
    writePending();
}

void CHCSVWriter::writeLineOfFields(std::initializer_list<QVariant> fields)
{
    QVariantList collected;
    for (const QVariant& field : fields) {
        if (!field.isValid())
            break;
        collected << field;
    }
    if (collected.isEmpty())
        return;
    writeLineWithFields(collected);
}

void CHCSVWriter::writeLineWithFields(const QVariantList& fields)
{
    writeFieldsWithArray(fields);
    writeLine();
}

void CHCSVWriter::writeLineWithFields(const QStringList& fields)
{
    writeFieldsWithArray(fields);
    writeLine();
}

void CHCSVWriter::writeCommentLine(const QString& comment)
{
    if (m_currentField != 0)
        writeLine();
    writeString(u"#"_s + comment + u"\n"_s);
    writePending();
}

void CHCSVWriter::writeString(const QString& text)
{
    if (!m_encoding)
        m_encoding = QStringConverter::Utf8;
    if (m_outputHandle < 0) {
        if (!m_stringValue)
            m_stringValue = QString();
        m_stringValue->append(text);
        return;
    }
    QStringEncoder encoder(*m_encoding);
    m_pending += encoder.encode(text);
    if (m_pending.size() > kPendingLimit)
        writePending();
}

void CHCSVWriter::writePending()
{
    if (m_outputHandle < 0 || m_pending.isEmpty())
        return;
    // A line cut short by a failure is ended before the next one, so rows never run together.
    if (m_brokenLine)
        m_pending.prepend('\n');
    qsizetype written = 0;
    while (written < m_pending.size()) {
        const ssize_t count = ::write(m_outputHandle, m_pending.constData() + written,
                                      size_t(m_pending.size() - written));
        if (count < 0 && errno == EINTR)
            continue;
        if (count <= 0) {
            noteFailure(u"cannot write %1: %2"_s.arg(m_handleFile, qt_error_string(errno)));
            // What did not fit is dropped; the lines before it stay as they are.
            m_brokenLine = m_brokenLine || written > 0;
            m_pending.clear();
            return;
        }
        written += count;
    }
    m_pending.clear();
    m_brokenLine = false;
    m_lastWriteError = QString();
}

void CHCSVWriter::noteFailure(const QString& message)
{
    // One log line per run of failures: a full disk would otherwise log every row.
    if (m_lastWriteError.isNull() && message != m_alreadySaid)
        SystemLog::write(message);
    m_lastWriteError = message;
}

void CHCSVWriter::flush()
{
    writePending();
    if (m_outputHandle < 0)
        return;
    // Devices and some file systems cannot sync; that is no failure of ours.
    if (::fsync(m_outputHandle) != 0 && errno != EINVAL && errno != EROFS && errno != ENOTSUP)
        noteFailure(u"cannot write %1: %2"_s.arg(m_handleFile, qt_error_string(errno)));
}

void CHCSVWriter::closeFile()
{
    if (m_outputHandle < 0)
        return;
    writePending();
    if (::close(m_outputHandle) != 0 && errno != EINTR)
        noteFailure(u"cannot write %1: %2"_s.arg(m_handleFile, qt_error_string(errno)));
    m_outputHandle = -1;

    if (!m_atomically || m_handleFile == m_destinationFile)
        return;
    QFile destination(m_destinationFile);
    if (QFileInfo(m_destinationFile).exists() || QFileInfo(m_destinationFile).isSymLink()) {
        if (!destination.remove()) {
            m_error = u"cannot remove %1: %2"_s.arg(m_destinationFile, destination.errorString());
            return;
        }
    }
    QFile temporary(m_handleFile);
    if (!temporary.rename(m_destinationFile))
        m_error = u"cannot move %1 to %2: %3"_s.arg(m_handleFile, m_destinationFile,
                                                    temporary.errorString());
    QFile::remove(m_handleFile);
}
