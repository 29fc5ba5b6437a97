#include "BenchCommand.h"
#include "DiagnosticParser.h"
#include "ParserCandidates.h"
#include "TranscriptGenerator.h"

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
    std::string output;
    for (std::size_t i = 0; i < arguments.size(); ++i) {
        if (arguments[i] == "--mb" && i + 1 < arguments.size())
            megabytes = std::stoul(arguments[++i]);
        else if (arguments[i] == "--seed" && i + 1 < arguments.size())
            seed = std::uint32_t(std::stoul(arguments[++i]));
        else
            output = arguments[i];
    }
    if (output.empty()) {
        std::fprintf(stderr, "gen-log: no output file\n");
        return 2;
    }
    const std::string text = generateTranscript(megabytes * 1024 * 1024, seed);
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

double secondsSince(Clock::time_point start)
{
    return std::chrono::duration<double>(Clock::now() - start).count();
}

double megabytesPerSecond(std::size_t bytes, double seconds)
{
    return double(bytes) / 1e6 / seconds;
}

void appendJsonString(std::string& out, const QString& text)
{
    const QByteArray utf8 = text.toUtf8();
    out += '"';
    for (const char ch : utf8) {
        const auto c = static_cast<unsigned char>(ch);
        switch (c) {
        case '"': out += "\\\""; break;
        case '\\': out += "\\\\"; break;
        case '\n': out += "\\n"; break;
        case '\r': out += "\\r"; break;
        case '\t': out += "\\t"; break;
        case '\b': out += "\\b"; break;
        case '\f': out += "\\f"; break;
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

// Times parse() as a whole and, separately, each pass's search, so that a
// slow pass shows itself.
int timeFile(const DiagnosticParser& parser, const std::string& path)
{
    const std::optional<std::string> text = readWholeFile(path);
    if (!text) {
        std::fprintf(stderr, "parse: cannot read %s\n", path.c_str());
        return 1;
    }
    auto start = Clock::now();
    const QList<BuildDiagnostic> found = parser.parse(*text);
    const double total = secondsSince(start);
    std::printf("%s: %zu bytes, %lld diagnostics, %.4f s, %.5g MB/s\n", path.c_str(), text->size(),
                static_cast<long long>(found.size()), total, megabytesPerSecond(text->size(), total));

    start = Clock::now();
    const bool separators = hasPieceSeparators(*text);
    const double scan = secondsSince(start);
    const std::string copy = separators ? withPieceSeparatorsAsLineFeeds(*text) : std::string();
    const std::string_view normalised = separators ? std::string_view(copy) : std::string_view(*text);
    start = Clock::now();
    const std::size_t located = parser.locatedMatches(normalised).size();
    const double locatedSeconds = secondsSince(start);
    start = Clock::now();
    const std::size_t simple = parser.simpleMatches(normalised).size();
    const double simpleSeconds = secondsSince(start);
    std::printf("  separator scan %.4f s (%.5g MB/s); located pass %zu matches, %.4f s (%.5g MB/s); "
                "simple pass %zu matches, %.4f s (%.5g MB/s)\n",
                scan, megabytesPerSecond(text->size(), scan), located, locatedSeconds,
                megabytesPerSecond(text->size(), locatedSeconds), simple, simpleSeconds,
                megabytesPerSecond(text->size(), simpleSeconds));
    return 0;
}

int parseFiles(const std::vector<std::string>& arguments)
{
    bool dump = false;
    std::vector<std::string> paths;
    for (const std::string& argument : arguments) {
        if (argument == "--dump")
            dump = true;
        else
            paths.push_back(argument);
    }
    if (paths.empty()) {
        std::fprintf(stderr, "parse: no file\n");
        return 2;
    }
    const DiagnosticParser parser;
    int status = 0;
    for (const std::string& path : paths)
        status |= dump ? dumpFile(parser, path) : timeFile(parser, path);
    return status;
}

RegisterBenchCommand genLog("gen-log", "[--mb N] [--seed S] OUT", generateLog);
RegisterBenchCommand parse("parse", "[--dump] FILE...", parseFiles);

} // namespace

} // namespace corvane::bench
