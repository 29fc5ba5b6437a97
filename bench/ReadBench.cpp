#include "ActivityLogReader.h"
#include "BenchCommand.h"
#include "Measurements.h"
#include "TranscriptGenerator.h"

#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QProcess>

#include <algorithm>
#include <cstdio>
#include <random>

namespace corvane::bench {

namespace {

const QString gzipProgram = QStringLiteral("/usr/bin/gzip");

int readCommand(const std::vector<std::string>& arguments)
{
    int repeat = 5;
    bool once = false;
    QString path;
    for (std::size_t i = 0; i < arguments.size(); ++i) {
        if (arguments[i] == "--repeat" && i + 1 < arguments.size())
            repeat = std::max(1, std::stoi(arguments[++i]));
        else if (arguments[i] == "--once")
            once = true;
        else
            path = QString::fromStdString(arguments[i]);
    }
    if (path.isEmpty()) {
        std::fprintf(stderr, "read: no file\n");
        return 2;
    }
    // The reading the watcher does: the text in blocks, each handed on as it
    // fills (here let go at once). False after a failure.
    qsizetype textBytes = 0;
    const auto read = [&] {
        textBytes = 0;
        const Result<void> done = readActivityLogInBlocks(path, [&](QByteArray block) { textBytes += block.size(); });
        if (!done) {
            std::fprintf(stderr, "read: %s\n", qPrintable(done.error().description));
            return false;
        }
        return true;
    };
    if (once) {
        // The reading alone, for timing the whole process against gzip.
        if (!read())
            return 1;
        std::printf("%lld\n", static_cast<long long>(textBytes));
        return 0;
    }

    const long startRss = peakResidentKiB();
    const std::optional<RunsAgainstGzip> runs = timeAgainstGzip(path, repeat, read);
    if (!runs)
        return 1;
    const long peakRss = peakResidentKiB();

    const quint64 decompressed = recordedUncompressedSize(path);
    const double readMedian = median(runs->seconds);
    const double gzipMedian = median(runs->gzipSeconds);
    const double readBest = *std::min_element(runs->seconds.begin(), runs->seconds.end());
    const double gzipBest = *std::min_element(runs->gzipSeconds.begin(), runs->gzipSeconds.end());
    std::printf("file:                   %s\n", qPrintable(path));
    std::printf("bytes in (compressed):  %lld\n", static_cast<long long>(QFileInfo(path).size()));
    std::printf("decompressed bytes:     %llu (gzip trailer)\n", static_cast<unsigned long long>(decompressed));
    std::printf("text bytes out:         %lld\n", static_cast<long long>(textBytes));
    std::printf("runs:                   %d\n", repeat);
    std::printf("read seconds:           median %.3f  best %.3f\n", readMedian, readBest);
    std::printf("gzip -dc alone seconds: median %.3f  best %.3f\n", gzipMedian, gzipBest);
    std::printf("ratio read / gzip:      median %.2f  best %.2f\n", readMedian / gzipMedian, readBest / gzipBest);
    // On a busy machine wall time depends on what else runs; the processor
    // time shows what the reading itself adds to gzip's work.
    std::printf("cpu seconds (median):   gzip alone %.3f; read: gzip %.3f + reader %.3f\n", median(runs->gzipCpu),
                median(runs->childCpu), median(runs->cpu));
    std::printf("peak RSS:               %.1f MiB (%.1f MiB before reading)\n", peakRss / 1024.0, startRss / 1024.0);
    if (decompressed > 0)
        std::printf("peak RSS / decompressed: %.2f\n", peakRss * 1024.0 / static_cast<double>(decompressed));
    return 0;
}

// Wraps a transcript in framing like Xcode's SLF activity logs: a header,
// integers ended by '#', strings as a length, '"' and the bytes, and binary
// bytes between records, so the reader has runs to find and noise to drop.
std::string frameAsActivityLog(const std::string& transcript, std::uint32_t seed)
{
    std::mt19937 random(seed);
    std::string log;
    log.reserve(transcript.size() + transcript.size() / 16 + 64);
    log += "SLF0";
    static const char separators[] = {'\0', '\x01', '\x02', '\x05', '\x12', '\x1F', '\x7F'};
    std::size_t offset = 0;
    std::uint64_t record = 0;
    while (offset < transcript.size()) {
        // One record holds a few lines of the transcript.
        std::size_t end = offset;
        for (int lines = 1 + random() % 12; lines > 0 && end < transcript.size(); --lines) {
            const std::size_t cr = transcript.find('\r', end);
            end = cr == std::string::npos ? transcript.size() : cr + 1;
        }
        log += std::to_string(record++) + '#';
        log += std::to_string(end - offset) + '"';
        log.append(transcript, offset, end - offset);
        offset = end;
        for (int n = 1 + random() % 3; n > 0; --n)
            log += separators[random() % std::size(separators)];
        // Now and then a few bytes of binary data: timestamps, UUIDs.
        if (random() % 4 == 0) {
            for (int n = 4 + random() % 12; n > 0; --n)
                log += static_cast<char>(random() % 256);
            log += '\0';
        }
    }
    return log;
}

int generateActivityLogCommand(const std::vector<std::string>& arguments)
{
    std::size_t megabytes = 100;
    std::uint32_t seed = 1;
    TranscriptShape shape;
    QString output;
    for (std::size_t i = 0; i < arguments.size(); ++i) {
        if (arguments[i] == "--mb" && i + 1 < arguments.size())
            megabytes = std::stoul(arguments[++i]);
        else if (arguments[i] == "--seed" && i + 1 < arguments.size())
            seed = static_cast<std::uint32_t>(std::stoul(arguments[++i]));
        else if (arguments[i] == "--diagnostics-per-mb" && i + 1 < arguments.size())
            shape.diagnosticsPerMebibyte = std::stod(arguments[++i]);
        else if (arguments[i] == "--variant" && i + 1 < arguments.size())
            shape.variant = static_cast<std::uint32_t>(std::stoul(arguments[++i]));
        else
            output = QString::fromStdString(arguments[i]);
    }
    if (output.isEmpty()) {
        std::fprintf(stderr, "gen-activity-log: no output file\n");
        return 2;
    }

    // The framing adds a few percent; aim the whole log at the requested size.
    const std::size_t target = megabytes * 1024 * 1024;
    const std::string log = frameAsActivityLog(generateTranscript(target - target / 40, seed, shape), seed);

    QProcess gzip;
    gzip.setStandardOutputFile(output);
    gzip.start(gzipProgram, {QStringLiteral("-c")});
    if (!gzip.waitForStarted(-1)) {
        std::fprintf(stderr, "gen-activity-log: %s\n", qPrintable(gzip.errorString()));
        return 1;
    }
    for (std::size_t offset = 0; offset < log.size();) {
        const std::size_t length = std::min<std::size_t>(log.size() - offset, 1 << 20);
        const qint64 written = gzip.write(log.data() + offset, static_cast<qint64>(length));
        if (written < 0)
            break;
        offset += static_cast<std::size_t>(written);
        while (gzip.bytesToWrite() > 0)
            gzip.waitForBytesWritten(-1);
    }
    gzip.closeWriteChannel();
    gzip.waitForFinished(-1);
    if (gzip.exitStatus() != QProcess::NormalExit || gzip.exitCode() != 0) {
        std::fprintf(stderr, "gen-activity-log: gzip failed\n");
        return 1;
    }
    std::printf("%s: %zu bytes decompressed, %lld compressed\n", qPrintable(output), log.size(),
                static_cast<long long>(QFileInfo(output).size()));
    return 0;
}

RegisterBenchCommand readRegistration("read", "[--repeat N | --once] FILE", readCommand);
RegisterBenchCommand generateRegistration("gen-activity-log",
                                          "[--mb N] [--seed S] [--diagnostics-per-mb D] [--variant V] OUT",
                                          generateActivityLogCommand);

} // namespace

} // namespace corvane::bench
