#include "XcodeBuildWatcher.h"
#include "ActivityLogReader.h"
#include "TestEnvironment.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>
#include <QTimer>

#include <QRandomGenerator>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <memory>

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

namespace corvane {

// Lets failed comparisons of state sequences print readably.
static std::ostream& operator<<(std::ostream& out, const XcodeBuildWatcher::WatcherState& state)
{
    static const char* names[] = {"watching", "buildDetected", "processing", "failed", "stopped"};
    out << names[static_cast<int>(state.kind)];
    if (!state.payload.isEmpty())
        out << "(" << state.payload.toStdString() << ")";
    return out;
}

namespace {

using namespace std::chrono_literals;
using State = XcodeBuildWatcher::WatcherState;
using test::gzipBytes;
using test::runEventsFor;
using test::waitUntil;
using test::writeFile;

struct Delivery {
    QString path;
    QByteArray text;
    bool operator==(const Delivery&) const = default;
};

// Everything a watcher reports, in order, on a real event loop.
class XcodeBuildWatcherTest : public ::testing::Test {
protected:
    static constexpr int timeoutMs = 10000;
    // Long enough for several polls at the test interval.
    static constexpr int quietMs = 600;

    void SetUp() override
    {
        m_derivedData = m_dir.filePath(QStringLiteral("DerivedData"));
        QDir().mkpath(m_derivedData);
        m_watcher = makeWatcher();
    }

    std::unique_ptr<XcodeBuildWatcher> makeWatcher()
    {
        auto watcher = std::make_unique<XcodeBuildWatcher>(m_derivedData, 50ms);
        watcher->onStateChange = [this](const State& state) { recordState(state); };
        watcher->onBuildText = [this](const QString& path, const QByteArray& block) {
            // A log's blocks come between its processing state and its end.
            EXPECT_EQ(m_reading, XcodeBuildWatcher::projectNameForLog(path));
            EXPECT_FALSE(block.isEmpty());
            m_blocks.append(block);
        };
        watcher->onBuild = [this](const QString& path) {
            EXPECT_EQ(m_reading, XcodeBuildWatcher::projectNameForLog(path));
            m_reading.clear();
            m_builds.push_back({path, m_blocks.join()});
            m_blockCounts.push_back(m_blocks.size());
            // Deliveries interleave with states; remember where.
            m_states.push_back(State{State::Kind::stopped, QStringLiteral("<build>")});
        };
        return watcher;
    }

    void recordState(const State& state)
    {
        m_states.push_back(state);
        if (state.kind == State::Kind::processing || state.kind == State::Kind::failed) {
            m_reading = state.kind == State::Kind::processing ? state.payload : QString();
            m_blocks.clear();
        }
    }

    QString logPath(const QString& project, const QString& name = QStringLiteral("build.xcactivitylog")) const
    {
        return m_derivedData + u'/' + project + QStringLiteral("/Logs/Build/") + name;
    }

    QString writeLog(const QString& project, const QByteArray& text,
                     const QString& name = QStringLiteral("build.xcactivitylog"))
    {
        const QString path = logPath(project, name);
        writeFile(path, gzipBytes(text));
        return path;
    }

    // Starts the watcher and lets its baseline scan and first poll pass.
    void startAndSettle()
    {
        m_watcher->start();
        runEventsFor(quietMs);
    }

    bool waitForStates(std::size_t count)
    {
        return waitUntil([&] { return m_states.size() >= count; }, timeoutMs);
    }

    static State build() { return State{State::Kind::stopped, QStringLiteral("<build>")}; }

    QTemporaryDir m_dir;
    QString m_derivedData;
    std::vector<State> m_states;
    std::vector<Delivery> m_builds;
    std::vector<qsizetype> m_blockCounts;
    // The project of the log being read, and its blocks so far.
    QString m_reading;
    QList<QByteArray> m_blocks;
    std::unique_ptr<XcodeBuildWatcher> m_watcher;
};

TEST_F(XcodeBuildWatcherTest, ReadsNewAndRewrittenLogsButNeverTheBaseline)
{
    writeLog(QStringLiteral("Old-aaaa"), "old build output\r");
    startAndSettle();
    EXPECT_EQ(m_states, (std::vector{State::watching()}));
    EXPECT_TRUE(m_builds.empty());

    const QString path = writeLog(QStringLiteral("ExampleApp-bqxkzfwdmtaobxexrkhgjvjbbyoa"),
                                  QByteArray("\0main.m:1:1: error: boom\r", 25));
    ASSERT_TRUE(waitForStates(5));
    const QString project = QStringLiteral("ExampleApp");
    EXPECT_EQ(m_states,
              (std::vector{State::watching(), State::buildDetected(project), State::processing(project), build(),
                           State::watching()}));
    ASSERT_EQ(m_builds.size(), 1u);
    EXPECT_EQ(m_builds[0], (Delivery{path, "main.m:1:1: error: boom\r\n"}));

    // The same file rewritten is read again; its text delivered again.
    m_states.clear();
    writeLog(QStringLiteral("ExampleApp-bqxkzfwdmtaobxexrkhgjvjbbyoa"), "second build, longer output\r");
    ASSERT_TRUE(waitForStates(4));
    EXPECT_EQ(m_states,
              (std::vector{State::buildDetected(project), State::processing(project), build(), State::watching()}));
    ASSERT_EQ(m_builds.size(), 2u);
    EXPECT_EQ(m_builds[1], (Delivery{path, "second build, longer output\r\n"}));

    // Nothing changes: nothing more happens.
    runEventsFor(quietMs);
    EXPECT_EQ(m_states.size(), 4u);
}

TEST_F(XcodeBuildWatcherTest, AFolderCreatedLaterIsPickedUpAndItsLogsAreReadOneAfterTheOther)
{
    QDir(m_derivedData).removeRecursively();
    startAndSettle();
    EXPECT_EQ(m_states, (std::vector{State::watching()}));

    // Built elsewhere and moved in, so the first poll that sees the folder
    // sees both logs.
    const QString staging = m_dir.filePath(QStringLiteral("staging"));
    writeFile(staging + QStringLiteral("/Pair-9/Logs/Build/first.xcactivitylog"), gzipBytes("first build\r"));
    writeFile(staging + QStringLiteral("/Pair-9/Logs/Build/second.xcactivitylog"), gzipBytes("second build\r"));
    ASSERT_TRUE(QDir().rename(staging, m_derivedData));

    ASSERT_TRUE(waitForStates(9));
    const QString pair = QStringLiteral("Pair");
    EXPECT_EQ(
        m_states,
        (std::vector{State::watching(), State::buildDetected(pair), State::buildDetected(pair), State::processing(pair),
                     build(), State::watching(), State::processing(pair), build(), State::watching()}));
    ASSERT_EQ(m_builds.size(), 2u);
    std::sort(m_builds.begin(), m_builds.end(), [](const Delivery& a, const Delivery& b) { return a.path < b.path; });
    EXPECT_EQ(
        m_builds[0],
        (Delivery{logPath(pair + QStringLiteral("-9"), QStringLiteral("first.xcactivitylog")), "first build\r\n"}));
    EXPECT_EQ(m_builds[1].text, QByteArray("second build\r\n"));
}

TEST_F(XcodeBuildWatcherTest, AfterAFailedListingOnlyUnreadLogsAreRead)
{
    const QString baselineOnly = writeLog(QStringLiteral("Base-1"), "baseline build\r");
    startAndSettle();
    writeLog(QStringLiteral("Read-2"), "read once\r");
    ASSERT_TRUE(waitForStates(5));
    ASSERT_EQ(m_builds.size(), 1u);

    // The folder disappears for a few polls, then comes back unchanged.
    const QString away = m_derivedData + QStringLiteral(".away");
    ASSERT_TRUE(QDir().rename(m_derivedData, away));
    runEventsFor(quietMs);
    m_states.clear();
    ASSERT_TRUE(QDir().rename(away, m_derivedData));

    // Both count as new; only the one never read is read.
    ASSERT_TRUE(waitForStates(5));
    runEventsFor(quietMs);
    ASSERT_EQ(m_states.size(), 5u);
    const std::vector<State> detected(m_states.begin(), m_states.begin() + 2);
    EXPECT_TRUE(std::is_permutation(
        detected.begin(), detected.end(),
        std::vector{State::buildDetected(QStringLiteral("Base")), State::buildDetected(QStringLiteral("Read"))}
            .begin()));
    EXPECT_EQ(std::vector(m_states.begin() + 2, m_states.end()),
              (std::vector{State::processing(QStringLiteral("Base")), build(), State::watching()}));
    ASSERT_EQ(m_builds.size(), 2u);
    EXPECT_EQ(m_builds[1], (Delivery{baselineOnly, "baseline build\r\n"}));
}

TEST_F(XcodeBuildWatcherTest, AFailedReadIsNotRetriedUntilTheFileChanges)
{
    startAndSettle();
    const QByteArray compressed = gzipBytes(QByteArray("some build output\r").repeated(500));
    const QString path = logPath(QStringLiteral("Broken-x"));
    writeFile(path, compressed.left(compressed.size() / 2));

    ASSERT_TRUE(waitForStates(4));
    runEventsFor(quietMs);
    ASSERT_EQ(m_states.size(), 4u) << m_states.back();
    EXPECT_EQ(m_states[2], State::processing(QStringLiteral("Broken")));
    EXPECT_EQ(m_states[3].kind, State::Kind::failed);
    EXPECT_TRUE(m_states[3].payload.startsWith(QStringLiteral("Could not decompress Xcode activity log: ")));
    EXPECT_TRUE(m_builds.empty());

    writeFile(path, compressed);
    ASSERT_TRUE(waitForStates(8));
    EXPECT_EQ(std::vector(m_states.begin() + 4, m_states.end()),
              (std::vector{State::buildDetected(QStringLiteral("Broken")), State::processing(QStringLiteral("Broken")),
                           build(), State::watching()}));
    ASSERT_EQ(m_builds.size(), 1u);
}

#if defined(__SANITIZE_ADDRESS__)
constexpr bool addressSanitizer = true;
#elif defined(__has_feature)
constexpr bool addressSanitizer = __has_feature(address_sanitizer);
#else
constexpr bool addressSanitizer = false;
#endif

// A log whose text does not fit in memory, and one whose gzip trailer claims
// 4 GB, under an address-space limit: each fails like any unreadable log,
// and the next build is still captured.
TEST_F(XcodeBuildWatcherTest, LogsTooLargeForMemoryFailAndWatchingGoesOn)
{
    if (addressSanitizer)
        GTEST_SKIP() << "the address sanitizer reserves more address space than any limit allows";
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const auto capturesOnUnderALimit = [this] {
        startAndSettle();
        const QByteArray member = gzipBytes(QByteArray(QByteArray(999, 'x') + '\n').repeated(16 * 1024));
        QRandomGenerator random(3);
        QByteArray noise(4 * 1024 * 1024, Qt::Uninitialized);
        random.fillRange(reinterpret_cast<quint32*>(noise.data()), noise.size() / 4);
        QByteArray lie = gzipBytes(noise);
        lie.replace(lie.size() - 4, 4, QByteArray("\x00\x00\x00\xF0", 4));

        long pages = 0;
        std::sscanf(test::readFile(QStringLiteral("/proc/self/statm")).constData(), "%ld", &pages);
        const rlimit cap{rlim_t(pages) * rlim_t(::sysconf(_SC_PAGESIZE)) + (rlim_t(256) << 20), RLIM_INFINITY};
        if (::setrlimit(RLIMIT_AS, &cap) != 0)
            std::exit(2);
        writeFile(logPath(QStringLiteral("Bomb-1")), member.repeated(64));
        writeFile(logPath(QStringLiteral("Lie-2")), lie);
        const auto failures = [this] {
            return std::count_if(m_states.begin(), m_states.end(),
                                 [](const State& state) { return state.kind == State::Kind::failed; });
        };
        if (!waitUntil([&] { return failures() == 2; }, 60000))
            std::exit(3);
        writeLog(QStringLiteral("Later-3"), "later build\r");
        std::exit(waitUntil([&] { return m_builds.size() == 1; }, timeoutMs) ? 0 : 4);
    };
    EXPECT_EXIT(capturesOnUnderALimit(), ::testing::ExitedWithCode(0), "");
}

// Out of descriptors, gzip cannot even be started. That passes, so the log is
// tried again at the next poll although the file has not changed.
TEST_F(XcodeBuildWatcherTest, AReadThatRanOutOfDescriptorsIsTriedAgain)
{
    startAndSettle();
    const QByteArray compressed = gzipBytes("read at last\r");
    rlimit saved{};
    ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &saved), 0);
    // Five descriptors left: enough to list a folder, open the log and make
    // one pipe (the sanitizers' memory checks need one), not for the three
    // pipes gzip's start takes. The gaps below the highest one in use are filled.
    int highest = 0;
    for (const QString& name : QDir(QStringLiteral("/proc/self/fd")).entryList(QDir::NoDotAndDotDot | QDir::System))
        highest = std::max(highest, name.toInt());
    std::vector<int> fillers;
    for (int fd; (fd = ::dup(STDERR_FILENO)) >= 0;) {
        if (fd > highest) {
            ::close(fd);
            break;
        }
        fillers.push_back(fd);
    }
    rlimit lowered = saved;
    lowered.rlim_cur = rlim_t(highest + 1 + 5);
    ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &lowered), 0);
    writeFile(logPath(QStringLiteral("Starved-1")), compressed);
    const bool failed =
        waitUntil([&] { return !m_states.empty() && m_states.back().kind == State::Kind::failed; }, timeoutMs);
    ::setrlimit(RLIMIT_NOFILE, &saved);
    for (const int fd : fillers)
        ::close(fd);
    ASSERT_TRUE(failed);
    ASSERT_TRUE(waitUntil([&] { return !m_builds.empty(); }, timeoutMs));
    EXPECT_EQ(m_builds[0].text, QByteArray("read at last\r\n"));
}

TEST_F(XcodeBuildWatcherTest, StartTwiceStopAndRestart)
{
    // Stopping an idle watcher still reports it.
    m_watcher->stop();
    EXPECT_EQ(m_states, (std::vector{State::stopped()}));
    EXPECT_FALSE(m_watcher->isRunning());
    m_states.clear();

    m_watcher->start();
    m_watcher->start();
    EXPECT_TRUE(m_watcher->isRunning());
    runEventsFor(quietMs);
    EXPECT_EQ(m_states, (std::vector{State::watching()}));

    // One loop only: a new log is detected and read once.
    writeLog(QStringLiteral("Once-1"), "read me once\r");
    ASSERT_TRUE(waitForStates(5));
    runEventsFor(quietMs);
    EXPECT_EQ(m_states.size(), 5u);
    EXPECT_EQ(m_builds.size(), 1u);

    m_watcher->stop();
    EXPECT_FALSE(m_watcher->isRunning());
    ASSERT_EQ(m_states.back(), State::stopped());

    // Nothing is watched while stopped, and what changed meanwhile becomes
    // part of the next baseline.
    writeLog(QStringLiteral("Meanwhile-2"), "written while stopped\r");
    writeLog(QStringLiteral("Once-1"), "rewritten while stopped\r");
    runEventsFor(quietMs);
    EXPECT_EQ(m_states.size(), 6u);

    m_watcher->start();
    runEventsFor(quietMs);
    EXPECT_EQ(m_states.size(), 7u);
    EXPECT_EQ(m_states.back(), State::watching());
    EXPECT_EQ(m_builds.size(), 1u);

    writeLog(QStringLiteral("Meanwhile-2"), "changed after the restart\r");
    ASSERT_TRUE(waitForStates(11));
    EXPECT_EQ(m_states[7], State::buildDetected(QStringLiteral("Meanwhile")));
    ASSERT_EQ(m_builds.size(), 2u);
    EXPECT_EQ(m_builds[1].text, QByteArray("changed after the restart\r\n"));
}

TEST_F(XcodeBuildWatcherTest, APollUnderWayFinishesAfterStop)
{
    startAndSettle();
    m_watcher->onStateChange = [this](const State& state) {
        recordState(state);
        if (state.kind == State::Kind::processing)
            m_watcher->stop();
    };
    writeLog(QStringLiteral("Late-1"), "delivered after stop\r");

    ASSERT_TRUE(waitForStates(6));
    runEventsFor(quietMs);
    EXPECT_EQ(m_states,
              (std::vector{State::watching(), State::buildDetected(QStringLiteral("Late")),
                           State::processing(QStringLiteral("Late")), State::stopped(), build(), State::watching()}));
    EXPECT_FALSE(m_watcher->isRunning());

    // The loop has ended: later logs go unnoticed.
    writeLog(QStringLiteral("Later-2"), "never seen\r");
    runEventsFor(quietMs);
    EXPECT_EQ(m_states.size(), 6u);
}

// Several blocks, each handed over while the rest is still being read.
QByteArray textOfSeveralBlocks()
{
    QByteArray big;
    for (int i = 0; i < 700000; ++i)
        big += QByteArray::number(i) + QByteArray(" CompileC something.o\x01");
    return big;
}

TEST_F(XcodeBuildWatcherTest, ALargeLogArrivesInBlocksBeforeItsBuild)
{
    startAndSettle();
    const QByteArray big = textOfSeveralBlocks();
    const QString path = writeLog(QStringLiteral("Big-1"), big);
    ASSERT_TRUE(waitForStates(5));
    ASSERT_EQ(m_builds.size(), 1u);
    EXPECT_EQ(m_builds[0], (Delivery{path, readActivityLog(path).value()}));
    EXPECT_GE(m_blockCounts[0], 2);
}

TEST_F(XcodeBuildWatcherTest, DestroyingTheWatcherDuringARead)
{
    startAndSettle();
    const QByteArray big = textOfSeveralBlocks();
    // Destroyed from the event loop right after the read has begun, while
    // gzip is still at work on the background job.
    bool destroyed = false;
    m_watcher->onStateChange = [&](const State& state) {
        recordState(state);
        if (state.kind == State::Kind::processing)
            QTimer::singleShot(0, [&] {
                m_watcher.reset();
                destroyed = true;
            });
    };
    writeLog(QStringLiteral("Big-1"), big);
    ASSERT_TRUE(waitUntil([&] { return destroyed; }, timeoutMs));
    EXPECT_EQ(m_states.back(), State::processing(QStringLiteral("Big")));
    const std::size_t seen = m_states.size();
    runEventsFor(1500);
    EXPECT_EQ(m_states.size(), seen);
    EXPECT_TRUE(m_builds.empty());
}

TEST(XcodeBuildWatcherScan, TakesOnlyRegularLogFilesDirectlyInBuildLogFolders)
{
    QTemporaryDir dir;
    const QString derivedData = dir.filePath(QStringLiteral("DerivedData"));
    const QString logs = derivedData + QStringLiteral("/App-abc/Logs/Build/");
    const QString wanted = logs + QStringLiteral("good.xcactivitylog");
    writeFile(wanted, "12345");
    writeFile(logs + QStringLiteral("upper.XCACTIVITYLOG"), "x");
    writeFile(logs + QStringLiteral("mixed.xcActivityLog"), "x");
    writeFile(logs + QStringLiteral(".hidden.xcactivitylog"), "x");
    writeFile(logs + QStringLiteral("notes.txt"), "x");
    writeFile(logs + QStringLiteral("nested/deeper.xcactivitylog"), "x");
    QDir().mkpath(logs + QStringLiteral("folder.xcactivitylog"));
    ASSERT_TRUE(QFile::link(wanted, logs + QStringLiteral("link.xcactivitylog")));
    ASSERT_TRUE(QFile::link(logs + QStringLiteral("missing"), logs + QStringLiteral("dangling.xcactivitylog")));
    writeFile(derivedData + QStringLiteral("/.Hidden-abc/Logs/Build/h.xcactivitylog"), "x");
    writeFile(derivedData + QStringLiteral("/App-abc/Logs/Test/t.xcactivitylog"), "x");
    writeFile(derivedData + QStringLiteral("/loose.xcactivitylog"), "x");
    writeFile(derivedData + QStringLiteral("/App-abc/Logs/Build.xcactivitylog"), "x");

    // Names that are not UTF-8 cannot be opened by their decoded paths: left
    // out, but named.
    ASSERT_EQ(::mkdir(QByteArray(QFile::encodeName(derivedData) + "/Bad\xff-abc").constData(), 0700), 0);
    const int badLog =
        ::open(QByteArray(QFile::encodeName(logs) + "b\xfe.xcactivitylog").constData(), O_CREAT | O_WRONLY, 0600);
    ASSERT_GE(badLog, 0);
    ::close(badLog);

    QStringList undecodable;
    const auto logsFound = XcodeBuildWatcher::scanLogs(derivedData, &undecodable);
    ASSERT_EQ(logsFound.keys(), QStringList{wanted});
    EXPECT_EQ(undecodable.size(), 2) << undecodable.join(u' ').toStdString();
    const auto snapshot = logsFound.value(wanted);
    EXPECT_EQ(snapshot.size, 5u);
    EXPECT_EQ(snapshot.modificationDate, QFileInfo(wanted).lastModified());
    EXPECT_GT(snapshot.modificationDate, XcodeBuildWatcher::Snapshot::distantPast());

    EXPECT_TRUE(XcodeBuildWatcher::scanLogs(dir.filePath(QStringLiteral("absent"))).isEmpty());
}

TEST(XcodeBuildWatcherProjectName, TakesTheFolderAfterTheFirstDerivedData)
{
    const auto name = [](const char* path) {
        return XcodeBuildWatcher::projectNameForLog(QString::fromUtf8(path)).toStdString();
    };
    EXPECT_EQ(name("/Users/a/Library/Developer/Xcode/DerivedData/ExampleApp-bqxkzfwdmtaobxexrkhgjvjbbyoa/Logs/"
                   "Build/x.xcactivitylog"),
              "ExampleApp");
    EXPECT_EQ(name("/d/DerivedData/My-App-abc/Logs/Build/x.xcactivitylog"), "My-App");
    EXPECT_EQ(name("/d/DerivedData/Tool/Logs/Build/x.xcactivitylog"), "Tool");
    EXPECT_EQ(name("/d/DerivedData/-abc/Logs/Build/x.xcactivitylog"), "");
    EXPECT_EQ(name("/d/DerivedData/One-1/DerivedData/Two-2/x.xcactivitylog"), "One");
    EXPECT_EQ(name("/d/Logs/Build/x.xcactivitylog"), "Xcode");
    EXPECT_EQ(name("/d/DerivedData"), "Xcode");
    EXPECT_EQ(name("/d/deriveddata/App-1/x.xcactivitylog"), "Xcode");
    EXPECT_EQ(name("/d/MyDerivedData/App-1/x.xcactivitylog"), "Xcode");
}

} // namespace
} // namespace corvane
