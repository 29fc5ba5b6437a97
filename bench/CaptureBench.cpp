// corvane-bench capture: a huge activity log through the path the application
// takes, from the moment the file appears in DerivedData until the history
// file is saved: a watcher polls, reads the log on its
// background pool and hands the text block by block to the store on this
// thread, which parses each block as it comes, then compares and saves. Generating the logs is not timed and happens in
// a child process, so it does not count towards this process's peak memory.
#include "ActivityLogReader.h"
#include "BenchCommand.h"
#include "BuildHistoryPersistence.h"
#include "BuildHistoryWriter.h"
#include "BuildStore.h"
#include "DiagnosticParser.h"
#include "Measurements.h"
#include "XcodeBuildWatcher.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QRandomGenerator>
#include <QSettings>
#include <QTemporaryDir>
#include <QTimer>

#include <algorithm>
#include <cstdio>
#include <optional>
#include <string>
#include <vector>

namespace corvane::bench {
namespace {

const QString gzipProgram = QStringLiteral("/usr/bin/gzip");

struct Options {
    std::size_t megabytes = 1024;
    std::optional<double> diagnosticsPerMebibyte;
    int comparedRuns = 3;
    QString workFolder = QDir::tempPath();
    // Activity logs to use instead of generated ones; runs take them in turn.
    QStringList logs;
};

struct RunTimes {
    bool compared = false;
    double detect = 0;            // file in place -> buildDetected
    double read = 0;              // buildDetected -> whole text read (gzip, extraction, parse of the blocks)
    double parseWhileReading = 0; // this thread's time in the blocks' parse, within read
    double record = 0;            // read -> new session in the history (end of parse, compare)
    double save = 0;              // new session -> history saved (selection, save)
    double total = 0;             // file in place -> history saved
    qsizetype textBytes = 0;
    quint64 decompressedBytes = 0;
    qsizetype diagnostics = 0;
    qsizetype newDiagnostics = 0;
    qsizetype fixedDiagnostics = 0;
    qint64 historyBytes = 0;
    double peakRssMiB = 0;
    // The peak of this run alone, with the history it started from, and
    // what was resident when the run began.
    double runPeakRssMiB = 0;
    double startRssMiB = 0;
    // Processor seconds over the run: this process (all its threads) and gzip.
    double cpuSelf = 0;
    double cpuGzip = 0;
};

double currentResidentMiB()
{
    QFile statm(QStringLiteral("/proc/self/statm"));
    if (!statm.open(QIODevice::ReadOnly))
        return 0;
    const QList<QByteArray> fields = statm.readAll().split(' ');
    return fields.size() > 1 ? fields[1].toDouble() * 4096.0 / (1024.0 * 1024.0) : 0;
}

QString loadAverage()
{
    QFile file(QStringLiteral("/proc/loadavg"));
    if (!file.open(QIODevice::ReadOnly))
        return QStringLiteral("?");
    const QList<QByteArray> fields = file.readAll().split(' ');
    return fields.size() >= 3 ? QString::fromLatin1(fields[0] + ' ' + fields[1] + ' ' + fields[2])
                              : QStringLiteral("?");
}

double secondsOf(const QElapsedTimer& timer) { return double(timer.nsecsElapsed()) / 1e9; }

std::optional<Options> parseOptions(const std::vector<std::string>& arguments)
{
    Options options;
    for (std::size_t i = 0; i < arguments.size(); ++i) {
        const std::string& a = arguments[i];
        const bool hasValue = i + 1 < arguments.size();
        if (a == "--mb" && hasValue)
            options.megabytes = std::stoul(arguments[++i]);
        else if (a == "--diagnostics-per-mb" && hasValue)
            options.diagnosticsPerMebibyte = std::stod(arguments[++i]);
        else if (a == "--runs" && hasValue)
            options.comparedRuns = std::max(1, std::stoi(arguments[++i]));
        else if (a == "--work" && hasValue)
            options.workFolder = QString::fromStdString(arguments[++i]);
        else if (a == "--log" && hasValue)
            options.logs.append(QFileInfo(QString::fromStdString(arguments[++i])).absoluteFilePath());
        else
            return std::nullopt;
    }
    return options;
}

// Writes one generated activity log with the bench's own gen-activity-log
// command in a child process.
bool generateLog(const Options& options, std::uint32_t variant, const QString& output)
{
    QStringList arguments{QStringLiteral("gen-activity-log"), QStringLiteral("--mb"),
                          QString::number(options.megabytes), QStringLiteral("--variant"), QString::number(variant)};
    if (options.diagnosticsPerMebibyte)
        arguments << QStringLiteral("--diagnostics-per-mb") << QString::number(*options.diagnosticsPerMebibyte);
    arguments << output;
    QProcess child;
    child.setProcessChannelMode(QProcess::ForwardedChannels);
    child.start(QCoreApplication::applicationFilePath(), arguments);
    return child.waitForFinished(-1) && child.exitStatus() == QProcess::NormalExit && child.exitCode() == 0;
}

void runEventLoopFor(int milliseconds)
{
    QEventLoop loop;
    QTimer::singleShot(milliseconds, &loop, &QEventLoop::quit);
    loop.exec();
}

void printRun(int index, const RunTimes& r)
{
    std::printf("run %d (%s): total %.2f s = detect %.2f + read %.2f (parsing blocks %.2f) + parse/compare %.2f + "
                "save %.2f; "
                "%lld diagnostics, %lld new, %lld fixed; history file %.1f MB; peak RSS %.0f MiB, in this run %.0f MiB "
                "= %.2f x the text (%.0f MiB resident at its start, %.2f x the text above that); cpu %.2f s + gzip "
                "%.2f s\n",
                index, r.compared ? "compared" : "first build", r.total, r.detect, r.read, r.parseWhileReading,
                r.record, r.save, qlonglong(r.diagnostics), qlonglong(r.newDiagnostics), qlonglong(r.fixedDiagnostics),
                double(r.historyBytes) / 1e6, r.peakRssMiB, r.runPeakRssMiB,
                r.runPeakRssMiB * 1024.0 * 1024.0 / double(std::max<qsizetype>(r.textBytes, 1)), r.startRssMiB,
                (r.runPeakRssMiB - r.startRssMiB) * 1024.0 * 1024.0 / double(std::max<qsizetype>(r.textBytes, 1)),
                r.cpuSelf, r.cpuGzip);
    std::fflush(stdout);
}

int runCaptureBench(const std::vector<std::string>& arguments)
{
    const std::optional<Options> parsed = parseOptions(arguments);
    if (!parsed) {
        std::fprintf(stderr, "capture: unknown argument\n");
        return 2;
    }
    const Options& options = *parsed;

    QTemporaryDir folder(options.workFolder + QStringLiteral("/corvane-capture-XXXXXX"));
    if (!folder.isValid()) {
        std::fprintf(stderr, "capture: cannot make a folder in %s\n", qPrintable(options.workFolder));
        return 1;
    }
    const QString home = folder.path() + QStringLiteral("/home");
    qputenv("HOME", home.toUtf8());
    qputenv("XDG_DATA_HOME", (folder.path() + QStringLiteral("/data")).toUtf8());
    qputenv("XDG_CONFIG_HOME", (folder.path() + QStringLiteral("/config")).toUtf8());
    QSettings::setPath(QSettings::NativeFormat, QSettings::UserScope, folder.path() + QStringLiteral("/config"));
    const QString staging = folder.path() + QStringLiteral("/staging");
    const QString buildLogs = home
        + QStringLiteral("/Library/Developer/Xcode/DerivedData/ExampleApp-bqzkfgaxmlwhcsdrhbnyoteqjlpv/Logs/Build");
    QDir().mkpath(staging);
    QDir().mkpath(buildLogs);
    const QString historyFile = folder.path() + QStringLiteral("/data/Corvane/") + BuildHistoryPersistence::fileName;

    // Two builds of the same code that differ in a few diagnostics; the runs
    // alternate between them, so every compared run finds some new and some
    // fixed diagnostics.
    QStringList sources = options.logs;
    if (sources.isEmpty()) {
        QElapsedTimer timer;
        timer.start();
        for (std::uint32_t variant : {1u, 2u}) {
            const QString path = staging + QStringLiteral("/variant%1.gz").arg(variant);
            if (!generateLog(options, variant, path)) {
                std::fprintf(stderr, "capture: generating the log failed\n");
                return 1;
            }
            sources.append(path);
        }
        std::printf("generated two logs in %.0f s (not timed below)\n", secondsOf(timer));
    }
    std::printf("load average before: %s\n", qPrintable(loadAverage()));
    std::printf("peak RSS before capturing: %.0f MiB\n", peakResidentKiB() / 1024.0);
    std::fflush(stdout);

    BuildStore store;
    // A watcher of the same folder as the store's, wired the same way but
    // with timing marks around the capture; what it calls is exactly what
    // the application runs.
    XcodeBuildWatcher watcher;
    QElapsedTimer clock;
    clock.start();
    struct Marks {
        qint64 placed = -1, detected = -1, delivered = -1, recorded = -1, saved = -1;
        qint64 parsingBlocks = 0;
        qsizetype textBytes = 0;
        std::optional<QString> failure;
    } marks;
    QEventLoop* waiting = nullptr;
    const auto stop = [&] {
        if (waiting)
            waiting->quit();
    };
    watcher.onStateChange = [&](const XcodeBuildWatcher::WatcherState& state) {
        using Kind = XcodeBuildWatcher::WatcherState::Kind;
        if (state.kind == Kind::buildDetected && marks.placed >= 0 && marks.detected < 0)
            marks.detected = clock.nsecsElapsed();
        if (state.kind == Kind::failed) {
            marks.failure = state.payload;
            stop();
        }
    };
    watcher.onBuildText = [&](const QString& logPath, const QByteArray& textBlock) {
        const qint64 start = clock.nsecsElapsed();
        marks.textBytes += textBlock.size();
        store.receiveBuildText(logPath, textBlock);
        marks.parsingBlocks += clock.nsecsElapsed() - start;
    };
    watcher.onBuild = [&](const QString& logPath) {
        marks.delivered = clock.nsecsElapsed();
        store.captureReceivedBuild(logPath);
        marks.saved = clock.nsecsElapsed();
        stop();
    };
    QObject::connect(&store, &BuildStore::aboutToChange, &store, [&](BuildStore::Field field) {
        if (field == BuildStore::Field::sessions && marks.delivered >= 0 && marks.recorded < 0)
            marks.recorded = clock.nsecsElapsed();
    });

    watcher.start();
    // The baseline of an empty folder takes a moment; give it two polls.
    runEventLoopFor(int(2 * XcodeBuildWatcher::pollInterval.count()));

    std::vector<RunTimes> runs;
    QString lastLog;
    for (int run = 0; run <= options.comparedRuns; ++run) {
        const QString source = sources.at(run % sources.size());
        // Copy first, then move into place in one step, so that the watcher
        // never sees a half-written log and the moment it appears is exact.
        const QString copy = staging + QStringLiteral("/next.xcactivitylog");
        QFile::remove(copy);
        if (!QFile::copy(source, copy)) {
            std::fprintf(stderr, "capture: cannot copy %s\n", qPrintable(source));
            return 1;
        }
        const QString log = buildLogs + QStringLiteral("/Build-%1.xcactivitylog").arg(run);
        // A build ends at any moment of the watcher's pause; without this each
        // run would start right after the previous poll and wait the whole
        // interval.
        runEventLoopFor(int(QRandomGenerator::global()->bounded(int(XcodeBuildWatcher::pollInterval.count()))));
        marks = Marks{};
        const double startRss = currentResidentMiB();
        resetPeakResident();
        const auto cpuBefore = cpuSeconds();
        marks.placed = clock.nsecsElapsed();
        if (!QFile::rename(copy, log)) {
            std::fprintf(stderr, "capture: cannot move the log into DerivedData\n");
            return 1;
        }
        QEventLoop loop;
        waiting = &loop;
        QTimer::singleShot(600 * 1000, &loop, &QEventLoop::quit);
        loop.exec();
        waiting = nullptr;
        if (marks.failure) {
            std::fprintf(stderr, "capture: the watcher failed: %s\n", qPrintable(*marks.failure));
            return 1;
        }
        if (marks.saved < 0) {
            std::fprintf(stderr, "capture: no capture within ten minutes\n");
            return 1;
        }

        const auto cpuAfter = cpuSeconds();
        RunTimes r;
        r.cpuSelf = cpuAfter.first - cpuBefore.first;
        r.cpuGzip = cpuAfter.second - cpuBefore.second;
        r.compared = run > 0;
        const auto seconds = [](qint64 from, qint64 to) { return double(to - from) / 1e9; };
        r.detect = seconds(marks.placed, marks.detected);
        r.read = seconds(marks.detected, marks.delivered);
        r.parseWhileReading = double(marks.parsingBlocks) / 1e9;
        r.record = seconds(marks.delivered, marks.recorded);
        r.save = seconds(marks.recorded, marks.saved);
        r.total = seconds(marks.placed, marks.saved);
        r.textBytes = marks.textBytes;
        r.decompressedBytes = recordedUncompressedSize(log);
        const BuildSession& session = store.sessions().first();
        r.diagnostics = session.diagnostics.size();
        r.newDiagnostics = session.comparison.newDiagnosticIDs.size();
        r.fixedDiagnostics = session.comparison.fixedDiagnostics.size();
        r.historyBytes = QFileInfo(historyFile).size();
        r.peakRssMiB = peakResidentKiB() / 1024.0;
        r.runPeakRssMiB = peakResidentSinceResetKiB() / 1024.0;
        r.startRssMiB = startRss;
        printRun(run, r);
        runs.push_back(r);

        // The last log stays for the breakdown below; the others go, to keep
        // the disk use down. The watcher takes a vanished log in its stride.
        if (!lastLog.isEmpty())
            QFile::remove(lastLog);
        lastLog = log;
    }
    watcher.stop();

    const double peakMiB = peakResidentKiB() / 1024.0;
    const RunTimes& last = runs.back();
    std::vector<double> totals, detects, reads, records, saves, afterDetection, runPeaks;
    for (const RunTimes& r : runs) {
        if (!r.compared)
            continue;
        totals.push_back(r.total);
        detects.push_back(r.detect);
        reads.push_back(r.read);
        records.push_back(r.record);
        saves.push_back(r.save);
        afterDetection.push_back(r.total - r.detect);
        runPeaks.push_back(r.runPeakRssMiB * 1024.0 * 1024.0 / double(std::max<qsizetype>(r.textBytes, 1)));
    }
    std::printf("\nlog: %.1f MB compressed, %.1f MiB decompressed, %.1f MiB text; %lld diagnostics\n",
                double(QFileInfo(lastLog).size()) / 1e6, double(last.decompressedBytes) / (1024.0 * 1024.0),
                double(last.textBytes) / (1024.0 * 1024.0), qlonglong(last.diagnostics));
    std::printf("compared runs, median of %zu: total %.2f s = detect %.2f + read %.2f + parse/compare %.2f + "
                "save %.2f\n",
                totals.size(), median(totals), median(detects), median(reads), median(records), median(saves));
    // Each compared run starts with one more earlier build in the history,
    // which the save writes again and memory holds.
    std::printf("compared runs after detection: median %.2f s, with the mean wait for the next poll (%.2f s) %.2f s; "
                "each run's own peak: median %.2f x the text, the last (%zu earlier builds) %.2f x\n",
                median(afterDetection), double(XcodeBuildWatcher::pollInterval.count()) / 2000.0,
                median(afterDetection) + double(XcodeBuildWatcher::pollInterval.count()) / 2000.0, median(runPeaks),
                runs.size() - 1, runPeaks.empty() ? 0.0 : runPeaks.back());
    std::printf("peak RSS %.0f MiB = %.2f x the text, %.2f x the decompressed log; RSS now %.0f MiB\n", peakMiB,
                peakMiB * 1024.0 * 1024.0 / double(std::max<qsizetype>(last.textBytes, 1)),
                peakMiB * 1024.0 * 1024.0 / double(std::max<quint64>(last.decompressedBytes, 1)), currentResidentMiB());
    std::printf("load average after: %s\n", qPrintable(loadAverage()));
    std::fflush(stdout);

    // Each step once more on its own, on the last log, for the breakdown of
    // the steps the shims cannot separate. Not part of the figures above.
    QElapsedTimer timer;
    timer.start();
    const double gzipAlone = timeGzipAlone(lastLog);
    timer.restart();
    Result<QByteArray> text = readActivityLog(lastLog);
    const double readAlone = secondsOf(timer);
    if (!text) {
        std::fprintf(stderr, "capture: %s\n", qPrintable(text.error().description));
        return 1;
    }
    const DiagnosticParser parser;
    timer.restart();
    QList<BuildDiagnostic> diagnostics =
        parser.parse(std::string_view(text.value().constData(), size_t(text.value().size())));
    const double parseAlone = secondsOf(timer);
    text = QByteArray();
    const QList<BuildSession> sessions = store.sessions();
    timer.restart();
    const BuildComparison comparison = compareDiagnostics(diagnostics, sessions.value(1).diagnostics);
    const double compareAlone = secondsOf(timer);
    // Again as a capture compares: taking the earlier build's texts, and
    // freeing the ones this list held alone.
    timer.restart();
    (void)compareDiagnosticsSharingTexts(diagnostics, sessions.value(1).diagnostics);
    const double compareSharingAlone = secondsOf(timer);
    const BuildHistoryPersistence persistence;
    timer.restart();
    const bool saved = bool(persistence.save(sessions));
    const double saveAlone = secondsOf(timer);
    // The same persistence again: what a save costs when no session is new.
    timer.restart();
    (void)persistence.save(sessions);
    const double saveAgain = secondsOf(timer);
    DiscardingDevice nowhere;
    const double residentBeforeEncoding = currentResidentMiB();
    resetPeakResident();
    timer.restart();
    BuildHistoryWriter::write({1, AbsoluteTime::now(), sessions}, nowhere);
    const double encodeAlone = secondsOf(timer);
    const double encodingMiB = peakResidentSinceResetKiB() / 1024.0 - residentBeforeEncoding;
    timer.restart();
    const Result<QList<BuildSession>> loaded = persistence.load();
    const double loadAlone = secondsOf(timer);
    std::printf(
        "breakdown on the last log: gzip -dc alone %.2f s; read (gzip + extraction) %.2f s; parse %.2f s; "
        "compare %.3f s (%lld new), sharing texts %.3f s; save of %lld sessions %.2f s%s, again %.2f s, of which encoding %.2f s "
        "(%.0f MiB on top of %.0f MiB resident); load %.2f s%s\n",
        gzipAlone, readAlone, parseAlone, compareAlone, qlonglong(comparison.newDiagnosticIDs.size()),
        compareSharingAlone, qlonglong(sessions.size()), saveAlone, saved ? "" : " (failed)", saveAgain, encodeAlone,
        encodingMiB, residentBeforeEncoding, loadAlone, loaded && loaded.value() == sessions ? "" : " (differs)");
    std::printf("compared runs' median total / gzip -dc alone: %.2f\n", median(totals) / gzipAlone);
    return 0;
}

const RegisterBenchCommand registration("capture",
                                        "[--mb N] [--diagnostics-per-mb D] [--runs R] [--work DIR] [--log FILE]...",
                                        runCaptureBench);

} // namespace
} // namespace corvane::bench
