#include "BuildHistoryPersistence.h"
#include "StoreTestSupport.h"
#include "TestEnvironment.h"

#include <QFile>
#include <QProcess>
#include <QProcessEnvironment>

#include <gtest/gtest.h>

namespace corvane {
namespace {

using namespace corvane::test;

// Keeps the application running for one test and kills it at the end,
// whatever the test's outcome.
class RunningApplication {
public:
    explicit RunningApplication(const TestEnvironment& environment)
    {
        QProcessEnvironment variables = QProcessEnvironment::systemEnvironment();
        variables.insert(QStringLiteral("HOME"), environment.home());
        variables.insert(QStringLiteral("XDG_DATA_HOME"), environment.dataHome());
        variables.insert(QStringLiteral("XDG_CONFIG_HOME"), environment.configHome());
        variables.insert(QStringLiteral("QT_QPA_PLATFORM"), QStringLiteral("offscreen"));
        m_process.setProcessEnvironment(variables);
        m_process.setProcessChannelMode(QProcess::ForwardedErrorChannel);
        m_process.start(QStringLiteral(CORVANE_APP_PATH), {});
    }
    ~RunningApplication()
    {
        m_process.kill();
        m_process.waitForFinished(5000);
    }
    bool started() { return m_process.waitForStarted(10000); }
    bool running() const { return m_process.state() == QProcess::Running; }

private:
    QProcess m_process;
};

QList<BuildSession> savedHistory()
{
    const Result<QList<BuildSession>> loaded = BuildHistoryPersistence().load();
    return loaded ? loaded.value() : QList<BuildSession>{};
}

// Waits until the history file holds `count` sessions.
QList<BuildSession> waitForHistory(qsizetype count)
{
    QList<BuildSession> sessions;
    waitUntil([&] { return (sessions = savedHistory()).size() >= count; }, 10000);
    return sessions;
}

void writeActivityLog(const QString& path, const QStringList& lines)
{
    const QString partial = path + QStringLiteral(".part");
    writeFile(partial, gzipBytes(logText(lines)));
    // Appear whole, as Xcode's own logs do.
    ASSERT_TRUE(QFile::rename(partial, path));
}

TEST(EndToEnd, RunningApplicationRecordsEachNewBuildOfAProject)
{
    TestEnvironment environment;
    const QString buildFolder = environment.derivedData() + QStringLiteral("/App-abc/Logs/Build/");
    const QString fixedWarning = warningAt(QStringLiteral("Model.swift"), 12, QStringLiteral("will be fixed"));
    const QString keptWarning = warningAt(QStringLiteral("Model.swift"), 30, QStringLiteral("stays"));
    const QString newError = errorAt(QStringLiteral("View.swift"), 7, QStringLiteral("arrives later"));

    // A log from before the start is part of the baseline and never read.
    writeActivityLog(buildFolder + QStringLiteral("0-OLD.xcactivitylog"), {newError});

    RunningApplication application(environment);
    ASSERT_TRUE(application.started());
    // The baseline scan of a folder this small takes far less than this.
    runEventsFor(2500);
    ASSERT_TRUE(application.running());
    EXPECT_TRUE(savedHistory().isEmpty()) << "existing logs are not captured";

    writeActivityLog(buildFolder + QStringLiteral("1-FIRST.xcactivitylog"), {fixedWarning, keptWarning});
    const QList<BuildSession> afterFirst = waitForHistory(1);
    ASSERT_EQ(afterFirst.size(), 1);
    const BuildSession& first = afterFirst.first();
    EXPECT_EQ(first.projectName, QStringLiteral("App"));
    EXPECT_EQ(first.activityLogPath, buildFolder + QStringLiteral("1-FIRST.xcactivitylog"));
    EXPECT_EQ(first.sourceName, QStringLiteral("App \u2014 2 diagnostics"));
    EXPECT_EQ(messages(first.diagnostics), (QStringList{QStringLiteral("will be fixed"), QStringLiteral("stays")}));
    EXPECT_FALSE(first.comparison.hasBaseline);

    writeActivityLog(buildFolder + QStringLiteral("2-SECOND.xcactivitylog"), {keptWarning, newError});
    const QList<BuildSession> afterSecond = waitForHistory(2);
    ASSERT_EQ(afterSecond.size(), 2);
    const BuildSession& second = afterSecond.first();
    EXPECT_EQ(afterSecond[1], first);
    EXPECT_TRUE(second.comparison.hasBaseline);
    const BuildDiagnostic* arrived = findByMessage(second.diagnostics, QStringLiteral("arrives later"));
    ASSERT_TRUE(arrived);
    EXPECT_EQ(second.comparison.newDiagnosticIDs, QSet<QUuid>{arrived->id});
    ASSERT_EQ(second.comparison.fixedDiagnostics.size(), 1);
    EXPECT_EQ(second.comparison.fixedDiagnostics.first(),
              *findByMessage(first.diagnostics, QStringLiteral("will be fixed")));
    EXPECT_TRUE(application.running());
}

} // namespace
} // namespace corvane
