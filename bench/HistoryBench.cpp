// corvane-bench history [ROUNDS [SESSIONS DIAGNOSTICS]]: saves and loads a
// full history of 40 builds of 1,000 diagnostics each (or as many as given)
// through the real persistence, in a temporary data folder, and prints the
// times and the file size. The encoding is also timed on its own, into a
// device that drops the bytes, which leaves the file system's part of a save.
#include "BenchCommand.h"
#include "Measurements.h"

#include "BuildHistoryPersistence.h"
#include "BuildHistoryWriter.h"
#include "StorageDirectory.h"

#include <QElapsedTimer>
#include <QFileInfo>
#include <QRandomGenerator>
#include <QTemporaryDir>

#include <algorithm>
#include <cstdio>
#include <ctime>
#include <string>
#include <vector>

namespace corvane::bench {
namespace {

const char* const messages[] = {
    "variable 'result' was never mutated; consider changing to 'let' constant",
    "initialization of immutable value 'cell' was never used; consider replacing with assignment to '_' or removing it",
    "cannot find 'ProfileViewModel' in scope",
    "value of type 'URLSession' has no member 'dataTaskPublisher(for:timeout:)'",
    "'init(frame:)' is deprecated: first deprecated in iOS 17.0 — use the new layout API",
    "expression implicitly coerced from 'String?' to 'Any'",
    "non-sendable type 'Settings' passed in call to main actor-isolated function cannot cross actor boundary",
    "will never be executed",
    "Ünïcødé ✓ message about 'Café' and “quotes”",
};
const char* const folders[] = {"Sources/App/Views",   "Sources/App/Models", "Sources/Networking",
                               "Sources/Persistence", "Tests/AppTests",     "Packages/DesignSystem/Sources"};
const char* const files[] = {"ContentView.swift",  "ProfileViewModel.swift", "APIClient.swift", "Store.swift",
                             "SettingsView.swift", "ImageCache.swift",       "AppDelegate.m",   "Bridging.h"};

BuildDiagnostic makeDiagnostic(QRandomGenerator& random, int session, int index)
{
    BuildDiagnostic d;
    d.id = QUuid::createUuid();
    d.severity = allDiagnosticSeverities[size_t(random.bounded(3))];
    d.message = QString::fromUtf8(messages[random.bounded(int(std::size(messages)))]);
    if (index % 17 != 0) {
        d.filePath = QStringLiteral("/Users/dev/Projects/Example%1/%2/%3")
                         .arg(session % 3)
                         .arg(QLatin1StringView(folders[random.bounded(int(std::size(folders)))]))
                         .arg(QLatin1StringView(files[random.bounded(int(std::size(files)))]));
        d.line = random.bounded(1, 4000);
        if (index % 5 != 0)
            d.column = random.bounded(1, 120);
    }
    d.rawText = d.filePath.value_or(QString()) + u':' + QString::number(d.line.value_or(0)) + u':'
        + QString::number(d.column.value_or(0)) + QStringLiteral(": ") + rawValue(d.severity) + QStringLiteral(": ")
        + d.message;
    d.timestamp = AbsoluteTime{7.5e8 + session * 600.0 + index * 0.001234567};
    return d;
}

QList<BuildSession> makeHistory(int sessionCount, int diagnosticsPerSession)
{
    QRandomGenerator random(42);
    QList<BuildSession> sessions;
    for (int s = 0; s < sessionCount; ++s) {
        BuildSession session;
        session.id = QUuid::createUuid();
        session.startedAt = AbsoluteTime{7.5e8 + s * 600.0 + 0.123456};
        session.projectName = QStringLiteral("Example%1").arg(s % 3);
        session.sourceName = QStringLiteral("Example%1 build").arg(s % 3);
        if (s % 4 != 0)
            session.activityLogPath =
                QStringLiteral(
                    "/Users/dev/Library/Developer/Xcode/DerivedData/Example%1-abcdefghijkl/Logs/Build/%2.xcactivitylog")
                    .arg(s % 3)
                    .arg(session.id.toString(QUuid::WithoutBraces).toUpper());
        for (int i = 0; i < diagnosticsPerSession; ++i)
            session.diagnostics.append(makeDiagnostic(random, s, i));
        session.comparison.hasBaseline = s >= 3;
        if (session.comparison.hasBaseline) {
            for (int i = 0; i < diagnosticsPerSession; i += 10)
                session.comparison.newDiagnosticIDs.insert(session.diagnostics[i].id);
            for (int i = 0; i < 25; ++i)
                session.comparison.fixedDiagnostics.append(makeDiagnostic(random, s, i));
        }
        sessions.append(session);
    }
    return sessions;
}

// Wall time and the process's processor time together: on a busy machine the
// first measures the neighbours, the second still measures us.
struct Stopwatch {
    QElapsedTimer wall;
    std::clock_t cpu = 0;
    void start()
    {
        wall.start();
        cpu = std::clock();
    }
    void stop(std::vector<double>& wallMs, std::vector<double>& cpuMs) const
    {
        cpuMs.push_back(double(std::clock() - cpu) * 1000.0 / CLOCKS_PER_SEC);
        wallMs.push_back(double(wall.nsecsElapsed()) / 1e6);
    }
};

int runHistoryBench(const std::vector<std::string>& arguments)
{
    const int rounds = arguments.empty() ? 5 : std::max(1, std::stoi(arguments[0]));
    const int sessionCount = arguments.size() >= 3 ? std::max(1, std::stoi(arguments[1])) : 40;
    const int diagnosticsPerSession = arguments.size() >= 3 ? std::max(0, std::stoi(arguments[2])) : 1000;
    QTemporaryDir dataHome;
    if (!dataHome.isValid()) {
        std::fprintf(stderr, "history: no temporary folder\n");
        return 1;
    }
    qputenv("XDG_DATA_HOME", dataHome.path().toLocal8Bit());

    const QList<BuildSession> sessions = makeHistory(sessionCount, diagnosticsPerSession);
    const BuildHistoryPersistence persistence;
    std::vector<double> encodeMs, encodeCpuMs, saveMs, saveCpuMs, loadMs, loadCpuMs;
    for (int round = 0; round < rounds; ++round) {
        Stopwatch watch;
        DiscardingDevice nowhere;
        watch.start();
        BuildHistoryWriter::write({1, AbsoluteTime::now(), sessions}, nowhere);
        watch.stop(encodeMs, encodeCpuMs);
        watch.start();
        const Result<void> saved = persistence.save(sessions);
        watch.stop(saveMs, saveCpuMs);
        if (!saved) {
            std::fprintf(stderr, "history: save failed: %s\n", qPrintable(saved.error().description));
            return 1;
        }
        watch.start();
        const Result<QList<BuildSession>> loaded = persistence.load();
        watch.stop(loadMs, loadCpuMs);
        if (!loaded || loaded.value() != sessions) {
            std::fprintf(stderr, "history: the loaded history differs from the saved one\n");
            return 1;
        }
    }
    const QString file = storageDirectory().value() + u'/' + BuildHistoryPersistence::fileName;
    std::printf("history: %d sessions x %d diagnostics, %d rounds\n", sessionCount, diagnosticsPerSession, rounds);
    const auto report = [](const char* what, const std::vector<double>& wall, const std::vector<double>& cpu) {
        std::printf("  %-7s median %6.1f ms  best %6.1f ms   (processor time median %6.1f ms)\n", what, median(wall),
                    *std::min_element(wall.begin(), wall.end()), median(cpu));
    };
    report("encode", encodeMs, encodeCpuMs);
    report("save", saveMs, saveCpuMs);
    report("load", loadMs, loadCpuMs);
    std::printf("  file  %lld bytes; peak RSS %.0f MiB\n", static_cast<long long>(QFileInfo(file).size()),
                peakResidentKiB() / 1024.0);
    return 0;
}

RegisterBenchCommand reg("history", "[ROUNDS [SESSIONS DIAGNOSTICS]]  save and load 40 x 1,000 diagnostics",
                         runHistoryBench);

} // namespace
} // namespace corvane::bench
