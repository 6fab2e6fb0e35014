#include "connectionlog.h"

#include "prefs/cvprefshelper.h"

#include <QDir>
#include <QFileInfo>
#include <QLocale>

using namespace Qt::StringLiterals;

ConnectionLog::ConnectionLog(CVPrefsHelper& prefs)
    : m_prefs(prefs), m_clock([] { return QDateTime::currentDateTime(); })
{
}

ConnectionLog::~ConnectionLog() = default;

QStringList ConnectionLog::titles()
{
    return QStringList{u"Time"_s, u"Timestamp"_s, u"Action"_s} + LsofItem::csvTitles();
}

void ConnectionLog::setupCSVWriter()
{
    const QString name = m_prefs.logFileName();
    if (name != m_fileName) {
        m_writer.reset();
        m_fileName = name;
    }
    if (m_writer)
        return;
    const QString folder = m_prefs.logFolder();
    // Created only when a writer is (re)opened: a folder deleted while the file is open comes
    // back at the next new file, not at every pass.
    if (!QFileInfo::exists(folder))
        QDir().mkpath(folder);
    m_writer =
        std::make_unique<CHCSVWriter>(folder + u'/' + m_fileName, titles(), false, m_openFailure);
    m_openFailure = m_writer->isOpen() ? QString() : m_writer->lastWriteError();
}

QStringList ConnectionLog::timeFieldsForAction(const QString& action) const
{
    const QDateTime now = m_clock();
    return {QLocale().toString(now, QLocale::LongFormat), QString::number(now.toSecsSinceEpoch()),
            action};
}

void ConnectionLog::writePass(const QString& action, const LsofItemList& items)
{
    setupCSVWriter();
    const QStringList timeFields = timeFieldsForAction(action);
    for (const LsofItemPtr& item : items) {
        m_writer->writeFieldsWithArray(timeFields);
        m_writer->writeLineWithFields(itemFields(*item, action));
    }
    m_writer->flush();
    // A writer whose file could not be made is replaced next pass, which retries the folder
    // and the file. One whose writes failed (a full disk) is kept: it retries at every row,
    // has said why once for the whole run of failures, and ends a cut row before the next.
    // Rows on disk are never touched.
    if (!m_writer->ok() && !m_writer->isOpen())
        m_writer.reset();
}

QStringList ConnectionLog::itemFields(const LsofItem& item, const QString& action)
{
    QStringList fields = item.csvLineFields();
    if (item.isShortLived() && action == u"New") {
        static const qsizetype state = LsofItem::csvKeys().indexOf(u"state"_s);
        fields[state] = item.oldState().isNull() ? u""_s : item.oldState();
    }
    return fields;
}

void ConnectionLog::close()
{
    if (!m_writer)
        return;
    m_writer->flush();
    m_writer->closeFile();
    m_writer.reset();
}
