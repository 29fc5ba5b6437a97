#include "BenchCommand.h"

#include <QCoreApplication>

#include <cstdio>

namespace corvane::bench {

std::map<std::string, BenchCommandInfo>& benchCommands()
{
    static std::map<std::string, BenchCommandInfo> commands;
    return commands;
}

} // namespace corvane::bench

int main(int argc, char* argv[])
{
    using namespace corvane::bench;
    QCoreApplication app(argc, argv);
    if (argc < 2 || !benchCommands().count(argv[1])) {
        std::fprintf(stderr, "usage: corvane-bench COMMAND ...\n");
        for (const auto& [name, info] : benchCommands())
            std::fprintf(stderr, "  corvane-bench %s %s\n", name.c_str(), info.usage.c_str());
        return 2;
    }
    const std::vector<std::string> arguments(argv + 2, argv + argc);
    return benchCommands().at(argv[1]).run(arguments);
}
