#include "CountChip.h"
#include "HeaderBar.h"
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

TEST(HeaderBar, SeverityMenuShowsTheStoreFilterAndWritesOnlyFourWholeSets)
{
    WindowFixture f;
    f.open();
    auto* picker = f.find<QComboBox>(QStringLiteral("severityPicker"));
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
        f.store->setSeverityFilter(filter);
        settle();
        EXPECT_EQ(picker->currentText(), shown);
    }

    // Choosing writes the whole set; the selected error leaves the list, so
    // the selection moves to a listed warning.
    f.store->loadSampleDiagnostics();
    ASSERT_EQ(f.store->selectedDiagnostic()->severity, error_);
    for (const auto& [filter, shown] : std::initializer_list<std::pair<QSet<DiagnosticSeverity>, QString>>{
             {set({error_, warning_}), QStringLiteral("Errors + Warnings")},
             {set({error_, warning_, note_}), QStringLiteral("All")},
             {set({error_}), QStringLiteral("Errors")},
             {set({warning_}), QStringLiteral("Warnings")}}) {
        f.choose(QStringLiteral("severityPicker"), shown);
        EXPECT_EQ(f.store->severityFilter(), filter);
    }
    ASSERT_TRUE(f.store->selectedDiagnostic());
    EXPECT_EQ(f.store->selectedDiagnostic()->severity, warning_);
}

TEST(HeaderBar, WarningsMenuReadsAndWritesTheMode)
{
    WindowFixture f;
    f.open();
    auto* picker = f.find<QComboBox>(QStringLiteral("warningsPicker"));
    EXPECT_EQ(items(*picker), (QStringList{QStringLiteral("Warnings"), QStringLiteral("Pinned"), QStringLiteral("Ignored")}));

    f.choose(QStringLiteral("warningsPicker"), QStringLiteral("Pinned"));
    EXPECT_EQ(f.store->warningViewMode(), BuildStore::WarningViewMode::pinned);
    // A change made elsewhere shows in the menu.
    f.store->setWarningViewMode(BuildStore::WarningViewMode::ignored);
    settle();
    EXPECT_EQ(picker->currentText(), QStringLiteral("Ignored"));
}

TEST(HeaderBar, SearchFieldWritesEveryEditAndIsReachableByKeyboard)
{
    WindowFixture f;
    ContentView& window = f.open();
    auto* field = f.find<QLineEdit>(QStringLiteral("searchField"));
    EXPECT_EQ(field->placeholderText(), QStringLiteral("FILTER DIAGNOSTICS"));

    QTest::keyClick(field, Qt::Key_R);
    EXPECT_EQ(f.store->searchText(), QStringLiteral("r"));
    QTest::keyClicks(field, QStringLiteral("ender"));
    EXPECT_EQ(f.store->searchText(), QStringLiteral("render"));
    QTest::keyClick(field, Qt::Key_Backspace);
    EXPECT_EQ(f.store->searchText(), QStringLiteral("rende"));

    // The store clearing the text clears the field.
    f.store->clearHistory();
    settle();
    EXPECT_TRUE(field->text().isEmpty());

    // Tab goes from the severity menu to the field, and Ctrl+F jumps there.
    EXPECT_EQ(f.find<QWidget>(QStringLiteral("severityPicker"))->nextInFocusChain(), field);
    window.show();
    ASSERT_TRUE(QTest::qWaitForWindowActive(&window));
    f.find<QWidget>(QStringLiteral("warningsPicker"))->setFocus();
    QTest::keySequence(&window, QKeySequence::Find);
    EXPECT_TRUE(waitUntil([&] { return field->hasFocus(); }));
}

TEST(HeaderBar, CountersAppearOnlyWithABaselineAndGreyAtZero)
{
    WindowFixture f;
    f.open();
    EXPECT_FALSE(f.shows(QStringLiteral("headerCounters")));

    f.store->loadSampleDiagnostics();
    settle();
    EXPECT_FALSE(f.shows(QStringLiteral("headerCounters")));

    f.capture(QStringLiteral("ExampleApp"), {error(1), warning(2)});
    EXPECT_FALSE(f.shows(QStringLiteral("headerCounters"))) << "a first build has nothing to compare with";

    f.capture(QStringLiteral("ExampleApp"), {warning(2), warning(3)});
    EXPECT_TRUE(f.shows(QStringLiteral("headerCounters")));
    auto* fresh = f.find<CountChip>(QStringLiteral("headerNewCounter"));
    auto* fixed = f.find<CountChip>(QStringLiteral("headerFixedCounter"));
    EXPECT_EQ(fresh->text(), QStringLiteral("1"));
    EXPECT_EQ(fixed->text(), QStringLiteral("1"));
    EXPECT_EQ(fresh->foreground(), theme::cyan());
    EXPECT_EQ(fixed->foreground(), theme::green());

    f.capture(QStringLiteral("ExampleApp"), {warning(2), warning(3)});
    EXPECT_EQ(fresh->text(), QStringLiteral("0"));
    EXPECT_EQ(fresh->foreground(), theme::secondaryText());
    EXPECT_EQ(fixed->foreground(), theme::secondaryText());
}

TEST(HeaderBar, StatusLineTakesTheCaptureStateColour)
{
    WindowFixture f;
    f.open();
    using State = XcodeBuildWatcher::WatcherState;
    const std::pair<State, QColor> cases[] = {
        {State::watching(), theme::green()},
        {State::buildDetected(QStringLiteral("ExampleApp")), theme::cyan()},
        {State::processing(QStringLiteral("ExampleApp")), theme::cyan()},
        {State::failed(QStringLiteral("No access")), theme::orange()},
        {State::stopped(), theme::secondaryText()},
    };
    for (const auto& [state, colour] : cases) {
        f.store->applyWatcherState(state);
        settle();
        auto* label = f.find<QLabel>(QStringLiteral("statusText"));
        EXPECT_EQ(label->text(), f.store->statusText());
        EXPECT_EQ(label->palette().color(QPalette::WindowText), colour) << label->text().toStdString();
    }
}

TEST(HeaderBar, FocusMenuListsAllProjectsThenTheProjectsWithACheckmarkOnTheFocus)
{
    WindowFixture f;
    f.open();
    auto* menu = f.find<QMenu>(QStringLiteral("projectFocusMenu"));
    auto* button = f.find<QAbstractButton>(QStringLiteral("projectFocusButton"));
    EXPECT_EQ(menuTexts(*menu), QStringList{QStringLiteral("All Projects")});
    EXPECT_TRUE(f.menuItem(QStringLiteral("projectFocusMenu"), QStringLiteral("All Projects"))->isChecked());
    EXPECT_EQ(button->text(), QStringLiteral("ALL PROJECTS"));

    f.capture(QStringLiteral("Weather"), {error(1)});
    f.capture(QStringLiteral("Atlas"), {warning(1)});
    f.store->loadSampleDiagnostics();
    settle();
    const QStringList names = f.store->projectNames();
    ASSERT_EQ(names.size(), 2);
    EXPECT_EQ(menuTexts(*menu), (QStringList{QStringLiteral("All Projects"), QStringLiteral("---"), names[0], names[1]}))
        << "the manual project is never offered";

    f.trigger(QStringLiteral("projectFocusMenu"), QStringLiteral("Weather"));
    EXPECT_EQ(f.store->focusedProjectName(), std::optional<QString>(QStringLiteral("Weather")));
    EXPECT_EQ(button->text(), QStringLiteral("WEATHER"));
    EXPECT_TRUE(f.menuItem(QStringLiteral("projectFocusMenu"), QStringLiteral("Weather"))->isChecked());
    EXPECT_FALSE(f.menuItem(QStringLiteral("projectFocusMenu"), QStringLiteral("All Projects"))->isChecked());
    EXPECT_FALSE(f.menuItem(QStringLiteral("projectFocusMenu"), QStringLiteral("Atlas"))->isChecked());

    f.trigger(QStringLiteral("projectFocusMenu"), QStringLiteral("All Projects"));
    EXPECT_FALSE(f.store->focusedProjectName());
    EXPECT_EQ(button->text(), QStringLiteral("ALL PROJECTS"));
}

TEST(HeaderBar, OptionsMenuOffersTheCommandsInOrderAndRunsThem)
{
    WindowFixture f;
    f.open();
    auto* menu = f.find<QMenu>(QStringLiteral("optionsMenu"));
    EXPECT_EQ(menuTexts(*menu),
              (QStringList{QStringLiteral("Show Build-System Notes"), QStringLiteral("---"),
                           QStringLiteral("Import Plain-Text Log") + QChar(0x2026), QStringLiteral("Load Sample Diagnostics"),
                           QStringLiteral("---"), QStringLiteral("Restart Xcode Watcher"), QStringLiteral("---"),
                           QStringLiteral("Clear Build History")}));

    QAction* notes = f.menuItem(QStringLiteral("optionsMenu"), QStringLiteral("Show Build-System Notes"));
    ASSERT_TRUE(notes->isCheckable());
    EXPECT_FALSE(notes->isChecked());
    notes->trigger();
    settle();
    EXPECT_TRUE(f.store->showBuildNoise());
    f.store->setShowBuildNoise(false);
    settle();
    EXPECT_FALSE(notes->isChecked()) << "the toggle follows the store";

    f.trigger(QStringLiteral("optionsMenu"), QStringLiteral("Load Sample Diagnostics"));
    ASSERT_EQ(f.store->sessions().size(), 1);
    EXPECT_EQ(f.store->sessions().first().sourceName, QStringLiteral("Sample Xcode Build"));

    // The import asks the desktop for a file; cancelling changes nothing.
    f.trigger(QStringLiteral("optionsMenu"), QStringLiteral("Import Plain-Text Log") + QChar(0x2026));
    EXPECT_EQ(f.store->sessions().size(), 1);

    f.trigger(QStringLiteral("optionsMenu"), QStringLiteral("Restart Xcode Watcher"));
    EXPECT_TRUE(f.store->watcher().isRunning());
    EXPECT_EQ(f.text(QStringLiteral("statusText")), QStringLiteral("WATCHING XCODE"));
    f.store->watcher().stop();

    f.trigger(QStringLiteral("optionsMenu"), QStringLiteral("Clear Build History"));
    EXPECT_TRUE(f.store->sessions().isEmpty());
}
