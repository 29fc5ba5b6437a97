// Project folders and source paths with spaces, quotes, shell syntax, letters
// beyond ASCII (composed and decomposed, and outside the Basic Multilingual
// Plane) and a leading "-" must come through capture, the history file, "Open
// in Xcode" and the copied texts exactly as they were written.
#include "BuildHistoryPersistence.h"
#include "StoreTestSupport.h"
#include "TestEnvironment.h"
#include "UserCommands.h"

#include <QDeadlineTimer>
#include <QDir>
#include <QEventLoop>
#include <QFile>
#include <QTimer>

#include <gtest/gtest.h>

namespace corvane {
namespace {

using namespace corvane::test;

struct HostileProject {
    QString name;      // as the DerivedData folder names it, before "-<hash>"
    QString source;    // a source file of it, absolute
    QString logName;   // the activity log's file name
};

const QList<HostileProject>& hostileProjects()
{
    static const QList<HostileProject> projects{
        {QStringLiteral("-rf Project"), QStringLiteral("/Users/dev/-rf Project/Sources/-x.swift"),
         QStringLiteral("-d --help.xcactivitylog")},
        {QStringLiteral("It's \"Quoted\" App"),
         QStringLiteral("/Users/dev/It's \"Quoted\" App/Sources/O'Brien \"Main\".swift"),
         QStringLiteral("'single' \"double\".xcactivitylog")},
        {QStringLiteral("\u00DCn\u00EFc\u00F8d\u00E9 \u65E5\u672C"),
         QStringLiteral("/Users/dev/\u00DCn\u00EFc\u00F8d\u00E9 \u65E5\u672C/Sources/Cafe\u0301 \u65E5\u672C\u8A9E.swift"),
         QStringLiteral("\u00DCn\u00EFc\u00F8d\u00E9.xcactivitylog")},
        {QStringLiteral("\U0001F525 $(id); `x` & App"),
         QStringLiteral("/Users/dev/\U0001F525 $(id); `x` & App/  two  spaces /$HOME *.swift"),
         QStringLiteral("; rm -rf ~ #.xcactivitylog")},
    };
    return projects;
}

QString derivedDataFolder(const QString& derivedData, const HostileProject& project)
{
    return derivedData + u'/' + project.name + QStringLiteral("-bxqgrvhdkslrtw");
}

// The compiler's lines for a project: an error and a warning in its file.
QStringList linesFor(const HostileProject& project)
{
    return {project.source + QStringLiteral(":12:7: error: cannot find 'value' in scope"),
            project.source + QStringLiteral(":30: warning: unused result of \u2018call\u2019")};
}

class HostileNames : public ::testing::Test {
protected:
    TestEnvironment environment;
    RecordingPlatform platform;

    QString historyFile() const { return environment.appFolder() + u'/' + BuildHistoryPersistence::fileName; }

    // Every diagnostic of the session opens and copies with its path as written.
    void expectCommandsKeepThePath(const BuildSession& session, const HostileProject& project)
    {
        const QStringList lines = linesFor(project);
        ASSERT_EQ(session.diagnostics.size(), 2);
        const BuildDiagnostic& error = session.diagnostics[0];
        const BuildDiagnostic& warning = session.diagnostics[1];
        EXPECT_EQ(error.filePath, project.source);
        EXPECT_EQ(warning.filePath, project.source);
        EXPECT_EQ(error.rawText, lines[0]);
        EXPECT_EQ(warning.rawText, lines[1]);

        platform.launches.clear();
        openInXcode(error, platform);
        openInXcode(warning, platform);
        ASSERT_EQ(platform.launches.size(), 2);
        EXPECT_EQ(platform.launches[0].program, QStringLiteral("/usr/bin/xcrun"));
        EXPECT_EQ(platform.launches[0].arguments,
                  (QStringList{QStringLiteral("xed"), QStringLiteral("--line"), QStringLiteral("12"), project.source}));
        EXPECT_EQ(platform.launches[1].arguments,
                  (QStringList{QStringLiteral("xed"), QStringLiteral("--line"), QStringLiteral("30"), project.source}));

        copyToPasteboard(error.cleanErrorText(), platform);
        EXPECT_EQ(platform.clipboard, project.source + QStringLiteral(":12:7\nERROR: cannot find 'value' in scope"));
        copyToPasteboard(warning.chatGPTPrompt(), platform);
        EXPECT_TRUE(platform.clipboard.contains(u"\nFile: " + project.source + u"\nLine: 30\nColumn: Unknown\n"))
            << platform.clipboard.toStdString();
        EXPECT_TRUE(platform.clipboard.endsWith(u"\n\nRaw diagnostic:\n" + lines[1])) << platform.clipboard.toStdString();

        platform.canStartPrograms = false;
        openInXcode(error, platform);
        platform.canStartPrograms = true;
        ASSERT_FALSE(platform.openedWithDefaultApplication.isEmpty());
        EXPECT_EQ(platform.openedWithDefaultApplication.last(), project.source);
    }
};

TEST_F(HostileNames, CaptureHistoryOpenAndCopyKeepEveryNameAsWritten)
{
    {
        BuildStore store(&platform);
        const QString derivedData = QStringLiteral("/Users/dev/Library/Developer/Xcode/DerivedData");
        for (const HostileProject& project : hostileProjects()) {
            const QString log = derivedDataFolder(derivedData, project) + QStringLiteral("/Logs/Build/") + project.logName;
            store.captureBuild(logText(linesFor(project)), log);
            const BuildSession& session = store.sessions().first();
            EXPECT_EQ(session.projectName, project.name);
            EXPECT_EQ(session.activityLogPath, log);
            EXPECT_EQ(session.sourceName, project.name + QStringLiteral(" \u2014 2 diagnostics"));
            expectCommandsKeepThePath(session, project);
        }
        // A plain-text log imported by hand, with such a name itself.
        const HostileProject& imported = hostileProjects()[2];
        const QString importPath = environment.root() + u'/' + imported.name + QStringLiteral("/-'\"\u65E5\u672C\".log");
        writeFile(importPath, linesFor(imported).join(u'\n').toUtf8());
        store.importLogFile(importPath);
        EXPECT_TRUE(platform.alerts.isEmpty());
        EXPECT_EQ(store.sessions().first().sourceName, QStringLiteral("-'\"\u65E5\u672C\".log"));
        EXPECT_EQ(store.sessions().first().projectName, QStringLiteral("Manual"));
        expectCommandsKeepThePath(store.sessions().first(), imported);
    }

    // Another start reads back exactly what was captured.
    const Result<QList<BuildSession>> loaded = BuildHistoryPersistence().load();
    ASSERT_TRUE(loaded);
    ASSERT_EQ(loaded.value().size(), hostileProjects().size() + 1);
    BuildStore restarted(&platform);
    EXPECT_EQ(restarted.sessions(), loaded.value());
    for (qsizetype i = 0; i < hostileProjects().size(); ++i) {
        const HostileProject& project = hostileProjects()[hostileProjects().size() - 1 - i];
        EXPECT_EQ(loaded.value()[i + 1].projectName, project.name);
        expectCommandsKeepThePath(loaded.value()[i + 1], project);
    }
    EXPECT_TRUE(restarted.projectNames().contains(hostileProjects()[0].name));
}

// The whole way from a log in such a folder: the watcher's scan, gzip started
// on the path, the reader, the parser, the store and its file.
TEST_F(HostileNames, TheWatcherCapturesALogInAHostileProjectFolder)
{
    const HostileProject project{
        QStringLiteral("-rf '\u00DCn\u00EFc\u00F8d\u00E9' \"\u65E5\u672C\" \U0001F525 $(id) Project"),
        QStringLiteral("/Users/dev/-rf '\u00DCn\u00EFc\u00F8d\u00E9' \"\u65E5\u672C\"/Sources/-x \"y\" 'z'.swift"),
        QStringLiteral("-x '\u00FC' \"q\" $(id).xcactivitylog")};
    const QString buildFolder = derivedDataFolder(environment.derivedData(), project) + QStringLiteral("/Logs/Build/");
    const QString log = buildFolder + project.logName;
    ASSERT_TRUE(QDir().mkpath(buildFolder));

    BuildStore store(&platform);
    store.startWatching();
    // A log in place before the watcher's first scan is never read, and that
    // scan cannot be seen from here; so the log is written again, a little
    // longer each time, until a poll picks it up.
    QStringList lines = linesFor(project);
    int writes = 0;
    QDeadlineTimer nextWrite(0);
    const bool captured = waitUntil(
        [&] {
            if (!store.sessions().isEmpty())
                return true;
            if (nextWrite.hasExpired()) {
                lines.append(QStringLiteral("note: Build description signature: %1").arg(++writes));
                writeFile(log, gzipBytes(logText(lines)));
                nextWrite = QDeadlineTimer(2000);
            }
            return false;
        },
        30000);
    ASSERT_TRUE(captured) << "after " << writes
                          << " writes: " << store.lastWatcherMessage().value_or(QString()).toStdString();

    const BuildSession session = store.sessions().first();
    EXPECT_EQ(session.projectName, project.name);
    EXPECT_EQ(session.activityLogPath, log);
    BuildSession located = session;
    located.diagnostics.removeIf([](const BuildDiagnostic& d) { return !d.filePath; });
    expectCommandsKeepThePath(located, project);

    const Result<QList<BuildSession>> loaded = BuildHistoryPersistence().load();
    ASSERT_TRUE(loaded);
    EXPECT_EQ(loaded.value(), store.sessions());
}

} // namespace
} // namespace corvane
