#include "UserCommands.h"
#include "ActivityLogReader.h"
#include "BuildHistoryPersistence.h"
#include "StoreTestSupport.h"
#include "TestEnvironment.h"

#include <QDeadlineTimer>
#include <QDir>
#include <QFile>
#include <QSettings>

#include <gtest/gtest.h>

namespace corvane {
namespace {

using namespace corvane::test;
using Mode = BuildStore::WarningViewMode;

class UserCommands : public ::testing::Test {
protected:
    TestEnvironment environment;
    RecordingPlatform platform;
    BuildStore store{&platform};

    QString historyFile() const { return environment.appFolder() + u'/' + BuildHistoryPersistence::fileName; }
};

TEST_F(UserCommands, SampleLogListsErrorAndWarningsAndSelectsTheError)
{
    store.loadSampleDiagnostics();
    ASSERT_EQ(store.sessions().size(), 1);
    const BuildSession& session = store.sessions().first();
    EXPECT_EQ(session.sourceName, QStringLiteral("Sample Xcode Build"));
    EXPECT_EQ(session.projectName, QStringLiteral("Manual"));
    // Its lines are pinned by the tests that use them (preferences, header, window).
    EXPECT_EQ(selectedMessage(store), QStringLiteral("cannot find 'widgetTitle' in scope"));

    store.setFocusedProject(QStringLiteral("Elsewhere"));
    store.loadSampleDiagnostics();
    EXPECT_EQ(store.sessions().size(), 2) << "loading again adds another session, even when not shown";
    EXPECT_TRUE(store.projectNames().isEmpty());
}

TEST_F(UserCommands, ImportReadsUtf8AndNamesTheSessionAfterTheFile)
{
    const QString path = environment.root() + QStringLiteral("/logs/build.log");
    writeFile(path, QStringLiteral("/src/Caf\u00E9.swift:3:1: warning: na\u00EFve code\n").toUtf8());
    platform.chosenFile = path;
    store.importPlainTextLog();

    EXPECT_EQ(platform.chooserMessages,
              QStringList{QStringLiteral("Choose a plain-text Xcode or compiler build log.")});
    EXPECT_TRUE(platform.alerts.isEmpty());
    ASSERT_EQ(store.sessions().size(), 1);
    EXPECT_EQ(store.sessions().first().sourceName, QStringLiteral("build.log"));
    EXPECT_EQ(store.sessions().first().projectName, QStringLiteral("Manual"));
    ASSERT_EQ(store.sessions().first().diagnostics.size(), 1);
    EXPECT_EQ(store.sessions().first().diagnostics.first().message, QStringLiteral("na\u00EFve code"));
    EXPECT_FALSE(store.lastWatcherMessage());

    writeFile(path, QByteArray());
    store.importPlainTextLog();
    EXPECT_EQ(store.sessions().size(), 2) << "an empty log is still a session";
}

TEST_F(UserCommands, UnreadableImportsAlertAndChangeNothing)
{
    store.loadSampleDiagnostics();
    const auto sessions = store.sessions();

    platform.chosenFile.reset();
    store.importPlainTextLog();
    EXPECT_TRUE(platform.alerts.isEmpty()) << "a cancelled chooser is silent";

    const QString latin1 = environment.root() + QStringLiteral("/latin1.log");
    writeFile(latin1, QByteArray("warning: caf\xE9\n"));
    platform.chosenFile = latin1;
    store.importPlainTextLog();

    platform.chosenFile = environment.root() + QStringLiteral("/missing.log");
    store.importPlainTextLog();

    platform.chosenFile = environment.root();
    store.importPlainTextLog();

    ASSERT_EQ(platform.alerts.size(), 3);
    const QString prefix = QStringLiteral("Corvane could not read that log file.\n\n");
    for (const auto& [title, text] : platform.alerts) {
        EXPECT_EQ(title, QStringLiteral("Corvane"));
        EXPECT_TRUE(text.startsWith(prefix)) << text.toStdString();
        const QString description = text.mid(prefix.size());
        EXPECT_FALSE(description.trimmed().isEmpty());
        EXPECT_FALSE(description.contains(u'\n')) << "one line: " << description.toStdString();
    }
    EXPECT_TRUE(platform.alerts[0].second.contains(QStringLiteral("UTF-8")));
    EXPECT_EQ(store.sessions(), sessions);
}

TEST_F(UserCommands, CommandsNeedingTheDesktopDoNothingWithoutOne)
{
    BuildStore headless;
    headless.importPlainTextLog();
    EXPECT_TRUE(headless.sessions().isEmpty());
    headless.loadSampleDiagnostics();
    EXPECT_EQ(headless.sessions().size(), 1) << "the sample needs no desktop";
}

TEST_F(UserCommands, ClearHistoryKeepsPreferencesAndFilters)
{
    store.captureBuild(logText({warningAt(QStringLiteral("A.swift"), 1, QStringLiteral("w"))}),
                       activityLogPath(QStringLiteral("App")));
    store.togglePin(store.activeSession()->diagnostics.first());
    store.captureBuild(logText({warningAt(QStringLiteral("B.swift"), 1, QStringLiteral("v"))}),
                       activityLogPath(QStringLiteral("App")));
    store.toggleIgnore(store.activeSession()->diagnostics.first());
    store.setFocusedProject(QStringLiteral("App"));
    store.setSeverityFilter({DiagnosticSeverity::note});
    store.setShowBuildNoise(true);
    store.setSearchText(QStringLiteral("x"));
    store.setWarningViewMode(Mode::pinned);
    store.startWatching();
    ASSERT_TRUE(QFile::exists(historyFile()));
    const auto pinned = store.pinnedDiagnostics();
    const auto ignored = store.ignoredDiagnostics();

    store.clearHistory();
    EXPECT_TRUE(store.sessions().isEmpty());
    EXPECT_FALSE(store.activeSessionID());
    EXPECT_FALSE(store.selectedDiagnosticID());
    EXPECT_FALSE(store.focusedProjectName());
    EXPECT_EQ(store.warningViewMode(), Mode::normal);
    EXPECT_TRUE(store.searchText().isEmpty());
    EXPECT_FALSE(store.lastWatcherMessage());
    EXPECT_FALSE(QSettings(QStringLiteral("Corvane"), QStringLiteral("Corvane"))
                     .contains(QStringLiteral("Corvane.FocusedProject")));
    EXPECT_FALSE(QFile::exists(historyFile()));

    EXPECT_EQ(store.pinnedDiagnostics(), pinned);
    EXPECT_EQ(store.ignoredDiagnostics(), ignored);
    EXPECT_EQ(store.severityFilter(), QSet<DiagnosticSeverity>{DiagnosticSeverity::note});
    EXPECT_TRUE(store.showBuildNoise());
    EXPECT_EQ(store.captureState().kind, XcodeBuildWatcher::WatcherState::Kind::watching);

    BuildStore restarted;
    EXPECT_TRUE(restarted.sessions().isEmpty());
    EXPECT_EQ(restarted.pinnedDiagnostics(), pinned);
}

TEST_F(UserCommands, FailedClearIsReported)
{
    store.loadSampleDiagnostics();
    ASSERT_TRUE(QFile::exists(historyFile()));
    // A folder where the file should be cannot be removed as a file.
    QFile::remove(historyFile());
    QDir().mkpath(historyFile() + QStringLiteral("/blocker"));

    store.clearHistory();
    EXPECT_TRUE(store.sessions().isEmpty());
    ASSERT_TRUE(store.lastWatcherMessage());
    EXPECT_TRUE(store.lastWatcherMessage()->startsWith(QStringLiteral("Could not clear saved build history: ")))
        << store.lastWatcherMessage()->toStdString();
    EXPECT_GT(store.lastWatcherMessage()->size(), QStringLiteral("Could not clear saved build history: ").size());
}

TEST_F(UserCommands, OpenInXcodePassesEachArgumentSeparately)
{
    BuildDiagnostic d;
    d.severity = DiagnosticSeverity::error;
    d.filePath = QStringLiteral("/Users/dev/My App/Content View.swift");
    d.line = 48;
    d.column = 17;
    openInXcode(d, platform);
    d.line.reset();
    openInXcode(d, platform);
    d.filePath.reset();
    openInXcode(d, platform);

    ASSERT_EQ(platform.launches.size(), 2);
    EXPECT_EQ(platform.launches[0].program, QStringLiteral("/usr/bin/xcrun"));
    EXPECT_EQ(platform.launches[0].arguments,
              (QStringList{QStringLiteral("xed"), QStringLiteral("--line"), QStringLiteral("48"),
                           QStringLiteral("/Users/dev/My App/Content View.swift")}));
    EXPECT_EQ(platform.launches[1].arguments,
              (QStringList{QStringLiteral("xed"), QStringLiteral("/Users/dev/My App/Content View.swift")}));
    EXPECT_TRUE(platform.openedWithDefaultApplication.isEmpty());

    platform.canStartPrograms = false;
    d.filePath = QStringLiteral("/src/A.swift");
    d.line = 3;
    openInXcode(d, platform);
    EXPECT_EQ(platform.openedWithDefaultApplication, QStringList{QStringLiteral("/src/A.swift")});
}

TEST_F(UserCommands, RestartingTheWatcherPassesThroughStopped)
{
    QList<XcodeBuildWatcher::WatcherState::Kind> seen;
    QObject::connect(&store, &BuildStore::aboutToChange, [&](BuildStore::Field field) {
        if (field == BuildStore::Field::captureState)
            seen.append(store.captureState().kind);
    });
    store.startWatching();
    store.restartWatcher();
    using Kind = XcodeBuildWatcher::WatcherState::Kind;
    // Each entry is the state just before a change.
    EXPECT_EQ(seen, (QList<Kind>{Kind::stopped, Kind::watching, Kind::stopped}));
    EXPECT_EQ(store.captureState().kind, Kind::watching);
    EXPECT_TRUE(store.sessions().isEmpty());
}

// The watcher is wired to the store: a log it cannot read shows as the
// watcher's issue, and its message outlives the states that follow.
TEST_F(UserCommands, AWatcherFailureStaysInTheStatusLine)
{
    using Kind = XcodeBuildWatcher::WatcherState::Kind;
    EXPECT_EQ(store.captureState().kind, Kind::stopped) << "the store does not start its watcher by itself";
    store.startWatching();
    // A log in place before the watcher's first scan is never read, so it is
    // written again until a poll picks it up.
    const QString log =
        environment.derivedData() + QStringLiteral("/App-bxqgrvhdkslrtw/Logs/Build/broken.xcactivitylog");
    int writes = 0;
    QDeadlineTimer nextWrite(0);
    const bool failed = waitUntil(
        [&] {
            if (store.captureState().kind == Kind::failed)
                return true;
            if (nextWrite.hasExpired()) {
                writeFile(log, "\x1F\x8B broken " + QByteArray::number(++writes));
                nextWrite = QDeadlineTimer(2000);
            }
            return false;
        },
        20000);
    ASSERT_TRUE(failed);
    const std::optional<QString> message = store.lastWatcherMessage();
    ASSERT_TRUE(message && !message->isEmpty());
    EXPECT_EQ(store.statusText(), QStringLiteral("WATCHER ISSUE"));

    store.restartWatcher();
    EXPECT_EQ(store.captureState().kind, Kind::watching);
    EXPECT_EQ(store.lastWatcherMessage(), message);
}

// The text of a log arrives while it is read: what a read that failed half
// way had handed over must not turn up in the next capture of that log.
TEST_F(UserCommands, AReadThatFailsHalfWayLeavesNothingForTheNextCapture)
{
    QByteArray stale = warningAt(QStringLiteral("Stale.swift"), 1, QStringLiteral("stale")).toUtf8() + '\r';
    for (int i = 0; stale.size() < 24 * 1024 * 1024; ++i)
        stale += "CompileSwift normal arm64 /Users/dev/App/Sources/File" + QByteArray::number(i) + ".swift\x01";
    QByteArray truncated = gzipBytes(stale);
    truncated.truncate(truncated.size() * 3 / 4);
    const QString log = environment.derivedData() + QStringLiteral("/App-bxqgrvhdkslrtw/Logs/Build/b.xcactivitylog");
    writeFile(log, truncated);
    qsizetype blocksBeforeFailing = 0;
    ASSERT_FALSE(readActivityLogInBlocks(log, [&](const QByteArray&) { ++blocksBeforeFailing; }).ok());
    ASSERT_GE(blocksBeforeFailing, 1);

    using Kind = XcodeBuildWatcher::WatcherState::Kind;
    store.startWatching();
    // Written again until a poll after the watcher's first scan picks it up.
    const auto writeUntil = [&](const QByteArray& bytes, const std::function<bool()>& done) {
        QDeadlineTimer nextWrite(0);
        return waitUntil(
            [&] {
                if (done())
                    return true;
                if (nextWrite.hasExpired()) {
                    writeFile(log, bytes);
                    nextWrite = QDeadlineTimer(2000);
                }
                return false;
            },
            20000);
    };
    ASSERT_TRUE(writeUntil(truncated, [&] { return store.captureState().kind == Kind::failed; }));
    const QByteArray fresh = logText({errorAt(QStringLiteral("Fresh.swift"), 2, QStringLiteral("fresh"))});
    ASSERT_TRUE(writeUntil(gzipBytes(fresh), [&] { return !store.sessions().isEmpty(); }));
    ASSERT_EQ(store.sessions().first().diagnostics.size(), 1);
    EXPECT_EQ(store.sessions().first().diagnostics.first().message, QStringLiteral("fresh"));
}

} // namespace
} // namespace corvane
