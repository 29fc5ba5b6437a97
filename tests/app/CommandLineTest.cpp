#include "AppProcess.h"

#include <QDir>
#include <QFile>
#include <QProcessEnvironment>
#include <QRegularExpression>

#include <gtest/gtest.h>

namespace corvane {
namespace {

using namespace corvane::test;
using namespace std::chrono_literals;

TEST(CommandLine, VersionAndHelpAnswerWithoutAWindowOrAnInstanceSocket)
{
    TestEnvironment environment;
    AppProcess version(environment);
    // No display at all: these must not reach the window system.
    QProcessEnvironment variables = version.process().processEnvironment();
    variables.insert(QStringLiteral("QT_QPA_PLATFORM"), QStringLiteral("xcb"));
    variables.remove(QStringLiteral("DISPLAY"));
    variables.remove(QStringLiteral("WAYLAND_DISPLAY"));
    version.process().setProcessEnvironment(variables);
    version.start({QStringLiteral("--version")});
    ASSERT_TRUE(version.waitForExit(10s));
    EXPECT_EQ(version.exitStatus(), QProcess::NormalExit);
    EXPECT_EQ(version.exitCode(), 0);
    EXPECT_TRUE(QRegularExpression(QStringLiteral("\\ACorvane \\d+\\.\\d+\\.\\d+\\n\\z"))
                    .match(QString::fromUtf8(version.standardOutput()))
                    .hasMatch());

    AppProcess help(environment);
    help.process().setProcessEnvironment(variables);
    help.start({QStringLiteral("--help")});
    ASSERT_TRUE(help.waitForExit(10s));
    EXPECT_EQ(help.exitCode(), 0);
    const QString text = QString::fromUtf8(help.standardOutput());
    EXPECT_TRUE(text.startsWith(QStringLiteral("Usage: "))) << text.toStdString();
    EXPECT_TRUE(text.contains(QStringLiteral("[log]")));
    EXPECT_TRUE(text.contains(QStringLiteral("--version")));
    EXPECT_TRUE(text.contains(QStringLiteral("A plain-text build log to import at start.")));

    EXPECT_TRUE(QDir(runtimeFolder(environment)).isEmpty()) << "no socket, no lock file";
    EXPECT_FALSE(QDir(environment.appFolder()).exists()) << "no history was loaded or created";
}

TEST(CommandLine, LogGivenAtStartIsImportedRelativeToTheWorkingFolder)
{
    TestEnvironment environment;
    const QString folder = environment.root() + QStringLiteral("/logs");
    writeFile(folder + QStringLiteral("/nightly build.log"), logWithWarning(QStringLiteral("from the command line")));

    AppProcess application(environment, folder);
    application.start({QStringLiteral("nightly build.log")});
    ASSERT_TRUE(application.waitForStarted());
    const QList<BuildSession> history = waitForHistory(1, 15s);
    ASSERT_EQ(history.size(), 1);
    EXPECT_EQ(history.first().projectName, QStringLiteral("Manual"));
    EXPECT_EQ(history.first().sourceName, QStringLiteral("nightly build.log"));
    ASSERT_EQ(history.first().diagnostics.size(), 1);
    EXPECT_EQ(history.first().diagnostics.first().message, QStringLiteral("from the command line"));
    EXPECT_TRUE(application.running());
}

TEST(CommandLine, UnreadableLogDoesNotEndTheProgram)
{
    TestEnvironment environment;
    AppProcess application(environment);
    application.start({QStringLiteral("missing.log")});
    ASSERT_TRUE(application.waitForStarted());
    // It listens once it is up; a second start then reaches it.
    ASSERT_TRUE(waitUntil([&] { return QFile::exists(instanceSocketPath(environment)); }, 15000));
    AppProcess second(environment);
    second.start();
    ASSERT_TRUE(second.waitForExit(20s));
    EXPECT_EQ(second.exitCode(), 0);
    EXPECT_TRUE(application.running());
    EXPECT_TRUE(savedHistory().isEmpty());
}

} // namespace
} // namespace corvane
