#include "CorvaneApp.h"
#include "CountChip.h"
#include "DiagnosticListView.h"
#include "InstrumentEmptyState.h"
#include "ShellFixtures.h"
#include "Theme.h"
#include "WidgetsDesktopPlatform.h"

#include <QClipboard>
#include <QFileDialog>
#include <QFileInfo>
#include <QGuiApplication>
#include <QListView>
#include <QTest>

#include <gtest/gtest.h>

using namespace corvane;
using namespace corvane::test;

namespace {

std::optional<BuildDiagnostic> noiseNote(const BuildStore& store)
{
    const std::optional<BuildSession> session = store.activeSession();
    for (const BuildDiagnostic& d : session->diagnostics) {
        if (d.isBuildNoise())
            return d;
    }
    return std::nullopt;
}

} // namespace

class ContentViewTest : public OpenWindow {};

TEST_F(ContentViewTest, WithoutBuildsBothColumnsWaitAndTheCountsAreGreyZeros)
{
    EXPECT_EQ(currentPage(QStringLiteral("sidebarLowerArea")), QStringLiteral("sidebarEmptyState"));
    auto* waiting = find<InstrumentEmptyState>(QStringLiteral("sidebarEmptyState"));
    EXPECT_EQ(waiting->title(), QStringLiteral("WATCHING XCODE"));
    EXPECT_EQ(waiting->message(), QStringLiteral("Build a project in Xcode.\nCorvane will capture the result automatically."));
    EXPECT_EQ(currentPage(QStringLiteral("detailColumn")), QStringLiteral("detailEmptyState"));
    EXPECT_EQ(find<InstrumentEmptyState>(QStringLiteral("detailEmptyState"))->title(),
              QStringLiteral("SELECT A DIAGNOSTIC"));

    for (const QString& chip : {QStringLiteral("summaryErrors"), QStringLiteral("summaryWarnings")}) {
        EXPECT_EQ(find<CountChip>(chip)->text(), QStringLiteral("0"));
        EXPECT_EQ(find<CountChip>(chip)->foreground(), theme::secondaryText());
    }
    EXPECT_FALSE(shows(QStringLiteral("summaryComparison")));
    EXPECT_FALSE(shows(QStringLiteral("summarySource")));
}

TEST_F(ContentViewTest, LowerAreaShowsTheListOrTheCleanPanelAsTheStoreDecides)
{
    store->loadSampleDiagnostics();
    settle();
    EXPECT_EQ(currentPage(QStringLiteral("sidebarLowerArea")), QStringLiteral("diagnosticList"));
    EXPECT_EQ(currentPage(QStringLiteral("detailColumn")), QStringLiteral("diagnosticDetail"));
    EXPECT_EQ(text(QStringLiteral("summarySourceName")), QStringLiteral("SAMPLE XCODE BUILD"));
    EXPECT_TRUE(shows(QStringLiteral("summarySource")));
    EXPECT_EQ(find<CountChip>(QStringLiteral("summaryErrors"))->foreground(), theme::red());

    // Nothing left to list: the clean panel takes the list's place.
    store->setSearchText(QStringLiteral("no diagnostic says this"));
    settle();
    EXPECT_EQ(currentPage(QStringLiteral("sidebarLowerArea")), QStringLiteral("cleanBuildPanel"));

    store->clearHistory();
    settle();
    EXPECT_EQ(currentPage(QStringLiteral("sidebarLowerArea")), QStringLiteral("sidebarEmptyState"));
    EXPECT_EQ(currentPage(QStringLiteral("detailColumn")), QStringLiteral("detailEmptyState"));
}

TEST_F(ContentViewTest, SummaryStripAddsNewAndFixedCountsOnlyWithABaseline)
{
    capture(QStringLiteral("ExampleApp"), {error(1), warning(2)});
    EXPECT_FALSE(shows(QStringLiteral("summaryComparison")));
    capture(QStringLiteral("ExampleApp"), {warning(2), warning(3), warning(4)});
    EXPECT_TRUE(shows(QStringLiteral("summaryComparison")));
    EXPECT_EQ(find<CountChip>(QStringLiteral("summaryNew"))->text(), QStringLiteral("2"));
    EXPECT_EQ(find<CountChip>(QStringLiteral("summaryFixed"))->text(), QStringLiteral("1"));
    EXPECT_EQ(find<CountChip>(QStringLiteral("summaryErrors"))->foreground(), theme::secondaryText());
    EXPECT_EQ(find<CountChip>(QStringLiteral("summaryWarnings"))->text(), QStringLiteral("3"));
    EXPECT_TRUE(text(QStringLiteral("summarySourceName")).startsWith(QStringLiteral("EXAMPLEAPP")));
}

TEST_F(ContentViewTest, DetailNeverShowsABuildSystemNoteWhileNotesAreHidden)
{
    store->setSeverityFilter({DiagnosticSeverity::error, DiagnosticSeverity::warning, DiagnosticSeverity::note});
    store->setShowBuildNoise(true);
    store->loadSampleDiagnostics();
    settle();
    const auto noise = noiseNote(*store);
    ASSERT_TRUE(noise);
    store->setSelectedDiagnosticID(noise->id);
    settle();
    EXPECT_EQ(currentPage(QStringLiteral("detailColumn")), QStringLiteral("diagnosticDetail"));

    // Hiding notes moves the selection off the note.
    trigger(QStringLiteral("optionsMenu"), QStringLiteral("Show Build-System Notes"));
    ASSERT_FALSE(store->showBuildNoise());
    ASSERT_TRUE(store->selectedDiagnostic());
    EXPECT_FALSE(store->selectedDiagnostic()->isBuildNoise());
    EXPECT_EQ(currentPage(QStringLiteral("detailColumn")), QStringLiteral("diagnosticDetail"));

    // Even a note selected behind the list's back is not shown.
    store->setSelectedDiagnosticID(noise->id);
    settle();
    EXPECT_EQ(currentPage(QStringLiteral("detailColumn")), QStringLiteral("detailEmptyState"));
}

TEST(ContentView, ReactsToChangedSettingsButNotToTheFirstDisplay)
{
    WindowFixture f;
    f.store->setSeverityFilter({DiagnosticSeverity::error, DiagnosticSeverity::warning, DiagnosticSeverity::note});
    f.store->loadSampleDiagnostics();
    const auto noise = noiseNote(*f.store);
    ASSERT_TRUE(noise);
    // A selection the list does not show, left as it is by opening the window.
    f.store->setSelectedDiagnosticID(noise->id);
    f.open();
    settle();
    EXPECT_EQ(f.store->selectedDiagnosticID(), std::optional<QUuid>(noise->id));

    // Writing the same mode again is no change.
    f.store->setWarningViewMode(BuildStore::WarningViewMode::normal);
    settle();
    EXPECT_EQ(f.store->selectedDiagnosticID(), std::optional<QUuid>(noise->id));

    f.store->setWarningViewMode(BuildStore::WarningViewMode::ignored);
    settle();
    EXPECT_NE(f.store->selectedDiagnosticID(), std::optional<QUuid>(noise->id));
}

TEST(ContentView, StartsWithFocusInTheListAndRingsOnlyFocusFromTheKeyboard)
{
    WindowFixture f;
    f.store->loadSampleDiagnostics();
    ContentView& window = f.open();
    window.show();
    window.activateWindow();
    ASSERT_TRUE(QTest::qWaitForWindowActive(&window));
    EXPECT_EQ(QApplication::focusWidget(),
              static_cast<QWidget*>(f.find<DiagnosticListView>(QStringLiteral("diagnosticList"))->listView()));

    auto* project = f.find<QWidget>(QStringLiteral("projectFocusButton"));
    const QImage unfocused = project->grab().toImage();
    project->setFocus(Qt::MouseFocusReason);
    EXPECT_EQ(project->grab().toImage(), unfocused);
    project->clearFocus();
    project->setFocus(Qt::TabFocusReason);
    const QImage ringed = project->grab().toImage();
    EXPECT_NE(ringed, unfocused);
    // A menu taking focus for a while keeps the ring.
    auto* menu = f.find<QMenu>(QStringLiteral("projectFocusMenu"));
    menu->popup(project->mapToGlobal(QPoint(0, project->height())));
    settle();
    menu->close();
    settle();
    EXPECT_TRUE(project->hasFocus());
    EXPECT_EQ(project->grab().toImage(), ringed);

    // Without a build the list is hidden and no control holds focus.
    WindowFixture empty;
    ContentView& second = empty.open();
    second.show();
    second.activateWindow();
    ASSERT_TRUE(QTest::qWaitForWindowActive(&second));
    EXPECT_EQ(QApplication::focusWidget(), static_cast<QWidget*>(&second));
}

TEST(Application, OneWindowAtLeastMinimumSizeStartsTheWatcherOnceShown)
{
    TestEnvironment environment;
    CorvaneApp app;
    EXPECT_EQ(app.store().captureState().kind, XcodeBuildWatcher::WatcherState::Kind::stopped);
    ContentView& first = app.openWindow();
    EXPECT_EQ(first.minimumSize(), QSize(CorvaneApp::minimumWidth, CorvaneApp::minimumHeight));
    EXPECT_TRUE(first.windowTitle().isEmpty());
    EXPECT_TRUE(waitUntil([&] {
        return first.findChild<QLabel*>(QStringLiteral("statusText"))->text() == QStringLiteral("WATCHING XCODE");
    }));

    // A second window shows the same store; the running watcher is not
    // started again, so it never passes through a new "watching" state.
    int announcements = 0;
    QObject::connect(&app.store(), &BuildStore::aboutToChange, [&](BuildStore::Field field) {
        if (field == BuildStore::Field::captureState)
            ++announcements;
    });
    ContentView& second = app.openWindow();
    settle();
    EXPECT_NE(&first, &second);
    EXPECT_EQ(announcements, 0);
    EXPECT_EQ(app.store().captureState().kind, XcodeBuildWatcher::WatcherState::Kind::watching);
}

TEST(WidgetsDesktopPlatform, ClipboardKeepsTheLastTextAndAMissingProgramReportsFailure)
{
    WidgetsDesktopPlatform platform;
    platform.setClipboardText(QStringLiteral("first"));
    platform.setClipboardText(QStringLiteral("second"));
    EXPECT_EQ(QGuiApplication::clipboard()->text(), QStringLiteral("second"));

    TestEnvironment environment;
    EXPECT_FALSE(platform.startDetached(environment.root() + QStringLiteral("/no-such-program"), {}));
    const QString marker = environment.root() + QStringLiteral("/started");
    ASSERT_TRUE(platform.startDetached(QStringLiteral("/usr/bin/touch"), {marker}));
    EXPECT_TRUE(waitUntil([&] { return QFileInfo::exists(marker); }));
}

TEST(WidgetsDesktopPlatform, ChooserOffersPlainTextAndLogFilesAndShowsTheMessageInside)
{
    const QString message = QStringLiteral("Choose a plain-text Xcode or compiler build log.");
    const std::unique_ptr<QFileDialog> dialog = WidgetsDesktopPlatform::logFileDialog(message);
    EXPECT_EQ(dialog->fileMode(), QFileDialog::ExistingFile);
    EXPECT_EQ(dialog->mimeTypeFilters(), (QStringList{QStringLiteral("text/plain"), QStringLiteral("text/x-log")}));
    const QStringList filters = dialog->nameFilters();
    ASSERT_EQ(filters.size(), 2);
    EXPECT_TRUE(filters.at(1).contains(QStringLiteral("*.log"))) << filters.at(1).toStdString();
    for (const QString& filter : filters)
        EXPECT_FALSE(filter.contains(QStringLiteral("(*)"))) << filter.toStdString();

    dialog->show();
    settle();
    const auto* label = dialog->findChild<QLabel*>(QStringLiteral("chooserMessage"));
    ASSERT_NE(label, nullptr);
    EXPECT_EQ(label->text(), message);
    EXPECT_TRUE(label->isVisible());
    EXPECT_NE(dialog->windowTitle(), message);
    dialog->reject();
}
