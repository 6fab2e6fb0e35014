#pragma once

#include <QByteArray>
#include <QString>
#include <QStringConverter>
#include <QStringList>
#include <QVariant>

#include <initializer_list>
#include <optional>

// Writes comma-separated values field by field and line by line, into a file (appended to when
// it exists) or into a string. A field holding a newline, a double quote, a backslash or the
// delimiter, or beginning with "#", is put in double quotes with its quotes and backslashes
// doubled.
//
// Misuse of the delimiter throws std::invalid_argument; nothing else throws. A file that cannot
// be opened or written is reported by ok()/lastWriteError() and one log line per run of
// failures; lines already written are never touched.
//
// One thread at a time; the owner serialises access.
class CHCSVWriter final {
public:
    // A writer on `path`. A new file starts with `headerFields` as its first line (an empty
    // line when there are none); an existing one is appended to without a header. `atomic`
    // writes into a temporary file that replaces `path` on closeFile().
    // `alreadySaid` is a failure its owner has logged before (a writer replaced to try
    // again): the same failure is not logged again.
    CHCSVWriter(const QString& path, const std::optional<QStringList>& headerFields, bool atomic,
                const QString& alreadySaid = {});
    static CHCSVWriter forWritingToString();
    ~CHCSVWriter();
    Q_DISABLE_COPY_MOVE(CHCSVWriter)

    QString destinationFile() const { return m_destinationFile; }
    QString handleFile() const { return m_handleFile; }
    bool atomically() const { return m_atomically; }

    // The text written so far in string mode; null in file mode and before any write.
    QString stringValue() const;

    QString delimiter() const { return m_delimiter; }
    void setDelimiter(const QString& delimiter);
    // Nothing until the first write chooses UTF-8.
    std::optional<QStringConverter::Encoding> encoding() const { return m_encoding; }
    void setEncoding(QStringConverter::Encoding encoding) { m_encoding = encoding; }
    // The failure of the last atomic finish, null when there was none.
    QString error() const { return m_error; }

    // False after a failed open or write, until a later write succeeds.
    bool ok() const { return m_lastWriteError.isNull(); }
    QString lastWriteError() const { return m_lastWriteError; }
    // Whether a file is open for writing (never in string mode).
    bool isOpen() const { return m_outputHandle >= 0; }

    void writeField(const QVariant& field);
    // Writes the fields up to the first invalid QVariant, which ends the list.
    void writeFields(std::initializer_list<QVariant> fields);
    void writeFieldsWithArray(const QVariantList& fields);
    void writeFieldsWithArray(const QStringList& fields);
    void writeLine();
    // Writes the fields up to the first invalid QVariant, then a line end; nothing at all when
    // the first is invalid.
    void writeLineOfFields(std::initializer_list<QVariant> fields);
    void writeLineWithFields(const QVariantList& fields);
    void writeLineWithFields(const QStringList& fields);
    void writeCommentLine(const QString& comment);

    // Forces the bytes written so far to disk; nothing in string mode.
    void flush();
    // Closes the file and, in atomic mode, moves it over the destination. Harmless to repeat.
    void closeFile();

private:
    struct StringMode {};
    explicit CHCSVWriter(StringMode);

    void writeString(const QString& text);
    void writePending();
    void noteFailure(const QString& message);
    bool isIllegal(QChar c) const;

    QString m_destinationFile;
    QString m_alreadySaid;
    QString m_handleFile;
    int m_outputHandle = -1;
    bool m_atomically = false;
    std::optional<QString> m_stringValue;
    bool m_hasStarted = false;
    quint64 m_currentField = 0;
    std::optional<QStringConverter::Encoding> m_encoding;
    QString m_delimiter;
    QString m_error;
    QString m_lastWriteError;
    // Encoded bytes of the line being written; they reach the file at its end (and at flush
    // or close), one system write per line.
    QByteArray m_pending;
    bool m_brokenLine = false;
};
