#pragma once
// Stand-in until the saved-search list joins CVPrefsHelper; deleted then.
#include "prefs/cvfilterprofileinfo.h"

#include <QObject>

class SavedSearchList : public QObject {
    Q_OBJECT
public:
    static SavedSearchList& shared();
    QList<std::shared_ptr<CVFilterProfileInfo>> filterProfiles() const { return m_profiles; }
    void reloadFilterProfiles();
Q_SIGNALS:
    void filterProfilesChanged();

private:
    QList<std::shared_ptr<CVFilterProfileInfo>> m_profiles;
};
