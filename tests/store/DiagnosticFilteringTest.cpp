#include "StoreTestSupport.h"
#include "TestEnvironment.h"

#include <gtest/gtest.h>

namespace corvane {
namespace {

using namespace corvane::test;
using Mode = BuildStore::WarningViewMode;

class DiagnosticFiltering : public ::testing::Test {
protected:
    TestEnvironment environment;
    BuildStore store;

    void capture(const QStringList& lines, const QString& project = QStringLiteral("App"))
    {
        store.captureBuild(logText(lines), activityLogPath(project));
    }
    QStringList visible() const { return messages(store.visibleDiagnostics()); }
    BuildDiagnostic diagnostic(const QString& message) const { return activeDiagnostic(store, message); }
};

TEST_F(DiagnosticFiltering, DisplayOrderSeverityPinsFileNamesAndLines)
{
    capture({noteAt(QStringLiteral("A.swift"), 1, QStringLiteral("n1")),
             warningAt(QStringLiteral("b.swift"), 9, QStringLiteral("w-b9")),
             warningAt(QStringLiteral("C.swift"), 1, QStringLiteral("w-C1-pinned")),
             warningAt(QStringLiteral("a.swift"), 30, QStringLiteral("w-a30")),
             warningAt(QStringLiteral("a.swift"), 4, QStringLiteral("w-a4")),
             errorAt(QStringLiteral("Z.swift"), 2, QStringLiteral("e-Z")),
             QStringLiteral("warning: no location"),
             errorAt(QStringLiteral("\u00C9cran.swift"), 7, QStringLiteral("e-Ecran")),
             errorAt(QStringLiteral("Eclair.swift"), 7, QStringLiteral("e-Eclair"))});
    store.setSeverityFilter({DiagnosticSeverity::error, DiagnosticSeverity::warning, DiagnosticSeverity::note});
    store.togglePin(diagnostic(QStringLiteral("w-C1-pinned")));

    EXPECT_EQ(visible(), (QStringList{QStringLiteral("e-Eclair"), QStringLiteral("e-Ecran"), QStringLiteral("e-Z"),
                                      QStringLiteral("w-C1-pinned"), QStringLiteral("w-a4"), QStringLiteral("w-a30"),
                                      QStringLiteral("w-b9"), QStringLiteral("no location"), QStringLiteral("n1")}))
        << "errors, then pinned warnings, then by file name ignoring case (\"Build\" for no file), then line";
}

TEST_F(DiagnosticFiltering, NamesDifferingOnlyInCaseKeepTheirOrderWhateverTheLines)
{
    capture({warningAt(QStringLiteral("view.swift"), 50, QStringLiteral("lower-50")),
             warningAt(QStringLiteral("View.swift"), 10, QStringLiteral("upper-10")),
             warningAt(QStringLiteral("view.swift"), 20, QStringLiteral("lower-20"))});
    EXPECT_EQ(visible().size(), 3);

    capture({warningAt(QStringLiteral("View.swift"), 50, QStringLiteral("upper-50")),
             warningAt(QStringLiteral("view.swift"), 10, QStringLiteral("lower-10")),
             warningAt(QStringLiteral("apple.swift"), 99, QStringLiteral("apple"))});
    EXPECT_EQ(visible(), (QStringList{QStringLiteral("apple"), QStringLiteral("upper-50"), QStringLiteral("lower-10")}));
}

TEST_F(DiagnosticFiltering, LinesAscendWithinAFileAndColumnsPlayNoPart)
{
    capture({warningAt(QStringLiteral("A.swift"), 30, QStringLiteral("line 30")),
             located(QStringLiteral("A.swift"), 3, 9, QStringLiteral("warning"), QStringLiteral("line 3 column 9")),
             located(QStringLiteral("A.swift"), 3, 1, QStringLiteral("warning"), QStringLiteral("line 3 column 1"))});
    EXPECT_EQ(
        visible(),
        (QStringList{QStringLiteral("line 3 column 9"), QStringLiteral("line 3 column 1"), QStringLiteral("line 30")}));
}

TEST_F(DiagnosticFiltering, SeverityFilterAndWarningViews)
{
    capture({errorAt(QStringLiteral("A.swift"), 1, QStringLiteral("error")),
             warningAt(QStringLiteral("A.swift"), 2, QStringLiteral("plain warning")),
             warningAt(QStringLiteral("A.swift"), 3, QStringLiteral("pinned warning")),
             warningAt(QStringLiteral("A.swift"), 4, QStringLiteral("ignored warning")),
             noteAt(QStringLiteral("A.swift"), 5, QStringLiteral("note"))});
    store.togglePin(diagnostic(QStringLiteral("pinned warning")));
    store.toggleIgnore(diagnostic(QStringLiteral("ignored warning")));

    EXPECT_EQ(visible(), (QStringList{QStringLiteral("error"), QStringLiteral("pinned warning"),
                                      QStringLiteral("plain warning")}));
    store.setSeverityFilter({});
    EXPECT_TRUE(visible().isEmpty());
    store.setWarningViewMode(Mode::pinned);
    EXPECT_EQ(visible(), QStringList{QStringLiteral("pinned warning")}) << "the severity filter plays no part";
    store.setWarningViewMode(Mode::ignored);
    EXPECT_EQ(visible(), QStringList{QStringLiteral("ignored warning")});
    store.setSeverityFilter({DiagnosticSeverity::note});
    store.setWarningViewMode(Mode::normal);
    EXPECT_EQ(visible(), QStringList{QStringLiteral("note")});
}

TEST_F(DiagnosticFiltering, SearchLooksAtMessageAndFileNameOnly)
{
    capture({errorAt(QStringLiteral("ContentView.swift"), 1, QStringLiteral("cannot find 'x'")),
             warningAt(QStringLiteral("Model.swift"), 2, QStringLiteral("Sources folder is odd")),
             warningAt(QStringLiteral("Other.swift"), 3, QStringLiteral("Caf\u00E9 is closed")),
             QStringLiteral("warning: located nowhere")});

    store.setSearchText(QStringLiteral(" \n\t "));
    EXPECT_EQ(visible().size(), 4) << "blank search filters nothing";
    store.setSearchText(QStringLiteral("  contentview.SWIFT\n"));
    EXPECT_EQ(visible(), QStringList{QStringLiteral("cannot find 'x'")});
    store.setSearchText(QStringLiteral("sources"));
    EXPECT_EQ(visible(), QStringList{QStringLiteral("Sources folder is odd")})
        << "every file is in a Sources folder, but directories are not searched";
    store.setSearchText(QStringLiteral("build"));
    EXPECT_EQ(visible(), QStringList{QStringLiteral("located nowhere")}) << "no file means the name \"Build\"";
    store.setSearchText(QStringLiteral("CAF\u00C9"));
    EXPECT_EQ(visible(), QStringList{QStringLiteral("Caf\u00E9 is closed")});
    store.setSearchText(QStringLiteral("cafe"));
    EXPECT_TRUE(visible().isEmpty()) << "diacritics count";
    store.setSearchText(QStringLiteral("error"));
    EXPECT_TRUE(visible().isEmpty()) << "the raw text is not searched";
}

TEST_F(DiagnosticFiltering, SearchIgnoresLetterCaseAsTheLocaleDoes)
{
    capture({warningAt(QStringLiteral("A.swift"), 1, QStringLiteral("\u0130STANBUL")),
             warningAt(QStringLiteral("A.swift"), 2, QStringLiteral("INDEX"))});
    capture({warningAt(QStringLiteral("A.swift"), 2, QStringLiteral("INDEX"))});
    const QLocale saved;
    QLocale::setDefault(QLocale(QLocale::Turkish, QLocale::Turkey));
    store.setSearchText(QStringLiteral("istanbul"));
    const QStringList turkishFixed = messages(store.listedFixedDiagnostics());
    store.setSearchText(QStringLiteral("index"));
    const QStringList turkishVisible = visible();
    QLocale::setDefault(saved);

    EXPECT_EQ(turkishFixed, QStringList{QStringLiteral("\u0130STANBUL")});
    EXPECT_TRUE(turkishVisible.isEmpty()) << "in Turkish the capital of i is \u0130, not I";
    EXPECT_EQ(visible(), QStringList{QStringLiteral("INDEX")});
}

TEST_F(DiagnosticFiltering, BuildNoiseIsHiddenUnlessShown)
{
    capture({QStringLiteral("note: COMPUTE TARGET DEPENDENCY GRAPH"),
             QStringLiteral("warning: Target dependency graph has a cycle"),
             noteAt(QStringLiteral("A.swift"), 1, QStringLiteral("plain note"))});
    store.setSeverityFilter({DiagnosticSeverity::warning, DiagnosticSeverity::note});
    EXPECT_EQ(visible(), (QStringList{QStringLiteral("Target dependency graph has a cycle"),
                                      QStringLiteral("plain note")}));
    store.setShowBuildNoise(true);
    EXPECT_EQ(visible().size(), 3);
}

TEST_F(DiagnosticFiltering, FixedDiagnosticsCanBeSelectedUntilTheSelectionIsRepaired)
{
    capture({warningAt(QStringLiteral("A.swift"), 1, QStringLiteral("going away")),
             warningAt(QStringLiteral("A.swift"), 2, QStringLiteral("staying"))});
    const BuildDiagnostic goingAway = diagnostic(QStringLiteral("going away"));
    capture({warningAt(QStringLiteral("A.swift"), 2, QStringLiteral("staying"))});

    EXPECT_EQ(store.visibleFixedDiagnostics(), QList<BuildDiagnostic>{goingAway});
    store.setSelectedDiagnosticID(goingAway.id);
    ASSERT_TRUE(store.selectedDiagnostic());
    EXPECT_EQ(*store.selectedDiagnostic(), goingAway);

    store.ensureSelectionVisible();
    EXPECT_EQ(selectedMessage(store), QStringLiteral("staying"));

    store.setSelectedDiagnosticID(QUuid::createUuid());
    EXPECT_FALSE(store.selectedDiagnostic()) << "a stale id shows nothing";
    store.setSeverityFilter({DiagnosticSeverity::error});
    EXPECT_FALSE(store.selectedDiagnosticID()) << "nothing visible clears the selection";

    // An id from another session is not the selection either.
    capture({errorAt(QStringLiteral("B.swift"), 1, QStringLiteral("in other"))}, QStringLiteral("Other"));
    store.setSelectedDiagnosticID(goingAway.id);
    EXPECT_FALSE(store.selectedDiagnostic());
}

TEST_F(DiagnosticFiltering, SettersThatHideTheSelectionRepairIt)
{
    capture({errorAt(QStringLiteral("A.swift"), 1, QStringLiteral("error")),
             warningAt(QStringLiteral("A.swift"), 2, QStringLiteral("warning")), noiseNote()});
    const auto select = [&](const QString& message) { store.setSelectedDiagnosticID(diagnostic(message).id); };

    select(QStringLiteral("warning"));
    store.setSearchText(QStringLiteral("err"));
    EXPECT_EQ(selectedMessage(store), QStringLiteral("error"));
    store.setSearchText({});
    select(QStringLiteral("warning"));
    store.setSeverityFilter({DiagnosticSeverity::error});
    EXPECT_EQ(selectedMessage(store), QStringLiteral("error"));
    store.setSeverityFilter({DiagnosticSeverity::error, DiagnosticSeverity::warning, DiagnosticSeverity::note});
    store.setShowBuildNoise(true);
    select(QStringLiteral("Target dependency graph (3 targets)"));
    store.setShowBuildNoise(false);
    EXPECT_EQ(selectedMessage(store), QStringLiteral("error"));
    store.setWarningViewMode(Mode::pinned);
    EXPECT_FALSE(store.selectedDiagnosticID());
}

TEST_F(DiagnosticFiltering, VisibleSessionsFollowTheFocus)
{
    for (int i = 0; i < 12; ++i)
        capture({}, QStringLiteral("Alpha"));
    capture({}, QStringLiteral("Beta"));
    capture({}, QStringLiteral("alpha"));

    EXPECT_EQ(store.visibleSessions(), store.sessions().first(10));

    store.setFocusedProject(QStringLiteral("Alpha"));
    EXPECT_EQ(store.visibleSessions(), store.sessions().mid(2, 10)) << "Alpha's newest ten, not alpha's";

    store.setFocusedProject(QStringLiteral("Beta"));
    ASSERT_EQ(store.visibleSessions().size(), 1);
}

TEST_F(DiagnosticFiltering, PinsBelongToTheSessionsProject)
{
    const QString shared = warningAt(QStringLiteral("Shared.swift"), 4, QStringLiteral("shared warning"));
    capture({shared}, QStringLiteral("Alpha"));
    const BuildDiagnostic alphaWarning = diagnostic(QStringLiteral("shared warning"));
    store.togglePin(alphaWarning);
    store.toggleIgnore(alphaWarning);
    store.togglePin(alphaWarning);
    EXPECT_TRUE(store.isPinned(alphaWarning));
    EXPECT_FALSE(store.isIgnored(alphaWarning)) << "pinning an ignored warning restores it";

    capture({shared}, QStringLiteral("Beta"));
    const BuildDiagnostic betaWarning = diagnostic(QStringLiteral("shared warning"));
    EXPECT_FALSE(store.isPinned(betaWarning));
    store.setWarningViewMode(Mode::pinned);
    EXPECT_TRUE(visible().isEmpty());
    EXPECT_TRUE(store.isDiagnosticVisible(betaWarning, store.sessions()[1]))
        << "visibility uses the project of the session being filtered";

    store.setWarningViewMode(Mode::normal);
    store.toggleIgnore(betaWarning);
    EXPECT_TRUE(visible().isEmpty());
    store.selectSession(store.sessions()[1]);
    EXPECT_EQ(visible(), QStringList{QStringLiteral("shared warning")}) << "Alpha's copy is pinned, not ignored";

    capture({warningAt(QStringLiteral("Shared.swift"), 5, QStringLiteral("shared warning"))}, QStringLiteral("Alpha"));
    EXPECT_FALSE(store.isPinned(diagnostic(QStringLiteral("shared warning")))) << "a moved warning is a new one";
}

} // namespace
} // namespace corvane
