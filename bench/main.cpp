#include "BenchCommand.h"

#include <QCoreApplication>
#ifdef CORVANE_BENCH_WITH_UI
#include <QApplication>
#endif

#include <cstdio>
#include <cstring>
#include <memory>

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
    // The ui command draws real widgets, which need a widget application
    // and, without a display, the offscreen platform.
    std::unique_ptr<QCoreApplication> app;
#ifdef CORVANE_BENCH_WITH_UI
    if (argc >= 2 && std::strcmp(argv[1], "ui") == 0) {
        if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
            qputenv("QT_QPA_PLATFORM", "offscreen");
        app = std::make_unique<QApplication>(argc, argv);
    }
#endif
    if (!app)
        app = std::make_unique<QCoreApplication>(argc, argv);
    if (argc < 2 || !benchCommands().count(argv[1])) {
        std::fprintf(stderr, "usage: corvane-bench COMMAND ...\n");
        for (const auto& [name, info] : benchCommands())
            std::fprintf(stderr, "  corvane-bench %s %s\n", name.c_str(), info.usage.c_str());
        return 2;
    }
    const std::vector<std::string> arguments(argv + 2, argv + argc);
    return benchCommands().at(argv[1]).run(arguments);
}
