// corvane-bench store: the store's two hot paths on a 10,000-diagnostic build.
#include "BenchCommand.h"
#include "BuildHistoryPersistence.h"
#include "BuildStore.h"
#include "DiagnosticParser.h"
#include "Measurements.h"

#include <QElapsedTimer>
#include <QFile>
#include <QSettings>
#include <QString>
#include <QTemporaryDir>

#include <algorithm>
#include <cstdio>
#include <memory>
#include <vector>

namespace corvane::bench {
namespace {

// A log of `count` distinct located diagnostics over a few hundred files,
// with a compiler command line before every hundred of them and some
// build-system notes. `shift` changes about one diagnostic in twenty, so two
// logs with different shifts compare as a real rebuild would.
QByteArray buildLog(int count, int shift)
{
    static const char* const severities[] = {"warning", "warning", "error", "note"};
    QByteArray text;
    text.reserve(qsizetype(count) * 140 + 200 * 1024);
    text += "note: Target dependency graph (12 targets)\r";
    for (int i = 0; i < count; ++i) {
        if (i % 100 == 0) {
            text += "CompileSwift normal arm64 /Users/dev/Code/App/Sources/Module";
            text += QByteArray::number(i / 100);
            text += ".swift (in target 'App' from project 'App')\r    cd /Users/dev/Code/App\r    ";
            for (int k = 0; k < 40; ++k)
                text += "-I/Users/dev/Library/Developer/Xcode/DerivedData/App-bxqgrvhdkslrtw/Build/Products/Debug ";
            text += "\r";
        }
        const int variant = (i % 20 == 0) ? shift : 0;
        text += "/Users/dev/Code/App/Sources/Feature";
        text += QByteArray::number(i % 400);
        text += (i % 7 == 0) ? "/viewModel.swift:" : "/ViewModel.swift:";
        text += QByteArray::number(i / 3 + 1 + variant);
        text += ':';
        text += QByteArray::number(i % 80 + 1);
        text += ": ";
        text += severities[i % 4];
        text += ": value 'item";
        text += QByteArray::number(i);
        text += "' was defined but never used; consider replacing with '_'\r";
    }
    text += "note: Run script build phase 'SwiftLint' will be run during every build\r";
    return text;
}

QString logPath(const QString& home, const QString& project, int index)
{
    return home + QStringLiteral("/Library/Developer/Xcode/DerivedData/") + project
        + QStringLiteral("-bxqgrvhdkslrtw/Logs/Build/") + QString::number(index) + QStringLiteral(".xcactivitylog");
}

template <typename F>
std::vector<double> timeRuns(int runs, F&& run)
{
    std::vector<double> milliseconds;
    for (int i = 0; i < runs; ++i) {
        QElapsedTimer timer;
        timer.start();
        run(i);
        milliseconds.push_back(double(timer.nsecsElapsed()) / 1e6);
    }
    return milliseconds;
}

int runStoreBench(const std::vector<std::string>& arguments)
{
    const int count = arguments.empty() ? 10000 : std::stoi(arguments[0]);
    const int otherSize = arguments.size() < 2 ? 250 : std::stoi(arguments[1]);

    // Everything the store reads and writes stays in a throw-away folder.
    QTemporaryDir folder;
    const QString home = folder.path() + QStringLiteral("/home");
    qputenv("HOME", home.toUtf8());
    qputenv("XDG_DATA_HOME", (folder.path() + QStringLiteral("/data")).toUtf8());
    qputenv("XDG_CONFIG_HOME", (folder.path() + QStringLiteral("/config")).toUtf8());
    QSettings::setPath(QSettings::NativeFormat, QSettings::UserScope, folder.path() + QStringLiteral("/config"));

    const DiagnosticParser parser;
    const auto parse = [&](const QByteArray& text) {
        return parser.parse(std::string_view(text.constData(), size_t(text.size())));
    };
    const QByteArray previous = buildLog(count, 0);
    const QByteArray next = buildLog(count, 1);

    // A full history on disk: the previous build of App, then 39 builds of
    // other projects.
    QList<BuildSession> history;
    const auto session = [&](const QString& project, QList<BuildDiagnostic> diagnostics, int index) {
        BuildSession s;
        s.id = QUuid::createUuid();
        s.startedAt = AbsoluteTime::now();
        s.diagnostics = std::move(diagnostics);
        s.projectName = project;
        s.sourceName = project + QStringLiteral(" \u2014 %1 diagnostics").arg(s.diagnostics.size());
        s.activityLogPath = logPath(home, project, index);
        return s;
    };
    history.append(session(QStringLiteral("App"), parse(previous), 0));
    const QList<BuildDiagnostic> small = parse(buildLog(otherSize, 0));
    for (int i = 1; i < historyLimit; ++i)
        history.append(session(QStringLiteral("Other%1").arg(i), small, i));
    const BuildHistoryPersistence persistence;
    if (!persistence.save(history)) {
        std::fprintf(stderr, "could not write the history\n");
        return 1;
    }
    const QString historyFile = folder.path() + QStringLiteral("/data/Corvane/") + BuildHistoryPersistence::fileName;
    QFile file(historyFile);
    file.open(QIODevice::ReadOnly);
    const QByteArray historyBytes = file.readAll();
    file.close();
    std::printf("log: %d diagnostics, %.1f MB; history: 40 sessions, the previous build with %d diagnostics and "
                "39 others with %d each (file %.1f MB)\n",
                count, double(next.size()) / 1e6, count, otherSize, double(historyBytes.size()) / 1e6);

    // Each run starts a store on the same history and captures the next build.
    std::unique_ptr<BuildStore> owner;
    std::vector<double> captures;
    for (int run = 0; run < 5; ++run) {
        QFile restore(historyFile);
        restore.open(QIODevice::WriteOnly | QIODevice::Truncate);
        restore.write(historyBytes);
        restore.close();
        owner = std::make_unique<BuildStore>();
        QElapsedTimer timer;
        timer.start();
        owner->captureBuild(next, logPath(home, QStringLiteral("App"), 100 + run));
        captures.push_back(double(timer.nsecsElapsed()) / 1e6);
    }
    BuildStore& store = *owner;
    const BuildSession active = *store.activeSession();
    std::printf("captureBuild: median %.1f ms, max %.1f ms (%lld diagnostics, %lld new, %lld fixed)\n",
                median(captures), *std::max_element(captures.begin(), captures.end()),
                qlonglong(active.diagnostics.size()), qlonglong(active.comparison.newDiagnosticIDs.size()),
                qlonglong(active.comparison.fixedDiagnostics.size()));

    const std::vector<double> parseTimes = timeRuns(5, [&](int) { (void)parse(next); });
    const QList<BuildDiagnostic> parsed = parse(next);
    const QList<BuildDiagnostic> parsedBefore = parse(previous);
    const std::vector<double> compare = timeRuns(5, [&](int) { (void)compareDiagnostics(parsed, parsedBefore); });
    const std::vector<double> save = timeRuns(5, [&](int) { (void)persistence.save(store.sessions()); });
    std::printf("  of which parse: median %.1f ms; compare: median %.1f ms; save: median %.1f ms\n", median(parseTimes),
                median(compare), median(save));

    store.setSeverityFilter({DiagnosticSeverity::error, DiagnosticSeverity::warning, DiagnosticSeverity::note});
    for (int i = 0; i < active.diagnostics.size(); i += 50)
        store.togglePin(active.diagnostics[i]);
    qsizetype shown = 0;
    const auto visible = [&](int) {
        shown = store.visibleDiagnostics().size();
        shown += store.visibleFixedDiagnostics().size();
    };
    // Extra rounds give a profiler something to look at.
    const int rounds = std::max(21, qEnvironmentVariableIntValue("CORVANE_BENCH_ROUNDS"));
    const std::vector<double> all = timeRuns(rounds, visible);
    std::printf("visibleDiagnostics + visibleFixedDiagnostics, all severities, some pinned: median %.2f ms, "
                "max %.2f ms (%lld rows)\n",
                median(all), *std::max_element(all.begin(), all.end()), qlonglong(shown));

    if (qEnvironmentVariableIsSet("CORVANE_BENCH_BREAKDOWN")) {
        int noise = 0;
        const auto noiseTimes = timeRuns(21, [&](int) {
            for (const BuildDiagnostic& d : active.diagnostics)
                noise += d.isBuildNoise();
        });
        int shownCount = 0;
        const auto visibleTimes = timeRuns(21, [&](int) {
            for (const BuildDiagnostic& d : active.diagnostics)
                shownCount += store.isDiagnosticVisible(d, active);
        });
        int pinned = 0;
        const auto pinTimes = timeRuns(21, [&](int) {
            for (const BuildDiagnostic& d : active.diagnostics)
                pinned += store.isPinned(d);
        });
        std::printf("  breakdown: isBuildNoise %.2f ms, isDiagnosticVisible %.2f ms, isPinned %.2f ms\n",
                    median(noiseTimes), median(visibleTimes), median(pinTimes));
    }

    store.setSearchText(QStringLiteral("viewmodel"));
    const std::vector<double> searched = timeRuns(21, visible);
    std::printf("  with search text: median %.2f ms (%lld rows)\n", median(searched), qlonglong(shown));
    return 0;
}

const RegisterBenchCommand registration("store", "[DIAGNOSTICS [OTHER-BUILD-DIAGNOSTICS]]", runStoreBench);

} // namespace
} // namespace corvane::bench
