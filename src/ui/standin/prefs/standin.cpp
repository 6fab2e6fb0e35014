// Stand-in until the saved-search list joins CVPrefsHelper; deleted then.
#include "prefs/savedsearchlist.h"

SavedSearchList& SavedSearchList::shared()
{
    static SavedSearchList list;
    return list;
}

void SavedSearchList::reloadFilterProfiles()
{
    m_profiles = CVFilterProfileInfo::allObjects();
    Q_EMIT filterProfilesChanged();
}
