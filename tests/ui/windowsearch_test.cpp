#include "windowtestsupport.h"

#include "persistence/sqlitepersistentobject.h"
#include "support/profiles.h"

#include "ui/window/savesearchdialog.h"

#include <QComboBox>
#include <QFile>
#include <QSignalSpy>
#include <QTest>
#include <QToolButton>

TEST_F(WindowTest, ToolbarStateIsSavedAfterARefreshAndRestoredAtStart)
{
    {
        auto window = makeWindow();
        window->typeControl()->setSelected(false, 0);
        window->protocolControl()->setSelected(false, 2);
        window->searchField()->setText(u"firefox,ssh"_s); // refreshes, which saves
        EXPECT_EQ(defaults().stringForKey(u"CVToolbarTypeItemState"_s), u"1"_s);
        EXPECT_EQ(defaults().stringForKey(u"CVToolbarProtocolItemState"_s), u"0,1"_s);
        EXPECT_EQ(defaults().stringForKey(u"CVToolbarAddressAndPortItemState"_s), u""_s);
        EXPECT_EQ(defaults().stringForKey(u"CVToolbarSearchItemState"_s), u"firefox,ssh"_s);
        EXPECT_FALSE(defaults().objectForKey(u"CVToolbarRefreshItemState"_s).isValid());
    }
    defaults().setObject(u"CVToolbarProtocolItemState"_s, u"1,7"_s);
    settings.reopen();
    auto window = makeWindow();
    EXPECT_EQ(window->typeControl()->stateText(), u"1"_s);
    EXPECT_EQ(window->protocolControl()->stateText(), u"1"_s);
    EXPECT_EQ(window->searchField()->text(), u"firefox,ssh"_s);
}

TEST_F(WindowTest, RemoteOnlyToggleInvertsTheLastSavedState)
{
    auto window = makeWindow();
    const LsofItemPtr remote = tcp(u"a"_s, u"1"_s), local = udp(u"b"_s, u"2"_s);
    refresh(*window, {remote, local});
    SegmentedControl* control = window->hasRemoteAddressControl();

    // Nothing saved reads as "on", so the toggle turns the segment on whatever the click did.
    defaults().removeObjectForKey(u"CVToolbarAddressAndPortItemState"_s);
    control->setSelected(false, 0);
    window->toggleHasRemoteAddress();
    EXPECT_TRUE(control->isSelectedForSegment(0));
    EXPECT_EQ(window->items(), LsofItemList{remote});
    EXPECT_EQ(defaults().stringForKey(u"CVToolbarAddressAndPortItemState"_s), u"0"_s);

    control->setSelected(true, 0);
    window->toggleHasRemoteAddress();
    EXPECT_FALSE(control->isSelectedForSegment(0));
    EXPECT_EQ(window->items().size(), 2);
    EXPECT_EQ(defaults().stringForKey(u"CVToolbarAddressAndPortItemState"_s), u""_s);
}

TEST_F(WindowTest, SearchMenuSwitchesExpressionModeInLiveMenuAndTemplate)
{
    auto window = makeWindow();
    QMenu* menuTemplate = window->searchField()->searchMenuTemplate();
    QAction* expression = SearchField::itemWithTag(menuTemplate, 100);
    QAction* save = SearchField::itemWithTag(menuTemplate, 101);
    ASSERT_TRUE(expression && save);
    EXPECT_EQ(expression->text(), u"Use Search Expression"_s);
    EXPECT_EQ(save->text(), u"Save Search…"_s);
    EXPECT_TRUE(expression->isCheckable());
    EXPECT_FALSE(save->isEnabled());

    std::unique_ptr<QMenu> live(window->searchField()->buildPopUpMenu());
    SearchField::itemWithTag(live.get(), 100)->trigger();
    EXPECT_TRUE(window->usesSearchExpression());
    EXPECT_TRUE(SearchField::itemWithTag(live.get(), 100)->isChecked());
    EXPECT_TRUE(SearchField::itemWithTag(live.get(), 101)->isEnabled());
    EXPECT_TRUE(expression->isChecked());
    EXPECT_TRUE(save->isEnabled());
    EXPECT_EQ(source.requests(), 2) << "the switch reloads the list";

    source.deliver({});
    std::unique_ptr<QMenu> next(window->searchField()->buildPopUpMenu());
    EXPECT_TRUE(SearchField::itemWithTag(next.get(), 100)->isChecked());
    SearchField::itemWithTag(next.get(), 100)->trigger();
    EXPECT_FALSE(window->usesSearchExpression());
    EXPECT_FALSE(expression->isChecked());
    EXPECT_FALSE(save->isEnabled());
    EXPECT_FALSE(SearchField::itemWithTag(next.get(), 101)->isEnabled());
}

TEST_F(WindowTest, SavingASearchNeedsTextAndAName)
{
    auto window = makeWindow();
    SaveSearchDialog* sheet = window->saveSearchWindow();
    window->saveCurrentSearch();
    EXPECT_FALSE(sheet->isVisible()) << "an empty search field opens nothing";

    window->searchField()->setText(u"remotePort == \"443\""_s);
    window->saveCurrentSearch();
    ASSERT_TRUE(sheet->isVisible());
    EXPECT_EQ(sheet->nameField()->text(), u"remotePort == \"443\""_s);
    EXPECT_EQ(sheet->nameField()->selectedText(), sheet->nameField()->text());
    EXPECT_EQ(sheet->expressionField()->text(), u"remotePort == \"443\""_s);

    QSignalSpy reloads(settings.prefs.get(), &CVPrefsHelper::filterProfilesChanged);
    sheet->nameField()->clear();
    window->confirmSaveSearchClicked();
    EXPECT_TRUE(sheet->isVisible());
    EXPECT_EQ(reloads.size(), 0);

    sheet->nameField()->setText(u"HTTPS"_s);
    window->confirmSaveSearchClicked();
    EXPECT_FALSE(sheet->isVisible());
    EXPECT_EQ(reloads.size(), 1);
    QComboBox* popup = window->filterProfileButton();
    ASSERT_EQ(popup->count(), 2);
    EXPECT_EQ(popup->itemText(0), u"No Saved Search"_s);
    EXPECT_EQ(popup->itemText(1), u"HTTPS"_s);

    window->saveCurrentSearch();
    window->cancelSaveSearchClicked();
    EXPECT_FALSE(sheet->isVisible());
    EXPECT_EQ(popup->count(), 2);
}

TEST_F(WindowTest, RebuiltSavedSearchPopUpKeepsTheChoiceOnlyForTheSameObject)
{
    auto window = makeWindow();
    saveProfile(u"Web"_s, u"protocol == \"UDP\""_s);
    auto mail = saveProfile(u"Mail"_s, u"protocol == \"UDP\""_s);
    settings.prefs->reloadFilterProfiles();
    QComboBox* popup = window->filterProfileButton();
    ASSERT_EQ(popup->count(), 3);
    popup->setCurrentIndex(2);
    EXPECT_EQ(window->chosenFilterProfile(), mail);

    settings.prefs->reloadFilterProfiles();
    EXPECT_EQ(popup->currentIndex(), 2);
    EXPECT_EQ(window->chosenFilterProfile(), mail);

    // Deleted elsewhere and saved again under the same name: another object, not the choice.
    mail->deleteObject();
    saveProfile(u"Mail"_s, u"protocol == \"UDP\""_s);
    settings.prefs->reloadFilterProfiles();
    EXPECT_EQ(popup->count(), 3);
    EXPECT_EQ(popup->currentIndex(), 0);
    EXPECT_EQ(window->chosenFilterProfile(), nullptr);
}

TEST_F(WindowTest, LongListsFilterAfterAPauseInTyping)
{
    auto window = makeWindow();
    LsofItemList many;
    for (int i = 0; i < 2500; ++i)
        many.append(i == 7 ? udp(u"needle"_s, u"7"_s) : tcp(u"hay"_s, QString::number(i)));
    refresh(*window, many);
    window->searchField()->setText(u"needle"_s);
    EXPECT_EQ(window->items().size(), 2500);
    EXPECT_TRUE(QTest::qWaitFor([&] { return window->items().size() == 1; }, 2000));
}

TEST_F(WindowTest, FeedsTheFilterFromTheProfileTheFieldAndTheSegments)
{
    auto window = makeWindow();
    const LsofItemPtr web = tcp(u"firefox"_s, u"1"_s), dns = udp(u"resolved"_s, u"2"_s);
    refresh(*window, {web, dns});

    // Keyword mode: a hidden column's value still matches, capitals or not.
    window->tableHeaderMenu()->tableHeaderViewContextMenuSelected(
        window->tableHeaderMenu()->itemForTitle(u"Application"_s));
    window->searchField()->setText(u"FIREFOX,nothing"_s);
    EXPECT_EQ(window->items(), LsofItemList{web});

    // Expression mode reads the field.
    std::unique_ptr<QMenu> menu(window->searchField()->buildPopUpMenu());
    SearchField::itemWithTag(menu.get(), 100)->trigger();
    source.deliver({web, dns});
    window->searchField()->setText(u"protocol == \"UDP\""_s);
    EXPECT_EQ(window->items(), LsofItemList{dns});

    // A chosen saved search wins over the field.
    saveProfile(u"Web"_s, u"remotePort == \"443\""_s);
    settings.prefs->reloadFilterProfiles();
    window->filterProfileButton()->setCurrentIndex(1);
    Q_EMIT window->filterProfileButton()->activated(1);
    source.deliver({web, dns});
    EXPECT_EQ(window->items(), LsofItemList{web});
    window->searchField()->setText(u"protocol == \"UDP\""_s);
    EXPECT_EQ(window->items(), LsofItemList{web});
}

TEST_F(WindowTest, ASearchThatCannotBeStoredKeepsTheSheetOpen)
{
    auto window = makeWindow();
    QStringList errors;
    window->setErrorHandler([&](const QString& message) { errors.append(message); });
    // The database would lie inside a regular file: it cannot be opened.
    QFile blocker(settings.dir.filePath(u"blocker"_s));
    ASSERT_TRUE(blocker.open(QIODevice::WriteOnly));
    blocker.close();
    SQLiteInstanceManager broken(u"corvina.sqlite3"_s, blocker.fileName() + u"/corvina.sqlite3"_s);
    SQLitePersistentObject::setManager(&broken);

    window->searchField()->setText(u"state == \"LISTEN\""_s);
    window->saveCurrentSearch();
    window->saveSearchWindow()->nameField()->setText(u"Listening"_s);
    window->confirmSaveSearchClicked();
    EXPECT_TRUE(window->saveSearchWindow()->isVisible());
    EXPECT_EQ(window->saveSearchWindow()->nameField()->text(), u"Listening"_s);
    ASSERT_EQ(errors.size(), 1);
    EXPECT_TRUE(errors.first().startsWith(u"The search could not be saved"_s));

    // Becoming active with an unreadable database still works.
    QEvent activate(QEvent::WindowActivate);
    QCoreApplication::sendEvent(window.get(), &activate);
    SQLitePersistentObject::setManager(settings.database.get());
}

TEST_F(WindowTest, AnExpressionThatDoesNotParseSaysWhyWhereOneTypes)
{
    auto window = makeWindow();
    refresh(*window, {tcp(u"a"_s, u"1"_s), udp(u"b"_s, u"2"_s)});
    std::unique_ptr<QMenu> menu(window->searchField()->buildPopUpMenu());
    SearchField::itemWithTag(menu.get(), 100)->trigger();
    source.deliver(window->originalItems());
    const QString helpTip = window->searchField()->toolTip();
    const QPalette plain = window->searchField()->palette();

    // Still the whole list, but the field is tinted and the parser's position is given.
    window->searchField()->setText(u"protocol == \"TCP\" AND"_s);
    EXPECT_EQ(window->items().size(), 2);
    const QString error = window->searchField()->error();
    EXPECT_TRUE(error.contains(u"(at character "_s)) << error.toStdString();
    EXPECT_EQ(window->searchField()->toolTip(), error);
    EXPECT_NE(window->searchField()->palette().color(QPalette::Base), plain.color(QPalette::Base));
    EXPECT_TRUE(statusSays(*window, u"(at character "_s));

    window->searchField()->setText(u"protocol == \"TCP\""_s);
    EXPECT_EQ(window->items().size(), 1);
    EXPECT_TRUE(window->searchField()->error().isEmpty());
    EXPECT_EQ(window->searchField()->toolTip(), helpTip);
    EXPECT_EQ(window->searchField()->palette().color(QPalette::Base), plain.color(QPalette::Base));
    EXPECT_FALSE(statusSays(*window, u"(at character "_s));

    // Saving shows the message in the sheet, and the sheet still saves.
    window->searchField()->setText(u"state =="_s);
    window->saveCurrentSearch();
    EXPECT_TRUE(window->saveSearchWindow()->expressionProblem().contains(u"(at character "_s));
    window->saveSearchWindow()->expressionField()->setText(u"state == \"LISTEN\""_s);
    EXPECT_TRUE(window->saveSearchWindow()->expressionProblem().isEmpty());
    window->cancelSaveSearchClicked();

    // A pattern in keyword mode that does not compile shows nothing, and says so.
    SearchField::itemWithTag(menu.get(), 100)->trigger();
    source.deliver(window->originalItems());
    window->searchField()->setText(u"fire(fox"_s);
    EXPECT_TRUE(window->items().isEmpty());
    EXPECT_FALSE(window->searchField()->error().isEmpty());
}

TEST_F(WindowTest, AChosenSavedSearchShowsTheFiltersItOverridesAsInactive)
{
    auto window = makeWindow();
    auto profile = saveProfile(u"Web"_s, u"remotePort == \"443\""_s);
    settings.prefs->reloadFilterProfiles();
    const QList<QWidget*> overridden{window->typeControl(), window->protocolControl(),
                                     window->hasRemoteAddressControl(), window->searchField()};
    QStringList before;
    for (QWidget* view : overridden) {
        EXPECT_TRUE(view->isEnabled());
        before << view->toolTip();
    }

    window->filterProfileButton()->setCurrentIndex(1);
    Q_EMIT window->filterProfileButton()->activated(1);
    for (QWidget* view : overridden) {
        EXPECT_FALSE(view->isEnabled());
        EXPECT_TRUE(view->toolTip().contains(u"\"Web\" decides"_s))
            << view->toolTip().toStdString();
    }

    // Deleted elsewhere: the pop-up falls back to none, and the filters come back.
    profile->deleteObject();
    settings.prefs->reloadFilterProfiles();
    for (qsizetype i = 0; i < overridden.size(); ++i) {
        EXPECT_TRUE(overridden.at(i)->isEnabled());
        EXPECT_EQ(overridden.at(i)->toolTip(), before.at(i));
    }
}

TEST_F(WindowTest, ToolbarTogglesLookPlainlyDifferentOnAndOff)
{
    auto window = makeWindow();
    SegmentedControl* protocols = window->protocolControl();
    protocols->setSelected(true, 0);
    protocols->setSelected(false, 1);
    const auto meanColor = [](QWidget* button) {
        // Scaled down smoothly to one pixel, an image is its mean colour.
        return button->grab()
            .toImage()
            .scaled(1, 1, Qt::IgnoreAspectRatio, Qt::SmoothTransformation)
            .pixelColor(0, 0);
    };
    const QColor on = meanColor(protocols->buttonForSegment(0));
    const QColor off = meanColor(protocols->buttonForSegment(1));
    const int distance = std::abs(on.red() - off.red()) + std::abs(on.green() - off.green()) +
                         std::abs(on.blue() - off.blue());
    EXPECT_GT(distance, 120) << on.name().toStdString() << " " << off.name().toStdString();
}

TEST(SegmentedControl, RestoresOnlySegmentsThatExist)
{
    const QList<std::pair<QString, QString>> cases{
        {u"1,7"_s, u"1"_s}, // 7 is past the three segments
        {u""_s, u""_s},     // an empty state deselects all
        {u"0,2"_s, u"0,2"_s},   {u"2,0"_s, u"0,2"_s},
        {u"-1"_s, u""_s},       {u"x"_s, u"0"_s}, // not a number reads as 0
        {u"2 , 1"_s, u"1,2"_s},
    };
    for (const auto& [stored, expected] : cases) {
        SegmentedControl control({u"TCP"_s, u"UDP"_s, u"Other"_s});
        for (int i = 0; i < control.segmentCount(); ++i)
            control.setSelected(true, i);
        control.restoreState(stored);
        EXPECT_EQ(control.stateText(), expected) << stored.toStdString();
    }
}
