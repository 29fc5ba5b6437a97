#include "AppProcess.h"

#include <QDir>
#include <QFile>
#include <QProcessEnvironment>
#include <QRegularExpression>

#include <gtest/gtest.h>

#include <sys/stat.h>

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
    EXPECT_TRUE(text.contains(QStringLiteral("[log...]")));
    EXPECT_TRUE(text.contains(QStringLiteral("--version")));
    EXPECT_TRUE(text.contains(QStringLiteral("Plain-text build logs to import at start, each as a build.")));

    EXPECT_TRUE(QDir(runtimeFolder(environment)).isEmpty()) << "no socket, no lock file";
    EXPECT_FALSE(QDir(environment.appFolder()).exists()) << "no history was loaded or created";
}

TEST(CommandLine, UnknownOptionFailsWithAMessage)
{
    TestEnvironment environment;
    AppProcess application(environment);
    application.start({QStringLiteral("--no-such-option")});
    ASSERT_TRUE(application.waitForExit(10s));
    EXPECT_EQ(application.exitCode(), 1);
    EXPECT_TRUE(application.standardError().contains("no-such-option"));
    EXPECT_TRUE(QDir(runtimeFolder(environment)).isEmpty());
}

TEST(CommandLine, LogsGivenAtStartAreEachImportedRelativeToTheWorkingFolder)
{
    TestEnvironment environment;
    const QString folder = environment.root() + QStringLiteral("/logs");
    writeFile(folder + QStringLiteral("/nightly build.log"), logWithWarning(QStringLiteral("from the command line")));
    writeFile(folder + QStringLiteral("/second.log"), logWithWarning(QStringLiteral("second")));

    AppProcess application(environment, folder);
    application.start({QStringLiteral("nightly build.log"), QStringLiteral("second.log")});
    ASSERT_TRUE(application.waitForStarted());
    const QList<BuildSession> history = waitForHistory(2, 15s);
    ASSERT_EQ(history.size(), 2);
    EXPECT_EQ(history.last().projectName, QStringLiteral("Manual"));
    EXPECT_EQ(sourceNames(history), (QStringList{QStringLiteral("second.log"), QStringLiteral("nightly build.log")}));
    ASSERT_EQ(history.last().diagnostics.size(), 1);
    EXPECT_EQ(history.last().diagnostics.first().message, QStringLiteral("from the command line"));
    EXPECT_TRUE(application.running());
}

// A FIFO would block the window's thread in open() for good.
TEST(CommandLine, UnreadableLogDoesNotEndTheProgram)
{
    TestEnvironment environment;
    ASSERT_EQ(::mkfifo(QFile::encodeName(environment.root() + QStringLiteral("/fifo.log")).constData(), 0600), 0);
    AppProcess application(environment);
    application.start({QStringLiteral("fifo.log")});
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

// The gzip child of a read, and the socket, go with the process.
TEST(CommandLine, TerminatingDuringALongReadEndsGzipAndRemovesTheSocket)
{
    TestEnvironment environment;
    AppProcess application(environment);
    application.start();
    ASSERT_TRUE(application.waitForStarted());
    ASSERT_TRUE(waitUntil([&] { return QFile::exists(instanceSocketPath(environment)); }, 15000));
    // Gigabytes of zeros: minutes of decompressing, no text.
    const QByteArray member = gzipBytes(QByteArray(16 * 1024 * 1024, '\0'));
    writeFile(environment.derivedData() + QStringLiteral("/Bomb-abc/Logs/Build/b.xcactivitylog"),
              member.repeated(2000));

    const auto gzipChild = [&]() -> QString {
        for (const QString& pid : QDir(QStringLiteral("/proc")).entryList(QDir::Dirs)) {
            const QByteArray stat = readFile(QStringLiteral("/proc/%1/stat").arg(pid));
            const qsizetype end = stat.lastIndexOf(')');
            if (end > 0 && stat.contains("(gzip)")
                && stat.mid(end + 2).split(' ').value(1) == QByteArray::number(application.process().processId()))
                return pid;
        }
        return {};
    };
    QString gzip;
    ASSERT_TRUE(waitUntil([&] { return !(gzip = gzipChild()).isEmpty(); }, 15000));
    application.process().terminate();
    ASSERT_TRUE(application.waitForExit(5s));
    EXPECT_EQ(application.exitStatus(), QProcess::NormalExit);
    EXPECT_EQ(application.exitCode(), 0);
    EXPECT_FALSE(QFile::exists(QStringLiteral("/proc/") + gzip)) << "gzip ended and was reaped";
    EXPECT_FALSE(QFile::exists(instanceSocketPath(environment)));
}

} // namespace
} // namespace corvane
