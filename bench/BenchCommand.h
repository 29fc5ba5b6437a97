#pragma once

#include <functional>
#include <map>
#include <string>
#include <vector>

namespace corvane::bench {

// A subcommand of corvane-bench: takes its own arguments, returns the exit code.
using BenchCommand = std::function<int(const std::vector<std::string>& arguments)>;

struct BenchCommandInfo {
    BenchCommand run;
    std::string usage;
};

std::map<std::string, BenchCommandInfo>& benchCommands();

// Put one of these at namespace scope in a command's file to register it.
struct RegisterBenchCommand {
    RegisterBenchCommand(const std::string& name, std::string usage, BenchCommand run)
    {
        benchCommands()[name] = {std::move(run), std::move(usage)};
    }
};

} // namespace corvane::bench
