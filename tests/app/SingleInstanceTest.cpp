#include "SingleInstance.h"
#include "AppProcess.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QLocalServer>
#include <QLocalSocket>
#include <QMetaObject>
#include <QProcess>
#include <QProcessEnvironment>
#include <QThread>
#include <QtEndian>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

namespace corvane {
namespace {

using namespace corvane::test;
using namespace std::chrono_literals;

// --- The class on its own ----------------------------------------------------

TEST(SingleInstancePath, OnePathPerDataFolderInAPrivateFolder)
{
    TestEnvironment environment;
    const QString runtime = runtimeFolder(environment);
    const QString path = SingleInstance::socketPathFor(QStringLiteral("/home/ann/.local/share"));
    EXPECT_EQ(QFileInfo(path).absolutePath(), runtime);
    EXPECT_LT(path.toLocal8Bit().size(), 100) << "fits a socket address";
    EXPECT_EQ(SingleInstance::socketPathFor(QStringLiteral("/home/ann/.local/share/")), path);
    EXPECT_EQ(SingleInstance::socketPathFor(QStringLiteral("/home/ann/.local//share")), path);
    EXPECT_NE(SingleInstance::socketPathFor(QStringLiteral("/home/bob/.local/share")), path);

    // Without a usable runtime folder: a folder of our own in the temporary
    // folder, and only when nobody else can get into it.
    const QString temporary = environment.root() + QStringLiteral("/tmp");
    const QString fallback = temporary + QStringLiteral("/corvane-%1").arg(::geteuid());
    const std::optional<QByteArray> savedTemporary =
        qEnvironmentVariableIsSet("TMPDIR") ? std::optional(qgetenv("TMPDIR")) : std::nullopt;
    qputenv("TMPDIR", temporary.toLocal8Bit());
    QDir().mkpath(environment.root() + QStringLiteral("/elsewhere"));
    enum class Runtime { missing, unset, openToTheGroup };
    constexpr int absent = -1, link = -2;
    const struct {
        Runtime runtime;
        int fallback;
        bool usable;
    } cases[] = {
        {Runtime::missing, absent, true}, {Runtime::unset, absent, true},  {Runtime::openToTheGroup, absent, true},
        {Runtime::missing, 0700, true},   {Runtime::missing, 0755, false}, {Runtime::missing, 0777, false},
        {Runtime::missing, link, false},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(::testing::Message() << int(c.runtime) << " " << c.fallback);
        QDir(temporary).removeRecursively();
        QDir().mkpath(temporary);
        if (c.fallback == link) {
            ASSERT_TRUE(QFile::link(environment.root() + QStringLiteral("/elsewhere"), fallback));
        } else if (c.fallback != absent) {
            ASSERT_EQ(::mkdir(QFile::encodeName(fallback).constData(), 0700), 0);
            ASSERT_EQ(::chmod(QFile::encodeName(fallback).constData(), mode_t(c.fallback)), 0);
        }
        ::chmod(QFile::encodeName(runtime).constData(), c.runtime == Runtime::openToTheGroup ? 0750 : 0700);
        qputenv("XDG_RUNTIME_DIR",
                c.runtime == Runtime::unset         ? QByteArray()
                    : c.runtime == Runtime::missing ? QFile::encodeName(runtime + QStringLiteral("/missing"))
                                                    : QFile::encodeName(runtime));
        const QString socket = SingleInstance::socketPathFor(QStringLiteral("/home/ann/.local/share"));
        if (c.usable) {
            EXPECT_EQ(QFileInfo(socket).absolutePath(), fallback);
            EXPECT_EQ(QFileInfo(socket).fileName(), QFileInfo(path).fileName());
            EXPECT_EQ(QFileInfo(fallback).permissions() & 0x0077, 0) << "nobody else gets in";
        } else {
            EXPECT_EQ(socket, QString());
        }
    }
    ::chmod(QFile::encodeName(runtime).constData(), 0700);
    if (savedTemporary)
        qputenv("TMPDIR", *savedTemporary);
    else
        qunsetenv("TMPDIR");
}

QString lockPath(const TestEnvironment& environment) { return SingleInstance::lockPathFor(environment.dataHome()); }

// Runs a first instance with its own event loop, as the running program does,
// and records what later starts hand it.
class FirstInstance {
public:
    FirstInstance(const QString& socketPath, const QString& lockPath)
        : m_instance(new SingleInstance(socketPath, lockPath))
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
        QMetaObject::invokeMethod(
            m_instance, [this] { delete m_instance; }, Qt::BlockingQueuedConnection);
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

class SingleInstanceTest : public ::testing::Test {
protected:
    SingleInstance later() const { return SingleInstance(m_socket, m_lock); }

    TestEnvironment m_environment;
    QString m_socket = runtimeFolder(m_environment) + QStringLiteral("/instance");
    QString m_lock = lockPath(m_environment);
};

TEST_F(SingleInstanceTest, LaterClaimsHandTheirLogsToTheFirst)
{
    {
        FirstInstance first(m_socket, m_lock);
        ASSERT_EQ(first.claim(), SingleInstance::Claim::first);
        ASSERT_TRUE(first.listening());

        const QStringList logs{QStringLiteral("/tmp/a b.log"), QStringLiteral("/tmp/\u00e9t\u00e9\n.log")};
        EXPECT_EQ(later().claim(logs, QStringLiteral("kwin-42_ab.c"), 5s), SingleInstance::Claim::handedOver);
        EXPECT_EQ(later().claim({}, {}, 5s), SingleInstance::Claim::handedOver);
        EXPECT_EQ(first.requests(), (QList<QStringList>{logs, {}}));
        EXPECT_EQ(first.tokens(), (QStringList{QStringLiteral("kwin-42_ab.c"), QString()}));
    }
    EXPECT_FALSE(QFile::exists(m_socket)) << "an instance that ends removes its socket";
    EXPECT_EQ(later().claim({}, {}, 5s), SingleInstance::Claim::first) << "and its lock";
}

TEST_F(SingleInstanceTest, LeftoverFileAtTheSocketPathDoesNotBlockStarting)
{
    writeFile(m_socket, "left behind");
    FirstInstance first(m_socket, m_lock);
    EXPECT_EQ(first.claim(), SingleInstance::Claim::first);
    EXPECT_TRUE(first.listening());
    EXPECT_EQ(later().claim({QStringLiteral("/x.log")}, {}, 5s), SingleInstance::Claim::handedOver);
    EXPECT_EQ(first.requests(), (QList<QStringList>{{QStringLiteral("/x.log")}}));
}

QByteArray header(quint32 magic, quint32 size)
{
    QByteArray bytes(8, '\0');
    qToBigEndian(magic, bytes.data());
    qToBigEndian(size, bytes.data() + 4);
    return bytes;
}

TEST_F(SingleInstanceTest, HostileClientsAreDroppedWithoutAnAnswer)
{
    FirstInstance first(m_socket, m_lock);
    ASSERT_TRUE(first.listening());
    const QByteArray requests[] = {
        "GET / HTTP/1.0\r\n\r\n",
        // Our magic with a size of 4 GB: nothing may be set aside for it.
        header(0x43525632, 0xFFFFFFF0),
        // Half a request, never finished: dropped at the connection's deadline.
        header(0x43525632, 100) + "abc",
        // A well-formed request under another marker (an older program's).
        header(0x43525631, 12) + QByteArray("\0/stray.log\0", 12),
    };
    for (const QByteArray& request : requests) {
        QLocalSocket stranger;
        stranger.connectToServer(m_socket);
        ASSERT_TRUE(stranger.waitForConnected(5000));
        stranger.write(request);
        stranger.flush();
        EXPECT_TRUE(stranger.state() == QLocalSocket::UnconnectedState || stranger.waitForDisconnected(5000))
            << request.toHex().toStdString();
        EXPECT_EQ(stranger.readAll(), QByteArray());
    }
    EXPECT_EQ(later().claim({QStringLiteral("/x.log")}, {}, 5s), SingleInstance::Claim::handedOver);
    EXPECT_EQ(first.requests(), (QList<QStringList>{{QStringLiteral("/x.log")}}));
}

int openDescriptors()
{
    return int(QDir(QStringLiteral("/proc/self/fd")).entryList(QDir::NoDotAndDotDot | QDir::System).size());
}

TEST_F(SingleInstanceTest, AFloodOfIdleConnectionsDoesNotUseUpDescriptors)
{
    FirstInstance first(m_socket, m_lock);
    ASSERT_TRUE(first.listening());
    // Room for the flood's own ends, not for one more descriptor per connection.
    constexpr int flood = 300;
    struct rlimit saved {};
    ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &saved), 0);
    struct rlimit lowered = saved;
    lowered.rlim_cur = rlim_t(openDescriptors() + flood + 150);
    ASSERT_LE(lowered.rlim_cur, saved.rlim_max);
    ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &lowered), 0);

    const QByteArray address = QFile::encodeName(m_socket);
    sockaddr_un server{};
    server.sun_family = AF_UNIX;
    std::memcpy(server.sun_path, address.constData(), size_t(address.size()));
    std::vector<int> clients;
    for (int i = 0; i < flood; ++i) {
        const int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
        if (fd < 0)
            break;
        clients.push_back(fd);
        ::connect(fd, reinterpret_cast<const sockaddr*>(&server), sizeof server);
    }
    test::runEventsFor(1000);
    EXPECT_TRUE(QFile::exists(m_socket)) << "still listening";
    for (const int fd : clients)
        ::close(fd);
    ::setrlimit(RLIMIT_NOFILE, &saved);
    EXPECT_EQ(clients.size(), size_t(flood));
    EXPECT_EQ(later().claim({QStringLiteral("/x.log")}, {}, 10s), SingleInstance::Claim::handedOver);
}

// Another process holds the lock: one that has not listened yet, one that
// runs without a socket, one that listens but hangs. None is a reason to
// start beside it.
TEST_F(SingleInstanceTest, HolderOfTheLockThatDoesNotAnswerKeepsOthersOut)
{
    QLocalServer hanging;
    ASSERT_TRUE(hanging.listen(m_socket));
    const QByteArray publications[] = {QByteArray(), QByteArray("\n"), QFile::encodeName(m_socket) + '\n'};
    for (const QByteArray& published : publications) {
        QDir().mkpath(QFileInfo(m_lock).path());
        const int holder = ::open(QFile::encodeName(m_lock).constData(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
        ASSERT_GE(holder, 0);
        ASSERT_EQ(::flock(holder, LOCK_EX | LOCK_NB), 0);
        ASSERT_EQ(::ftruncate(holder, 0), 0);
        ASSERT_EQ(::write(holder, published.constData(), size_t(published.size())), published.size());
        EXPECT_EQ(later().claim({QStringLiteral("/x.log")}, {}, 300ms), SingleInstance::Claim::noAnswer)
            << published.toStdString();
        ::close(holder);
    }
    EXPECT_EQ(later().claim({}, {}, 300ms), SingleInstance::Claim::first) << "a lock ends with its holder";
}

TEST_F(SingleInstanceTest, UnwritableRuntimeFolderStillStarts)
{
    const QString folder = runtimeFolder(m_environment) + QStringLiteral("/read-only");
    ASSERT_TRUE(QDir().mkpath(folder));
    QFile::setPermissions(folder, QFile::ReadOwner | QFile::ExeOwner);
    if (QFileInfo(folder).isWritable())
        GTEST_SKIP() << "permissions are not enforced for this user";
    SingleInstance instance(folder + QStringLiteral("/instance"), m_lock);
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

    // Given another runtime folder, a start still finds the program that
    // holds the data folder.
    const QString otherRuntime = environment.root() + QStringLiteral("/other-run");
    ASSERT_EQ(::mkdir(QFile::encodeName(otherRuntime).constData(), 0700), 0);
    AppProcess elsewhere(environment, folder);
    QProcessEnvironment variables = elsewhere.process().processEnvironment();
    variables.insert(QStringLiteral("XDG_RUNTIME_DIR"), otherRuntime);
    elsewhere.process().setProcessEnvironment(variables);
    elsewhere.start({QStringLiteral("handed.log")});
    ASSERT_TRUE(elsewhere.waitForExit(20s));
    EXPECT_EQ(elsewhere.exitCode(), 0);

    const QList<BuildSession> history = waitForHistory(2, 15s);
    ASSERT_EQ(history.size(), 2);
    EXPECT_EQ(history.last().sourceName, QStringLiteral("handed.log"));
    ASSERT_EQ(history.last().diagnostics.size(), 1);
    EXPECT_EQ(history.last().diagnostics.first().message, QStringLiteral("handed over"));
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
    EXPECT_EQ(sourceNames(waitForHistory(2, 15s)),
              (QStringList{QStringLiteral("later.log"), QStringLiteral("own.log")}));
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
    EXPECT_EQ(
        names,
        (QStringList{QStringLiteral("start-0.log"), QStringLiteral("start-1.log"), QStringLiteral("start-2.log")}));
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
