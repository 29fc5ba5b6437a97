#pragma once

#include <future>
#include <system_error>
#include <type_traits>

namespace corvane {

// Starts work on a thread of its own while the caller goes on with something
// else, when it is worth a thread and one is to be had; otherwise the work
// runs on the caller's thread when its result is asked for. For splitting up
// work that the caller then waits for: nothing is locked.
template <typename Work>
std::future<std::invoke_result_t<Work>> startBeside(Work work, bool worthAThread = true)
{
    if (worthAThread) {
        try {
            return std::async(std::launch::async, work);
        } catch (const std::system_error&) {}
    }
    return std::async(std::launch::deferred, std::move(work));
}

} // namespace corvane
