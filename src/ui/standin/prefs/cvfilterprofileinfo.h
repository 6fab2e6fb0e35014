#pragma once
// Stand-in until the prefs branch is merged; deleted then.
#include <memory>
#include <QList>
#include <QString>

class CVFilterProfileInfo : public std::enable_shared_from_this<CVFilterProfileInfo> {
public:
    QString profileName() const { return m_name; }
    QString searchExpression() const { return m_expression; }
    void setProfileName(const QString& v) { m_name = v; }
    void setSearchExpression(const QString& v) { m_expression = v; }
    qint64 pk() const { return m_pk; }
    void save();
    static QList<std::shared_ptr<CVFilterProfileInfo>>& store();

private:
    QString m_name, m_expression;
    qint64 m_pk = -1;
};
