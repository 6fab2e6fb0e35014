#include "savedsearches.h"

#include "maintoolbar.h"
#include "persistence/sqliteerror.h"
#include "prefs/cvfilterprofileinfo.h"
#include "prefs/cvprefshelper.h"
#include "savesearchdialog.h"
#include "searchfield.h"

#include <QComboBox>
#include <QLineEdit>

SavedSearches::SavedSearches(MainToolbar& toolbar, CVPrefsHelper& prefs, QWidget* window)
    : QObject(window), m_toolbar(toolbar), m_prefs(prefs), m_sheet(new SaveSearchDialog(window))
{
    connect(m_sheet, &SaveSearchDialog::confirmClicked, this,
            &SavedSearches::confirmSaveSearchClicked);
    connect(m_sheet, &SaveSearchDialog::cancelClicked, this,
            &SavedSearches::cancelSaveSearchClicked);
}

std::shared_ptr<CVFilterProfileInfo> SavedSearches::chosen() const
{
    const int index = m_toolbar.filterProfileButton()->currentIndex();
    if (index < 1 || index > m_popupProfiles.size())
        return {};
    return m_popupProfiles.at(index - 1);
}

void SavedSearches::rebuildPopUp()
{
    QComboBox* popUp = m_toolbar.filterProfileButton();
    const std::shared_ptr<CVFilterProfileInfo> wasChosen = chosen();
    {
        const QSignalBlocker blocker(popUp);
        while (popUp->count() > 1)
            popUp->removeItem(popUp->count() - 1);
        m_popupProfiles.clear();
        popUp->setCurrentIndex(0);
        const auto profiles = m_prefs.filterProfiles();
        for (const auto& profile : profiles) {
            m_popupProfiles.append(profile);
            popUp->addItem(profile->profileName());
            if (wasChosen && profile.get() == wasChosen.get())
                popUp->setCurrentIndex(popUp->count() - 1);
        }
    }
    showChoice();
}

void SavedSearches::showChoice()
{
    const auto profile = chosen();
    m_toolbar.showSavedSearchDecides(profile ? profile->profileName() : QString());
}

void SavedSearches::saveCurrentSearch()
{
    const QString text = m_toolbar.searchField()->text();
    if (text.isEmpty())
        return;
    m_sheet->nameField()->setText(text);
    m_sheet->expressionField()->setText(text);
    m_sheet->nameField()->selectAll();
    m_sheet->nameField()->setFocus();
    m_sheet->checkExpression();
    m_sheet->open();
}

void SavedSearches::confirmSaveSearchClicked()
{
    QLineEdit* name = m_sheet->nameField();
    if (name->text().isEmpty()) {
        name->setFocus();
        return;
    }
    try {
        auto profile = CVFilterProfileInfo::create();
        profile->setProfileName(name->text());
        profile->setSearchExpression(m_sheet->expressionField()->text());
        profile->save();
        m_prefs.reloadFilterProfiles();
    } catch (const SQLiteError& error) {
        // The sheet stays open with what the user typed.
        if (m_showError)
            m_showError(tr("The search could not be saved: %1").arg(error.message()));
        return;
    }
    m_sheet->hide();
    m_sheet->setResult(QDialog::Accepted);
}

void SavedSearches::cancelSaveSearchClicked()
{
    m_sheet->hide();
    m_sheet->setResult(QDialog::Rejected);
}

void SavedSearches::setErrorHandler(std::function<void(const QString&)> handler)
{
    m_showError = std::move(handler);
}
