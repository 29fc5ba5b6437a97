#include "ActivityLogReader.h"
#include "BenchCommand.h"
#include "CheckCommand.h"
#include "Measurements.h"

#include <QBuffer>
#include <QElapsedTimer>
#include <QFileInfo>
#include <QProcess>
#include <QTemporaryDir>

#include <algorithm>
#include <cstdio>

namespace corvane::bench {

namespace {

// The whole check as the program runs it, reports written to files.
int runCheck(const QStringList& arguments)
{
    QBuffer input;
    QBuffer output;
    QBuffer errors;
    input.open(QIODevice::ReadOnly);
    output.open(QIODevice::WriteOnly);
    errors.open(QIODevice::WriteOnly);
    const int code = CheckCommand::run(arguments, {input, output, errors, false});
    if (code == CheckCommand::badInput)
        std::fprintf(stderr, "check: %s", errors.data().constData());
    return code;
}

// The baseline file must exist before the run: making it here would read a
// second log in this process and spoil the peak memory figure.
int checkCommand(const std::vector<std::string>& arguments)
{
    int repeat = 3;
    std::vector<QString> files;
    for (std::size_t i = 0; i < arguments.size(); ++i) {
        if (arguments[i] == "--repeat" && i + 1 < arguments.size())
            repeat = std::max(1, std::stoi(arguments[++i]));
        else
            files.push_back(QString::fromStdString(arguments[i]));
    }
    if (files.size() != 2) {
        std::fprintf(stderr, "check: give a log and a baseline file (corvane-check --write-baseline)\n");
        return 2;
    }
    const QString& log = files[0];
    QTemporaryDir reports;
    const QStringList checkArguments{log,
                                     QStringLiteral("--baseline"),
                                     files[1],
                                     QStringLiteral("--fail-on"),
                                     QStringLiteral("never"),
                                     QStringLiteral("--format"),
                                     QStringLiteral("sarif=") + reports.filePath(QStringLiteral("report.sarif")),
                                     QStringLiteral("--format"),
                                     QStringLiteral("text=") + reports.filePath(QStringLiteral("report.txt"))};

    const long startRss = peakResidentKiB();
    const std::optional<RunsAgainstGzip> runs =
        timeAgainstGzip(log, repeat, [&] { return runCheck(checkArguments) != CheckCommand::badInput; });
    if (!runs)
        return 1;
    const long peakRss = peakResidentKiB();
    // Measured last, so holding the text here cannot raise the peak above.
    const Result<QByteArray> text = readActivityLog(log);
    const double textBytes = text ? double(text.value().size()) : 0;

    const double checkMedian = median(runs->seconds);
    const double gzipMedian = median(runs->gzipSeconds);
    std::printf("file:                   %s\n", qPrintable(log));
    std::printf("decompressed bytes:     %llu (gzip trailer)\n",
                static_cast<unsigned long long>(recordedUncompressedSize(log)));
    std::printf("text bytes:             %.0f\n", textBytes);
    std::printf("runs:                   %d\n", repeat);
    std::printf("check seconds:          median %.3f\n", checkMedian);
    std::printf("gzip -dc alone seconds: median %.3f\n", gzipMedian);
    std::printf("ratio check / gzip:     median %.2f\n", checkMedian / gzipMedian);
    // On a busy machine wall time follows the load; processor time shows
    // what the check adds to gzip's own work.
    std::printf("cpu seconds (median):   gzip alone %.3f; check: gzip %.3f + check %.3f\n", median(runs->gzipCpu),
                median(runs->childCpu), median(runs->cpu));
    std::printf("peak RSS:               %.1f MiB (%.1f MiB before checking)\n", peakRss / 1024.0, startRss / 1024.0);
    if (textBytes > 0)
        std::printf("peak RSS / text:        %.2f\n", peakRss * 1024.0 / textBytes);
    return 0;
}

RegisterBenchCommand checkRegistration("check", "[--repeat N] LOG BASELINE.json", checkCommand);

} // namespace

} // namespace corvane::bench
