#include "HeaderBar.h"
#include "CountChip.h"
#include "SearchField.h"
#include "ShellFixtures.h"
#include "Theme.h"

#include <QLineEdit>
#include <QTest>

#include <gtest/gtest.h>

using namespace corvane;
using namespace corvane::test;

namespace {

QSet<DiagnosticSeverity> set(std::initializer_list<DiagnosticSeverity> severities)
{
    return QSet<DiagnosticSeverity>(severities);
}

constexpr auto error_ = DiagnosticSeverity::error;
constexpr auto warning_ = DiagnosticSeverity::warning;
constexpr auto note_ = DiagnosticSeverity::note;

QStringList items(const QComboBox& picker)
{
    QStringList texts;
    for (int i = 0; i < picker.count(); ++i)
        texts.append(picker.itemText(i));
    return texts;
}

QStringList menuTexts(const QMenu& menu)
{
    QStringList texts;
    for (const QAction* action : menu.actions())
        texts.append(action->isSeparator() ? QStringLiteral("---") : action->text());
    return texts;
}

} // namespace

class HeaderBarTest : public OpenWindow {};

TEST_F(HeaderBarTest, SeverityMenuShowsTheStoreFilterAndWritesOnlyFourWholeSets)
{
    auto* picker = find<QComboBox>(QStringLiteral("severityPicker"));
    EXPECT_EQ(items(*picker), (QStringList{QStringLiteral("Errors + Warnings"), QStringLiteral("Errors"),
                                           QStringLiteral("Warnings"), QStringLiteral("All")}));
    EXPECT_EQ(picker->currentText(), QStringLiteral("Errors + Warnings"));

    const std::pair<QSet<DiagnosticSeverity>, QString> cases[] = {
        {set({error_}), QStringLiteral("Errors")},
        {set({warning_}), QStringLiteral("Warnings")},
        {set({error_, warning_, note_}), QStringLiteral("All")},
        // Sets the menu cannot make read as its first choice.
        {set({error_, note_}), QStringLiteral("Errors + Warnings")},
        {set({note_}), QStringLiteral("Errors + Warnings")},
        {set({}), QStringLiteral("Errors + Warnings")},
    };
    for (const auto& [filter, shown] : cases) {
        store->setSeverityFilter(filter);
        settle();
        EXPECT_EQ(picker->currentText(), shown);
    }

    // Choosing writes the whole set; the selected error leaves the list, so
    // the selection moves to a listed warning.
    store->loadSampleDiagnostics();
    ASSERT_EQ(store->selectedDiagnostic()->severity, error_);
    for (const auto& [filter, shown] : std::initializer_list<std::pair<QSet<DiagnosticSeverity>, QString>>{
             {set({error_, warning_}), QStringLiteral("Errors + Warnings")},
             {set({error_, warning_, note_}), QStringLiteral("All")},
             {set({error_}), QStringLiteral("Errors")},
             {set({warning_}), QStringLiteral("Warnings")}}) {
        choose(QStringLiteral("severityPicker"), shown);
        EXPECT_EQ(store->severityFilter(), filter);
    }
    ASSERT_TRUE(store->selectedDiagnostic());
    EXPECT_EQ(store->selectedDiagnostic()->severity, warning_);
}

TEST_F(HeaderBarTest, WarningsMenuReadsAndWritesTheMode)
{
    auto* picker = find<QComboBox>(QStringLiteral("warningsPicker"));
    EXPECT_EQ(items(*picker), (QStringList{QStringLiteral("Warnings"), QStringLiteral("Pinned"), QStringLiteral("Ignored")}));

    choose(QStringLiteral("warningsPicker"), QStringLiteral("Pinned"));
    EXPECT_EQ(store->warningViewMode(), BuildStore::WarningViewMode::pinned);
    // A change made elsewhere shows in the menu.
    store->setWarningViewMode(BuildStore::WarningViewMode::ignored);
    settle();
    EXPECT_EQ(picker->currentText(), QStringLiteral("Ignored"));
}

TEST_F(HeaderBarTest, SearchFieldWritesEveryEditAndIsReachableByKeyboard)
{
    auto* field = find<QLineEdit>(QStringLiteral("searchField"));
    EXPECT_EQ(field->placeholderText(), QStringLiteral("FILTER DIAGNOSTICS"));

    QTest::keyClick(field, Qt::Key_R);
    EXPECT_EQ(store->searchText(), QStringLiteral("r"));
    QTest::keyClicks(field, QStringLiteral("ender"));
    EXPECT_EQ(store->searchText(), QStringLiteral("render"));
    QTest::keyClick(field, Qt::Key_Backspace);
    EXPECT_EQ(store->searchText(), QStringLiteral("rende"));

    // The store clearing the text clears the field.
    store->clearHistory();
    settle();
    EXPECT_TRUE(field->text().isEmpty());

    // Tab goes from the severity menu to the field, and Ctrl+F jumps there.
    EXPECT_EQ(find<QWidget>(QStringLiteral("severityPicker"))->nextInFocusChain(), field);
    window->show();
    ASSERT_TRUE(QTest::qWaitForWindowActive(window.get()));
    find<QWidget>(QStringLiteral("warningsPicker"))->setFocus();
    QTest::keySequence(window.get(), QKeySequence::Find);
    EXPECT_TRUE(waitUntil([&] { return field->hasFocus(); }));
}

TEST_F(HeaderBarTest, CountersAppearOnlyWithABaselineAndGreyAtZero)
{
    EXPECT_FALSE(shows(QStringLiteral("headerCounters")));

    store->loadSampleDiagnostics();
    settle();
    EXPECT_FALSE(shows(QStringLiteral("headerCounters")));

    capture(QStringLiteral("ExampleApp"), {error(1), warning(2)});
    EXPECT_FALSE(shows(QStringLiteral("headerCounters"))) << "a first build has nothing to compare with";

    capture(QStringLiteral("ExampleApp"), {warning(2), warning(3)});
    EXPECT_TRUE(shows(QStringLiteral("headerCounters")));
    auto* fresh = find<CountChip>(QStringLiteral("headerNewCounter"));
    auto* fixed = find<CountChip>(QStringLiteral("headerFixedCounter"));
    EXPECT_EQ(fresh->text(), QStringLiteral("1"));
    EXPECT_EQ(fixed->text(), QStringLiteral("1"));
    EXPECT_EQ(fresh->foreground(), theme::cyan());
    EXPECT_EQ(fixed->foreground(), theme::green());

    capture(QStringLiteral("ExampleApp"), {warning(2), warning(3)});
    EXPECT_EQ(fresh->text(), QStringLiteral("0"));
    EXPECT_EQ(fresh->foreground(), theme::secondaryText());
    EXPECT_EQ(fixed->foreground(), theme::secondaryText());
}

TEST_F(HeaderBarTest, StatusLineTakesTheCaptureStateColour)
{
    using Kind = BuildStore::CaptureState::Kind;
    const std::pair<Kind, QColor> cases[] = {
        {Kind::watching, theme::green()}, {Kind::buildDetected, theme::cyan()},    {Kind::processing, theme::cyan()},
        {Kind::failed, theme::orange()},  {Kind::stopped, theme::secondaryText()},
    };
    for (const auto& [kind, colour] : cases)
        EXPECT_EQ(HeaderBar::captureStatusColor({kind, QStringLiteral("ExampleApp")}), colour);

    auto* label = find<QLabel>(QStringLiteral("statusText"));
    EXPECT_EQ(label->palette().color(QPalette::WindowText), theme::secondaryText());
    store->startWatching();
    settle();
    EXPECT_EQ(label->text(), QStringLiteral("WATCHING XCODE"));
    EXPECT_EQ(label->palette().color(QPalette::WindowText), theme::green());
}

TEST_F(HeaderBarTest, FocusMenuListsAllProjectsThenTheProjectsWithACheckmarkOnTheFocus)
{
    auto* menu = find<QMenu>(QStringLiteral("projectFocusMenu"));
    auto* button = find<QAbstractButton>(QStringLiteral("projectFocusButton"));
    EXPECT_EQ(menuTexts(*menu), QStringList{QStringLiteral("All Projects")});
    EXPECT_TRUE(menuItem(QStringLiteral("projectFocusMenu"), QStringLiteral("All Projects"))->isChecked());
    EXPECT_EQ(button->text(), QStringLiteral("ALL PROJECTS"));

    capture(QStringLiteral("Weather"), {error(1)});
    capture(QStringLiteral("Atlas"), {warning(1)});
    store->loadSampleDiagnostics();
    settle();
    const QStringList names = store->projectNames();
    ASSERT_EQ(names.size(), 2);
    EXPECT_EQ(menuTexts(*menu), (QStringList{QStringLiteral("All Projects"), QStringLiteral("---"), names[0], names[1]}))
        << "the manual project is never offered";

    trigger(QStringLiteral("projectFocusMenu"), QStringLiteral("Weather"));
    EXPECT_EQ(store->focusedProjectName(), std::optional<QString>(QStringLiteral("Weather")));
    EXPECT_EQ(button->text(), QStringLiteral("WEATHER"));
    EXPECT_TRUE(menuItem(QStringLiteral("projectFocusMenu"), QStringLiteral("Weather"))->isChecked());
    EXPECT_FALSE(menuItem(QStringLiteral("projectFocusMenu"), QStringLiteral("All Projects"))->isChecked());
    EXPECT_FALSE(menuItem(QStringLiteral("projectFocusMenu"), QStringLiteral("Atlas"))->isChecked());

    trigger(QStringLiteral("projectFocusMenu"), QStringLiteral("All Projects"));
    EXPECT_FALSE(store->focusedProjectName());
    EXPECT_EQ(button->text(), QStringLiteral("ALL PROJECTS"));
}

TEST_F(HeaderBarTest, OptionsMenuOffersTheCommandsInOrderAndRunsThem)
{
    auto* menu = find<QMenu>(QStringLiteral("optionsMenu"));
    EXPECT_EQ(menuTexts(*menu),
              (QStringList{QStringLiteral("Show Build-System Notes"), QStringLiteral("---"),
                           QStringLiteral("Import Plain-Text Log") + QChar(0x2026), QStringLiteral("Load Sample Diagnostics"),
                           QStringLiteral("---"), QStringLiteral("Restart Xcode Watcher"), QStringLiteral("---"),
                           QStringLiteral("Clear Build History")}));

    QAction* notes = menuItem(QStringLiteral("optionsMenu"), QStringLiteral("Show Build-System Notes"));
    ASSERT_TRUE(notes->isCheckable());
    EXPECT_FALSE(notes->isChecked());
    notes->trigger();
    settle();
    EXPECT_TRUE(store->showBuildNoise());
    store->setShowBuildNoise(false);
    settle();
    EXPECT_FALSE(notes->isChecked()) << "the toggle follows the store";

    trigger(QStringLiteral("optionsMenu"), QStringLiteral("Load Sample Diagnostics"));
    ASSERT_EQ(store->sessions().size(), 1);
    EXPECT_EQ(store->sessions().first().sourceName, QStringLiteral("Sample Xcode Build"));

    // The import asks the desktop for a file; cancelling changes nothing.
    trigger(QStringLiteral("optionsMenu"), QStringLiteral("Import Plain-Text Log") + QChar(0x2026));
    EXPECT_EQ(store->sessions().size(), 1);

    trigger(QStringLiteral("optionsMenu"), QStringLiteral("Restart Xcode Watcher"));
    EXPECT_EQ(text(QStringLiteral("statusText")), QStringLiteral("WATCHING XCODE"));

    trigger(QStringLiteral("optionsMenu"), QStringLiteral("Clear Build History"));
    EXPECT_TRUE(store->sessions().isEmpty());
}
