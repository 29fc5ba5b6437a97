#include "BenchCommand.h"
#include "DiagnosticParser.h"
#include "Measurements.h"
#include "ParserCandidates.h"
#include "ParserPatterns.h"
#include "ParserSearch.h"
#include "TranscriptGenerator.h"

#include <QProcess>
#include <QTemporaryFile>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <fstream>
#include <optional>
#include <sstream>

namespace corvane::bench {

namespace {

std::optional<std::string> readWholeFile(const std::string& path)
{
    std::ifstream in(path, std::ios::binary);
    if (!in)
        return std::nullopt;
    std::ostringstream buffer;
    buffer << in.rdbuf();
    return std::move(buffer).str();
}

int generateLog(const std::vector<std::string>& arguments)
{
    std::size_t megabytes = 100;
    std::uint32_t seed = 1;
    TranscriptShape shape;
    std::string output;
    for (std::size_t i = 0; i < arguments.size(); ++i) {
        if (arguments[i] == "--mb" && i + 1 < arguments.size())
            megabytes = std::stoul(arguments[++i]);
        else if (arguments[i] == "--seed" && i + 1 < arguments.size())
            seed = std::uint32_t(std::stoul(arguments[++i]));
        else if (arguments[i] == "--diagnostics-per-mb" && i + 1 < arguments.size())
            shape.diagnosticsPerMebibyte = std::stod(arguments[++i]);
        else
            output = arguments[i];
    }
    if (output.empty()) {
        std::fprintf(stderr, "gen-log: no output file\n");
        return 2;
    }
    const std::string text = generateTranscript(megabytes * 1024 * 1024, seed, shape);
    std::ofstream out(output, std::ios::binary);
    out.write(text.data(), std::streamsize(text.size()));
    if (!out) {
        std::fprintf(stderr, "gen-log: cannot write %s\n", output.c_str());
        return 1;
    }
    std::printf("%s: %zu bytes\n", output.c_str(), text.size());
    return 0;
}

using Clock = std::chrono::steady_clock;

double secondsSince(Clock::time_point start) { return std::chrono::duration<double>(Clock::now() - start).count(); }

double megabytesPerSecond(std::size_t bytes, double seconds) { return double(bytes) / 1e6 / seconds; }

void appendJsonString(std::string& out, const QString& text)
{
    const QByteArray utf8 = text.toUtf8();
    out += '"';
    for (const char ch : utf8) {
        const auto c = static_cast<unsigned char>(ch);
        switch (c) {
        case '"':
            out += "\\\"";
            break;
        case '\\':
            out += "\\\\";
            break;
        case '\n':
            out += "\\n";
            break;
        case '\r':
            out += "\\r";
            break;
        case '\t':
            out += "\\t";
            break;
        case '\b':
            out += "\\b";
            break;
        case '\f':
            out += "\\f";
            break;
        default:
            if (c < 0x20) {
                char escaped[8];
                std::snprintf(escaped, sizeof escaped, "\\u%04x", c);
                out += escaped;
            } else {
                out += ch;
            }
        }
    }
    out += '"';
}

std::string dumpLine(const BuildDiagnostic& d)
{
    std::string out = "{\"severity\":";
    appendJsonString(out, rawValue(d.severity));
    if (d.filePath) {
        out += ",\"filePath\":";
        appendJsonString(out, *d.filePath);
    }
    if (d.line)
        out += ",\"line\":" + std::to_string(*d.line);
    if (d.column)
        out += ",\"column\":" + std::to_string(*d.column);
    out += ",\"message\":";
    appendJsonString(out, d.message);
    out += ",\"rawText\":";
    appendJsonString(out, d.rawText);
    out += '}';
    return out;
}

int dumpFile(const DiagnosticParser& parser, const std::string& path)
{
    const std::optional<std::string> text = readWholeFile(path);
    if (!text) {
        std::fprintf(stderr, "parse: cannot read %s\n", path.c_str());
        return 1;
    }
    const QList<BuildDiagnostic> found = parser.parse(*text);
    for (const BuildDiagnostic& d : found)
        std::printf("%s\n", dumpLine(d).c_str());
    return 0;
}

// Reads and parses the file once and prints the count: the whole process
// can then be timed against another program.
int parseOnce(const DiagnosticParser& parser, const std::string& path)
{
    const std::optional<std::string> text = readWholeFile(path);
    if (!text) {
        std::fprintf(stderr, "parse: cannot read %s\n", path.c_str());
        return 1;
    }
    std::printf("%lld\n", static_cast<long long>(parser.parse(*text).size()));
    return 0;
}

std::string utf8Of(std::u16string_view pattern)
{
    return QString::fromUtf16(pattern.data(), qsizetype(pattern.size())).toStdString();
}

// grep splits lines at LF alone, so on a log whose lines end in CR it would
// see one line and stop at its first match. It gets a copy with LF instead,
// which gives it the same lines the parser sees.
std::optional<std::string> writeLineFeedCopy(const std::string& text)
{
    QTemporaryFile file;
    file.setAutoRemove(false);
    if (!file.open())
        return std::nullopt;
    std::string copy = text;
    std::replace(copy.begin(), copy.end(), '\r', '\n');
    if (file.write(copy.data(), qint64(copy.size())) != qint64(copy.size()))
        return std::nullopt;
    return file.fileName().toStdString();
}

// Seconds of "grep -P -i -c PATTERN FILE" with its output going to a pipe:
// grep stops at the first match when its output is /dev/null.
std::optional<double> timeGrep(const std::string& pattern, const std::string& path, long long& count)
{
    QProcess grep;
    const auto start = Clock::now();
    grep.start(QStringLiteral("grep"),
               {QStringLiteral("-P"), QStringLiteral("-i"), QStringLiteral("-c"), QString::fromStdString(pattern),
                QString::fromStdString(path)});
    if (!grep.waitForFinished(-1) || grep.exitStatus() != QProcess::NormalExit || grep.exitCode() > 1)
        return std::nullopt;
    const double seconds = secondsSince(start);
    count = grep.readAllStandardOutput().trimmed().toLongLong();
    return seconds;
}

struct ParseTimes {
    double whole = 0;
    std::vector<double> stages;
    long long diagnostics = 0;
    std::size_t located = 0;
    std::size_t simple = 0;
};

const std::array<const char*, 4> stageNames = {"colon and separator scan", "located search", "simple search",
                                               "records and duplicates"};

// parse() as a whole, then the same work stage by stage, so that the stages
// add up to the whole and a slow one shows itself.
ParseTimes timeParse(const DiagnosticParser& parser, const std::string& text)
{
    ParseTimes times;
    // Each result is freed after its time is taken: the caller keeps it.
    auto start = Clock::now();
    const QList<BuildDiagnostic> found = parser.parse(text);
    times.whole = secondsSince(start);
    times.diagnostics = found.size();

    start = Clock::now();
    Candidates candidates = findCandidates(text);
    std::string copy;
    if (candidates.hasPieceSeparators) {
        copy = withPieceSeparatorsAsLineFeeds(text);
        candidates = findCandidates(copy);
    }
    const std::string_view normalised = candidates.hasPieceSeparators ? std::string_view(copy) : std::string_view(text);
    times.stages.push_back(secondsSince(start));
    const DiagnosticParser::Patterns& patterns = parser.patterns();
    PassMatches matches;
    start = Clock::now();
    if (patterns.location && patterns.locationTail)
        matches.located =
            findLocatedAtCandidates(*patterns.location, *patterns.locationTail, normalised, candidates.extensions);
    times.stages.push_back(secondsSince(start));
    start = Clock::now();
    if (patterns.simple)
        matches.simple = findSimpleAtCandidates(*patterns.simple, normalised, candidates.severityWords);
    times.stages.push_back(secondsSince(start));
    start = Clock::now();
    const QList<BuildDiagnostic> records = DiagnosticParser::diagnosticsFromMatches(normalised, matches);
    times.stages.push_back(secondsSince(start));
    times.located = matches.located.size();
    times.simple = matches.simple.size();
    return times;
}

// Times parse() and its stages against grep -P on the same text, the two
// taking turns so that a change in the machine's load favours neither.
int timeFile(const DiagnosticParser& parser, const std::string& path, int repeat)
{
    const std::optional<std::string> text = readWholeFile(path);
    if (!text) {
        std::fprintf(stderr, "parse: cannot read %s\n", path.c_str());
        return 1;
    }
    const std::optional<std::string> grepFile = writeLineFeedCopy(*text);
    if (!grepFile) {
        std::fprintf(stderr, "parse: cannot write a copy for grep\n");
        return 1;
    }
    const std::string pattern = utf8Of(DiagnosticParser::locationPattern);
    std::vector<double> wholes, greps, ratios;
    std::vector<std::vector<double>> stages(stageNames.size());
    ParseTimes last;
    long long grepCount = 0;
    for (int run = 0; run < repeat; ++run) {
        const std::optional<double> grep = timeGrep(pattern, *grepFile, grepCount);
        if (!grep) {
            std::fprintf(stderr, "parse: grep -P failed\n");
            std::remove(grepFile->c_str());
            return 1;
        }
        last = timeParse(parser, *text);
        wholes.push_back(last.whole);
        greps.push_back(*grep);
        ratios.push_back(last.whole / *grep);
        for (std::size_t i = 0; i < stageNames.size(); ++i)
            stages[i].push_back(last.stages[i]);
    }
    std::remove(grepFile->c_str());

    const double mib = double(text->size()) / (1024.0 * 1024.0);
    std::printf("%s: %zu bytes, %lld diagnostics (%zu located matches, %.0f per MiB; %zu simple)\n", path.c_str(),
                text->size(), last.diagnostics, last.located, double(last.located) / mib, last.simple);
    std::printf("  runs %d, medians: parse %.4f s (%.5g MB/s); grep -P -i -c %.4f s (%.5g MB/s, %lld lines)\n", repeat,
                median(wholes), megabytesPerSecond(text->size(), median(wholes)), median(greps),
                megabytesPerSecond(text->size(), median(greps)), grepCount);
    std::printf("  ratio parse / grep: median %.2f\n", median(ratios));
    double sum = 0;
    std::printf("  stages:");
    for (std::size_t i = 0; i < stageNames.size(); ++i) {
        sum += median(stages[i]);
        std::printf("%s %s %.4f s", i == 0 ? "" : ";", stageNames[i], median(stages[i]));
    }
    std::printf("; sum %.4f s\n", sum);
    return 0;
}

int parseFiles(const std::vector<std::string>& arguments)
{
    bool dump = false;
    bool once = false;
    int repeat = 5;
    std::vector<std::string> paths;
    for (std::size_t i = 0; i < arguments.size(); ++i) {
        if (arguments[i] == "--dump")
            dump = true;
        else if (arguments[i] == "--once")
            once = true;
        else if (arguments[i] == "--repeat" && i + 1 < arguments.size())
            repeat = std::max(1, std::stoi(arguments[++i]));
        else
            paths.push_back(arguments[i]);
    }
    if (paths.empty()) {
        std::fprintf(stderr, "parse: no file\n");
        return 2;
    }
    const DiagnosticParser parser;
    int status = 0;
    for (const std::string& path : paths) {
        if (once)
            status |= parseOnce(parser, path);
        else
            status |= dump ? dumpFile(parser, path) : timeFile(parser, path, repeat);
    }
    return status;
}

RegisterBenchCommand genLog("gen-log", "[--mb N] [--seed S] [--diagnostics-per-mb D] OUT", generateLog);
RegisterBenchCommand parse("parse", "[--dump | --once | --repeat N] FILE...", parseFiles);

} // namespace

} // namespace corvane::bench
