#pragma once

#include <QObject>

#include <functional>
#include <memory>

class CVFilterProfileInfo;
class CVPrefsHelper;
class MainToolbar;
class SaveSearchDialog;
class QWidget;

// The main window's saved searches: the toolbar's pop-up of them, rebuilt whenever the list
// changes and keeping its choice only for the very same record, and the sheet that saves the
// search field's text as a new one.
class SavedSearches final : public QObject {
    Q_OBJECT
public:
    SavedSearches(MainToolbar& toolbar, CVPrefsHelper& prefs, QWidget* window);
    Q_DISABLE_COPY_MOVE(SavedSearches)

    SaveSearchDialog* sheet() const { return m_sheet; }
    // The search chosen in the pop-up, or null for "No Saved Search".
    std::shared_ptr<CVFilterProfileInfo> chosen() const;

    void rebuildPopUp();
    // Shows in the toolbar whether a chosen search decides what is listed.
    void showChoice();

    // Opens the sheet with the search field's text, when there is any.
    void saveCurrentSearch();
    // Saves unless the name is empty; the sheet stays open when the database refuses.
    void confirmSaveSearchClicked();
    void cancelSaveSearchClicked();

    void setErrorHandler(std::function<void(const QString&)> handler);

private:
    MainToolbar& m_toolbar;
    CVPrefsHelper& m_prefs;
    SaveSearchDialog* m_sheet;
    QList<std::shared_ptr<CVFilterProfileInfo>> m_popupProfiles;
    std::function<void(const QString&)> m_showError;
};
