#include "AppProcess.h"
#include "SingleInstance.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QLocalServer>
#include <QLocalSocket>
#include <QLockFile>
#include <QMetaObject>
#include <QProcess>
#include <QThread>

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <mutex>

namespace corvane {
namespace {

using namespace corvane::test;
using namespace std::chrono_literals;

// --- The class on its own ----------------------------------------------------

TEST(SingleInstancePath, OnePathPerDataFolderInTheRuntimeFolder)
{
    TestEnvironment environment;
    const QString runtime = runtimeFolder(environment);
    qputenv("XDG_RUNTIME_DIR", runtime.toLocal8Bit());
    const QString path = SingleInstance::socketPathFor(QStringLiteral("/home/ann/.local/share"));
    EXPECT_EQ(QFileInfo(path).absolutePath(), runtime);
    EXPECT_LT(path.toLocal8Bit().size(), 100) << "fits a socket address";
    EXPECT_EQ(SingleInstance::socketPathFor(QStringLiteral("/home/ann/.local/share/")), path);
    EXPECT_EQ(SingleInstance::socketPathFor(QStringLiteral("/home/ann/.local//share")), path);
    EXPECT_NE(SingleInstance::socketPathFor(QStringLiteral("/home/bob/.local/share")), path);
    EXPECT_NE(SingleInstance::socketPathFor(QStringLiteral("/tmp/test-home/data")), path);

    // No runtime folder: the temporary folder, with the same name.
    qputenv("XDG_RUNTIME_DIR", (runtime + QStringLiteral("/missing")).toLocal8Bit());
    const QString fallback = SingleInstance::socketPathFor(QStringLiteral("/home/ann/.local/share"));
    EXPECT_EQ(QFileInfo(fallback).absolutePath(), QFileInfo(QDir::tempPath()).absoluteFilePath());
    EXPECT_EQ(QFileInfo(fallback).fileName(), QFileInfo(path).fileName());
    qunsetenv("XDG_RUNTIME_DIR");
}

// Runs a first instance with its own event loop, as the running program does,
// and records what later starts hand it.
class FirstInstance {
public:
    explicit FirstInstance(const QString& socketPath) : m_instance(new SingleInstance(socketPath))
    {
        m_claim = m_instance->claim({}, {}, 5s);
        QObject::connect(
            m_instance, &SingleInstance::activationRequested, m_instance,
            [this](const QStringList& logs, const QString& activationToken) {
                const std::lock_guard lock(m_mutex);
                m_requests.append(logs);
                m_tokens.append(activationToken);
            },
            Qt::DirectConnection);
        m_instance->moveToThread(&m_thread);
        m_thread.start();
        QMetaObject::invokeMethod(
            m_instance, [this] { m_listening = m_instance->listen(); }, Qt::BlockingQueuedConnection);
    }
    ~FirstInstance()
    {
        QMetaObject::invokeMethod(m_instance, [this] { delete m_instance; }, Qt::BlockingQueuedConnection);
        m_thread.quit();
        m_thread.wait();
    }

    SingleInstance::Claim claim() const { return m_claim; }
    bool listening() const { return m_listening; }
    QList<QStringList> requests()
    {
        const std::lock_guard lock(m_mutex);
        return m_requests;
    }
    QStringList tokens()
    {
        const std::lock_guard lock(m_mutex);
        return m_tokens;
    }

private:
    QThread m_thread;
    SingleInstance* m_instance;
    SingleInstance::Claim m_claim = SingleInstance::Claim::noAnswer;
    bool m_listening = false;
    std::mutex m_mutex;
    QList<QStringList> m_requests;
    QStringList m_tokens;
};

TEST(SingleInstance, LaterClaimsHandTheirLogsToTheFirst)
{
    TestEnvironment environment;
    const QString path = runtimeFolder(environment) + QStringLiteral("/instance");
    {
        FirstInstance first(path);
        ASSERT_EQ(first.claim(), SingleInstance::Claim::first);
        ASSERT_TRUE(first.listening());
        EXPECT_FALSE(QFile::exists(path + QStringLiteral(".lock"))) << "released once listening";

        const QStringList logs{QStringLiteral("/tmp/a b.log"), QStringLiteral("/tmp/\u00e9t\u00e9\n.log")};
        EXPECT_EQ(SingleInstance(path).claim(logs, QStringLiteral("kwin-42_ab.c"), 5s),
                  SingleInstance::Claim::handedOver);
        EXPECT_EQ(SingleInstance(path).claim({}, {}, 5s), SingleInstance::Claim::handedOver);
        EXPECT_EQ(first.requests(), (QList<QStringList>{logs, {}}));
        EXPECT_EQ(first.tokens(), (QStringList{QStringLiteral("kwin-42_ab.c"), QString()}));
    }
    EXPECT_FALSE(QFile::exists(path)) << "an instance that ends removes its socket";
    SingleInstance next(path);
    EXPECT_EQ(next.claim({}, {}, 5s), SingleInstance::Claim::first);
}

TEST(SingleInstance, LeftoverFileAtTheSocketPathDoesNotBlockStarting)
{
    TestEnvironment environment;
    const QString path = runtimeFolder(environment) + QStringLiteral("/instance");
    writeFile(path, "left behind");
    FirstInstance first(path);
    EXPECT_EQ(first.claim(), SingleInstance::Claim::first);
    EXPECT_TRUE(first.listening());
    EXPECT_EQ(SingleInstance(path).claim({QStringLiteral("/x.log")}, {}, 5s), SingleInstance::Claim::handedOver);
    EXPECT_EQ(first.requests(), (QList<QStringList>{{QStringLiteral("/x.log")}}));
}

TEST(SingleInstance, ForeignBytesOnTheSocketAreDroppedWithoutAnAnswer)
{
    TestEnvironment environment;
    const QString path = runtimeFolder(environment) + QStringLiteral("/instance");
    FirstInstance first(path);
    ASSERT_TRUE(first.listening());
    QLocalSocket stranger;
    stranger.connectToServer(path);
    ASSERT_TRUE(stranger.waitForConnected(5000));
    stranger.write("GET / HTTP/1.0\r\n\r\n");
    ASSERT_TRUE(stranger.waitForBytesWritten(5000));
    ASSERT_TRUE(stranger.waitForDisconnected(5000));
    EXPECT_EQ(stranger.readAll(), QByteArray());

    EXPECT_EQ(SingleInstance(path).claim({QStringLiteral("/x.log")}, {}, 5s), SingleInstance::Claim::handedOver);
    EXPECT_EQ(first.requests(), (QList<QStringList>{{QStringLiteral("/x.log")}}));
}

TEST(SingleInstance, ListenerThatNeverAnswersIsNoAnswerNotASecondStart)
{
    TestEnvironment environment;
    const QString path = runtimeFolder(environment) + QStringLiteral("/instance");
    // Accepted by the system, never read: a process that hangs.
    QLocalServer hanging;
    ASSERT_TRUE(hanging.listen(path));
    SingleInstance later(path);
    EXPECT_EQ(later.claim({QStringLiteral("/x.log")}, {}, 300ms), SingleInstance::Claim::noAnswer);
    EXPECT_FALSE(QFile::exists(path + QStringLiteral(".lock")));
}

TEST(SingleInstance, StartThatHoldsTheLockKeepsOthersOut)
{
    TestEnvironment environment;
    const QString path = runtimeFolder(environment) + QStringLiteral("/instance");
    // Another start between its look for a running process and its listen().
    QLockFile otherStart(path + QStringLiteral(".lock"));
    ASSERT_TRUE(otherStart.tryLock(0));
    EXPECT_EQ(SingleInstance(path).claim({}, {}, 300ms), SingleInstance::Claim::noAnswer);
    otherStart.unlock();
    EXPECT_EQ(SingleInstance(path).claim({}, {}, 300ms), SingleInstance::Claim::first);
}

TEST(SingleInstance, LockOfAStartThatWasKilledDoesNotHoldUpTheNext)
{
    TestEnvironment environment;
    const QString path = runtimeFolder(environment) + QStringLiteral("/instance");
    const QString lockPath = path + QStringLiteral(".lock");
    // A lock file as a start leaves it when killed before it listened: Qt's
    // own format, naming a process that no longer exists.
    QByteArray contents;
    {
        QLockFile lock(lockPath);
        ASSERT_TRUE(lock.tryLock(0));
        contents = readFile(lockPath);
    }
    QProcess shell;
    shell.start(QStringLiteral("/bin/sh"), {QStringLiteral("-c"), QStringLiteral("echo $$")});
    ASSERT_TRUE(shell.waitForFinished(5000));
    const QByteArray deadPid = shell.readAllStandardOutput().trimmed();
    ASSERT_FALSE(deadPid.isEmpty());
    writeFile(lockPath, deadPid + contents.mid(contents.indexOf('\n')));

    // Too young to count as stale by age: only recognising that its owner is
    // gone lets the claim in before its time is up.
    SingleInstance next(path);
    EXPECT_EQ(next.claim({}, {}, 3s), SingleInstance::Claim::first);
    EXPECT_TRUE(next.listen());
}

TEST(SingleInstance, UnwritableRuntimeFolderStillStarts)
{
    TestEnvironment environment;
    const QString folder = runtimeFolder(environment) + QStringLiteral("/read-only");
    ASSERT_TRUE(QDir().mkpath(folder));
    QFile::setPermissions(folder, QFile::ReadOwner | QFile::ExeOwner);
    if (QFileInfo(folder).isWritable())
        GTEST_SKIP() << "permissions are not enforced for this user";
    SingleInstance instance(folder + QStringLiteral("/instance"));
    EXPECT_EQ(instance.claim({}, {}, 300ms), SingleInstance::Claim::first);
    EXPECT_FALSE(instance.listen()) << "runs on its own";
    QFile::setPermissions(folder, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
}

// --- The real program ----------------------------------------------------------

bool socketAppears(const TestEnvironment& environment)
{
    return waitUntil([&] { return QFile::exists(instanceSocketPath(environment)); }, 15000);
}

TEST(SingleInstanceProgram, SecondStartBringsUpTheRunningWindowAndHandsItsLog)
{
    TestEnvironment environment;
    AppProcess first(environment);
    first.start();
    ASSERT_TRUE(first.waitForStarted());
    ASSERT_TRUE(socketAppears(environment));

    AppProcess plain(environment);
    plain.start();
    ASSERT_TRUE(plain.waitForExit(20s));
    EXPECT_EQ(plain.exitStatus(), QProcess::NormalExit);
    EXPECT_EQ(plain.exitCode(), 0);

    // Started in another folder, with a relative path.
    const QString folder = environment.root() + QStringLiteral("/elsewhere");
    writeFile(folder + QStringLiteral("/handed.log"), logWithWarning(QStringLiteral("handed over")));
    AppProcess withLog(environment, folder);
    withLog.start({QStringLiteral("handed.log")});
    ASSERT_TRUE(withLog.waitForExit(20s));
    EXPECT_EQ(withLog.exitCode(), 0);

    const QList<BuildSession> history = waitForHistory(1, 15s);
    ASSERT_EQ(history.size(), 1);
    EXPECT_EQ(history.first().sourceName, QStringLiteral("handed.log"));
    ASSERT_EQ(history.first().diagnostics.size(), 1);
    EXPECT_EQ(history.first().diagnostics.first().message, QStringLiteral("handed over"));
    EXPECT_TRUE(first.running());
}

TEST(SingleInstanceProgram, SocketOfAKilledInstanceDoesNotBlockTheNextStart)
{
    TestEnvironment environment;
    {
        AppProcess killed(environment);
        killed.start();
        ASSERT_TRUE(killed.waitForStarted());
        ASSERT_TRUE(socketAppears(environment));
        killed.kill();
    }
    ASSERT_TRUE(QFile::exists(instanceSocketPath(environment))) << "the killed process left its socket";

    writeFile(environment.root() + QStringLiteral("/own.log"), logWithWarning(QStringLiteral("own")));
    AppProcess next(environment);
    next.start({QStringLiteral("own.log")});
    ASSERT_TRUE(next.waitForStarted());
    // It runs as the first instance: it imports its own log.
    ASSERT_EQ(waitForHistory(1, 15s).size(), 1);
    EXPECT_TRUE(next.running());

    writeFile(environment.root() + QStringLiteral("/later.log"), logWithWarning(QStringLiteral("later")));
    AppProcess later(environment);
    later.start({QStringLiteral("later.log")});
    ASSERT_TRUE(later.waitForExit(20s));
    EXPECT_EQ(later.exitCode(), 0);
    EXPECT_EQ(sourceNames(waitForHistory(2, 15s)), (QStringList{QStringLiteral("later.log"), QStringLiteral("own.log")}));
}

TEST(SingleInstanceProgram, StartsAtTheSameMomentEndInOneProgramWithEveryLog)
{
    TestEnvironment environment;
    constexpr int count = 3;
    std::vector<std::unique_ptr<AppProcess>> starts;
    for (int i = 0; i < count; ++i) {
        const QString name = QStringLiteral("start-%1.log").arg(i);
        writeFile(environment.root() + u'/' + name, logWithWarning(name));
        starts.push_back(std::make_unique<AppProcess>(environment));
    }
    for (int i = 0; i < count; ++i)
        starts[i]->start({QStringLiteral("start-%1.log").arg(i)});

    const QList<BuildSession> history = waitForHistory(count, 30s);
    QStringList names = sourceNames(history);
    names.sort();
    EXPECT_EQ(names, (QStringList{QStringLiteral("start-0.log"), QStringLiteral("start-1.log"),
                                  QStringLiteral("start-2.log")}));
    // The starts that handed over may still be on their way out.
    const auto runningStarts = [&] {
        return std::count_if(starts.begin(), starts.end(), [](const auto& start) { return start->running(); });
    };
    EXPECT_TRUE(waitUntil([&] { return runningStarts() <= 1; }, 10000));
    int runningCount = 0;
    for (const auto& start : starts) {
        if (start->running()) {
            ++runningCount;
            continue;
        }
        EXPECT_EQ(start->exitStatus(), QProcess::NormalExit);
        EXPECT_EQ(start->exitCode(), 0);
    }
    EXPECT_EQ(runningCount, 1);
}

} // namespace
} // namespace corvane
