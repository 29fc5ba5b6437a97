// Kills the real application with SIGKILL, again and again, at random moments
// of its life (starting, loading, reading logs, saving) and checks after every
// kill that the history on disk is whole, readable by the program and by
// Python's plistlib, still holds every build it held before, and that nothing
// was moved aside as damaged or left behind to pile up.
//
// Saves are what matter most, so most kills aim at them: where the system
// shows a process's open files (/proc), the test sees a save begin (its
// temporary file is open) and kills after a random part of the time a save
// takes; elsewhere it aims at the moment saves were seen to end before. The
// rest of the kills fall anywhere from the start to the end of the run.
// Timings are learned while the test runs, so it stays meaningful in a slow
// sanitized build.
//
// The choices are made by a seeded generator; the seed is in every failure
// message and CORVANE_CRASH_SEED replays it. CORVANE_CRASH_VERBOSE prints a
// line per kill.
#include "BuildHistoryPersistence.h"
#include "CrashTestSupport.h"
#include "DiagnosticParser.h"
#include "StorageFile.h"
#include "TestEnvironment.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QProcessEnvironment>
#include <QThread>

#include <gtest/gtest.h>

#include <signal.h>
#include <sys/stat.h>

#include <algorithm>
#include <iostream>
#include <random>

namespace corvane {
namespace {

using namespace corvane::test;

#if defined(__SANITIZE_ADDRESS__)
constexpr bool sanitized = true;
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
constexpr bool sanitized = true;
#else
constexpr bool sanitized = false;
#endif
#else
constexpr bool sanitized = false;
#endif

// How much killing is enough.
constexpr int leastKills = 100;
// Kills go on past leastKills (up to mostKills) until this many fell inside a save...
constexpr int wantedSaveKills = 40;
constexpr int mostKills = 140;
// ...and at least this many must have, where the test can see saves.
constexpr int leastSaveKills = 25;

// Sizes of the logs: thousands of diagnostics per activity log; imported logs
// a little smaller, since most builds come from them.
constexpr int activityDiagnostics = sanitized ? 1000 : 1500;
constexpr int importDiagnostics = sanitized ? 200 : 300;
constexpr int variants = 4;
// Share of runs in which the watcher, rather than an import, makes the builds,
// and of kills that aim at no save in particular.
constexpr double watcherShare = 0.12;
constexpr double anywhereShare = 0.2;
constexpr double afterSaveShare = 0.25;
// The history the user already has when the test begins: nearly full, so
// that saves take their full time from the first kill on and the limit of 40
// builds comes into play.
constexpr int seededBuilds = 38;
// When logs are dropped into the watched folder, in ms after the store has
// started: some of them land after the watcher's first scan and are read at
// its next poll, 1.5 s later.
constexpr qint64 logDrops[] = {0, 350, 700, 1050};

constexpr quint32 defaultSeed = 20261123;

quint32 seed()
{
    bool ok = false;
    const quint32 given = qEnvironmentVariable("CORVANE_CRASH_SEED").toUInt(&ok);
    return ok ? given : defaultSeed;
}

double uniform(std::mt19937& random, double from, double to)
{
    return std::uniform_real_distribution<double>(from, to)(random);
}

QByteArray partialPlist(std::mt19937& random)
{
    const QByteArray whole = QByteArrayLiteral("bplist00\xD3\x01\x02\x03\x04\x05\x06\x57version");
    return whole.left(std::uniform_int_distribution<int>(0, int(whole.size()))(random));
}

QString randomSuffix(std::mt19937& random)
{
    static const char letters[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz";
    QString suffix;
    for (int i = 0; i < 6; ++i)
        suffix.append(QLatin1Char(letters[std::uniform_int_distribution<int>(0, 51)(random)]));
    return suffix;
}

// The identity of a file's current version: replacing the file changes it.
struct FileStamp {
    bool exists = false;
    quint64 inode = 0;
    qint64 size = 0;
    qint64 modifiedNs = 0;

    static FileStamp of(const QString& path)
    {
        struct stat info {};
        if (::stat(QFile::encodeName(path).constData(), &info) != 0)
            return {};
#if defined(__APPLE__)
        const qint64 ns = qint64(info.st_mtimespec.tv_sec) * 1000000000 + info.st_mtimespec.tv_nsec;
#else
        const qint64 ns = qint64(info.st_mtim.tv_sec) * 1000000000 + info.st_mtim.tv_nsec;
#endif
        return {true, quint64(info.st_ino), qint64(info.st_size), ns};
    }
    bool operator==(const FileStamp&) const = default;
};

// A moving guess of a time in ms.
struct Estimate {
    double value = 0;
    bool known = false;

    void learn(double seen)
    {
        value = known ? 0.6 * value + 0.4 * seen : seen;
        known = true;
    }
};

// When to kill one run. Times are in ms after the store started.
struct KillPlan {
    // Run until the saves are done, to learn how long things take.
    bool calibrating = false;
    // Kill in or right after the save with this number (0 = the first of the
    // run): this long after it began, or after it ended...
    std::optional<int> save;
    bool afterSave = false;
    double delay = 0;
    // ...or at this moment (also the latest moment when aiming at a save).
    qint64 at = 0;
};

// What the test saw of one run, in ms after the store started.
struct Observation {
    int savesBegun = 0;
    int replacements = 0;
    std::optional<qint64> saveBegan;
    std::optional<qint64> lastReplaced;
    bool saving = false;
};

class CrashRun {
public:
    CrashRun();

    // Writes the history the user has before the first start.
    bool seedHistory();
    // One start and one kill; false when a check failed (and was reported).
    bool cycle(int number);
    bool finish();

    // Tallies for the final checks and the report.
    int kills = 0;
    int killsInSave = 0;
    int killsBeforeAnySave = 0;
    int leftoversSeen = 0;
    qsizetype mostBuilds = 0;
    QSet<QUuid> watcherBuilds;
    QSet<QUuid> importedBuilds;
    bool seesSaves() const { return m_seesSaves; }

private:
    enum class Kind { import, watcher };

    QString context() const;
    bool fail(const QString& problem);

    bool launch(const QStringList& arguments);
    bool waitForStoreStart();
    KillPlan plan();
    bool runUntilKill(const KillPlan& plan, Observation& seen);
    void dropLogs(bool more);
    bool saving();
    bool kill(const Observation& seen);
    void learn(const KillPlan& plan, const Observation& seen);
    bool checkFolder();
    bool checkHistory();

    const quint32 m_seed = seed();
    std::mt19937 m_random{m_seed};
    TestEnvironment m_env;
    QString m_buildFolder;
    QString m_historyPath;
    QByteArrayList m_activityLogs;
    QStringList m_imports;
    QList<std::pair<QString, QByteArray>> m_decoys;
    PlistlibReader m_plistlib;
    bool m_seesSaves = true;

    // The current run.
    QProcess m_app;
    QElapsedTimer m_sinceStoreStart;
    int m_number = 0;
    Kind m_kind = Kind::import;
    qint64 m_killedAt = -1;
    int m_logsDropped = 0;
    QStringList m_planted;
    QStringList m_leftovers;

    // What the last successful read of the history showed.
    bool m_historySeen = false;
    QByteArray m_historyBytes;
    QList<BuildSession> m_sessions;
    int m_versions = 0;

    // Per kind of run: when its last save ends, and how long one save takes.
    Estimate m_savesEnd[2];
    Estimate m_saveLength[2];
};

CrashRun::CrashRun()
{
    m_buildFolder = m_env.derivedData() + QStringLiteral("/CrashApp-gzxbqkxdbnhtjw/Logs/Build/");
    m_historyPath = m_env.appFolder() + u'/' + BuildHistoryPersistence::fileName;
    QDir().mkpath(m_buildFolder);
    QDir().mkpath(m_env.appFolder());
    QDir().mkpath(m_env.root() + QStringLiteral("/plistlib"));
    for (int v = 0; v < variants; ++v) {
        m_activityLogs.append(CrashLogs::activityLog(activityDiagnostics, v));
        const QString import = m_env.root() + QStringLiteral("/imports/crash-import-%1.log").arg(v);
        writeFile(import, CrashLogs::plainTextLog(importDiagnostics, v));
        m_imports.append(import);
    }
    // Files of the user's that look like ours; they must outlive every start.
    m_decoys = {
        {QStringLiteral("BuildHistory.plist.readme"), QByteArrayLiteral("my notes, not a property list")},
        {QStringLiteral("BuildHistory.plist.bak"), QByteArrayLiteral("bplist00 an old copy")},
        {QStringLiteral("BuildHistory.plist.mycopy"), QByteArrayLiteral("bplist00 a copy kept aside")},
        {QStringLiteral("Notes.plist.AbCdEf"), QByteArrayLiteral("bplist00 another program's")},
    };
    for (const auto& [name, bytes] : m_decoys)
        writeFile(m_env.appFolder() + u'/' + name, bytes);
}

bool CrashRun::seedHistory()
{
    if (!m_plistlib.started())
        return fail(QStringLiteral("python3 could not be started"));
    const DiagnosticParser parser;
    QList<BuildSession> sessions;
    for (int i = 0; i < seededBuilds; ++i) {
        BuildSession session;
        session.id = QUuid::createUuid();
        session.startedAt = AbsoluteTime{AbsoluteTime::now().secondsSinceReferenceDate - 600.0 * (i + 1)};
        const bool watched = i % 3 == 0;
        session.diagnostics = parser.parse(CrashLogs::diagnosticLines(watched ? activityDiagnostics : importDiagnostics,
                                                                      i % variants, QStringLiteral("/Users/dev/Old"))
                                               .join(u'\n'));
        session.projectName = watched ? QStringLiteral("CrashApp") : QStringLiteral("Manual");
        session.sourceName = QStringLiteral("earlier build %1").arg(i);
        if (watched)
            session.activityLogPath = m_buildFolder + QStringLiteral("old-%1.xcactivitylog").arg(i);
        sessions.append(std::move(session));
    }
    const Result<void> saved = BuildHistoryPersistence().save(sessions);
    if (!saved)
        return fail(QStringLiteral("the history to begin with could not be saved: ") + saved.error().description);
    return checkHistory();
}

QString CrashRun::context() const
{
    return QStringLiteral("[seed %1 (CORVANE_CRASH_SEED), kill %2, %3 run, killed at %4 ms]")
        .arg(m_seed)
        .arg(m_number)
        .arg(m_kind == Kind::import ? QStringLiteral("import") : QStringLiteral("watcher"))
        .arg(m_killedAt);
}

bool CrashRun::fail(const QString& problem)
{
    QString message = problem + u' ' + context();
    const QByteArray errors = readFile(m_env.root() + QStringLiteral("/app-stderr.txt"));
    if (!errors.isEmpty())
        message += QStringLiteral("\napplication's standard error:\n") + QString::fromLocal8Bit(errors.right(4000));
    ADD_FAILURE() << message.toStdString();
    return false;
}

bool CrashRun::launch(const QStringList& arguments)
{
    QProcessEnvironment variables = QProcessEnvironment::systemEnvironment();
    variables.insert(QStringLiteral("HOME"), m_env.home());
    variables.insert(QStringLiteral("XDG_DATA_HOME"), m_env.dataHome());
    variables.insert(QStringLiteral("XDG_CONFIG_HOME"), m_env.configHome());
    variables.insert(QStringLiteral("QT_QPA_PLATFORM"), QStringLiteral("offscreen"));
    m_app.setProcessEnvironment(variables);
    m_app.setStandardOutputFile(QProcess::nullDevice());
    m_app.setStandardErrorFile(m_env.root() + QStringLiteral("/app-stderr.txt"));
    m_app.start(QStringLiteral(CORVANE_APP_PATH), arguments);
    if (!m_app.waitForStarted(30000))
        return fail(QStringLiteral("the application did not start: ") + m_app.errorString());
    return true;
}

// The store removes leftovers of interrupted saves when it first opens its
// folder; the leftover planted before the start vanishing is the sign that
// the store is being built. Every later moment is measured from here.
bool CrashRun::waitForStoreStart()
{
    QElapsedTimer waited;
    waited.start();
    const auto present = [this](const QStringList& names) {
        return std::any_of(names.cbegin(), names.cend(),
                           [this](const QString& name) { return QFileInfo::exists(m_env.appFolder() + u'/' + name); });
    };
    while (present(m_planted)) {
        QCoreApplication::processEvents();
        if (m_app.state() != QProcess::Running)
            return fail(QStringLiteral("the application ended by itself while starting (exit code %1)")
                            .arg(m_app.exitCode()));
        if (waited.elapsed() > 60000)
            return fail(QStringLiteral("leftovers of interrupted saves were still there 60 s after the start: ")
                        + m_planted.join(u' '));
        QThread::usleep(1000);
    }
    m_sinceStoreStart.start();
    // The same sweep takes whatever the previous kill left behind.
    while (present(m_leftovers)) {
        if (waited.elapsed() > 62000)
            return fail(QStringLiteral("the leftover of the previous kill survived the next start: ")
                        + m_leftovers.join(u' '));
        QThread::usleep(1000);
    }
    m_leftovers.clear();
    return true;
}

KillPlan CrashRun::plan()
{
    const int k = int(m_kind);
    KillPlan plan;
    if (!m_savesEnd[k].known) {
        plan.calibrating = true;
        return plan;
    }
    const double end = m_savesEnd[k].value;
    const double length = std::max(m_saveLength[k].value, 1.0);
    const double aim = uniform(m_random, 0, 1);
    if (aim < anywhereShare) {
        plan.at = qint64(uniform(m_random, 0, 1.15 * end + length));
    } else if (m_seesSaves) {
        // The watcher may save several builds in one poll; any of them will do.
        plan.save = m_kind == Kind::import ? 0 : std::uniform_int_distribution<int>(0, 2)(m_random);
        // Some runs live just past their save, so the history keeps growing.
        plan.afterSave = aim < anywhereShare + afterSaveShare;
        plan.delay = plan.afterSave ? uniform(m_random, 0, 30) : uniform(m_random, 0, 1.1 * length);
        // A save that does not come is waited for a while: a poll of the
        // watcher, or a slow start.
        plan.at = qint64(m_kind == Kind::watcher ? end + 1500 : 2 * end + 1000);
    } else {
        plan.at = qint64(uniform(m_random, end - 1.2 * length, end + 0.1 * length));
    }
    return plan;
}

void CrashRun::dropLogs(bool more)
{
    const qint64 now = m_sinceStoreStart.elapsed();
    const int planned = int(std::size(logDrops));
    const qint64 due = m_logsDropped < planned ? logDrops[m_logsDropped]
                                               : logDrops[planned - 1] + 1000 * (m_logsDropped - planned + 1);
    if (m_kind != Kind::watcher || (m_logsDropped >= planned && !more) || now < due)
        return;
    const QString name =
        QStringLiteral("%1-%2.xcactivitylog").arg(m_number, 4, 10, QLatin1Char('0')).arg(m_logsDropped);
    const QString part = m_buildFolder + name + QStringLiteral(".part");
    writeFile(part, m_activityLogs.at((m_number + m_logsDropped) % variants));
    // Appears whole, as Xcode's own logs do.
    QFile::rename(part, m_buildFolder + name);
    ++m_logsDropped;
}

bool CrashRun::saving()
{
    const std::optional<QList<OpenFile>> files = openFiles(m_app.processId(), m_env.appFolder());
    if (!files) {
        m_seesSaves = false;
        return false;
    }
    return std::any_of(files->cbegin(), files->cend(),
                       [this](const OpenFile& file) { return isSaveInProgress(file, m_env.appFolder()); });
}

// Lets the application run until the plan says to kill it, watching what it
// does meanwhile.
bool CrashRun::runUntilKill(const KillPlan& plan, Observation& seen)
{
    FileStamp stamp = FileStamp::of(m_historyPath);
    qint64 lastActivity = 0;
    std::optional<qint64> killAt;
    for (;;) {
        const qint64 now = m_sinceStoreStart.elapsed();
        // Logs keep coming, one a second: the first ones may all have landed
        // before the watcher's first scan, which never reads them.
        dropLogs(!plan.calibrating || !seen.lastReplaced);

        const bool nowSaving = saving();
        if (nowSaving && !seen.saving) {
            if (plan.save && !plan.afterSave && *plan.save == seen.savesBegun)
                killAt = now + qint64(plan.delay);
            seen.saveBegan = now;
            ++seen.savesBegun;
        }
        seen.saving = nowSaving;
        const FileStamp current = FileStamp::of(m_historyPath);
        if (!(current == stamp)) {
            // The end of the save seen beginning last, unless it ended unseen.
            if (seen.saveBegan && (!seen.lastReplaced || *seen.saveBegan >= *seen.lastReplaced))
                m_saveLength[int(m_kind)].learn(double(now - *seen.saveBegan));
            if (plan.save && plan.afterSave && *plan.save == seen.replacements)
                killAt = now + qint64(plan.delay);
            stamp = current;
            seen.lastReplaced = now;
            ++seen.replacements;
        }
        if (nowSaving || seen.lastReplaced == now)
            lastActivity = now;
        if (m_app.state() != QProcess::Running)
            return fail(QStringLiteral("the application ended by itself (exit code %1)").arg(m_app.exitCode()));

        if (plan.calibrating) {
            // An import is one save; the watcher's polls may bring several, so
            // wait until they are done and all is quiet for a while.
            const bool done = m_kind == Kind::import
                ? seen.lastReplaced.has_value()
                : seen.lastReplaced && now > logDrops[std::size(logDrops) - 1] + 1500 && now - lastActivity > 1000;
            if (done)
                break;
            if (now > 90000)
                return fail(m_kind == Kind::import ? QStringLiteral("the imported log was not saved within 90 s")
                                                   : QStringLiteral("the watcher saved no build within 90 s"));
        } else if (now >= killAt.value_or(plan.at)) {
            break;
        }
        QCoreApplication::processEvents();
        QThread::usleep(1000);
    }
    m_killedAt = m_sinceStoreStart.elapsed();
    return true;
}

bool CrashRun::kill(const Observation& seen)
{
    const bool inSave = saving();
    ::kill(pid_t(m_app.processId()), SIGKILL);
    if (!m_app.waitForFinished(30000))
        return fail(QStringLiteral("the killed application did not end"));
    ++kills;
    killsInSave += inSave ? 1 : 0;
    killsBeforeAnySave += seen.savesBegun == 0 && !seen.lastReplaced ? 1 : 0;
    return true;
}

void CrashRun::learn(const KillPlan& plan, const Observation& seen)
{
    Estimate& end = m_savesEnd[int(m_kind)];
    Estimate& length = m_saveLength[int(m_kind)];
    // Cut short in a save that had lasted longer than a save is thought to
    // take: saves take longer (a grown history, a busy machine).
    if (seen.saving && seen.saveBegan && double(m_killedAt - *seen.saveBegan) > length.value)
        length.learn(1.25 * double(m_killedAt - *seen.saveBegan));
    if (plan.calibrating) {
        end.learn(double(*seen.lastReplaced));
    } else if (seen.lastReplaced && (m_kind == Kind::import || *seen.lastReplaced > end.value)) {
        // A kill soon after one of the watcher's saves may have cut off the
        // next, so only a later end than expected says more.
        end.learn(double(*seen.lastReplaced));
    } else if (m_kind == Kind::import && !seen.lastReplaced && m_killedAt > end.value) {
        // No save done by the time it used to be: loading or saving takes
        // longer than it did.
        end.learn(double(m_killedAt) + length.value);
    }
}

bool CrashRun::checkFolder()
{
    const QString folder = m_env.appFolder();
    if (QFileInfo::exists(folder + u'/' + BuildHistoryPersistence::damagedFileName))
        return fail(QStringLiteral("the history was moved aside as damaged"));
    for (const auto& [name, bytes] : m_decoys) {
        if (readFile(folder + u'/' + name) != bytes)
            return fail(QStringLiteral("a file of the user's was changed or removed: ") + name);
    }
    QStringList temporaries;
    for (const QString& name : QDir(folder).entryList(QDir::Files | QDir::Hidden | QDir::System)) {
        const bool decoy =
            std::any_of(m_decoys.cbegin(), m_decoys.cend(), [&name](const auto& d) { return d.first == name; });
        if (!decoy && isTemporaryName(name))
            temporaries.append(name);
    }
    // The kill may have caught one save between naming its file and putting
    // it in place; anything more means leftovers pile up.
    if (temporaries.size() > 1)
        return fail(QStringLiteral("temporary files pile up: ") + temporaries.join(u' '));
    leftoversSeen += int(temporaries.size());
    m_leftovers = temporaries;
    return true;
}

bool CrashRun::checkHistory()
{
    if (!QFileInfo::exists(m_historyPath)) {
        if (m_historySeen)
            return fail(QStringLiteral("the history file disappeared"));
        return true;
    }
    const QByteArray bytes = readFile(m_historyPath);
    if (m_historySeen && bytes == m_historyBytes)
        return true;

    // Read as the program reads it at its next start.
    Result<QList<BuildSession>> loaded = BuildHistoryPersistence().load();
    if (QFileInfo::exists(m_env.appFolder() + u'/' + BuildHistoryPersistence::damagedFileName))
        return fail(QStringLiteral("the program cannot decode its history (%1 bytes) and moved it aside")
                        .arg(bytes.size()));
    if (!loaded)
        return fail(QStringLiteral("the program cannot read its history: ") + loaded.error().description);
    QList<BuildSession> sessions = std::move(loaded).value();
    if (const std::optional<QString> problem = continuityProblem(m_sessions, sessions))
        return fail(*problem);

    const QString copy = m_env.root() + QStringLiteral("/plistlib/version-%1.plist").arg(++m_versions);
    writeFile(copy, bytes);
    m_plistlib.submit(copy, sessions, context());
    if (const std::optional<QString> problem = m_plistlib.collect(false))
        return fail(*problem);

    for (const BuildSession& session : sessions)
        (session.activityLogPath ? watcherBuilds : importedBuilds).insert(session.id);
    mostBuilds = std::max(mostBuilds, sessions.size());
    m_historySeen = true;
    m_historyBytes = bytes;
    m_sessions = std::move(sessions);
    return true;
}

bool CrashRun::cycle(int number)
{
    m_number = number;
    // One run of each kind first, to learn its timings.
    m_kind = number == 0 ? Kind::import
        : number == 1    ? Kind::watcher
        : uniform(m_random, 0, 1) < watcherShare ? Kind::watcher
                                                 : Kind::import;
    m_logsDropped = 0;
    m_killedAt = -1;

    // What an earlier run would have left when killed during a save.
    m_planted = {StorageFile::temporaryName(BuildHistoryPersistence::fileName, randomSuffix(m_random))};
    if (std::uniform_int_distribution<int>(0, 2)(m_random) == 0)
        m_planted.append(
            StorageFile::temporaryName(QStringLiteral("DiagnosticPreferences.plist"), randomSuffix(m_random)));
    for (const QString& name : m_planted)
        writeFile(m_env.appFolder() + u'/' + name, partialPlist(m_random));

    const QStringList arguments = m_kind == Kind::import ? QStringList{m_imports.at(number % variants)} : QStringList{};
    if (!launch(arguments) || !waitForStoreStart())
        return false;
    const KillPlan killPlan = plan();
    Observation seen;
    if (!runUntilKill(killPlan, seen) || !kill(seen))
        return false;
    learn(killPlan, seen);
    if (qEnvironmentVariableIsSet("CORVANE_CRASH_VERBOSE"))
        std::cout << context().toStdString() << (killPlan.save ? " aiming at a save" : "") << ", "
                  << seen.savesBegun << " saves begun, last at " << seen.saveBegan.value_or(-1) << ", replaced at "
                  << seen.lastReplaced.value_or(-1) << "; saves expected to end at " << m_savesEnd[int(m_kind)].value
                  << " and take " << m_saveLength[int(m_kind)].value << std::endl;
    return checkFolder() && checkHistory();
}

bool CrashRun::finish()
{
    if (const std::optional<QString> problem = m_plistlib.collect(true))
        return fail(*problem);
    return true;
}

TEST(CrashSafety, HistorySurvivesKillsAtRandomMomentsIncludingSaves)
{
    QElapsedTimer elapsed;
    elapsed.start();
    CrashRun run;
    ASSERT_TRUE(run.seedHistory());
    int number = 0;
    while (run.kills < leastKills || (run.killsInSave < wantedSaveKills && run.kills < mostKills)) {
        if (!run.cycle(number++))
            break;
    }
    ASSERT_TRUE(run.finish());
    ASSERT_GE(run.kills, leastKills);

    std::cout << "[ crash    ] " << run.kills << " kills in " << elapsed.elapsed() / 1000.0 << " s: "
              << run.killsInSave << " during a save, " << run.killsBeforeAnySave << " before any save; "
              << run.importedBuilds.size() << " imported and " << run.watcherBuilds.size()
              << " watched builds saved, at most " << run.mostBuilds << " at once; " << run.leftoversSeen
              << " leftover temporary files seen after kills" << std::endl;
    if (run.seesSaves()) {
        EXPECT_GE(run.killsInSave, leastSaveKills) << "too few kills fell inside a save to mean much";
    }
    EXPECT_FALSE(run.importedBuilds.isEmpty());
    EXPECT_FALSE(run.watcherBuilds.isEmpty()) << "the watcher never got a build saved";
}

} // namespace
} // namespace corvane
