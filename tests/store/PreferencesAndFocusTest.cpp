#include "DiagnosticPreferencesPersistence.h"
#include "StoreTestSupport.h"
#include "TestEnvironment.h"

#include <QFile>
#include <QSettings>

#include <gtest/gtest.h>

namespace corvane {
namespace {

using namespace corvane::test;
using Mode = BuildStore::WarningViewMode;

std::optional<QString> storedFocus()
{
    const QSettings defaults(QStringLiteral("Corvane"), QStringLiteral("Corvane"));
    const QVariant value = defaults.value(QStringLiteral("Corvane.FocusedProject"));
    return value.isValid() ? std::optional(value.toString()) : std::nullopt;
}

void storeFocus(const QString& name)
{
    QSettings defaults(QStringLiteral("Corvane"), QStringLiteral("Corvane"));
    defaults.setValue(QStringLiteral("Corvane.FocusedProject"), name);
}

class PreferencesAndFocus : public ::testing::Test {
protected:
    TestEnvironment environment;
    std::unique_ptr<BuildStore> store = std::make_unique<BuildStore>();

    void capture(const QStringList& lines, const QString& project)
    {
        store->captureBuild(logText(lines), activityLogPath(project));
    }
    BuildDiagnostic active(const QString& message) const { return activeDiagnostic(*store, message); }
    void restart() { store = std::make_unique<BuildStore>(); }
    QString preferencesFile() const
    {
        return environment.appFolder() + u'/' + DiagnosticPreferencesPersistence::fileName;
    }
};

TEST_F(PreferencesAndFocus, OnlyWarningsArePinnedOrIgnored)
{
    EXPECT_EQ(store->preferenceProjectName(), QStringLiteral("Manual")) << "no session yet";
    store->loadSampleDiagnostics();
    const BuildDiagnostic error = active(QStringLiteral("cannot find 'widgetTitle' in scope"));
    const BuildDiagnostic note = active(QStringLiteral("add an explicit type annotation to silence this warning"));
    int changes = 0;
    QObject::connect(store.get(), &BuildStore::aboutToChange, [&] { ++changes; });
    store->togglePin(error);
    store->toggleIgnore(note);
    EXPECT_EQ(changes, 0);
    EXPECT_FALSE(store->isPinned(error));
    EXPECT_FALSE(store->isIgnored(note));
    EXPECT_FALSE(QFile::exists(preferencesFile())) << "nothing to save";
}

TEST_F(PreferencesAndFocus, TogglesMoveKeysBetweenTheSetsAndSurviveARestart)
{
    store->loadSampleDiagnostics();
    const BuildDiagnostic level = active(QStringLiteral("variable 'level' was never mutated; consider changing to 'let' constant"));
    const BuildDiagnostic unused = active(QStringLiteral("result of call to 'drawFrame()' is unused"));
    const DiagnosticPreferenceKey levelKey{QStringLiteral("Manual"), level.signature()};
    const DiagnosticPreferenceKey unusedKey{QStringLiteral("Manual"), unused.signature()};

    store->togglePin(level);
    store->toggleIgnore(level);
    EXPECT_EQ(store->pinnedDiagnostics(), QSet<DiagnosticPreferenceKey>{});
    EXPECT_EQ(store->ignoredDiagnostics(), QSet<DiagnosticPreferenceKey>{levelKey});
    store->toggleIgnore(level);
    EXPECT_TRUE(store->ignoredDiagnostics().isEmpty());
    EXPECT_TRUE(store->pinnedDiagnostics().isEmpty()) << "restoring does not pin again";
    store->togglePin(level);
    store->toggleIgnore(unused);

    // A later sample shares the project "Manual", so the same warnings carry the marks.
    store->loadSampleDiagnostics();
    EXPECT_TRUE(store->isPinned(active(level.message)));
    EXPECT_TRUE(store->isIgnored(active(unused.message)));

    restart();
    EXPECT_EQ(store->pinnedDiagnostics(), QSet<DiagnosticPreferenceKey>{levelKey});
    EXPECT_EQ(store->ignoredDiagnostics(), QSet<DiagnosticPreferenceKey>{unusedKey});
    EXPECT_EQ(store->sessions().size(), 2);
    EXPECT_TRUE(store->isPinned(active(level.message))) << "the newest session is active after a restart";
}

TEST_F(PreferencesAndFocus, IgnoringTheSelectedWarningMovesTheSelection)
{
    capture({warningAt(QStringLiteral("A.swift"), 1, QStringLiteral("first")),
             warningAt(QStringLiteral("A.swift"), 2, QStringLiteral("second"))},
            QStringLiteral("App"));
    ASSERT_EQ(selectedMessage(*store), QStringLiteral("first"));
    store->toggleIgnore(active(QStringLiteral("first")));
    EXPECT_EQ(selectedMessage(*store), QStringLiteral("second"));

    store->togglePin(active(QStringLiteral("second")));
    store->setWarningViewMode(Mode::pinned);
    store->togglePin(active(QStringLiteral("second")));
    EXPECT_FALSE(store->selectedDiagnosticID()) << "nothing left in the pinned view";
}

TEST_F(PreferencesAndFocus, ProjectNamesAreDistinctSortedAndNeverManual)
{
    store->loadSampleDiagnostics();
    EXPECT_TRUE(store->projectNames().isEmpty());
    for (const QString& name : {QStringLiteral("zeta"), QStringLiteral("Alpha"), QStringLiteral("\u00E9clair"),
                                QStringLiteral("alpha"), QStringLiteral("Beta"), QStringLiteral("Alpha"),
                                QStringLiteral("Eclipse")})
        capture({}, name);
    const QStringList names = store->projectNames();
    ASSERT_EQ(names.size(), 6);
    EXPECT_EQ(names.mid(2), (QStringList{QStringLiteral("Beta"), QStringLiteral("\u00E9clair"),
                                         QStringLiteral("Eclipse"), QStringLiteral("zeta")}));
    EXPECT_EQ(QSet<QString>(names.cbegin(), names.cbegin() + 2),
              (QSet<QString>{QStringLiteral("Alpha"), QStringLiteral("alpha")}));
}

TEST_F(PreferencesAndFocus, FocusingChoosesTheProjectsNewestSessionAndIsRemembered)
{
    capture({errorAt(QStringLiteral("A.swift"), 1, QStringLiteral("alpha old"))}, QStringLiteral("Alpha"));
    capture({errorAt(QStringLiteral("A.swift"), 1, QStringLiteral("alpha old")),
             warningAt(QStringLiteral("A.swift"), 2, QStringLiteral("alpha new"))},
            QStringLiteral("Alpha"));
    const BuildSession newestAlpha = store->sessions().first();
    capture({errorAt(QStringLiteral("B.swift"), 1, QStringLiteral("beta"))}, QStringLiteral("Beta"));
    store->setSearchText(QStringLiteral("alpha"));
    store->setWarningViewMode(Mode::ignored);

    store->setFocusedProject(QStringLiteral("Alpha"));
    EXPECT_EQ(store->focusedProjectName(), QStringLiteral("Alpha"));
    EXPECT_EQ(storedFocus(), QStringLiteral("Alpha"));
    EXPECT_EQ(store->activeSessionID(), newestAlpha.id);
    EXPECT_EQ(store->warningViewMode(), Mode::normal);
    EXPECT_EQ(selectedMessage(*store), QStringLiteral("alpha new"));
    EXPECT_EQ(store->searchText(), QStringLiteral("alpha"));

    store->setFocusedProject(std::nullopt);
    EXPECT_FALSE(storedFocus());
    EXPECT_EQ(activeProject(*store), QStringLiteral("Beta"));

    store->setFocusedProject(QStringLiteral("Alpha"));
    restart();
    EXPECT_EQ(store->focusedProjectName(), QStringLiteral("Alpha"));
    EXPECT_EQ(store->activeSessionID(), newestAlpha.id);
    EXPECT_EQ(selectedMessage(*store), QStringLiteral("alpha new"));
}

TEST_F(PreferencesAndFocus, StoredFocusIsDroppedAtStartWhenItIsNoLongerOffered)
{
    capture({}, QStringLiteral("Alpha"));
    store->loadSampleDiagnostics();

    storeFocus(QStringLiteral("Manual"));
    restart();
    EXPECT_FALSE(store->focusedProjectName());
    EXPECT_FALSE(storedFocus());
    EXPECT_EQ(activeProject(*store), QStringLiteral("Manual"));

    storeFocus(QStringLiteral("alpha"));
    restart();
    EXPECT_FALSE(store->focusedProjectName()) << "focus names match exactly";
    EXPECT_FALSE(storedFocus());

    // A focus outlives its sessions leaving the history, until the next start.
    store->setFocusedProject(QStringLiteral("Alpha"));
    for (int i = 0; i < historyLimit; ++i)
        capture({}, QStringLiteral("Beta"));
    EXPECT_EQ(store->focusedProjectName(), QStringLiteral("Alpha"));
    EXPECT_TRUE(store->visibleSessions().isEmpty());
    EXPECT_EQ(activeProject(*store), QStringLiteral("Beta"));
    EXPECT_EQ(store->preferenceProjectName(), QStringLiteral("Beta"));
    restart();
    EXPECT_FALSE(store->focusedProjectName()) << "Alpha's sessions were pushed out";
    EXPECT_FALSE(storedFocus());
}

} // namespace
} // namespace corvane
