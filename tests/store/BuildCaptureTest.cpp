#include "BuildHistoryPersistence.h"
#include "StoreTestSupport.h"
#include "TestEnvironment.h"

#include <gtest/gtest.h>

namespace corvane {
namespace {

using namespace corvane::test;
using State = XcodeBuildWatcher::WatcherState;

const QString emDash = QStringLiteral("\u2014");

class BuildCapture : public ::testing::Test {
protected:
    TestEnvironment environment;
    BuildStore store;

    QList<BuildSession> savedHistory() const
    {
        const Result<QList<BuildSession>> loaded = BuildHistoryPersistence().load();
        return loaded ? loaded.value() : QList<BuildSession>{};
    }
};

// A build of ExampleApp going through the store the way the watcher drives it.
TEST_F(BuildCapture, TypicalBuildFromDetectionToSavedSession)
{
    const QString path = activityLogPath(QStringLiteral("ExampleApp"));
    EXPECT_EQ(store.activeComparison(), BuildComparison::empty());
    store.captureBuild(
        logText({warningAt(QStringLiteral("Model.swift"), 10, QStringLiteral("unused variable 'x'")),
                 errorAt(QStringLiteral("View.swift"), 3, QStringLiteral("missing return")), noiseNote()}),
        path);

    ASSERT_EQ(store.sessions().size(), 1);
    const BuildSession& session = store.sessions().first();
    EXPECT_EQ(session.projectName, QStringLiteral("ExampleApp"));
    EXPECT_EQ(session.activityLogPath, path);
    EXPECT_EQ(session.sourceName, u"ExampleApp " % emDash % u" 2 diagnostics");
    EXPECT_EQ(session.diagnostics.size(), 3) << "noise is stored with the session";
    EXPECT_EQ(session.comparison, BuildComparison::empty());
    EXPECT_EQ(store.activeSessionID(), session.id);
    EXPECT_EQ(selectedMessage(store), QStringLiteral("missing return")) << "first error wins";
    EXPECT_EQ(store.lastWatcherMessage(), QStringLiteral("Build captured. Baseline established for ExampleApp."));
    EXPECT_EQ(savedHistory(), store.sessions());
}

TEST_F(BuildCapture, SecondBuildReportsNewAndFixedAndSelectsTheNewError)
{
    const QString kept = warningAt(QStringLiteral("Model.swift"), 10, QStringLiteral("unused variable 'x'"));
    const QString fixed = warningAt(QStringLiteral("Model.swift"), 20, QStringLiteral("deprecated call"));
    const QString added = errorAt(QStringLiteral("View.swift"), 3, QStringLiteral("missing return"));
    const QString olderError = errorAt(QStringLiteral("Another.swift"), 1, QStringLiteral("old failure"));

    store.captureBuild(logText({olderError, kept, fixed}), activityLogPath(QStringLiteral("ExampleApp")));
    const BuildSession first = store.sessions().first();
    store.setWarningViewMode(BuildStore::WarningViewMode::ignored);
    // As the watcher hands it over: in blocks, cut anywhere.
    // Blocks of another log left without their end (its read failed) are
    // not part of it.
    store.receiveBuildText(activityLogPath(QStringLiteral("Other")), logText({fixed}));
    const QByteArray secondText = logText({olderError, kept, added});
    const QString secondLog = activityLogPath(QStringLiteral("ExampleApp"));
    for (const QByteArray& block : {secondText.left(7), secondText.mid(7, 30), secondText.mid(37)})
        store.receiveBuildText(secondLog, block);
    store.captureReceivedBuild(secondLog);

    ASSERT_EQ(store.sessions().size(), 2);
    const BuildSession& second = store.sessions().first();
    const BuildComparison& comparison = second.comparison;
    EXPECT_TRUE(comparison.hasBaseline);
    ASSERT_EQ(comparison.newDiagnosticIDs.size(), 1);
    EXPECT_EQ(findByMessage(second.diagnostics, QStringLiteral("missing return"))->id,
              *comparison.newDiagnosticIDs.begin());
    EXPECT_EQ(comparison.fixedDiagnostics, QList{*findByMessage(first.diagnostics, QStringLiteral("deprecated call"))});
    EXPECT_EQ(store.lastWatcherMessage(), QStringLiteral("Compared with the previous ExampleApp build."));
    EXPECT_EQ(selectedMessage(store), QStringLiteral("missing return"))
        << "a new diagnostic is preferred over an older error listed first";
    EXPECT_EQ(store.warningViewMode(), BuildStore::WarningViewMode::normal);
    EXPECT_EQ(store.activeComparison(), comparison);
}

TEST_F(BuildCapture, BaselineIsTheSameProjectsNewestBuildWhateverCameBetween)
{
    const QString a = warningAt(QStringLiteral("A.swift"), 1, QStringLiteral("a"));
    const QString b = warningAt(QStringLiteral("B.swift"), 2, QStringLiteral("b"));
    store.captureBuild(logText({a}), activityLogPath(QStringLiteral("Alpha")));
    store.captureBuild(logText({b}), activityLogPath(QStringLiteral("Alpha")));
    store.captureBuild(logText({a}), activityLogPath(QStringLiteral("Beta")));
    store.captureBuild(logText({a, b}), activityLogPath(QStringLiteral("alpha")));
    EXPECT_FALSE(store.sessions().first().comparison.hasBaseline) << "project names match case-sensitively";
    EXPECT_FALSE(store.sessions()[1].comparison.hasBaseline) << "another project's build is never a baseline";

    store.captureBuild(logText({a, b}), activityLogPath(QStringLiteral("Alpha")));
    const BuildComparison comparison = store.sessions().first().comparison;
    EXPECT_TRUE(comparison.hasBaseline);
    ASSERT_EQ(comparison.newDiagnosticIDs.size(), 1) << "only 'a' is new against Alpha's newest build";
    EXPECT_EQ(*comparison.newDiagnosticIDs.begin(),
              findByMessage(store.sessions().first().diagnostics, QStringLiteral("a"))->id);
    EXPECT_TRUE(comparison.fixedDiagnostics.isEmpty());
}

TEST_F(BuildCapture, NoiseStaysOutOfComparisonsAndCounts)
{
    const QString otherNoise = QStringLiteral("note: PLANNING BUILD for scheme App");
    store.captureBuild(logText({noiseNote()}), activityLogPath(QStringLiteral("App")));
    EXPECT_EQ(store.sessions().first().sourceName, u"App " % emDash % u" Clean");
    EXPECT_EQ(store.sessions().first().diagnostics.size(), 1);

    store.setShowBuildNoise(true);
    store.captureBuild(logText({otherNoise, warningAt(QStringLiteral("A.swift"), 1, QStringLiteral("only one"))}),
                       activityLogPath(QStringLiteral("App")));
    const BuildSession& session = store.sessions().first();
    EXPECT_EQ(session.sourceName, u"App " % emDash % u" 1 diagnostic");
    EXPECT_EQ(session.comparison.newDiagnosticIDs.size(), 1) << "new noise is not new";
    EXPECT_TRUE(session.comparison.fixedDiagnostics.isEmpty()) << "vanished noise is not fixed";

    store.captureBuild(logText({}), activityLogPath(QStringLiteral("App")));
    EXPECT_EQ(store.sessions().first().sourceName, u"App " % emDash % u" Clean");
    EXPECT_EQ(store.sessions().first().comparison.fixedDiagnostics.size(), 1);
}

TEST_F(BuildCapture, HistoryKeepsTheNewestForty)
{
    QList<QUuid> ids;
    for (int i = 0; i < 41; ++i) {
        store.captureBuild(logText({warningAt(QStringLiteral("A.swift"), i + 1, QStringLiteral("w"))}),
                           activityLogPath(QStringLiteral("App")));
        ids.prepend(store.sessions().first().id);
    }
    QList<QUuid> kept;
    for (const BuildSession& session : store.sessions())
        kept.append(session.id);
    EXPECT_EQ(kept, ids.first(historyLimit));
    EXPECT_EQ(savedHistory().size(), historyLimit);

    store.captureManualLog(QStringLiteral("warning: manual"), QStringLiteral("build.log"));
    EXPECT_EQ(store.sessions().size(), historyLimit);
    EXPECT_EQ(store.sessions().last().id, ids[historyLimit - 2]);
}

TEST_F(BuildCapture, CaptureWhileAnotherProjectIsFocusedIsOnlyRecorded)
{
    store.captureBuild(logText({errorAt(QStringLiteral("A.swift"), 1, QStringLiteral("alpha error"))}),
                       activityLogPath(QStringLiteral("Alpha")));
    store.captureBuild(logText({errorAt(QStringLiteral("B.swift"), 1, QStringLiteral("beta error"))}),
                       activityLogPath(QStringLiteral("Beta")));
    store.setFocusedProject(QStringLiteral("Alpha"));
    store.setWarningViewMode(BuildStore::WarningViewMode::pinned);
    const auto active = store.activeSessionID();
    const auto selected = store.selectedDiagnosticID();
    const auto message = store.lastWatcherMessage();

    store.captureBuild(logText({errorAt(QStringLiteral("B.swift"), 2, QStringLiteral("beta again"))}),
                       activityLogPath(QStringLiteral("Beta")));
    EXPECT_EQ(store.sessions().size(), 3);
    EXPECT_EQ(savedHistory().size(), 3);
    EXPECT_EQ(store.activeSessionID(), active);
    EXPECT_EQ(store.selectedDiagnosticID(), selected);
    EXPECT_EQ(store.lastWatcherMessage(), message);
    EXPECT_EQ(store.warningViewMode(), BuildStore::WarningViewMode::pinned);

    store.captureBuild(logText({errorAt(QStringLiteral("A.swift"), 1, QStringLiteral("alpha error"))}),
                       activityLogPath(QStringLiteral("Alpha")));
    EXPECT_EQ(store.activeSessionID(), store.sessions().first().id) << "the focused project's build is shown";
    EXPECT_EQ(store.lastWatcherMessage(), QStringLiteral("Compared with the previous Alpha build."));
    EXPECT_EQ(store.warningViewMode(), BuildStore::WarningViewMode::normal);
}

TEST_F(BuildCapture, ManualCapturesAreStandAloneAndHiddenByAnyFocus)
{
    store.captureBuild(logText({errorAt(QStringLiteral("A.swift"), 1, QStringLiteral("alpha error"))}),
                       activityLogPath(QStringLiteral("Alpha")));
    store.captureManualLog(QStringLiteral("note: Target dependency graph (1 target)\nnote: first note"),
                           QStringLiteral("build.log"));
    const BuildSession manual = store.sessions().first();
    EXPECT_EQ(manual.projectName, QStringLiteral("Manual"));
    EXPECT_EQ(manual.sourceName, QStringLiteral("build.log"));
    EXPECT_FALSE(manual.activityLogPath);
    EXPECT_EQ(manual.comparison, BuildComparison::empty());
    EXPECT_EQ(store.activeSessionID(), manual.id);
    EXPECT_EQ(selectedMessage(store), QStringLiteral("Target dependency graph (1 target)"))
        << "a manual capture chooses among all its diagnostics, noise included";
    EXPECT_EQ(store.lastWatcherMessage(), QStringLiteral("Build captured. Baseline established for Alpha."));

    store.captureManualLog(QStringLiteral("warning: again"), QStringLiteral("build.log"));
    EXPECT_FALSE(store.sessions().first().comparison.hasBaseline) << "manual logs never compare";

    // A focus on a project that has no session at all still holds manual captures back.
    store.setFocusedProject(QStringLiteral("Gone"));
    store.captureManualLog(QStringLiteral("error: hidden"), QStringLiteral("other.log"));
    EXPECT_EQ(store.sessions().size(), 4);
    EXPECT_EQ(savedHistory().size(), 4);
    EXPECT_FALSE(store.activeSessionID());
    EXPECT_FALSE(store.selectedDiagnosticID());

    // Not even a focus on "Manual" itself lets them through.
    store.setFocusedProject(QStringLiteral("Manual"));
    const auto shownManual = store.activeSessionID();
    store.captureManualLog(QStringLiteral("error: also hidden"), QStringLiteral("third.log"));
    EXPECT_EQ(store.activeSessionID(), shownManual);
    EXPECT_NE(store.activeSessionID(), store.sessions().first().id);
}

TEST_F(BuildCapture, StatusTextsAndTheMessageOfCapturesNotShown)
{
    EXPECT_EQ(store.statusText(), QStringLiteral("WATCHER OFF"));
    using Kind = State::Kind;
    const std::pair<BuildStore::CaptureState, QString> states[] = {
        {{Kind::watching, {}}, QStringLiteral("WATCHING XCODE")},
        {{Kind::buildDetected, QStringLiteral("ExampleApp")}, QStringLiteral("BUILD DETECTED \u2022 EXAMPLEAPP")},
        // Full Unicode upper-casing.
        {{Kind::processing, QStringLiteral("stra\u00DFe-\u01C6")},
         QStringLiteral("READING BUILD \u2022 STRASSE-\u01C4")},
        {{Kind::failed, QStringLiteral("The folder could not be read.")}, QStringLiteral("WATCHER ISSUE")},
        {{Kind::stopped, {}}, QStringLiteral("WATCHER OFF")},
    };
    for (const auto& [state, text] : states)
        EXPECT_EQ(state.statusText(), text);

    store.captureBuild(logText({}), activityLogPath(QStringLiteral("App")));
    store.setFocusedProject(QStringLiteral("Other"));
    store.captureBuild(logText({}), activityLogPath(QStringLiteral("App")));
    EXPECT_EQ(store.lastWatcherMessage(), QStringLiteral("Build captured. Baseline established for App."))
        << "a capture that is not shown does not replace the message";
    store.setFocusedProject(std::nullopt);
    store.captureBuild(logText({}), activityLogPath(QStringLiteral("App")));
    EXPECT_EQ(store.lastWatcherMessage(), QStringLiteral("Compared with the previous App build."));
}

TEST_F(BuildCapture, DefaultSelectionPrefersErrorsThenWarnings)
{
    const std::pair<QString, QString> logs[] = {
        {QStringLiteral("note: n\nwarning: w\nerror: first\nerror: later"), QStringLiteral("first")},
        {QStringLiteral("note: n\nwarning: w\nwarning: v"), QStringLiteral("w")},
        {QStringLiteral("note: n\nnote: m"), QStringLiteral("n")},
        {QString(), QStringLiteral("<nothing selected>")},
    };
    for (const auto& [log, selected] : logs) {
        store.captureManualLog(log, QStringLiteral("build.log"));
        EXPECT_EQ(selectedMessage(store), selected);
    }
}

TEST_F(BuildCapture, SelectingASessionResetsTheViewButKeepsFilters)
{
    store.captureBuild(logText({noiseNote(), QStringLiteral("note: real note")}),
                       activityLogPath(QStringLiteral("App")));
    const BuildSession first = store.sessions().first();
    store.captureBuild(logText({}), activityLogPath(QStringLiteral("Other")));
    store.setSearchText(QStringLiteral("abc"));
    store.setSeverityFilter({DiagnosticSeverity::note});
    store.setWarningViewMode(BuildStore::WarningViewMode::ignored);

    store.selectSession(first);
    EXPECT_EQ(store.activeSessionID(), first.id);
    EXPECT_EQ(store.warningViewMode(), BuildStore::WarningViewMode::normal);
    EXPECT_EQ(selectedMessage(store), QStringLiteral("real note")) << "noise is skipped";
    EXPECT_EQ(store.searchText(), QStringLiteral("abc"));
    EXPECT_EQ(store.severityFilter(), QSet<DiagnosticSeverity>{DiagnosticSeverity::note});

    store.setShowBuildNoise(true);
    store.selectSession(store.sessions()[1]);
    EXPECT_EQ(selectedMessage(store), QStringLiteral("Target dependency graph (3 targets)"));
}

} // namespace
} // namespace corvane
