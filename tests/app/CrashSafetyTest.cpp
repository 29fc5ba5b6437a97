// Kills the real application with SIGKILL, again and again, at random moments
// of its life (starting, loading, reading logs, saving) and checks after every
// kill that the history on disk is whole, still holds every build it held
// before, and that nothing was moved aside as damaged or left behind to pile
// up. (That whole files are also plistlib's is checked elsewhere.)
//
// Saves are what matter most, so most kills aim at them: where the system
// shows a process's open files (/proc), the test sees a save begin (a file
// open for writing in the folder) and kills after a random part of the time
// the last whole save took. The other kills fall anywhere from the start to a
// little past the moment saves were seen to end. The first run of each kind
// is not killed before its saves are done, to learn those times.
//
// The choices are made by a seeded generator; the seed is in every failure
// message and CORVANE_CRASH_SEED replays it.
#include "AppProcess.h"
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
#include <QThread>

#include <gtest/gtest.h>

#include <signal.h>
#include <sys/stat.h>

#include <algorithm>
#include <iostream>
#include <limits>
#include <random>
#include <tuple>

namespace corvane {
namespace {

using namespace corvane::test;

// Kills go on past leastKills (up to mostKills) until wantedSaveKills fell
// inside a save, and at least leastSaveKills must have, where saves can be seen.
constexpr int leastKills = 100;
constexpr int mostKills = 140;
constexpr int wantedSaveKills = 40;
constexpr int leastSaveKills = 25;

// Thousands of diagnostics per activity log, so that reading, parsing and
// saving take real time; imported logs, which make most builds, are smaller.
constexpr int activityDiagnostics = 1500;
constexpr int importDiagnostics = 300;
constexpr int variants = 4;
// Share of runs in which the watcher, rather than an import, makes the
// builds; of kills that aim at no save in particular; and of kills shortly
// after a save, so that the history keeps growing.
constexpr double watcherShare = 0.12;
constexpr double anywhereShare = 0.2;
constexpr double afterSaveShare = 0.25;
// The history the user already has: nearly full, so that saves take their
// full time from the first kill on and the limit of 40 builds comes into play.
constexpr int seededBuilds = 38;
// When logs are dropped into the watched folder, in ms after the store has
// started: some land after the watcher's first scan and are read at its next
// poll, 1.5 s later.
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

// Changes whenever the file is replaced or written to.
std::tuple<quint64, qint64, qint64> stampOf(const QString& path)
{
    struct stat info {};
    if (::stat(QFile::encodeName(path).constData(), &info) != 0)
        return {};
    return {quint64(info.st_ino), qint64(info.st_size), QFileInfo(path).lastModified().toMSecsSinceEpoch()};
}

class CrashRun {
public:
    int kills = 0;
    int killsInSave = 0;
    int leftoversSeen = 0;
    qsizetype mostBuilds = 0;
    QSet<QUuid> watcherBuilds;
    QSet<QUuid> importedBuilds;
    bool seesSaves = true;

    CrashRun()
    {
        QDir().mkpath(m_buildFolder);
        for (int v = 0; v < variants; ++v) {
            m_activityLogs.append(CrashLogs::activityLog(activityDiagnostics, v));
            const QString import = m_env.root() + QStringLiteral("/imports/crash-import-%1.log").arg(v);
            writeFile(import, CrashLogs::plainTextLog(importDiagnostics, v));
            m_imports.append(import);
        }
    }

    // Writes the history the user has before the first start.
    bool seedHistory()
    {
        const DiagnosticParser parser;
        QList<BuildSession> sessions;
        for (int i = 0; i < seededBuilds; ++i) {
            const bool watched = i % 3 == 0;
            BuildSession session;
            session.id = QUuid::createUuid();
            session.startedAt = AbsoluteTime{AbsoluteTime::now().secondsSinceReferenceDate - 600.0 * (i + 1)};
            session.diagnostics =
                parser.parse(CrashLogs::diagnosticLines(watched ? activityDiagnostics : importDiagnostics, i % variants,
                                                        QStringLiteral("/Users/dev/Old"))
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

    // One start and one kill; false when a check failed (and was reported).
    bool cycle(int number)
    {
        m_number = number;
        // One run of each kind first, to learn its timings.
        m_kind = number == 0                         ? Kind::import
            : number == 1                            ? Kind::watcher
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

        m_app.emplace(m_env);
        m_app->process().setStandardOutputFile(QProcess::nullDevice());
        m_app->process().setStandardErrorFile(m_env.root() + QStringLiteral("/app-stderr.txt"));
        m_app->start(m_kind == Kind::import ? QStringList{m_imports.at(number % variants)} : QStringList{});
        if (!m_app->waitForStarted())
            return fail(QStringLiteral("the application did not start: ") + m_app->process().errorString());
        return waitForStoreStart() && runUntilKill() && checkFolder() && checkHistory();
    }

private:
    enum class Kind { import, watcher };

    bool fail(const QString& problem)
    {
        QString message = QStringLiteral("%1 [seed %2 (CORVANE_CRASH_SEED), kill %3, %4 run, killed at %5 ms]")
                              .arg(problem)
                              .arg(m_seed)
                              .arg(m_number)
                              .arg(m_kind == Kind::import ? QStringLiteral("import") : QStringLiteral("watcher"))
                              .arg(m_killedAt);
        const QByteArray errors = readFile(m_env.root() + QStringLiteral("/app-stderr.txt"));
        if (!errors.isEmpty())
            message += QStringLiteral("\napplication's standard error:\n") + QString::fromLocal8Bit(errors.right(4000));
        ADD_FAILURE() << message.toStdString();
        return false;
    }

    // The store removes leftovers of interrupted saves when it first opens its
    // folder; the leftover planted before the start vanishing is the sign that
    // the store is being built. Every later moment is measured from here.
    bool waitForStoreStart()
    {
        QElapsedTimer waited;
        waited.start();
        const auto present = [this](const QStringList& names) {
            return std::any_of(names.cbegin(), names.cend(), [this](const QString& name) {
                return QFileInfo::exists(m_env.appFolder() + u'/' + name);
            });
        };
        while (present(m_planted)) {
            QCoreApplication::processEvents();
            if (!m_app->running())
                return fail(QStringLiteral("the application ended by itself while starting (exit code %1)")
                                .arg(m_app->exitCode()));
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

    // Watcher runs get a log at each of logDrops, then, while `more`, one a second.
    void dropLogs(bool more)
    {
        const int planned = int(std::size(logDrops));
        const qint64 due = m_logsDropped < planned ? logDrops[m_logsDropped]
                                                   : logDrops[planned - 1] + 1000 * (m_logsDropped - planned + 1);
        if (m_kind != Kind::watcher || (m_logsDropped >= planned && !more) || m_sinceStoreStart.elapsed() < due)
            return;
        const QString name =
            QStringLiteral("%1-%2.xcactivitylog").arg(m_number, 4, 10, QLatin1Char('0')).arg(m_logsDropped);
        // Appears whole, as Xcode's own logs do.
        writeFile(m_buildFolder + name + QStringLiteral(".part"),
                  m_activityLogs.at((m_number + m_logsDropped) % variants));
        QFile::rename(m_buildFolder + name + QStringLiteral(".part"), m_buildFolder + name);
        ++m_logsDropped;
    }

    bool saving()
    {
        const std::optional<QList<OpenFile>> files = openFiles(m_app->process().processId(), m_env.appFolder());
        seesSaves = seesSaves && files.has_value();
        return files && std::any_of(files->cbegin(), files->cend(), [this](const OpenFile& file) {
                   return isSaveInProgress(file, m_env.appFolder());
               });
    }

    // Lets the application run until the moment chosen for the kill, watching
    // its saves meanwhile, and kills it.
    bool runUntilKill()
    {
        const int k = int(m_kind);
        const bool learning = !m_savesEnd[k];
        const double aim = uniform(m_random, 0, 1);
        const bool anywhere = !learning && (aim < anywhereShare || !seesSaves);
        const bool afterSave = !anywhere && aim < anywhereShare + afterSaveShare;
        // The watcher may save several builds in one poll; any of them will do.
        const int aimedSave = m_kind == Kind::import ? 0 : std::uniform_int_distribution<int>(0, 2)(m_random);
        // A save that does not come is waited for a while: a poll of the
        // watcher, or a slow start.
        qint64 killAt = learning ? std::numeric_limits<qint64>::max()
            : anywhere           ? qint64(uniform(m_random, 0, 1.15 * double(*m_savesEnd[k] + m_saveLength[k])))
                                 : 2 * *m_savesEnd[k] + 1500;

        auto stamp = stampOf(m_historyPath);
        bool wasSaving = false;
        int savesBegun = 0;
        int replacements = 0;
        std::optional<qint64> saveBegan;
        std::optional<qint64> lastReplaced;
        qint64 lastActivity = 0;
        for (;;) {
            const qint64 now = m_sinceStoreStart.elapsed();
            // Logs keep coming: the first ones may all have landed before the
            // watcher's first scan, which never reads them.
            dropLogs(!learning || !lastReplaced);

            const bool nowSaving = saving();
            if (nowSaving && !wasSaving) {
                if (!anywhere && !afterSave && !learning && savesBegun == aimedSave)
                    killAt = now + qint64(uniform(m_random, 0, 1.1 * double(m_saveLength[k])));
                saveBegan = now;
                ++savesBegun;
            }
            wasSaving = nowSaving;
            if (const auto current = stampOf(m_historyPath); current != stamp) {
                if (saveBegan && (!lastReplaced || *saveBegan >= *lastReplaced))
                    m_saveLength[k] = std::max<qint64>(now - *saveBegan, 1);
                if (afterSave && replacements == aimedSave)
                    killAt = now + qint64(uniform(m_random, 0, 30));
                stamp = current;
                lastReplaced = now;
                ++replacements;
            }
            if (nowSaving || lastReplaced == now)
                lastActivity = now;
            if (!m_app->running())
                return fail(QStringLiteral("the application ended by itself (exit code %1)").arg(m_app->exitCode()));

            if (learning) {
                // An import is one save; the watcher's polls may bring several,
                // so wait until all is quiet for a while.
                if (m_kind == Kind::import
                        ? lastReplaced.has_value()
                        : lastReplaced && now > logDrops[std::size(logDrops) - 1] + 1500 && now - lastActivity > 1000)
                    break;
                if (now > 90000)
                    return fail(QStringLiteral("no build was saved within 90 s"));
            } else if (now >= killAt) {
                break;
            }
            QCoreApplication::processEvents();
            QThread::usleep(1000);
        }
        m_killedAt = m_sinceStoreStart.elapsed();
        // Saves take longer as the history grows or the machine gets busy.
        if (lastReplaced)
            m_savesEnd[k] = std::max(m_savesEnd[k].value_or(0), *lastReplaced);

        killsInSave += saving() ? 1 : 0;
        m_app->kill();
        if (m_app->running())
            return fail(QStringLiteral("the killed application did not end"));
        ++kills;
        return true;
    }

    bool checkFolder()
    {
        const QString folder = m_env.appFolder();
        if (QFileInfo::exists(folder + u'/' + BuildHistoryPersistence::damagedFileName))
            return fail(QStringLiteral("the history was moved aside as damaged"));
        QStringList temporaries;
        for (const QString& name : QDir(folder).entryList(QDir::Files | QDir::Hidden | QDir::System)) {
            if (isTemporaryName(name))
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

    bool checkHistory()
    {
        if (!QFileInfo::exists(m_historyPath))
            return m_historySeen ? fail(QStringLiteral("the history file disappeared")) : true;
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

        for (const BuildSession& session : sessions)
            (session.activityLogPath ? watcherBuilds : importedBuilds).insert(session.id);
        mostBuilds = std::max(mostBuilds, sessions.size());
        m_historySeen = true;
        m_historyBytes = bytes;
        m_sessions = std::move(sessions);
        return true;
    }

    const quint32 m_seed = seed();
    std::mt19937 m_random{m_seed};
    TestEnvironment m_env;
    const QString m_buildFolder = m_env.derivedData() + QStringLiteral("/CrashApp-gzxbqkxdbnhtjw/Logs/Build/");
    const QString m_historyPath = m_env.appFolder() + u'/' + BuildHistoryPersistence::fileName;
    QByteArrayList m_activityLogs;
    QStringList m_imports;

    // The current run.
    std::optional<AppProcess> m_app;
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

    // Per kind of run, in ms: the latest moment its saves were seen to end
    // (after the store started), and the length of the last whole save seen.
    std::optional<qint64> m_savesEnd[2];
    qint64 m_saveLength[2] = {1, 1};
};

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
    ASSERT_GE(run.kills, leastKills);

    std::cout << "[ crash    ] " << run.kills << " kills in " << elapsed.elapsed() / 1000.0 << " s, " << run.killsInSave
              << " during a save; " << run.importedBuilds.size() << " imported and " << run.watcherBuilds.size()
              << " watched builds saved, at most " << run.mostBuilds << " at once; " << run.leftoversSeen
              << " leftover temporary files seen after kills" << std::endl;
    if (run.seesSaves) {
        EXPECT_GE(run.killsInSave, leastSaveKills) << "too few kills fell inside a save to mean much";
    }
    EXPECT_FALSE(run.importedBuilds.isEmpty());
    EXPECT_FALSE(run.watcherBuilds.isEmpty()) << "the watcher never got a build saved";
}

} // namespace
} // namespace corvane
