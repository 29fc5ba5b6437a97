#include "BenchCommand.h"
#include "DiagnosticParser.h"
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

int parseFiles(const std::vector<std::string>& arguments)
{
    const DiagnosticParser parser;
    int status = 0;
    for (const std::string& path : arguments) {
        const std::optional<std::string> text = readWholeFile(path);
        if (!text) {
            std::fprintf(stderr, "parse: cannot read %s\n", path.c_str());
            status = 1;
            continue;
        }
        const auto start = std::chrono::steady_clock::now();
        const QList<BuildDiagnostic> found = parser.parse(*text);
        const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
        std::printf("%s: %zu bytes, %lld diagnostics, %.3f s, %.1f MB/s\n", path.c_str(), text->size(),
                    static_cast<long long>(found.size()), seconds, double(text->size()) / 1e6 / seconds);
    }
    return status;
}

RegisterBenchCommand genLog("gen-log", "[--mb N] [--seed S] OUT", generateLog);
RegisterBenchCommand parse("parse", "FILE...", parseFiles);

} // namespace

} // namespace corvane::bench
